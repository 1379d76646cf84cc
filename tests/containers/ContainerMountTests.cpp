// Container files mounted as folders: the tree a container shows under the format's rules, its
// info items, reads and seeks through the mount, compressed files, release while entries are
// open, hostile containers, and libraries that lie in or are containers. Containers are built
// byte by byte (support/ContainerBytes.hpp), not by our writer.
#include "support/Catalogue.hpp"
#include "support/ContainerBytes.hpp"
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

using testsupport::LcfBytes;
using testsupport::LcfInfo;
using testsupport::LcfNode;
using testsupport::ScratchFolder;

std::string ReadAll(const IO::Location& location) {
    IO::File file(location);
    if (file.Open(IO::File::ReadMode) != KL::NoError)
        return "<unreadable>";
    std::string content(1 << 16, '\0');
    std::uint64_t got = 0;
    file.ReadUpTo(content.data(), content.size(), &got);
    content.resize(got);
    return content;
}

void CollectTree(const IO::Location& folder, const std::string& prefix, std::vector<std::string>* lines) {
    IO::Folder::Listing listing;
    if (IO::Folder(folder).List(&listing) != KL::NoError) {
        lines->push_back(prefix + "<unlistable>");
        return;
    }
    for (const auto& [name, type] : listing) {
        const std::string path = prefix + name.ToUTF8();
        if (type == IO::FolderEntryType) {
            lines->push_back(path + "/");
            CollectTree(folder + name, path + "/", lines);
        } else {
            lines->push_back(path + "=" + ReadAll(folder + name));
        }
    }
}

// Every folder as "path/" and every file as "path=content", in name order.
std::vector<std::string> Tree(const IO::Location& root) {
    std::vector<std::string> lines;
    CollectTree(root, "", &lines);
    return lines;
}

using Lines = std::vector<std::string>;

class ContainerMount : public ::testing::Test {
protected:
    ~ContainerMount() override {
        for (const IO::Location& location : mounted)
            LM::ReleaseVirtualFileSystem(location);
    }

    // Writes the container and mounts it where it lies.
    IO::Location Mount(const std::string& relative, const std::string& bytes) {
        scratch.Write(relative, bytes);
        const IO::Location location = scratch.Location(relative);
        EXPECT_TRUE(LM::CreateAndMountContainerFileSystem(process, location, &options)) << relative;
        mounted.push_back(location);
        return location;
    }

    Lines MountedTree(const std::string& relative, const LcfBytes& format,
                      const std::vector<LcfNode>& roots) {
        return Tree(Mount(relative, format.Build(roots)));
    }

    LM::LibraryContainerVFS* FileSystemAt(const IO::Location& location) {
        return dynamic_cast<LM::LibraryContainerVFS*>(LM::FindFileSystem(location));
    }

    ScratchFolder scratch;
    KL::NonInterruptibleProcessControl process;
    LM::LibraryContainerVFSOptions options{IO::Location()};
    std::vector<IO::Location> mounted;

    void SetUp() override { options = LM::LibraryContainerVFSOptions(scratch.Location("unzip")); }
};

LcfNode Chairs() {
    return LcfNode::Folder("Chairs",
                           {LcfNode::File("a.txt", "chair a"), LcfNode::File("b.txt", "chair b", true)});
}

