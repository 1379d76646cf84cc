#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(Guid, TextFormRoundTripsAndRejectsMalformedText) {
    const KL::Guid guid("E666B724-587D-447a-B9A8-6248E3368E70");
    EXPECT_EQ(guid.ToString(), "E666B724-587D-447A-B9A8-6248E3368E70");
    EXPECT_EQ(guid.GetData1(), 0xE666B724u);
    EXPECT_EQ(guid.GetData2(), 0x587D);
    EXPECT_EQ(guid.GetData3(), 0x447A);
    EXPECT_EQ(guid.GetData4()[0], 0xB9);
    EXPECT_EQ(guid.GetData4()[7], 0x70);
    EXPECT_EQ(KL::Guid::Parse("{e666b724-587d-447a-b9a8-6248e3368e70}"), guid);
    EXPECT_EQ(KL::Guid::Parse(KL::UniString("E666B724-587D-447A-B9A8-6248E3368E70")), guid);

    for (const char* bad :
         {"", "E666B724-587D-447a-B9A8-6248E3368E7", "E666B724-587D-447a-B9A8-6248E3368E700",
          "E666B724_587D-447a-B9A8-6248E3368E70", "G666B724-587D-447a-B9A8-6248E3368E70",
          "{E666B724-587D-447a-B9A8-6248E3368E70", "E666B724587D447aB9A86248E3368E70xxxx"})
        EXPECT_FALSE(KL::Guid::Parse(bad).has_value()) << bad;
}

TEST(Guid, OrderIsFieldWiseAndHashesAreStable) {
    const KL::Guid low("00000001-0000-0000-0000-000000000000");
    const KL::Guid high("00000000-FFFF-FFFF-FFFF-FFFFFFFFFFFF");
    EXPECT_EQ(high.Compare(low), -1); // data1 decides before anything else
    EXPECT_EQ(low.Compare(high), 1);
    EXPECT_EQ(low.Compare(low), 0);
    EXPECT_TRUE(high < low);
    EXPECT_TRUE(KL::NULLGuid.IsNull());
    EXPECT_FALSE(low.IsNull());

    // The 16-bit hash xors the eight 16-bit words.
    EXPECT_EQ(KL::Guid("00010002-0004-0008-0010-002000400080").GetHashValue(), 0x00FF);
    EXPECT_EQ(KL::NULLGuid.GetHashValue(), 0);
}

TEST(Guid, GeneratedGuidsAreDistinctVersion4) {
    std::set<KL::Guid> seen;
    for (int i = 0; i < 1000; ++i) {
        const KL::Guid guid = KL::Guid::Generate();
        EXPECT_EQ(guid.GetData3() >> 12, 4);
        EXPECT_EQ(guid.GetData4()[0] & 0xC0, 0x80);
        EXPECT_TRUE(seen.insert(guid).second);
    }
}

TEST(Guid, RawFormFollowsByteOrder) {
    const KL::Guid guid("01020304-0506-0708-090A-0B0C0D0E0F10");
    unsigned char little[16];
    unsigned char big[16];
    guid.ToRaw(little, KL::LittleEndianSign);
    guid.ToRaw(big, KL::BigEndianSign);
    const unsigned char expectedLittle[16] = {4, 3, 2, 1, 6, 5, 8, 7, 9, 10, 11, 12, 13, 14, 15, 16};
    const unsigned char expectedBig[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    EXPECT_EQ(0, std::memcmp(little, expectedLittle, 16));
    EXPECT_EQ(0, std::memcmp(big, expectedBig, 16));
    EXPECT_EQ(KL::Guid::FromRaw(little, KL::LittleEndianSign), guid);
    EXPECT_EQ(KL::Guid::FromRaw(big, KL::BigEndianSign), guid);
}

TEST(UnID, ComparesMainGuidBeforeRevision) {
    const KL::Guid a("00000001-0000-0000-0000-000000000000");
    const KL::Guid b("00000002-0000-0000-0000-000000000000");
    EXPECT_LT(KL::UnID(a, b), KL::UnID(b, a));
    EXPECT_LT(KL::UnID(a, a), KL::UnID(a, b));
    EXPECT_TRUE(KL::NULLUnID.IsNull());
    EXPECT_FALSE(KL::UnID(KL::NULLGuid, a).IsNull());
    EXPECT_NE(std::hash<KL::UnID>{}(KL::UnID(a, b)), std::hash<KL::UnID>{}(KL::UnID(b, a)));
}

} // namespace
