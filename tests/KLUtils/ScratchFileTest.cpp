// Scratch files replace their target atomically or not at all; locations in text form.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using testsupport::ScratchFolder;

std::size_t CountEntries(const std::filesystem::path& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(ScratchFile, DestroyedBeforeMakePermanentLeavesTheOldTargetAndNoScratch) {
    ScratchFolder scratch;
    scratch.Write("cache/Data", "old content");
    {
        IOUtil::ScratchFile file(scratch.Location("cache/Data"));
        ASSERT_EQ(file.GetStatus(), KL::NoError);
        EXPECT_NE(file.GetLocation(), file.GetTargetLocation());
        ASSERT_EQ(file.Open(IO::File::WriteMode), KL::NoError);
        file.GetOutputChannel().Write(std::uint32_t{0});
        std::vector<char> block(100000, 'n');
        file.Write(block.data(), block.size());
        EXPECT_EQ(file.Flush(), KL::NoError);
        EXPECT_EQ(CountEntries(scratch.Path() / "cache"), 2u);
        // Destroyed here, as a crash or an early return would leave it.
    }
    EXPECT_EQ(scratch.Read("cache/Data"), "old content");
    EXPECT_EQ(CountEntries(scratch.Path() / "cache"), 1u);
}

TEST(ScratchFile, MakePermanentReplacesTheTargetInOneStep) {
    ScratchFolder scratch;
    scratch.Write("cache/Data", "old content");
    IOUtil::ScratchFile file(scratch.Location("cache/Data"), FTM::MakeCode("DATA"), FTM::MakeCode("KLTX"));
    ASSERT_EQ(file.Open(IO::File::WriteMode), KL::NoError);
    file.Write("new", 3);
    EXPECT_EQ(scratch.Read("cache/Data"), "old content") << "nothing reaches the target before";
    EXPECT_EQ(file.MakePermanent(), KL::NoError);
    EXPECT_TRUE(file.IsPermanent());
    EXPECT_EQ(scratch.Read("cache/Data"), "new");
    EXPECT_EQ(file.GetLocation(), scratch.Location("cache/Data"));
    EXPECT_EQ(CountEntries(scratch.Path() / "cache"), 1u);
    std::uint32_t type = 0;
    std::uint32_t creator = 0;
    if (file.GetTypeInfo(&type, &creator) == KL::NoError && type != 0) {
        EXPECT_EQ(type, FTM::MakeCode("DATA"));
    }

    // A new target is made as well; a target in a missing folder cannot be.
    IOUtil::ScratchFile fresh(scratch.Location("cache/Fresh"));
    ASSERT_EQ(fresh.Open(IO::File::WriteMode), KL::NoError);
    EXPECT_EQ(fresh.MakePermanent(), KL::NoError);
    EXPECT_TRUE(std::filesystem::exists(scratch.Path() / "cache/Fresh"));
    // A writer of many files syncs them once itself; the file is made permanent all the same.
    IOUtil::ScratchFile unsynced(scratch.Location("cache/Unsynced"), 0, 0, IOUtil::ScratchFile::SyncByCaller);
    ASSERT_EQ(unsynced.Open(IO::File::WriteMode), KL::NoError);
    unsynced.Write("many", 4);
    EXPECT_EQ(unsynced.MakePermanent(), KL::NoError);
    EXPECT_EQ(scratch.Read("cache/Unsynced"), "many");
    IOUtil::ScratchFile orphan(scratch.Location("nowhere/Data"));
    EXPECT_EQ(orphan.GetStatus(), IO::NotFoundError);
    EXPECT_NE(orphan.Open(IO::File::WriteMode), KL::NoError);
    EXPECT_NE(orphan.MakePermanent(), KL::NoError);
}

TEST(LocationSource, PathAndFileUrlFormsRoundTrip) {
    const IO::Location location("/lib/Fenêtre 50%/a#b.klm");
    EXPECT_EQ(IOUtil::LocationToSource(location, true), "/lib/Fenêtre 50%/a#b.klm");
    const KL::UniString url = IOUtil::LocationToSource(location, false);
    EXPECT_EQ(url, "file:///lib/Fen%C3%AAtre%2050%25/a%23b.klm");
    IO::Location read;
    EXPECT_EQ(IOUtil::SourceToLocation(url, &read), KL::NoError);
    EXPECT_EQ(read, location);
    EXPECT_EQ(IOUtil::SourceToLocation("file://localhost/a/b", &read), KL::NoError);
    EXPECT_EQ(read, IO::Location("/a/b"));
    EXPECT_EQ(IOUtil::SourceToLocation("/plain/path", &read), KL::NoError);
    EXPECT_EQ(read, IO::Location("/plain/path"));
    for (const char* bad :
         {"relative/path", "http://host/a", "file:///a%2", "file:///a%zz", "file://host/a", ""})
        EXPECT_EQ(IOUtil::SourceToLocation(bad, &read), IO::InvalidLocationError) << bad;
}

TEST(ResourceFileSystem, MountPointsNameTheirOrigin) {
    const IO::Location mountPoint("/tmp/resources-1");
    const IO::Location origin("/opt/app/Built-in Library");
    EXPECT_FALSE(IOUtil::IsResourceFileSystemMountPoint(mountPoint));
    EXPECT_EQ(IOUtil::RegisterResourceFileSystem(mountPoint, origin), KL::NoError);
    EXPECT_EQ(IOUtil::RegisterResourceFileSystem(mountPoint, origin), IO::AlreadyExistsError);
    EXPECT_TRUE(IOUtil::IsResourceFileSystemMountPoint(mountPoint));
    EXPECT_EQ(IOUtil::GetResourceFileSystemLocationFromMountPoint(mountPoint), origin);
    EXPECT_TRUE(IOUtil::GetResourceFileSystemLocationFromMountPoint(origin).IsEmpty());
    EXPECT_EQ(IOUtil::UnregisterResourceFileSystem(mountPoint), KL::NoError);
    EXPECT_FALSE(IOUtil::IsResourceFileSystemMountPoint(mountPoint));
    EXPECT_EQ(IOUtil::UnregisterResourceFileSystem(mountPoint), IO::NotFoundError);
}

} // namespace