TEST_F(ContainerMount, FoldersShowAsTheFormatSays) {
    const LcfBytes v10;
    // A lone wrapper folder of a library ("LIB", "LCF", "PLA", any case) with no file of its own
    // is not shown; with a file it is.
    EXPECT_EQ(MountedTree("a.lcf", v10, {LcfNode::Folder("Office.lib", {Chairs()})}),
              (Lines{"Chairs/", "Chairs/a.txt=chair a", "Chairs/b.txt=chair b"}));
    EXPECT_EQ(
        MountedTree("b.lcf", v10, {LcfNode::Folder("Office.LIB", {Chairs(), LcfNode::File("x.txt", "x")})}),
        (Lines{"Office.LIB/", "Office.LIB/Chairs/", "Office.LIB/Chairs/a.txt=chair a",
               "Office.LIB/Chairs/b.txt=chair b", "Office.LIB/x.txt=x"}));
    // The second level too, under the only folder shown, when it has exactly one subfolder.
    EXPECT_EQ(MountedTree("c.lcf", v10, {LcfNode::Folder("Top", {LcfNode::Folder("Inner.PLA", {Chairs()})})}),
              (Lines{"Top/", "Top/Chairs/", "Top/Chairs/a.txt=chair a", "Top/Chairs/b.txt=chair b"}));
    // Two roots are both shown, unless MAIN says to hide the top folder: then the first only.
    const std::vector<LcfNode> two = {LcfNode::Folder("One", {LcfNode::File("1.txt", "1")}),
                                      LcfNode::Folder("Two", {LcfNode::File("2.txt", "2")})};
    EXPECT_EQ(MountedTree("d.lcf", v10, two), (Lines{"One/", "One/1.txt=1", "Two/", "Two/2.txt=2"}));
    LcfBytes hidden;
    hidden.mainFlags = 0x40;
    EXPECT_EQ(MountedTree("e.lcf", hidden, two), (Lines{"1.txt=1", "Two/", "Two/2.txt=2"}));

    // Version 0.4 names are single-byte texts; 0.9 names are not read, and the walk goes on.
    LcfBytes v04;
    v04.versionH = 0;
    v04.versionL = 4;
    EXPECT_EQ(MountedTree("f.lcf", v04, {LcfNode::Folder("Lib", {Chairs()})}),
              (Lines{"Lib/", "Lib/Chairs/", "Lib/Chairs/a.txt=chair a", "Lib/Chairs/b.txt=chair b"}));
    LcfBytes v09;
    v09.versionH = 0;
    v09.versionL = 9;
    EXPECT_EQ(MountedTree("g.lcf", v09, {LcfNode::Folder("Lib", {Chairs()})}), Lines{});
    EXPECT_TRUE(FileSystemAt(scratch.Location("g.lcf"))->IsMounted());
    LcfBytes v11;
    v11.versionL = 1;
    scratch.Write("h.lcf", v11.Build({LcfNode::Folder("Lib", {Chairs()})}));
    EXPECT_FALSE(LM::CheckIfContainer(scratch.Location("h.lcf")));
    EXPECT_FALSE(LM::CreateAndMountContainerFileSystem(process, scratch.Location("h.lcf"), &options));

    // The first of two equal paths wins; an old block without its length still leads to the next;
    // an unknown block ends where its header ends.
    LcfNode old = LcfNode::File("old.txt", "old");
    old.zeroBlockLength = true;
    LcfNode unknown;
    unknown.tag = LcfBytes::Tag("XTRA");
    unknown.headerOnly = true;
    unknown.isFolder = true;
    EXPECT_EQ(MountedTree(
                  "i.lcf", v10,
                  {LcfNode::Folder("Lib", {unknown, LcfNode::File("a.txt", "first"), old,
                                           LcfNode::File("a.txt", "second"), LcfNode::File("z.txt", "z")})}),
              (Lines{"Lib/", "Lib/a.txt=first", "Lib/old.txt=old", "Lib/z.txt=z"}));
    // An empty MAIN mounts with the root alone.
    EXPECT_EQ(MountedTree("j.lcf", v10, {}), Lines{});
    EXPECT_TRUE(FileSystemAt(scratch.Location("j.lcf"))->IsMounted());
}

