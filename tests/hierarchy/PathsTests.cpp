// Path trees: shared prefixes and counts, deletion, walks, printing, the illegal-argument texts,
// and the old array form's two streams.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using LM::Paths;

KL::UnID Id(std::uint32_t n) {
    return KL::UnID(KL::Guid(n, 0, 0, {}), KL::Guid(n, 1, 0, {}));
}

std::string Text(KL::MemoryOChannel& channel) {
    const std::vector<char> bytes = channel.TakeData();
    return std::string(bytes.begin(), bytes.end());
}

std::string ThrownMessage(const std::function<void()>& call) {
    try {
        call();
    } catch (const KL::IllegalArgumentException& exception) {
        return exception.GetMessage();
    }
    return "nothing thrown";
}

TEST(Paths, SharesPrefixesAndCountsReferences) {
    Paths paths;
    const KL::UnID chainA[] = {Id(1), Id(2), Id(3)};
    const KL::UnID chainB[] = {Id(1), Id(2), Id(4)};
    Paths::TreeEntry* a = paths.AddPath(chainA, 3);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(paths.AddPath(chainA, 3), a);
    Paths::TreeEntry* b = paths.AddPath(chainB, 3);
    EXPECT_EQ(paths.GetPathReferenceCount(a), 2U);
    EXPECT_EQ(paths.GetPathReferenceCount(b), 1U);
    EXPECT_EQ(paths.GetPathReferenceCount(a->GetParent()), 3U);
    EXPECT_EQ(paths.GetPathReferenceCount(paths.GetRoot()), 3U);
    EXPECT_EQ(a->GetParent(), b->GetParent());

    EXPECT_EQ(paths.GetPathLength(a), 3U);
    EXPECT_EQ(paths.GetPathLength(paths.GetRoot()), 0U);
    KL::UnID ids[3];
    paths.GetPath(a, ids);
    EXPECT_EQ(ids[0], Id(1));
    EXPECT_EQ(ids[2], Id(3));
    KL::UnID id;
    paths.GetPathNodeFromBack(a, 0, &id);
    EXPECT_EQ(id, Id(3));
    paths.GetPathNodeFromBack(a, 2, &id);
    EXPECT_EQ(id, Id(1));
    paths.GetPathNodeFromBack(a, 9, &id);
    EXPECT_EQ(id, KL::UnID());
    paths.GetPathNode(a, 1, &id);
    EXPECT_EQ(id, Id(2));
    EXPECT_TRUE(paths.IsNodeOnPath(a, Id(1)));
    EXPECT_FALSE(paths.IsNodeOnPath(a, Id(4)));
    EXPECT_FALSE(paths.IsNodeOnPath(nullptr, Id(1)));

    // Deleting one of two sharing paths removes only what is its own.
    paths.DeletePath(b);
    KL::Queue<Paths::TreeEntry*> children;
    paths.GetChildren(a->GetParent(), &children);
    ASSERT_EQ(children.GetSize(), 1U);
    EXPECT_EQ(children[0], a);
    EXPECT_EQ(paths.GetPathReferenceCount(paths.GetRoot()), 2U);

    // Deleting the remaining path twice leaves a fresh root.
    paths.DeletePath(a);
    EXPECT_EQ(paths.GetPathReferenceCount(a), 1U);
    paths.DeletePath(a);
    ASSERT_NE(paths.GetRoot(), nullptr);
    EXPECT_EQ(paths.GetPathReferenceCount(paths.GetRoot()), 0U);
    EXPECT_FALSE(paths.GetRoot()->HasChildren());
}

TEST(Paths, AppendsReplacesAndFindsPathEnds) {
    Paths paths;
    const KL::UnID prefix[] = {Id(5), Id(6)};
    Paths::TreeEntry* six = paths.AddPath(prefix, 2);
    // Appending keeps the old path: a path now ends at 6 and at 7 below it.
    const KL::UnID seven = Id(7);
    Paths::TreeEntry* end = paths.AppendPathNode(six, &seven);
    EXPECT_EQ(end->GetParent(), six);
    EXPECT_EQ(paths.GetPathReferenceCount(six), 2U);
    Paths::TreeEntry* last = paths.AddPath(prefix, 0, Id(9));
    EXPECT_EQ(last->GetParent(), paths.GetRoot());
    Paths::TreeEntry* viaLast = paths.AddPath(prefix, 1, Id(8));
    EXPECT_EQ(paths.GetPathLength(viaLast), 2U);

    KL::Queue<Paths::TreeEntry*> ends;
    paths.GetPathEnds(paths.GetRoot(), &ends);
    std::vector<KL::UnID> endIds;
    for (Paths::TreeEntry* node : ends)
        endIds.push_back(node->GetId());
    // Depth first, ascending, a node before its children; 5 carries no path end of its own.
    EXPECT_EQ(endIds, (std::vector<KL::UnID>{Id(6), Id(7), Id(8), Id(9)}));

    const KL::UnID replacement[] = {Id(10)};
    Paths::TreeEntry* replaced = paths.ReplacePath(last, replacement, 1);
    EXPECT_EQ(replaced->GetId(), Id(10));
    KL::Queue<Paths::TreeEntry*> rootChildren;
    paths.GetChildren(paths.GetRoot(), &rootChildren);
    ASSERT_EQ(rootChildren.GetSize(), 2U);
    EXPECT_EQ(rootChildren[0]->GetId(), Id(5));
    EXPECT_EQ(rootChildren[1]->GetId(), Id(10));
    EXPECT_EQ(paths.AddPath(nullptr, 3), nullptr);
    EXPECT_EQ(paths.AddPath(prefix, 0), nullptr);
}

