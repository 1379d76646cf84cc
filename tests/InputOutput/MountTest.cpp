// Mounted file systems seen through files, folders and tree walks.
#include "InputOutput/MemoryVFS.hpp"
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using testsupport::MemoryVFS;
using testsupport::ScopedMount;
using testsupport::ScratchFolder;

// Records every report of a walk; like the library walker it declines container files in
// EntryFound, so that mounted ones are entered as folders.
class RecordingWalk : public IO::TreeEnumerator {
public:
    explicit RecordingWalk(const IO::Folder& root, bool listAhead = false) : IO::TreeEnumerator(root) {
        if (listAhead)
            ListAhead();
    }

    bool EntryFound(const IO::Name& name, bool isFolder) override {
        Note("entry", name);
        if (stopAt == name.ToUTF8())
            Stop();
        return isFolder || name.GetExtension() != "lcf";
    }
    bool FileFound(const IO::Name& name) override {
        Note("file", name);
        return true;
    }
    bool FolderFound(const IO::Name& name) override { return !passOver.contains(name.ToUTF8()); }
    bool LinkFound(const IO::Name& name) override {
        Note("link", name);
        return false;
    }
    void FolderEntered(const IO::Name& name, const IO::Folder& folder) override {
        Note(folder.GetOwnerFileSystem() != nullptr ? "enter-mounted" : "enter", name);
    }
    void FolderExited(const IO::Name& name, const IO::Folder&) override { Note("exit", name); }

    std::vector<std::string> events;
    std::string stopAt;
    std::set<std::string> passOver;

private:
    void Note(const char* what, const IO::Name& name) {
        IO::RelativeLocation parent;
        GetParent().GetLocation().GetDifference(root, &parent);
        events.push_back(std::string(what) + " " + parent.ToString() + ":" + name.ToUTF8());
    }

public:
    IO::Location root;
};

class Mounted : public ::testing::Test {
protected:
    void SetUp() override {
        scratch.Write("lib/a.txt", "a");
        scratch.Write("lib/pack.lcf", "container bytes");
        scratch.Write("lib/z/zz.txt", "zz");
        vfs.AddFile("inner/b.klm", "hello");
        vfs.AddFile("top.txt", "top");
        mount = std::make_unique<ScopedMount>(vfs, Pack());
        ASSERT_EQ(mount->GetStatus(), KL::NoError);
    }
    IO::Location Pack() const { return scratch.Location("lib/pack.lcf"); }

    ScratchFolder scratch;
    MemoryVFS vfs;
    std::unique_ptr<ScopedMount> mount;
};

TEST_F(Mounted, TreeWalkDescendsIntoTheMountAndBackInOneOrder) {
    const IO::Folder root(scratch.Location("lib"));
    RecordingWalk walk(root);
    walk.root = root.GetLocation();
    EXPECT_EQ(walk.Do(), KL::NoError);
    const std::vector<std::string> expected = {
        "entry :a.txt",
        "file :a.txt",
        "entry :pack.lcf",
        "enter-mounted :pack.lcf",
        "entry pack.lcf:inner",
        "enter-mounted pack.lcf:inner",
        "entry pack.lcf/inner:b.klm",
        "file pack.lcf/inner:b.klm",
        "exit pack.lcf:inner",
        "entry pack.lcf:top.txt",
        "file pack.lcf:top.txt",
        "exit :pack.lcf",
        "entry :z",
        "enter :z",
        "entry z:zz.txt",
        "file z:zz.txt",
        "exit :z",
    };
    EXPECT_EQ(walk.events, expected);

    RecordingWalk again(root);
    again.root = root.GetLocation();
    again.Do();
    EXPECT_EQ(again.events, expected);
    RecordingWalk ahead(root, true);
    ahead.root = root.GetLocation();
    ahead.Do();
    EXPECT_EQ(ahead.events, expected) << "the mount is listed by the walk, the disk ahead of it";

    RecordingWalk stopped(root);
    stopped.root = root.GetLocation();
    stopped.stopAt = "b.klm";
    EXPECT_EQ(stopped.Do(), KL::NoError);
    EXPECT_EQ(stopped.events.back(), "entry pack.lcf/inner:b.klm");
    EXPECT_EQ(vfs.GetConnectedCount(), 0);
}

// Notes each file with the time its listing gave, or "-" where it gave none.
class TimedWalk : public IO::TreeEnumerator {
public:
    explicit TimedWalk(const IO::Folder& root, bool listAhead = false) : IO::TreeEnumerator(root) {
        ListModificationTimes();
        if (listAhead)
            ListAhead();
    }
    bool EntryFound(const IO::Name& name, bool isFolder) override {
        return isFolder || name.GetExtension() != "lcf";
    }
    bool FileFound(const IO::Name& name) override {
        const TITime* time = GetFoundModificationTime();
        times[name.ToUTF8()] = time != nullptr ? std::to_string(*time) : "-";
        return true;
    }
    std::map<std::string, std::string> times;
};

