// The folder set: fixed folders, finding and creating parents, merging, sorting, and its stream at
// folder offsets, including streams that lie about their size.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using LM::FolderSet;

IO::Location Loc(const std::string& path) {
    return IO::Location(path);
}

std::string LocationOf(const FolderSet& folders, int index) {
    IO::Location location;
    folders.GetLocation(index, &location);
    return location.ToString();
}

// "/lib" as library 0 with the children "/lib/A" and "/lib/A/B".
FolderSet LibraryWithTwoLevels() {
    FolderSet folders;
    const int root =
        folders.StoreFolder(Loc("/lib"), KL::NULLGuid, KL::UniString("lib"), FolderSet::RootFolder, 0);
    const int a = folders.StoreFolder(Loc("/lib/A"), KL::NULLGuid, KL::UniString("A"), root, 0);
    folders.StoreFolder(Loc("/lib/A/B"), KL::NULLGuid, KL::UniString("B"), a, 0);
    return folders;
}

TEST(FolderSet, FindsAndCreatesParentFolders) {
    FolderSet empty;
    ASSERT_EQ(empty.GetFolderCount(), 3);
    EXPECT_EQ(empty.GetParent(0), -1);
    EXPECT_EQ(empty.GetParent(1), 0);
    EXPECT_EQ(empty.GetParent(2), 0);
    EXPECT_EQ(empty.GetActLibIndex(2), -1);
    bool created = true;
    EXPECT_EQ(empty.DetermineParentFolder(Loc("/lib/x.klm"), &created), -1);
    EXPECT_FALSE(created);

    FolderSet folders = LibraryWithTwoLevels();
    EXPECT_EQ(folders.GetNumChild(3), 1);
    EXPECT_EQ(folders.GetNumChild(0), 1);
    // The deepest holder wins; without `created` only a direct parent counts.
    EXPECT_EQ(folders.DetermineParentFolder(Loc("/lib/A/B/x.klm"), nullptr), 5);
    EXPECT_EQ(folders.DetermineParentFolder(Loc("/lib/A/x.klm"), &created), 4);
    EXPECT_FALSE(created);
    EXPECT_EQ(folders.DetermineParentFolder(Loc("/lib/A/C/D/x.klm"), nullptr), -1);
    EXPECT_EQ(folders.DetermineParentFolder(Loc("/elsewhere/x.klm"), nullptr), -1);

    // With `created`, the missing folders in between are added under the best one's library.
    const int d = folders.DetermineParentFolder(Loc("/lib/A/C/D/x.klm"), &created);
    EXPECT_TRUE(created);
    ASSERT_EQ(folders.GetFolderCount(), 8);
    EXPECT_EQ(d, 7);
    EXPECT_EQ(LocationOf(folders, 6), "/lib/A/C");
    EXPECT_EQ(LocationOf(folders, 7), "/lib/A/C/D");
    EXPECT_EQ(folders.GetParent(6), 4);
    EXPECT_EQ(folders.GetParent(7), 6);
    EXPECT_EQ(folders.GetActLibIndex(7), 0);
    KL::UniString name;
    folders.GetName(7, &name);
    EXPECT_EQ(name, KL::UniString("D"));
    // Folders added this way are not counted as children.
    EXPECT_EQ(folders.GetNumChild(4), 1);
    // Asking again finds what was created.
    EXPECT_EQ(folders.DetermineParentFolder(Loc("/lib/A/C/D/y.klm"), &created), 7);
    EXPECT_FALSE(created);

    EXPECT_EQ(folders.DetermineParentRoot(Loc("/lib/A/C/D/y.klm")), 3);
    EXPECT_EQ(folders.DetermineParentRoot(Loc("/lib")), -1);
}

TEST(FolderSet, SortsByLibraryThenLocation) {
    FolderSet folders;
    folders.StoreFolder(Loc("/two/b"), KL::NULLGuid, KL::UniString("b"), 0, 1);
    folders.StoreFolder(Loc("/one/z"), KL::NULLGuid, KL::UniString("z"), 0, 0);
    folders.StoreFolder(Loc("/two/a"), KL::NULLGuid, KL::UniString("a"), 0, 1);
    folders.StoreFolder(Loc("/one/a/deep"), KL::NULLGuid, KL::UniString("deep"), 0, 0);
    folders.StoreFolder(Loc("/one/a"), KL::NULLGuid, KL::UniString("a"), 0, 0);
    folders.FinishFolders();
    std::vector<std::string> order;
    for (int i = 0; i < folders.GetFolderCount(); ++i)
        order.push_back(LocationOf(folders, i));
    EXPECT_EQ(order,
              (std::vector<std::string>{"", "", "", "/one/a", "/one/a/deep", "/one/z", "/two/a", "/two/b"}));
}