// Thousands of children under a few parents, the same ids under each, removed and added again in
// a random order: every search must still find what is there, and nothing that is not.
TEST(Paths, ManyChildrenSurviveRandomRemovalsAgainstAModel) {
    Paths paths;
    constexpr std::uint32_t parents = 3;
    constexpr std::uint32_t childrenPerParent = 3000;
    std::map<std::pair<std::uint32_t, std::uint32_t>, Paths::TreeEntry*> live;
    std::mt19937 random(7);
    for (int round = 0; round < 4; ++round) {
        for (std::uint32_t parent = 0; parent < parents; ++parent)
            for (std::uint32_t child = 0; child < childrenPerParent; ++child) {
                if (live.count({parent, child}) != 0 || random() % 4 == 0)
                    continue;
                const KL::UnID chain[] = {Id(100000 + parent), Id(child)};
                live[{parent, child}] = paths.AddPath(chain, 2);
            }
        for (auto entry = live.begin(); entry != live.end();)
            if (random() % 2 == 0) {
                paths.DeletePath(entry->second);
                entry = live.erase(entry);
            } else {
                ++entry;
            }
        for (std::uint32_t parent = 0; parent < parents; ++parent)
            for (std::uint32_t child = 0; child < childrenPerParent; child += 7) {
                const KL::UnID chain[] = {Id(100000 + parent), Id(child)};
                const auto found = live.find({parent, child});
                if (found == live.end())
                    continue;
                // Adding an existing path finds its node; deleting it again restores the count.
                ASSERT_EQ(paths.AddPath(chain, 2), found->second) << round << " " << parent << " " << child;
                paths.DeletePath(found->second);
            }
    }
    KL::Queue<Paths::TreeEntry*> tops;
    paths.GetChildren(paths.GetRoot(), &tops);
    std::size_t listed = 0;
    for (Paths::TreeEntry* top : tops) {
        KL::Queue<Paths::TreeEntry*> children;
        paths.GetChildren(top, &children);
        for (Paths::TreeEntry* child : children)
            EXPECT_EQ(paths.GetPathReferenceCount(child), 1U);
        listed += children.GetSize();
    }
    EXPECT_EQ(listed, live.size());
}

TEST(Paths, IllegalArgumentsRaiseTheirOwnTexts) {
    Paths paths;
    const KL::UnID chain[] = {Id(1)};
    Paths::TreeEntry* node = paths.AddPath(chain, 1);
    KL::UnID id;
    EXPECT_EQ(ThrownMessage([&] { paths.AddPathReference(nullptr); }),
              "Illegal index in Paths::AddPathReference.");
    EXPECT_EQ(ThrownMessage([&] { paths.GetPathReferenceCount(nullptr); }),
              "Illegal index in Paths::AddPathReference.");
    EXPECT_EQ(ThrownMessage([&] { paths.GetPathNodeFromBack(node, 0, nullptr); }),
              "Illegal index in Paths::GetPathNodeFromBack.");
    EXPECT_EQ(ThrownMessage([&] { paths.GetLastPathNode(nullptr, &id); }),
              "Illegal index in Paths::GetLastPathNode.");
    EXPECT_EQ(ThrownMessage([&] { paths.GetPathLength(nullptr); }), "Illegal index in Paths::GetPathLength.");
    EXPECT_EQ(ThrownMessage([&] { paths.GetPath(paths.GetRoot(), &id); }),
              "Illegal index in Paths::GetPath.");
    EXPECT_EQ(ThrownMessage([&] { paths.GetPathNode(node, 1, &id); }),
              "Illegal index in Paths::SetPathNode.");
    EXPECT_EQ(ThrownMessage([&] { paths.AppendPathNode(node, nullptr); }),
              "Illegal index in Paths::AppendPathNode.");
    EXPECT_EQ(ThrownMessage([&] { paths.ReplacePath(node, nullptr, 1); }),
              "Illegal index in Paths::ReplacePath.");
    EXPECT_EQ(ThrownMessage([&] { paths.DeletePath(nullptr); }), "Illegal index in Paths::DeletePath.");
    EXPECT_EQ(ThrownMessage([&] { paths.Print(nullptr, nullptr, nullptr); }),
              "Illegal index in Paths::Print.");
    // A thrown argument check changes nothing.
    EXPECT_EQ(paths.GetPathReferenceCount(node), 1U);

    EXPECT_THROW(LM::ThrowMemoryManagerError(KL::ErrEmptyHandle), KL::BMEmptyHandleException);
    EXPECT_THROW(LM::ThrowMemoryManagerError(KL::ErrNotEnoughMemory), KL::OutOfMemoryException);
    EXPECT_THROW(LM::ThrowMemoryManagerError(-12), KL::BMInternalErrorException);
    EXPECT_NO_THROW(LM::ThrowMemoryManagerError(0));
}

