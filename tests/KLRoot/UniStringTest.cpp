#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(UniString, Utf8RoundTripsEveryPlaneAndReplacesMalformedBytes) {
    const std::string text = "Fenêtre Straße 窓 \xF0\x9F\x9A\xAA"; // a door emoji outside the BMP
    const KL::UniString uni(text);
    EXPECT_EQ(uni.ToUTF8(), text);
    EXPECT_EQ(uni.GetLength(), 19u); // the emoji takes two UTF-16 units
    EXPECT_EQ(uni[17], 0xD83D);

    EXPECT_EQ(KL::UniString("a\xFF"
                            "b")
                  .ToUTF8(),
              "a\xEF\xBF\xBD"
              "b");                                                  // stray byte
    EXPECT_EQ(KL::UniString("a\xE2\x82").ToUTF8(), "a\xEF\xBF\xBD"); // truncated sequence
    const KL::UniChar lone[] = {u'x', 0xD800, u'y', 0};
    EXPECT_EQ(KL::UniString(lone).ToUTF8(), "x\xEF\xBF\xBDy"); // unpaired surrogate
}

TEST(UniString, CaseInsensitiveEqualityUsesFullCaseFolding) {
    const std::vector<std::pair<const char*, const char*>> equal = {
        {"Straße", "STRASSE"}, {"ÄBC", "äbc"}, {"Window", "wINDOW"}, {"ΣΊΣΥΦΟΣ", "σίσυφος"}, {"", ""}};
    for (const auto& [a, b] : equal) {
        const KL::UniString x(a);
        const KL::UniString y(b);
        EXPECT_TRUE(x.IsEqual(y, KL::CaseInsensitive)) << a << " / " << b;
        EXPECT_EQ(x.Compare(y, KL::CaseInsensitive), 0) << a << " / " << b;
        EXPECT_EQ(x.GenerateHashValue(KL::CaseInsensitive), y.GenerateHashValue(KL::CaseInsensitive)) << a;
    }
    EXPECT_FALSE(KL::UniString("ÄBC").IsEqual("äbc"));
    EXPECT_FALSE(KL::UniString("ÄBC").IsEqual("abc", KL::CaseInsensitive));
    EXPECT_FALSE(KL::UniString("Strasse1").IsEqual("Straße", KL::CaseInsensitive));

    KL::HashSet<KL::UniString, KL::CaseInsensitiveHash, KL::CaseInsensitiveEqual> names;
    names.Add("Straße");
    EXPECT_TRUE(names.Contains("STRASSE"));
}

TEST(UniString, OrdersByCodePointWithAndWithoutCase) {
    EXPECT_LT(KL::UniString("abc").Compare("abd"), 0);
    EXPECT_LT(KL::UniString("ab").Compare("abc"), 0);
    EXPECT_GT(KL::UniString("b").Compare("B"), 0);
    EXPECT_LT(KL::UniString("apple").Compare("Banana", KL::CaseInsensitive), 0);
    EXPECT_GT(KL::UniString("Zebra").Compare("apple", KL::CaseInsensitive), 0);
    // U+FF5E lies below U+1F6AA in code point order although its UTF-16 unit is larger.
    EXPECT_LT(KL::UniString("\xEF\xBD\x9E").Compare("\xF0\x9F\x9A\xAA"), 0);
    EXPECT_LT(KL::UniString("\xEF\xBD\x9E").Compare("\xF0\x9F\x9A\xAA", KL::CaseInsensitive), 0);
    // Mixed ASCII and non-ASCII must agree with folding: "strasse" sorts like "straße".
    EXPECT_EQ(KL::UniString("strasse").Compare("STRAßE", KL::CaseInsensitive), 0);
}

