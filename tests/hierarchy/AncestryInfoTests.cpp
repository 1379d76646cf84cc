// Ancestor chains: their operations, their "ANCS" bytes as a handle and as a stream, hostile
// sections, and the repair of chains that loop.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr KL::Guid RootMain("7A10C2E4-0B1D-4E2F-9A30-4B5C6D7E8F01");
constexpr KL::Guid RootRevision("7A10C2E4-0B1D-4E2F-9A30-4B5C6D7E8F02");
constexpr KL::Guid ParentMain("7A10C2E4-0B1D-4E2F-9A30-4B5C6D7E8F03");
constexpr KL::Guid ParentRevision("7A10C2E4-0B1D-4E2F-9A30-4B5C6D7E8F04");
constexpr KL::Guid OtherMain("7A10C2E4-0B1D-4E2F-9A30-4B5C6D7E8F05");
constexpr KL::Guid OtherRevision("7A10C2E4-0B1D-4E2F-9A30-4B5C6D7E8F06");
constexpr KL::UnID Root(RootMain, RootRevision);
constexpr KL::UnID Parent(ParentMain, ParentRevision);
constexpr KL::UnID Other(OtherMain, OtherRevision);

LM::AncestryInfo Chain(std::initializer_list<KL::UnID> ids) {
    LM::AncestryInfo info;
    for (const KL::UnID& id : ids)
        EXPECT_EQ(info.Append(id), 0);
    return info;
}

std::vector<KL::UnID> Ids(const LM::AncestryInfo& info) {
    std::vector<KL::UnID> ids;
    for (unsigned k = 1; k <= info.GetAncestorsCount(); ++k)
        ids.push_back(info.GetAncestorRef(k));
    return ids;
}

std::string Bytes(const KL::ScopedHandle& handle) {
    return std::string(handle.GetData(), handle.GetSize());
}

std::uint32_t Word(const std::string& bytes, std::size_t offset) {
    return KL::LoadInOrder<std::uint32_t>(bytes.data() + offset, KL::HostPlatformSign);
}

std::string RawGuid(const KL::Guid& guid) {
    char raw[KL::Guid::RawSize];
    guid.ToRaw(raw, KL::HostPlatformSign);
    return std::string(raw, sizeof raw);
}

// A handle of `size` bytes whose header claims `count` ancestors.
KL::ScopedHandle SectionClaiming(std::uint32_t count, std::int64_t size) {
    KL::ScopedHandle handle(BMAllocateHandle(size, BMClearFlag, 0));
    if (size >= 8)
        KL::StoreInOrder(handle.GetData() + 4, count, KL::HostPlatformSign);
    return handle;
}

// Ids whose main guids arrive in no particular order, so the sorted scratch of CheckAndFix is
// inserted into at its front, middle and end.
std::vector<KL::UnID> ScrambledIds(std::uint32_t count) {
    std::vector<KL::UnID> ids;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t order = i * 7 % count; // 7 is prime to the counts used
        ids.emplace_back(KL::Guid(order, 0, 0, {}), KL::Guid(i, 1, 1, {}));
    }
    return ids;
}

TEST(AncestryInfo, ChainIsRootFirstAndParentLast) {
    LM::AncestryInfo info;
    EXPECT_EQ(info.GetAncestorsCount(), 0U);
    EXPECT_EQ(info.GetParentID(), KL::NULLUnID);
    EXPECT_FALSE(info.IsTemplate());
    EXPECT_STREQ(info.GetClassInfo()->GetName(), "LM::AncestryInfo");

    info = Chain({Root, Parent});
    EXPECT_EQ(Ids(info), (std::vector<KL::UnID>{Root, Parent}));
    EXPECT_EQ(info.GetParentID(), Parent);
    EXPECT_TRUE(info.IsAncestor(Root));
    EXPECT_FALSE(info.IsAncestor(Other));
    EXPECT_FALSE(info.IsAncestor(KL::UnID(RootMain, OtherRevision))); // both guids count here

    EXPECT_EQ(info.SetAncestor(2, Other), 0);
    EXPECT_EQ(Ids(info), (std::vector<KL::UnID>{Root, Other}));

    // Appending an element of the chain itself, while the array grows.
    for (int i = 0; i < 40; ++i)
        info.Append(info.GetAncestorRef(1));
    EXPECT_EQ(info.GetAncestorsCount(), 42U);
    EXPECT_EQ(info.GetParentID(), Root);

    info.MarkAsTemplate();
    const LM::AncestryInfo copy(info);
    EXPECT_TRUE(copy.IsTemplate());
    EXPECT_EQ(Ids(copy), Ids(info));
    LM::AncestryInfo assigned;
    assigned = copy;
    const LM::AncestryInfo& alias = assigned;
    assigned = alias;
    EXPECT_TRUE(assigned.IsTemplate());
    EXPECT_EQ(Ids(assigned), Ids(info));
    assigned.MarkAsNonTemplate();
    EXPECT_FALSE(assigned.IsTemplate());

    info.Clear();
    EXPECT_EQ(info.GetAncestorsCount(), 0U);
    EXPECT_FALSE(info.IsTemplate());
}