TEST(Paths, PrintsTheTreeWithRails) {
    Paths empty;
    KL::MemoryOChannel emptyOut;
    empty.Print(&emptyOut, nullptr, nullptr);
    EXPECT_EQ(Text(emptyOut), "The tree is empty!!!\n");
    empty.Clear();
    KL::MemoryOChannel clearedOut;
    empty.Print(&clearedOut, nullptr, nullptr);
    EXPECT_EQ(
        Text(clearedOut),
        "<BuiltIn Root> {00000000-0000-0000-0000-000000000000}-{00000000-0000-0000-0000-000000000000} (0)\n");

    Paths paths;
    const KL::UnID first[] = {Id(1), Id(2)};
    const KL::UnID second[] = {Id(1), Id(3)};
    const KL::UnID third[] = {Id(4)};
    paths.AddPath(first, 2);
    paths.AddPath(second, 2);
    paths.AddPath(third, 1);
    KL::MemoryOChannel out;
    paths.Print(
        &out,
        [](void*, KL::OChannel& channel, const KL::UnID& id) { channel << "#" << id.mainGuid.GetData1(); },
        nullptr);
    const std::string text = Text(out);
    EXPECT_EQ(text.substr(text.find('\n') + 1), "|\n"
                                                "+---#1 (2)\n"
                                                "|   |\n"
                                                "|   +---#2 (1)\n"
                                                "|   |\n"
                                                "|   +---#3 (1)\n"
                                                "|\n"
                                                "+---#4 (1)\n");
}

TEST(PathsOld, BothStreamFormsRoundTripAndRefuseBadBlocks) {
    const LM::PathsOld fresh;
    ASSERT_EQ(fresh.GetEntryCount(), 1U);
    EXPECT_EQ(fresh.GetRootIndex(), 1U);

    KL::MemoryOChannel framed;
    ASSERT_EQ(fresh.Write(framed), 0);
    LM::PathsOld fromFramed;
    KL::MemoryIChannel framedIn(framed.TakeData());
    ASSERT_EQ(fromFramed.Read(framedIn), 0);
    EXPECT_EQ(fromFramed.GetEntryCount(), 1U);
    EXPECT_EQ(fromFramed.GetEntry(0), fresh.GetEntry(0));

    KL::MemoryOChannel old;
    ASSERT_EQ(fresh.WriteOld(old), 0);
    std::vector<char> oldBytes = old.TakeData();
    // Root index, field, version, count, reserved, record size, one record of 56 bytes.
    ASSERT_EQ(oldBytes.size(), 4U + 4 + 2 + 4 + 4 + 4 + 56);
    LM::PathsOld fromOld;
    KL::MemoryIChannel oldIn(oldBytes);
    ASSERT_EQ(fromOld.ReadOld(oldIn), 0);
    EXPECT_EQ(fromOld.GetEntryCount(), 1U);

    // Another block version is refused; so is a count the data cannot hold.
    std::vector<char> badVersion = oldBytes;
    badVersion[8] = 2;
    LM::PathsOld refused;
    KL::MemoryIChannel badIn(badVersion);
    EXPECT_EQ(refused.ReadOld(badIn), KL::ErrStreamFormat);
    std::vector<char> hugeCount = oldBytes;
    hugeCount.at(10) = hugeCount.at(11) = hugeCount.at(12) = hugeCount.at(13) = static_cast<char>(0xFF);
    KL::MemoryIChannel hugeIn(hugeCount);
    EXPECT_NE(refused.ReadOld(hugeIn), 0);
}

} // namespace