TEST_F(ContainerMount, InfoItemsTypesAndTimesComeWithTheEntries) {
    LcfBytes format;
    format.headerInfos = {{0x41424344u, "header"}};
    LcfNode nested = LcfNode::Folder("Nested", {LcfNode::File("n.txt", "n")});
    nested.flags = 2 | 4;
    nested.infos = {{LM::EmbeddedHeaderTag, std::string(24, '\x01')}};
    LcfNode file = LcfNode::File("f.txt", "content");
    file.infos = {{0x1u, ""}, {0x2u, "two"}};
    file.mime = "text/plain";
    file.macType = FTM::MakeCode("TEXT");
    file.macCreator = FTM::MakeCode("KLTX");
    file.creationTime = TIDateToTime({2024, 2, 3, 4, 5, 6});
    file.modificationTime = TIDateToTime({2025, 7, 8, 9, 10, 11});
    const IO::Location root = Mount("info.lcf", format.Build({LcfNode::Folder("Lib", {nested, file})}));
    LM::LibraryContainerVFS* fileSystem = FileSystemAt(root);
    ASSERT_NE(fileSystem, nullptr);
    EXPECT_EQ(fileSystem->GetOwnLocation(), root);

    const KL::Array<LM::InfoData*>* rootInfos = fileSystem->GetInfoForLocation(root);
    ASSERT_NE(rootInfos, nullptr);
    EXPECT_TRUE(rootInfos->IsEmpty());
    EXPECT_EQ(fileSystem->GetInfoForLocation(root + IO::Name("none")), nullptr);
    const KL::Array<LM::InfoData*>* folderInfos =
        fileSystem->GetInfoForLocation(scratch.Location("info.lcf/Lib/Nested"));
    ASSERT_NE(folderInfos, nullptr);
    ASSERT_EQ(folderInfos->GetSize(), 1U);
    EXPECT_EQ((*folderInfos)[0]->GetType(), LM::EmbeddedHeaderTag);
    EXPECT_EQ((*folderInfos)[0]->GetSize(), 24U);
    EXPECT_TRUE(fileSystem->IsFolderSubContainer(scratch.Location("info.lcf/Lib/Nested")));
    EXPECT_FALSE(fileSystem->IsFolderSubContainer(scratch.Location("info.lcf/Lib")));
    const IO::Location f = scratch.Location("info.lcf/Lib/f.txt");
    const KL::Array<LM::InfoData*>* fileInfos = fileSystem->GetInfoForLocation(f);
    ASSERT_NE(fileInfos, nullptr);
    ASSERT_EQ(fileInfos->GetSize(), 2U);
    EXPECT_EQ((*fileInfos)[0]->GetData(), nullptr);
    EXPECT_EQ(std::string((*fileInfos)[1]->GetData(), 3), "two");

    // The MIME text is passed over; type, creator and both times read back through the file.
    EXPECT_EQ(ReadAll(f), "content");
    IO::File opened(f);
    std::uint32_t type = 0;
    std::uint32_t creator = 0;
    EXPECT_EQ(opened.GetTypeInfo(&type, &creator), KL::NoError);
    EXPECT_EQ(type, FTM::MakeCode("TEXT"));
    EXPECT_EQ(creator, FTM::MakeCode("KLTX"));
    TITime time = 0;
    EXPECT_EQ(opened.GetModificationTime(&time), KL::NoError);
    EXPECT_EQ(time, file.modificationTime);
    EXPECT_EQ(opened.GetCreationTime(&time), KL::NoError);
    EXPECT_EQ(time, file.creationTime);
    EXPECT_TRUE(opened.IsWriteProtected());
    EXPECT_NE(opened.Open(IO::File::ReadWriteMode), KL::NoError);
}