TEST(UniString, EditingOperations) {
    KL::UniString path("a/b/c/d");
    EXPECT_EQ(path.FindLast(u'/'), 5u);
    EXPECT_EQ(path.FindLast(KL::UniString("/c")), 3u);
    EXPECT_EQ(path.FindFirst(u'x'), KL::UniString::NotFound);
    EXPECT_EQ(KL::UniString().FindLast(u'/'), KL::UniString::NotFound);
    EXPECT_EQ(path.ReplaceAll("/", ":"), 3u);
    EXPECT_EQ(path, "a:b:c:d");

    KL::UniString overlapping("aaaa");
    EXPECT_EQ(overlapping.ReplaceAll("aa", "b"), 2u);
    EXPECT_EQ(overlapping, "bb");
    KL::UniString growing("x.x");
    EXPECT_EQ(growing.ReplaceAll("x", "xx"), 2u);
    EXPECT_EQ(growing, "xx.xx");
    EXPECT_EQ(growing.ReplaceAll("", "y"), 0u);

    const KL::UniString name("Door.KLM");
    EXPECT_EQ(name.GetSubstring(5), "KLM");
    EXPECT_EQ(name.GetSubstring(50), "");
    EXPECT_EQ(name.GetPrefix(4), "Door");
    EXPECT_EQ(name.GetSuffix(3), "KLM");
    EXPECT_TRUE(name.EndsWith(".klm", KL::CaseInsensitive));
    EXPECT_FALSE(name.EndsWith(".klm"));
    EXPECT_TRUE(name.BeginsWith("DOOR", KL::CaseInsensitive));
    EXPECT_EQ(KL::UniString("ǅungla").ToUpperCase(), "ǄUNGLA");
    EXPECT_EQ(KL::UniString("Straße").GetFolded(), "strasse");
}

TEST(UniString, StreamFormIsCountAndUnitsInChannelOrder) {
    for (const KL::PlatformSign sign : {KL::LittleEndianSign, KL::BigEndianSign}) {
        KL::MemoryOChannel out(sign);
        ASSERT_EQ(KL::UniString("Aé").Write(out), KL::NoError);
        const std::vector<char> bytes = out.TakeData();
        const std::vector<char> expected = sign == KL::LittleEndianSign
                                               ? std::vector<char>{2, 0, 0, 0, 'A', 0, '\xE9', 0}
                                               : std::vector<char>{0, 0, 0, 2, 0, 'A', 0, '\xE9'};
        EXPECT_EQ(bytes, expected);

        KL::MemoryIChannel in(bytes.data(), bytes.size(), sign);
        KL::UniString back;
        ASSERT_EQ(back.Read(in), KL::NoError);
        EXPECT_EQ(back, "Aé");
    }
}

TEST(UniString, HostileStreamsFailWithoutTouchingTheValue) {
    KL::UniString value("keep");
    // A count of 2^31 units with four bytes behind it: refused before any allocation.
    const char huge[] = {0, 0, 0, '\x80', 'a', 0, 'b', 0};
    KL::MemoryIChannel in(huge, sizeof huge);
    EXPECT_EQ(value.Read(in), KL::ErrStreamFormat);
    EXPECT_EQ(value, "keep");
    EXPECT_EQ(in.GetStatus(), KL::ErrStreamFormat);

    // Too short for its count by one unit.
    const char shortText[] = {3, 0, 0, 0, 'a', 0, 'b', 0};
    KL::MemoryIChannel in2(shortText, sizeof shortText);
    EXPECT_NE(value.Read(in2), KL::NoError);
    EXPECT_EQ(value, "keep");

    // Count cut in half.
    const char cut[] = {3, 0};
    KL::MemoryIChannel in3(cut, sizeof cut);
    EXPECT_EQ(value.Read(in3), KL::ErrEndOfData);
}

TEST(String, StreamFormRoundTripsAndRefusesHostileCounts) {
    KL::MemoryOChannel out(KL::BigEndianSign);
    ASSERT_EQ(KL::String("http://server/lib/").Write(out), KL::NoError);
    const std::vector<char> bytes = out.TakeData();
    ASSERT_EQ(bytes.size(), 4u + 18u);
    EXPECT_EQ(bytes[3], 18);
    KL::MemoryIChannel in(bytes.data(), bytes.size(), KL::BigEndianSign);
    KL::String back;
    ASSERT_EQ(back.Read(in), KL::NoError);
    EXPECT_EQ(back.Get(), "http://server/lib/");

    const char hostile[] = {'\xFF', '\xFF', '\xFF', '\xFF', 'x'};
    KL::MemoryIChannel in2(hostile, sizeof hostile);
    EXPECT_EQ(back.Read(in2), KL::ErrStreamFormat);
}

} // namespace