TEST_F(Mounted, AWalkThatAsksForTimesHasThemForDiskFilesOnly) {
    IO::File(scratch.Location("lib/a.txt")).SetModificationTime(TIFromUnixTime(1'000'000'000));
    const IO::Folder root(scratch.Location("lib"));
    TimedWalk walk(root);
    EXPECT_EQ(walk.Do(), KL::NoError);
    TITime disk = 0;
    ASSERT_EQ(IO::fileSystem.GetFileModificationTime(scratch.Location("lib/z/zz.txt"), &disk), KL::NoError);
    const std::map<std::string, std::string> expected = {
        {"a.txt", std::to_string(TIFromUnixTime(1'000'000'000))},
        {"zz.txt", std::to_string(disk)},
        {"b.klm", "-"},
        {"top.txt", "-"}};
    EXPECT_EQ(walk.times, expected);
    TimedWalk ahead(root, true);
    EXPECT_EQ(ahead.Do(), KL::NoError);
    EXPECT_EQ(ahead.times, expected);
}

TEST_F(Mounted, FilesAndFoldersOfTheMountReadLikeDiskOnes) {
    IO::File part(Pack() + IO::Name("inner") + IO::Name("b.klm"));
    ASSERT_EQ(part.GetStatus(), KL::NoError);
    EXPECT_EQ(part.GetOwnerFileSystem(), &vfs);
    ASSERT_EQ(part.Open(), KL::NoError);
    char text[5] = {};
    EXPECT_EQ(part.ReadBin(text, 5), KL::NoError);
    EXPECT_EQ(std::string(text, 5), "hello");
    EXPECT_EQ(part.ReadBin(text, 1), KL::ErrEndOfData);
    std::uint64_t length = 0;
    EXPECT_EQ(part.GetDataLength(&length), KL::NoError);
    EXPECT_EQ(length, 5u);
    TITime time = 0;
    EXPECT_EQ(part.GetModificationTime(&time), KL::NoError);
    EXPECT_EQ(time, 200);
    std::uint32_t type = 0;
    std::uint32_t creator = 0;
    EXPECT_EQ(part.GetTypeInfo(&type, &creator), KL::NoError);
    EXPECT_EQ(type, FTM::MakeCode("TEXT"));
    EXPECT_EQ(part.Seek(IO::File::FromStart, 1), KL::NoError);
    EXPECT_EQ(part.ReadBin(text, 4), KL::NoError);
    EXPECT_EQ(std::string(text, 4), "ello");
    EXPECT_NE(part.Open(IO::File::WriteMode), KL::NoError);
    EXPECT_TRUE(part.IsWriteProtected());

    // The mount point as a file is still the container on disk.
    IO::File container(Pack());
    ASSERT_EQ(container.Open(), KL::NoError);
    EXPECT_EQ(container.GetOwnerFileSystem(), nullptr);
    char bytes[9] = {};
    container.ReadBin(bytes, 9);
    EXPECT_EQ(std::string(bytes, 9), "container");

    const IO::Folder folder(Pack());
    ASSERT_EQ(folder.GetStatus(), KL::NoError);
    EXPECT_EQ(folder.GetOwnerFileSystem(), &vfs);
    EXPECT_TRUE(folder.Contains(IO::Name("inner")));
    EXPECT_FALSE(folder.IsWriteable());
    IO::Folder writable(Pack());
    EXPECT_EQ(writable.CreateFile(IO::Name("new.txt")), IO::ReadOnlyError);
    IO::EntryType kind = IO::FileEntryType;
    EXPECT_EQ(IO::fileSystem.GetType(Pack() + IO::Name("inner"), &kind), KL::NoError);
    EXPECT_EQ(kind, IO::FolderEntryType);
    EXPECT_EQ(IO::fileSystem.GetType(Pack(), &kind), KL::NoError);
    EXPECT_EQ(kind, IO::FolderEntryType);
    EXPECT_EQ(IO::File(Pack() + IO::Name("missing")).GetStatus(), IO::NotFoundError);
    EXPECT_EQ(IO::Folder(Pack() + IO::Name("top.txt")).GetStatus(), IO::NotFoundError);
    EXPECT_EQ(IO::fileSystem.Delete(Pack()), IO::MountError);
}

TEST_F(Mounted, UnmountKeepsOpenEntriesReadable) {
    auto open = std::make_unique<IO::File>(Pack() + IO::Name("top.txt"));
    ASSERT_EQ(open->Open(), KL::NoError);
    EXPECT_EQ(vfs.GetConnectedCount(), 1);

    EXPECT_EQ(IO::fileSystem.Unmount(Pack()), KL::NoError);
    mount->Release();
    EXPECT_FALSE(vfs.IsMounted());
    EXPECT_FALSE(IO::fileSystem.IsMountPoint(Pack()));
    char text[3] = {};
    EXPECT_EQ(open->ReadBin(text, 3), KL::NoError);
    EXPECT_EQ(std::string(text, 3), "top");

    // New connections go to the disk again, where the container is a plain file.
    EXPECT_EQ(IO::File(Pack() + IO::Name("top.txt")).GetStatus(), IO::WrongKindError);
    open.reset();
    EXPECT_EQ(vfs.GetConnectedCount(), 0);
    EXPECT_EQ(IO::fileSystem.Unmount(Pack()), IO::NotFoundError);
}

TEST_F(Mounted, RefusesSecondMountsAndMountsInsideAClosedFileSystem) {
    MemoryVFS other;
    EXPECT_EQ(IO::fileSystem.Mount(&other, Pack()), IO::MountError);
    EXPECT_EQ(IO::fileSystem.Mount(&other, Pack() + IO::Name("inner")), IO::MountError);
    EXPECT_EQ(IO::fileSystem.Mount(&vfs, scratch.Location("lib/z")), IO::MountError);
    EXPECT_EQ(IO::fileSystem.Mount(nullptr, scratch.Location("lib/z")), KL::ErrParam);
    EXPECT_EQ(IO::fileSystem.GetMountedVFS(Pack()), &vfs);
}

// Many folders, more than the prefetcher keeps waiting, some of which the walk passes over, and
// a walk that stops halfway: listing ahead changes none of the reports.
TEST(TreeEnumerator, AWalkThatListsAheadReportsWhatAWalkReports) {
    ScratchFolder scratch;
    for (int top = 0; top < 24; ++top) {
        const std::string folder = "lib/t" + std::to_string(top);
        scratch.Write(folder + "/part.klm", "x");
        for (int sub = 0; sub < top % 6; ++sub) {
            const std::string inner = folder + "/s" + std::to_string(sub);
            for (int file = 0; file <= sub; ++file)
                scratch.Write(inner + "/f" + std::to_string(file) + ".txt", "x");
            if (sub % 2 == 1)
                scratch.Write(inner + "/deep/deeper/end.txt", "x");
        }
    }
    std::filesystem::create_directory_symlink(scratch.Path() / "lib/t3", scratch.Path() / "lib/t9/link");
    const IO::Folder root(scratch.Location("lib"));
    const auto walk = [&root](bool listAhead, const std::set<std::string>& passOver,
                              const std::string& stopAt) {
        RecordingWalk recording(root, listAhead);
        recording.root = root.GetLocation();
        recording.passOver = passOver;
        recording.stopAt = stopAt;
        EXPECT_EQ(recording.Do(), KL::NoError);
        return recording.events;
    };
    const std::vector<std::pair<std::set<std::string>, std::string>> cases = {
        {{}, ""}, {{"t1", "t10", "t11", "t12", "t13", "s1", "deeper"}, ""}, {{"s3"}, "f2.txt"}};
    EXPECT_GT(walk(false, {}, "").size(), 400u);
    for (const auto& [passOver, stopAt] : cases) {
        const std::vector<std::string> expected = walk(false, passOver, stopAt);
        EXPECT_EQ(walk(true, passOver, stopAt), expected) << passOver.size() << " passed over";
    }
}

TEST(TreeEnumerator, PassesOverLinksToFoldersAndUnreadableFolders) {
    ScratchFolder scratch;
    scratch.Write("lib/real/part.klm", "x");
    scratch.Write("lib/open/part.klm", "x");
    std::filesystem::create_directory_symlink(scratch.Path() / "lib", scratch.Path() / "lib/loop");
    std::filesystem::create_symlink(scratch.Path() / "lib/real/part.klm", scratch.Path() / "lib/alias.klm");
    std::filesystem::create_symlink(scratch.Path() / "nowhere", scratch.Path() / "lib/broken");
    const IO::Folder root(scratch.Location("lib"));
    RecordingWalk walk(root);
    walk.root = root.GetLocation();
    EXPECT_EQ(walk.Do(), KL::NoError);
    const std::vector<std::string> expected = {
        "entry :alias.klm",    "file :alias.klm",     "entry :broken",      "link :broken",
        "entry :loop",         "link :loop",          "entry :open",        "enter :open",
        "entry open:part.klm", "file open:part.klm",  "exit :open",         "entry :real",
        "enter :real",         "entry real:part.klm", "file real:part.klm", "exit :real",
    };
    EXPECT_EQ(walk.events, expected);

    if (testsupport::PermissionsAreEnforced()) {
        std::filesystem::permissions(scratch.Path() / "lib/open", std::filesystem::perms::none);
        for (const bool listAhead : {false, true}) {
            RecordingWalk denied(root, listAhead);
            denied.root = root.GetLocation();
            EXPECT_EQ(denied.Do(), IO::FolderAccessDeniedError);
            EXPECT_EQ(denied.events.back(), "exit :real") << "the walk goes on past the unreadable folder";
        }
    }
    EXPECT_EQ(RecordingWalk(IO::Folder(scratch.Location("missing"))).Do(), IO::NotFoundError);
}

} // namespace