TEST_F(ContainerMount, EntriesReadSeekAndKeepTheirOwnPlace) {
    const std::string text = "0123456789abcdefghij";
    const IO::Location root = Mount(
        "read.lcf", LcfBytes().Build({LcfNode::Folder("Lib", {LcfNode::File("plain.txt", text),
                                                              LcfNode::File("packed.txt", text + text, true),
                                                              LcfNode::File("after.txt", "after")})}));
    const IO::Location plain = scratch.Location("read.lcf/Lib/plain.txt");
    IO::FileEntry* entry = nullptr;
    IO::FixedVFS* owner = nullptr;
    ASSERT_EQ(IO::fileSystem.ConnectFile(plain, &entry, &owner), KL::NoError);
    ASSERT_EQ(entry->Open(IO::FileEntry::ReadMode), 0);
    char bytes[64];
    std::uint64_t got = 0;
    // A read past the end gives the rest and says so, though more of the container follows.
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromStart, 15, nullptr), 0);
    EXPECT_EQ(entry->Read(bytes, 10, &got), IO::EntryStatus::EndOfData);
    EXPECT_EQ(std::string(bytes, got), "fghij");
    std::uint64_t at = 0;
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromEnd, -3, &at), 0);
    EXPECT_EQ(at, 17U);
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromCurrent, -7, &at), 0);
    EXPECT_EQ(at, 10U);
    EXPECT_EQ(entry->Read(bytes, 2, &got), 0);
    EXPECT_EQ(std::string(bytes, got), "ab");
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromStart, -1, nullptr), IO::EntryStatus::EndOfData);
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromStart, 21, nullptr), IO::EntryStatus::EndOfData);
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromCurrent, 9, nullptr), IO::EntryStatus::EndOfData);
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromEnd, 1, nullptr), IO::EntryStatus::EndOfData);
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromEnd, -21, nullptr), IO::EntryStatus::EndOfData);
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromEnd, 0, &at), 0);
    EXPECT_EQ(at, 20U);
    EXPECT_EQ(entry->Open(IO::FileEntry::WriteMode), IO::EntryStatus::TransferFailed);

    IO::FileSystem::Disconnect(owner, entry);
    {
        // Two openings of one file keep their own places.
        IO::File first(plain);
        IO::File second(plain);
        ASSERT_EQ(first.Open(), KL::NoError);
        ASSERT_EQ(second.Open(), KL::NoError);
        first.ReadBin(bytes, 4);
        second.ReadBin(bytes + 4, 2);
        first.ReadBin(bytes + 6, 2);
        EXPECT_EQ(std::string(bytes, 8), "012301"
                                         "45");
    }

    // A compressed file is inflated once into the unzip folder, and the copy goes with the mount.
    const IO::Location packed = scratch.Location("read.lcf/Lib/packed.txt");
    EXPECT_EQ(ReadAll(packed), text + text);
    std::optional<IO::File> held(std::in_place, packed);
    ASSERT_EQ(held->Open(), KL::NoError);
    EXPECT_EQ(ReadAll(packed), text + text);
    std::vector<std::string> copies;
    for (const auto& file : std::filesystem::recursive_directory_iterator(scratch.Path() / "unzip"))
        if (file.is_regular_file())
            copies.push_back(file.path().filename().string());
    EXPECT_EQ(copies, (std::vector<std::string>{"packed"}));
    EXPECT_EQ(held->Seek(IO::File::FromStart, 38), KL::NoError);
    EXPECT_EQ(held->ReadBin(bytes, 2), KL::NoError);
    EXPECT_EQ(std::string(bytes, 2), "ij");
    EXPECT_EQ(ReadAll(scratch.Location("read.lcf/Lib/after.txt")), "after");

    // Released while the compressed file is open: it still reads, the location is free at once,
    // and the file system stays valid until the registry ends; its copy goes with the last entry.
    LM::LibraryContainerVFS* fileSystem = FileSystemAt(root);
    ASSERT_TRUE(LM::ReleaseVirtualFileSystem(root));
    mounted.clear();
    EXPECT_FALSE(LM::ReleaseVirtualFileSystem(root));
    EXPECT_FALSE(IO::fileSystem.IsMountPoint(root));
    EXPECT_TRUE(LM::IsValidVirtualFileSystem(fileSystem));
    EXPECT_EQ(held->Seek(IO::File::FromStart, 0), KL::NoError);
    EXPECT_EQ(held->ReadBin(bytes, 3), KL::NoError);
    EXPECT_EQ(std::string(bytes, 3), "012");
    EXPECT_EQ(ReadAll(scratch.Location("read.lcf/Lib/after.txt")), "<unreadable>");
    held.reset();
    EXPECT_FALSE(std::filesystem::exists(scratch.Path() / "unzip" / "LCFZIP" / "read"));
    EXPECT_TRUE(LM::IsValidVirtualFileSystem(fileSystem));
    // A new mount at the place gets a file system of its own.
    EXPECT_EQ(Tree(Mount("read.lcf", scratch.Read("read.lcf")))[0], "Lib/");
    EXPECT_NE(FileSystemAt(root), fileSystem);
    int stack = 0;
    EXPECT_FALSE(LM::IsValidVirtualFileSystem(reinterpret_cast<IO::FixedVFS*>(&stack)));
}

} // namespace

namespace {

// Says "stop" at its first poll.
class Impatient : public KL::ProcessControl {
public:
    bool BreakRequested() override { return true; }
};

TEST_F(ContainerMount, RemountsReplaceAndBreaksEndWalksQuietly) {
    std::vector<LcfNode> many;
    for (int i = 0; i < 40; ++i)
        many.push_back(LcfNode::File("f" + std::to_string(100 + i) + ".txt", "x"));
    const std::string bytes = LcfBytes().Build({LcfNode::Folder("Lib", many)});
    const IO::Location root = Mount("twice.lcf", bytes);
    LM::LibraryContainerVFS* first = FileSystemAt(root);
    ASSERT_NE(first, nullptr);
    // The same place mounted again: the first file system is let go for the second.
    ASSERT_TRUE(LM::CreateAndMountContainerFileSystem(process, root, &options));
    LM::LibraryContainerVFS* second = FileSystemAt(root);
    EXPECT_NE(second, first);
    EXPECT_FALSE(LM::IsValidVirtualFileSystem(first));
    EXPECT_TRUE(LM::IsValidVirtualFileSystem(second));
    EXPECT_EQ(Tree(root).size(), 41U);

    // A user's break ends the walk after the files it reached, and the mount stands.
    Impatient impatient;
    scratch.Write("broken-off.lcf", bytes);
    const IO::Location brokenOff = scratch.Location("broken-off.lcf");
    ASSERT_TRUE(LM::CreateAndMountContainerFileSystem(impatient, brokenOff, &options));
    mounted.push_back(brokenOff);
    EXPECT_TRUE(FileSystemAt(brokenOff)->IsMounted());
    EXPECT_EQ(Tree(brokenOff).size(), 1U + 15U);
}

} // namespace