TEST(FolderSet, StreamMovesParentsWithTheBlockAndKeepsFixedOnes) {
    // Ten folders, then a library block from index 10 whose parent chain is 0 <- 10 <- 11 <- 12.
    FolderSet source;
    while (source.GetFolderCount() < 10)
        source.StoreFolder(Loc("/pad/" + std::to_string(source.GetFolderCount())), KL::NULLGuid,
                           KL::UniString("p"), 0, 0);
    const KL::Guid folderGuid("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
    const int root = source.StoreFolder(Loc("/lib"), folderGuid, KL::UniString("lib"), 0, 4);
    const int a = source.StoreFolder(Loc("/lib/a"), KL::NULLGuid, KL::UniString("a"), root, 4);
    source.StoreFolder(Loc("/lib/a/b"), KL::NULLGuid, KL::UniString("b"), a, 4);
    source.SetExpandState(root, true);
    source.SetTreeItemId(root, 99);

    KL::MemoryOChannel out;
    ASSERT_EQ(source.Write(out, 10), 0);
    const std::vector<char> bytes = out.TakeData();

    // Read at 50: the parents follow the block, the root's parent 0 stays 0.
    FolderSet block;
    KL::MemoryIChannel in(bytes);
    ASSERT_EQ(block.Read(in, 50), 0);
    ASSERT_EQ(block.GetFolderCount(), 3);
    EXPECT_EQ(block.GetParent(0), 0);
    EXPECT_EQ(block.GetParent(1), 50);
    EXPECT_EQ(block.GetParent(2), 51);
    EXPECT_EQ(LocationOf(block, 2), "/lib/a/b");
    KL::Guid guid;
    block.GetGuid(0, &guid);
    EXPECT_EQ(guid, folderGuid);
    EXPECT_TRUE(block.GetExpandState(0));
    EXPECT_EQ(block.GetTreeItemId(0), 99);

    // Merged into a set of 50 folders, the block lands where it was read for, under the new
    // library, with the host's tree state cleared.
    FolderSet target;
    while (target.GetFolderCount() < 50)
        target.StoreFolder(Loc("/t/" + std::to_string(target.GetFolderCount())), KL::NULLGuid,
                           KL::UniString("t"), 0, 0);
    target.Merge(block, 2);
    ASSERT_EQ(target.GetFolderCount(), 53);
    EXPECT_EQ(target.GetParent(52), 51);
    EXPECT_EQ(LocationOf(target, target.GetParent(52)), "/lib/a");
    EXPECT_EQ(target.GetActLibIndex(50), 2);
    EXPECT_FALSE(target.GetExpandState(50));
    EXPECT_EQ(target.GetTreeItemId(50), 0);

    // Written again from 50 and read at 10, the parents are those of the first block.
    KL::MemoryOChannel again;
    FolderSet restored;
    ASSERT_EQ(target.Write(again, 50), 0);
    KL::MemoryIChannel againIn(again.TakeData());
    ASSERT_EQ(restored.Read(againIn, 10), 0);
    EXPECT_EQ(restored.GetParent(1), 10);
    EXPECT_EQ(restored.GetParent(2), 11);
}

TEST(FolderSet, RefusesStreamsThatLie) {
    FolderSet source = LibraryWithTwoLevels();
    KL::MemoryOChannel out;
    ASSERT_EQ(source.Write(out, 3), 0);
    std::vector<char> bytes = out.TakeData();

    // Every cut fails without a crash; what was read before the cut stays.
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        FolderSet cut;
        KL::MemoryIChannel in(bytes.data(), size);
        EXPECT_NE(cut.Read(in, 3), 0) << size;
        EXPECT_LE(cut.GetFolderCount(), 3);
    }

    // A count of four billion is refused before anything is allocated for it.
    const std::size_t countOffset = KL::OutputFrame::HeaderSize;
    for (int i = 0; i < 4; ++i)
        bytes[countOffset + static_cast<std::size_t>(i)] = static_cast<char>(0xFF);
    FolderSet huge;
    KL::MemoryIChannel in(bytes);
    EXPECT_EQ(huge.Read(in, 3), KL::ErrStreamFormat);
    EXPECT_EQ(huge.GetFolderCount(), 0);
}

} // namespace