TEST(AncestryInfo, SectionHoldsHeaderAndRawGuids) {
    const KL::ScopedHandle empty(LM::AncestryInfo().GetAncestrySection());
    EXPECT_EQ(Bytes(empty), std::string(32, '\0'));

    LM::AncestryInfo info = Chain({Root, Parent});
    info.MarkAsTemplate();
    const KL::ScopedHandle section(info.GetAncestrySection());
    const std::string bytes = Bytes(section);
    ASSERT_EQ(bytes.size(), 96U);
    EXPECT_EQ(Word(bytes, 0), 1U);
    EXPECT_EQ(Word(bytes, 4), 2U);
    EXPECT_EQ(bytes.substr(8, 24), std::string(24, '\0'));
    EXPECT_EQ(bytes.substr(32, 32), RawGuid(RootMain) + RawGuid(RootRevision));
    EXPECT_EQ(bytes.substr(64, 32), RawGuid(ParentMain) + RawGuid(ParentRevision));

    char** handle = section.Get();
    const LM::AncestryInfo read(&handle);
    EXPECT_TRUE(read.IsTemplate());
    EXPECT_EQ(Ids(read), Ids(info));

    // Reserved bytes are ignored, and a longer handle than the count needs is accepted.
    std::string padded = bytes + std::string(4, '\x7F');
    std::memset(padded.data() + 8, 0xAB, 24);
    KL::ScopedHandle longer(KL::BMNewHandleFrom(padded.data(), static_cast<std::int64_t>(padded.size())));
    char** longerHandle = longer.Get();
    LM::AncestryInfo fromLonger;
    EXPECT_EQ(fromLonger.SetAncestrySection(&longerHandle), 0);
    EXPECT_EQ(Ids(fromLonger), Ids(info));

    char** nullHandle = nullptr;
    EXPECT_EQ(fromLonger.SetAncestrySection(nullptr), LM::InvalidPartError);
    EXPECT_EQ(fromLonger.SetAncestrySection(&nullHandle), LM::InvalidPartError);
    EXPECT_EQ(Ids(fromLonger), Ids(info)); // refused before anything changed
}

TEST(AncestryInfo, HostileSectionsRaiseWithTheChainEmptied) {
    struct Case {
        std::uint32_t count;
        std::int64_t size;
    };
    for (const Case hostile :
         {Case{3, 96}, Case{0xFFFFFFFF, 32}, Case{0x08000000, 64}, Case{0, 16}, Case{0, 0}}) {
        LM::AncestryInfo info = Chain({Root, Parent});
        const KL::ScopedHandle section = SectionClaiming(hostile.count, hostile.size);
        char** handle = section.Get();
        EXPECT_THROW(info.SetAncestrySection(&handle), KL::IllegalArgumentException)
            << hostile.count << " in " << hostile.size;
        EXPECT_EQ(info.GetAncestorsCount(), 0U);
        EXPECT_THROW(LM::AncestryInfo{&handle}, KL::IllegalArgumentException);
    }
}

