// Files and folders of the local disk, and the process's special locations.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/stat.h>
#include <vector>

namespace {

using testsupport::ScratchFolder;

TEST(File, WritesPatchesSeeksAndReadsBackThroughItsChannels) {
    ScratchFolder scratch;
    const IO::Location location = scratch.Location("data.bin");
    IO::File missing(location);
    EXPECT_EQ(missing.GetStatus(), IO::NotFoundError);
    EXPECT_EQ(missing.Open(), IO::NotFoundError);

    IO::File file(location, IO::File::New);
    ASSERT_EQ(file.GetStatus(), KL::NoError);
    ASSERT_EQ(file.Open(IO::File::WriteMode), KL::NoError);
    KL::OChannel& out = file.GetOutputChannel();
    static constexpr KL::ClassInfo Class("Test::Record", KL::Guid("0C8D6F4A-5B1E-4B9C-9D7E-1A2B3C4D5E6F"), 1,
                                         2);
    {
        KL::OutputFrame frame(out, Class);
        out.Write(std::uint32_t{0xDEADBEEF});
        out.Write(3.5);
        // Large enough to pass the buffer, so the frame's length is patched in the file itself.
        const std::vector<char> block(200 * 1024, 'x');
        out.WriteBin(block.data(), block.size());
    }
    out.Write(std::uint16_t{7});
    std::uint64_t length = 0;
    EXPECT_EQ(file.GetDataLength(&length), KL::NoError);
    EXPECT_EQ(length, 24 + 12 + 200 * 1024 + 2);
    EXPECT_EQ(file.Close(), KL::NoError);

    ASSERT_EQ(file.Open(IO::File::ReadMode), KL::NoError);
    {
        KL::InputFrame frame(file, Class);
        ASSERT_EQ(frame.GetStatus(), KL::NoError);
        std::uint32_t word = 0;
        double number = 0;
        file.Read(word);
        file.Read(number);
        EXPECT_EQ(word, 0xDEADBEEF);
        EXPECT_EQ(number, 3.5);
    }
    std::uint16_t last = 0;
    EXPECT_EQ(file.Read(last), KL::NoError);
    EXPECT_EQ(last, 7);
    EXPECT_EQ(file.Read(last), KL::ErrEndOfData);

    // Seeking clears the failure; all three origins land where they should.
    EXPECT_EQ(file.Seek(IO::File::FromEnd, -2), KL::NoError);
    EXPECT_EQ(file.GetStatus(), KL::NoError);
    EXPECT_EQ(file.Read(last), KL::NoError);
    EXPECT_EQ(last, 7);
    EXPECT_EQ(file.Seek(IO::File::FromStart, 24), KL::NoError);
    EXPECT_EQ(file.Seek(IO::File::FromCurrent, 4), KL::NoError);
    std::uint64_t position = 0;
    EXPECT_EQ(file.GetPosition(&position), KL::NoError);
    EXPECT_EQ(position, 28u);
    double number = 0;
    file.Read(number);
    EXPECT_EQ(number, 3.5);
    EXPECT_EQ(file.Seek(IO::File::FromStart, -1), IO::OutOfRangeError);
    EXPECT_EQ(file.Seek(IO::File::FromEnd, 1), IO::OutOfRangeError);
    EXPECT_EQ(file.Write("no", 2), IO::NotOpenError);
    EXPECT_EQ(file.Close(), KL::NoError) << "the refused write is not reported twice";

    // Read-write: reading, then writing after a seek, keeps one position.
    ASSERT_EQ(file.Open(IO::File::ReadWriteMode), KL::NoError);
    std::uint32_t word = 0;
    file.Seek(IO::File::FromStart, 24);
    file.Read(word);
    EXPECT_EQ(word, 0xDEADBEEF);
    EXPECT_EQ(file.Write("\1\2\3\4", 4), KL::NoError); // over the start of the double
    EXPECT_EQ(file.GetPosition(&position), KL::NoError);
    EXPECT_EQ(position, 32u);
    EXPECT_EQ(file.Seek(IO::File::FromStart, 28), KL::NoError);
    char bytes[4] = {};
    EXPECT_EQ(file.ReadBin(bytes, 4), KL::NoError);
    EXPECT_EQ(std::string(bytes, 4), std::string("\1\2\3\4", 4));
    EXPECT_EQ(file.Close(), KL::NoError);
    EXPECT_EQ(std::filesystem::file_size(scratch.Path() / "data.bin"), length);
}

// Hops back and forth through a file larger than the read buffer, within what is buffered and
// beyond it; locks between two openings exclude each other and go with a close; a move replaces.
TEST(File, SeeksAnywhereLocksAndMoves) {
    ScratchFolder scratch;
    std::string content(300 * 1024, '\0');
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>((i * 7919) >> 8);
    scratch.Write("big.bin", content);
    IO::File file(scratch.Location("big.bin"));
    ASSERT_EQ(file.Open(IO::File::ReadMode), KL::NoError);
    char bytes[64];
    for (const std::uint64_t at : {100UL, 40UL, 5000UL, 4990UL, 250000UL, 70000UL, 70064UL, 0UL, 307136UL}) {
        ASSERT_EQ(file.SetPosition(at), KL::NoError) << at;
        ASSERT_EQ(file.ReadBin(bytes, sizeof bytes), KL::NoError) << at;
        EXPECT_EQ(std::string(bytes, sizeof bytes), content.substr(at, sizeof bytes)) << at;
    }
    EXPECT_EQ(file.ReadBin(bytes, 1), KL::ErrEndOfData);
    EXPECT_EQ(file.SetPosition(10), KL::NoError); // a seek clears the failure
    EXPECT_EQ(file.ReadBin(bytes, 1), KL::NoError);
    EXPECT_EQ(bytes[0], content[10]);

    IO::File other(scratch.Location("big.bin"));
    ASSERT_EQ(other.Open(IO::File::ReadMode), KL::NoError);
    EXPECT_EQ(file.Lock(IO::FileEntry::SharedLock), KL::NoError);
    EXPECT_EQ(other.Lock(IO::FileEntry::SharedLock), KL::NoError);
    EXPECT_EQ(file.Lock(IO::FileEntry::ExclusiveLock), IO::LockedError);
    EXPECT_EQ(other.Close(), KL::NoError);
    EXPECT_EQ(file.Lock(IO::FileEntry::ExclusiveLock), KL::NoError);
    ASSERT_EQ(other.Open(IO::File::ReadMode), KL::NoError);
    EXPECT_EQ(other.Lock(IO::FileEntry::SharedLock), IO::LockedError);
    EXPECT_EQ(file.Close(), KL::NoError);
    EXPECT_EQ(file.Lock(IO::FileEntry::SharedLock), IO::NotOpenError);

    scratch.Write("small.txt", "small");
    EXPECT_EQ(IO::fileSystem.Move(scratch.Location("small.txt"), scratch.Location("big.bin")), KL::NoError);
    EXPECT_EQ(scratch.Read("big.bin"), "small");
    EXPECT_FALSE(std::filesystem::exists(scratch.Path() / "small.txt"));
    EXPECT_EQ(IO::fileSystem.Move(scratch.Location("small.txt"), scratch.Location("x")), IO::NotFoundError);
}

TEST(File, KeepsTimesAndTypeCodesAndRefusesFolders) {
    ScratchFolder scratch;
    scratch.Write("a.txt", "text");
    IO::File file(scratch.Location("a.txt"));
    const TITime when = TIDateToTime({2031, 5, 6, 7, 8, 9});
    EXPECT_EQ(file.SetModificationTime(when), KL::NoError);
    TITime read = 0;
    EXPECT_EQ(file.GetModificationTime(&read), KL::NoError);
    EXPECT_EQ(read, when);
    EXPECT_EQ(file.GetCreationTime(&read), KL::NoError);
    EXPECT_GT(read, 0);
    std::uint32_t type = 1;
    std::uint32_t creator = 1;
    EXPECT_EQ(file.GetTypeInfo(&type, &creator), KL::NoError);
    EXPECT_EQ(type, 0u) << "a file never given codes has none";
    if (file.SetTypeInfo(FTM::MakeCode("TEXT"), FTM::MakeCode("KLTX")) == KL::NoError) {
        EXPECT_EQ(file.GetTypeInfo(&type, &creator), KL::NoError);
        EXPECT_EQ(type, FTM::MakeCode("TEXT"));
        EXPECT_EQ(creator, FTM::MakeCode("KLTX"));
    }
    EXPECT_EQ(IO::File(scratch.Location()).GetStatus(), IO::WrongKindError);
    EXPECT_EQ(IO::File(IO::Location::Root()).GetStatus(), IO::InvalidLocationError);
    EXPECT_EQ(IO::File(scratch.Location("a.txt/b")).GetStatus(), IO::WrongKindError);

    // Connected for a reader that opens at once, the same refusals come from Open.
    IO::File folder(scratch.Location(), IO::File::FailAtOpen);
    EXPECT_EQ(folder.Open(), IO::WrongKindError);
    EXPECT_FALSE(folder.IsOpen());
    IO::File missing(scratch.Location("b.txt"), IO::File::FailAtOpen);
    EXPECT_EQ(missing.Open(), IO::NotFoundError);
    IO::File present(scratch.Location("a.txt"), IO::File::FailAtOpen);
    ASSERT_EQ(present.Open(), KL::NoError);
    char bytes[4] = {};
    EXPECT_EQ(present.ReadBin(bytes, 4), KL::NoError);
    EXPECT_EQ(std::string(bytes, 4), "text");
    EXPECT_EQ(present.GetModificationTime(&read), KL::NoError);
    EXPECT_EQ(read, when);

    // A file made by its opening: refused where anything is, a dangling link too, whose target
    // stays unmade; a time set while it is open outlasts the closing.
    std::filesystem::create_symlink(scratch.Path() / "elsewhere.txt", scratch.Path() / "link.txt");
    for (const char* taken : {"a.txt", "link.txt"})
        EXPECT_EQ(IO::File(scratch.Location(taken), IO::File::FailAtOpen).Open(IO::File::NewMode),
                  IO::AlreadyExistsError)
            << taken;
    EXPECT_FALSE(std::filesystem::exists(scratch.Path() / "elsewhere.txt"));
    IO::File made(scratch.Location("new.txt"), IO::File::FailAtOpen);
    ASSERT_EQ(made.Open(IO::File::NewMode), KL::NoError);
    EXPECT_EQ(made.Write("new", 3), KL::NoError);
    EXPECT_EQ(made.GetOutputChannel().Flush(), KL::NoError);
    EXPECT_EQ(made.SetModificationTime(when), KL::NoError);
    EXPECT_EQ(made.Close(), KL::NoError);
    EXPECT_EQ(scratch.Read("new.txt"), "new");
    EXPECT_EQ(IO::File(scratch.Location("new.txt")).GetModificationTime(&read), KL::NoError);
    EXPECT_EQ(read, when);
}

bool Record(const IO::Folder&, const IO::Name& name, bool isFolder, void* data) {
    static_cast<std::vector<std::string>*>(data)->push_back(name.ToUTF8() + (isFolder ? "/" : ""));
    return true;
}

TEST(Folder, CreatesListsInNameOrderAndDeletes) {
    ScratchFolder scratch;
    IO::Folder folder(scratch.Location("lib/sub/deeper"), IO::Folder::Create);
    ASSERT_EQ(folder.GetStatus(), KL::NoError);
    IO::Folder lib(scratch.Location("lib"));
    EXPECT_EQ(lib.CreateFile(IO::Name("b.klm")), KL::NoError);
    EXPECT_EQ(lib.CreateFile(IO::Name("b.klm")), IO::AlreadyExistsError);
    EXPECT_EQ(lib.CreateFolder(IO::Name("a")), KL::NoError);
    EXPECT_EQ(lib.CreateFile(IO::Name("C.txt")), KL::NoError);
    std::vector<std::string> names;
    EXPECT_EQ(lib.Enumerate(Record, &names), KL::NoError);
    EXPECT_EQ(names, (std::vector<std::string>{"C.txt", "a/", "b.klm", "sub/"}));
    EXPECT_TRUE(lib.Contains(IO::Name("a")));
    EXPECT_FALSE(lib.Contains(IO::Name("missing")));
    IO::EntryType type = IO::FileEntryType;
    EXPECT_EQ(lib.GetEntryType(IO::Name("sub"), &type), KL::NoError);
    EXPECT_EQ(type, IO::FolderEntryType);
    EXPECT_EQ(lib.GetEntryType(IO::Name("missing"), &type), IO::NotFoundError);
    EXPECT_TRUE(lib.IsValid());
    EXPECT_TRUE(lib.IsWriteable());
    EXPECT_TRUE(lib.IsOnLocalVolume());
    EXPECT_EQ(lib.GetOwnerFileSystem(), nullptr);

    IO::Name unused;
    EXPECT_EQ(lib.GenerateUnusedName(IO::Name("b"), &unused, ".klm"), KL::NoError);
    EXPECT_EQ(unused, IO::Name("b1.klm"));
    EXPECT_EQ(lib.GenerateUnusedNameFromString("x/y", &unused), KL::NoError);
    EXPECT_EQ(unused, IO::Name("x_y"));

    EXPECT_EQ(lib.Delete(IO::Name("sub")), IO::NotEmptyError);
    EXPECT_EQ(lib.Delete(IO::Name("b.klm")), KL::NoError);
    EXPECT_EQ(lib.Delete(IO::Name("b.klm")), IO::NotFoundError);
    EXPECT_EQ(lib.DeleteAll(), KL::NoError);
    names.clear();
    lib.Enumerate(Record, &names);
    EXPECT_TRUE(names.empty());
    EXPECT_TRUE(std::filesystem::is_directory(scratch.Path() / "lib"));

    EXPECT_EQ(IO::Folder(scratch.Location("missing")).GetStatus(), IO::NotFoundError);
    scratch.Write("file", "x");
    EXPECT_EQ(IO::Folder(scratch.Location("file")).GetStatus(), IO::WrongKindError);
    EXPECT_EQ(IO::fileSystem.CreateFolderTree(scratch.Location("file/below")), IO::WrongKindError);
    EXPECT_EQ(IO::fileSystem.Delete(scratch.Location("file")), KL::NoError);
    EXPECT_FALSE(std::filesystem::exists(scratch.Path() / "file"));
}

TEST(Folder, ReportsUnreadableFoldersAsAccessDenied) {
    if (!testsupport::PermissionsAreEnforced())
        GTEST_SKIP() << "permissions are not enforced for this user";
    ScratchFolder scratch;
    scratch.Write("closed/part.klm", "x");
    ::chmod((scratch.Path() / "closed").c_str(), 0);
    IO::Folder closed(scratch.Location("closed"));
    std::vector<std::string> names;
    EXPECT_EQ(closed.Enumerate(Record, &names), IO::FolderAccessDeniedError);
}

TEST(FileSystem, SpecialLocationsFollowTheEnvironment) {
    ScratchFolder scratch;
    IO::Location location;
    EXPECT_EQ(IO::fileSystem.GetSpecialLocation(IO::FileSystem::UserCacheFolder, &location), KL::NoError);
    EXPECT_EQ(location, scratch.Location("home/cache"));
    EXPECT_EQ(IO::fileSystem.GetSpecialLocation(IO::FileSystem::UserDataFolder, &location), KL::NoError);
    EXPECT_EQ(location, scratch.Location("home/data"));
    EXPECT_EQ(IO::fileSystem.GetSpecialLocation(IO::FileSystem::ConfigurationFolder, &location), KL::NoError);
    EXPECT_EQ(location, scratch.Location("home/config/libmgr"));
    EXPECT_EQ(IO::fileSystem.GetSpecialLocation(IO::FileSystem::TemporaryFolder, &location), KL::NoError);
    EXPECT_EQ(location, scratch.Location("home/tmp"));
    // Without the XDG variable the folder lies under the home; relative values are ignored.
    ::setenv("XDG_CACHE_HOME", "relative/cache", 1);
    EXPECT_EQ(IO::fileSystem.GetSpecialLocation(IO::FileSystem::UserCacheFolder, &location), KL::NoError);
    EXPECT_EQ(location, scratch.Location("home/.cache"));
    EXPECT_EQ(IO::fileSystem.GetSpecialLocation(static_cast<IO::FileSystem::SpecLocId>(99), &location),
              KL::ErrParam);
}

} // namespace