TEST(AncestryInfo, CheckAndFixCutsTheChainAtTheFirstRepeatedMainGuid) {
    LM::AncestryInfo revisionRepeat = Chain({Root, Parent, KL::UnID(RootMain, OtherRevision), Other});
    revisionRepeat.MarkAsTemplate();
    EXPECT_EQ(revisionRepeat.CheckAndFix(), 0);
    EXPECT_EQ(Ids(revisionRepeat), (std::vector<KL::UnID>{Root, Parent}));
    EXPECT_TRUE(revisionRepeat.IsTemplate());

    LM::AncestryInfo selfFirst = Chain({Root, Parent, Other});
    EXPECT_EQ(selfFirst.CheckAndFix(Root), 0);
    EXPECT_EQ(selfFirst.GetAncestorsCount(), 0U);

    LM::AncestryInfo selfInside = Chain({Root, KL::UnID(OtherMain, RootRevision), Parent});
    EXPECT_EQ(selfInside.CheckAndFix(Other), 0);
    EXPECT_EQ(Ids(selfInside), (std::vector<KL::UnID>{Root}));

    LM::AncestryInfo twice = Chain({Parent, Parent});
    EXPECT_EQ(twice.CheckAndFix(), 0);
    EXPECT_EQ(Ids(twice), (std::vector<KL::UnID>{Parent}));

    LM::AncestryInfo sound = Chain({Root, Parent});
    EXPECT_EQ(sound.CheckAndFix(Other), 0);
    EXPECT_EQ(Ids(sound), (std::vector<KL::UnID>{Root, Parent}));
    LM::AncestryInfo empty;
    EXPECT_EQ(empty.CheckAndFix(Other), 0);
    EXPECT_EQ(empty.GetAncestorsCount(), 0U);

    // Every element of a long chain is found again, wherever it landed in the sorted scratch.
    const std::vector<KL::UnID> ids = ScrambledIds(20);
    for (const KL::UnID& repeated : ids) {
        LM::AncestryInfo info;
        for (const KL::UnID& id : ids)
            info.Append(id);
        info.Append(KL::UnID(repeated.mainGuid, OtherRevision));
        info.Append(Other);
        info.CheckAndFix();
        EXPECT_EQ(Ids(info), ids) << repeated.ToString();
    }
    for (const KL::UnID& own : ids) {
        LM::AncestryInfo info;
        for (const KL::UnID& id : ids)
            info.Append(id);
        info.CheckAndFix(own);
        EXPECT_EQ(Ids(info), std::vector<KL::UnID>(ids.begin(), std::find(ids.begin(), ids.end(), own)));
    }
}

TEST(AncestryInfo, EqualityComparesChainsButNotTheTemplateMark) {
    LM::AncestryInfo marked = Chain({Root, Parent});
    marked.MarkAsTemplate();
    const LM::AncestryInfo plain = Chain({Root, Parent});
    EXPECT_TRUE(marked == plain);
    EXPECT_FALSE(marked != plain);

    EXPECT_NE(plain, Chain({Root, KL::UnID(ParentMain, OtherRevision)}));
    EXPECT_NE(plain, Chain({Root}));
    EXPECT_NE(plain, Chain({Parent, Root}));
    EXPECT_EQ(LM::AncestryInfo(), Chain({}));
}

TEST(AncestryInfo, StreamsAsItsSectionBytes) {
    LM::AncestryInfo info = Chain({Root, Parent, Other});
    info.MarkAsTemplate();
    const KL::ScopedHandle section(info.GetAncestrySection());

    // The bytes are the section's whatever the channel's order: nothing is converted.
    for (const KL::PlatformSign order : {KL::LittleEndianSign, KL::BigEndianSign}) {
        KL::MemoryOChannel out(order);
        ASSERT_EQ(info.Write(out), 0);
        const std::vector<char> bytes = out.TakeData();
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), Bytes(section));

        LM::AncestryInfo read;
        KL::MemoryIChannel in(bytes, order);
        ASSERT_EQ(read.Read(in), 0);
        EXPECT_EQ(read, info);
        EXPECT_TRUE(read.IsTemplate());
        EXPECT_EQ(in.GetAvailable(), 0);
    }

    KL::MemoryOChannel emptyOut;
    ASSERT_EQ(LM::AncestryInfo().Write(emptyOut), 0);
    EXPECT_EQ(emptyOut.GetData().size(), 32U);

    KL::MemoryOChannel failed;
    failed.SetStatus(KL::ErrIO);
    EXPECT_EQ(info.Write(failed), LM::LibPartFileError);
}

TEST(AncestryInfo, TruncatedOrHostileStreamsFailCleanly) {
    const KL::ScopedHandle section(Chain({Root, Parent}).GetAncestrySection());
    const std::string bytes = Bytes(section);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        LM::AncestryInfo read;
        KL::MemoryIChannel in(bytes.data(), size);
        EXPECT_NE(read.Read(in), 0) << size;
    }

    // A count far beyond the stream is refused before anything is allocated for it.
    const KL::ScopedHandle huge = SectionClaiming(0xFFFFFFFF, 64);
    LM::AncestryInfo read;
    KL::MemoryIChannel in(huge.GetData(), huge.GetSize());
    EXPECT_EQ(read.Read(in), LM::LibPartFileError);
    EXPECT_EQ(read.GetAncestorsCount(), 0U);

    KL::MemoryIChannel broken(bytes.data(), bytes.size());
    broken.SetStatus(KL::ErrIO);
    EXPECT_EQ(read.Read(broken), KL::ErrIO);
}

} // namespace
