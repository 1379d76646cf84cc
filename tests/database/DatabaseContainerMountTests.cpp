// A database container mounted as a folder tree: it enumerates like the library it was made
// from, and its entries read, seek and fail as a read-only file system's should.
#include "support/Catalogue.hpp"
#include "support/ContainerDatabase.hpp"
#include "support/Sqlite.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using testsupport::QueryInt;
using testsupport::RunSql;

using testsupport::CatalogueTest;
using testsupport::TestId;

class DatabaseContainerMount : public CatalogueTest {
protected:
    DatabaseContainerMount() {
        SavePart("Lib/Templates/Furniture.klm", TestId(1), "Furniture", {}, true);
        SavePart("Lib/Objects/Chair.klm", TestId(2), "Chair", {TestId(1)});
        SavePart("Lib/Objects/Tables/Table.klm", TestId(3), "Table", {TestId(1)});
        SavePart("Lib/Objects/Tables/Round Table.klm", TestId(4), "Round Table", {TestId(3)});
        scratch.Write("Lib/Objects/readme.txt", "readme of the objects");
        EnableDatabaseContainers(true);
    }
    ~DatabaseContainerMount() override { LM::ForgetDatabaseContainerPreferences(); }

    void EnableDatabaseContainers(bool enabled) {
        scratch.Write("preferences.json",
                      std::string(R"({"FileFormat": {"DatabaseLibraryContainerFormat": )") +
                          (enabled ? "true" : "false") + "}}");
        ::setenv("LIBMGR_PREFERENCES", (scratch.Path() / "preferences.json").c_str(), 1);
        LM::ForgetDatabaseContainerPreferences();
    }

    // Packs the library "Lib" without a top folder: its contents sit directly in the container.
    IO::Location MakeContainer(const std::string& relative) {
        std::filesystem::create_directories((scratch.Path() / relative).parent_path());
        Set().ResetActiveLibraries();
        AddLibrary("Lib");
        EXPECT_EQ(Set().Enumerate(process), 0);
        EXPECT_TRUE(
            LM::CreateDatabaseLibraryContainer(process, &Set(), scratch.Location(relative), nullptr, false));
        Set().ResetActiveLibraries();
        return scratch.Location(relative);
    }

    // One line per part: its place below its library root, its name, validity and ancestry.
    std::vector<std::string> CatalogueBelow(const IO::Location& root) {
        std::vector<std::string> lines;
        for (int i = 0; i < Set().GetLibPartNumber(); ++i) {
            const LM::LibPart* part = Set().GetLibPartByIndex(i);
            if (part->GetState() == LM::LibPartStateDeleted)
                continue;
            LM::AncestryInfo ancestry;
            std::string chain;
            if (Set().GetSymbolAncestryInfo(part, &ancestry) == 0)
                for (unsigned k = 1; k <= ancestry.GetAncestorsCount(); ++k)
                    chain += " < " + ancestry.GetAncestorRef(k).mainGuid.ToString().substr(0, 8);
            lines.push_back(part->GetLocation().ToString().substr(root.ToString().size()) + " " +
                            part->GetDocumentName().ToUTF8() + (part->IsValid() ? "" : " (dummy)") + chain);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }
};

TEST_F(DatabaseContainerMount, ALibraryThatIsADatabaseContainerEnumeratesLikeItsFolder) {
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    const std::vector<std::string> asFolder = CatalogueBelow(scratch.Location("Lib"));
    const int folders = Set().GetFolderNumber();
    ASSERT_EQ(asFolder.size(), 5U);

    const IO::Location container = MakeContainer("Shipped/Lib.lcf");
    EXPECT_TRUE(LM::CheckIfFileDatabaseContainer(container));
    EXPECT_FALSE(LM::CheckIfContainer(container));
    Set().ResetActiveLibraries();
    AddLibrary("Shipped/Lib.lcf");
    ASSERT_TRUE(Set().IsExistActiveLibrary(0));
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(CatalogueBelow(container), asFolder);
    EXPECT_EQ(Set().GetFolderNumber(), folders);
    EXPECT_TRUE(LM::IsContainerFileSystem(LM::FindFileSystem(container)));
    Set().ResetActiveLibraries();
    EXPECT_FALSE(IO::fileSystem.IsMountPoint(container));

    // With the format switched off, the same file is no library.
    EnableDatabaseContainers(false);
    AddLibrary("Shipped/Lib.lcf");
    EXPECT_FALSE(Set().IsExistActiveLibrary(0));
}

// The names in a folder, sorted, folders marked with a slash.
std::vector<std::string> Listing(const IO::Location& location) {
    IO::Folder::Listing entries;
    IO::Folder(location).List(&entries);
    std::vector<std::string> names;
    for (const auto& [name, type] : entries)
        names.push_back(name.GetText().ToUTF8() + (type == IO::FolderEntryType ? "/" : ""));
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadAll(const IO::Location& location, int* error) {
    IO::File file(location);
    std::string bytes;
    *error = file.Open(IO::File::ReadMode);
    if (*error != 0)
        return bytes;
    char buffer[7];
    std::uint64_t got = 0;
    do {
        *error = file.ReadUpTo(buffer, sizeof buffer, &got);
        bytes.append(buffer, got);
    } while (*error == 0 && got == sizeof buffer);
    return bytes;
}

TEST_F(DatabaseContainerMount, EntriesReadSeekAndAfterAFailedReadEveryEntryFails) {
    const IO::Location container = MakeContainer("Lib.lcf");
    // The parts' bytes are damaged in the file, not the short text's: their headers list, their
    // contents no longer read.
    EXPECT_EQ(
        RunSql(container, "UPDATE odb_group_2 SET state = substr(state, 1, 40) WHERE length(state) > 200"),
        4);

    LM::DatabaseLibraryContainerVFS fileSystem(container);
    ASSERT_EQ(IO::fileSystem.Mount(&fileSystem, container), 0);
    ASSERT_TRUE(fileSystem.IsMounted());
    // The top folder is no level.
    EXPECT_EQ(Listing(container), (std::vector<std::string>{"Objects/", "Templates/"}));
    EXPECT_EQ(Listing(container + IO::Name("Objects")),
              (std::vector<std::string>{"Chair.klm", "Tables/", "readme.txt"}));

    const IO::Location readme = container + IO::Name("Objects") + IO::Name("readme.txt");
    int error = 0;
    EXPECT_EQ(ReadAll(readme, &error), "readme of the objects");
    // The entry itself: a read past the end gives the rest and says so; seeks stay inside.
    IO::Location at = readme;
    IO::FileEntry* entry = nullptr;
    ASSERT_EQ(fileSystem.Connect(&at, &entry), 0);
    EXPECT_EQ(entry->Open(IO::FileEntry::WriteMode), IO::EntryStatus::TransferFailed);
    ASSERT_EQ(entry->Open(IO::FileEntry::ReadMode), 0);
    std::uint64_t position = 0;
    ASSERT_EQ(entry->Seek(IO::FileEntry::FromEnd, -3, &position), 0);
    EXPECT_EQ(position, 18u);
    char tail[8] = {};
    std::uint64_t got = 0;
    EXPECT_EQ(entry->Read(tail, sizeof tail, &got), IO::EntryStatus::EndOfData);
    EXPECT_EQ(std::string(tail, got), "cts");
    EXPECT_EQ(static_cast<LM::DatabaseLibraryContainerObjectVFS::FileEntry*>(entry)->GetHighWater(), 21u);
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromStart, 22, &position), IO::EntryStatus::EndOfData);
    EXPECT_EQ(entry->Seek(IO::FileEntry::FromCurrent, -21, &position), 0);
    EXPECT_EQ(position, 0u);
    std::uint64_t length = 0;
    EXPECT_EQ(entry->GetDataLength(&length), 0);
    EXPECT_EQ(length, 21u);
    EXPECT_TRUE(entry->IsWriteProtected());
    EXPECT_EQ(entry->SetDataLength(0), IO::EntryStatus::TransferFailed);
    // The mount point itself connects, though no table holds it.
    IO::Location mountPoint = container;
    IO::FolderEntry* top = nullptr;
    ASSERT_EQ(fileSystem.Connect(&mountPoint, &top), 0);
    EXPECT_EQ(fileSystem.GetConnectedCount(), 2);
    fileSystem.Disconnect(top);

    // A part's read fails, and from then on every entry of the file system does.
    const IO::Location chair = container + IO::Name("Objects") + IO::Name("Chair.klm");
    ReadAll(chair, &error);
    EXPECT_NE(error, 0);
    EXPECT_TRUE(fileSystem.ErrorOccured());
    ReadAll(readme, &error);
    EXPECT_NE(error, 0);
    EXPECT_TRUE(Listing(container).empty());
    EXPECT_EQ(entry->Read(tail, 1, &got), IO::EntryStatus::TransferFailed);
    fileSystem.Disconnect(entry);
    IO::fileSystem.Unmount(container);
}

TEST_F(DatabaseContainerMount, DamagedDatabaseContainersAreNoLibrariesOrLoseOnlyWhatIsDamaged) {
    const IO::Location good = MakeContainer("good.lcf");
    const auto size = std::filesystem::file_size(good.ToString());
    const auto variant = [&](const std::string& name,
                             const std::function<void(const IO::Location&)>& damage) {
        const IO::Location copy = scratch.Location(name);
        std::filesystem::copy_file(good.ToString(), copy.ToString());
        damage(copy);
        return name;
    };
    const std::vector<std::string> damaged = {
        variant("half.lcf",
                [&](const IO::Location& at) { std::filesystem::resize_file(at.ToString(), size / 2); }),
        variant("header-only.lcf",
                [&](const IO::Location& at) { std::filesystem::resize_file(at.ToString(), 100); }),
        // Headers that claim to be folders, and folders whose streams were cut.
        variant("classes.lcf",
                [](const IO::Location& at) {
                    RunSql(at, "UPDATE odb_object SET class = x'85E97D440DBF42C698C86A15DC4EDA93' "
                               "WHERE class = x'5CC0B05DA11C4D62B29DA3897814A203'");
                }),
        variant("cut-folders.lcf",
                [](const IO::Location& at) {
                    RunSql(at, "UPDATE odb_object SET state = substr(state, 1, 50) "
                               "WHERE class = x'85E97D440DBF42C698C86A15DC4EDA93'");
                }),
        // Contents whose byte counts lie.
        variant("lying-contents.lcf",
                [](const IO::Location& at) {
                    RunSql(at, "UPDATE odb_group_2 SET state = substr(state, 1, 60)");
                }),
        variant("no-root.lcf", [](const IO::Location& at) { RunSql(at, "DELETE FROM odb_meta"); }),
        // A folder that holds itself.
        variant("circle.lcf",
                [](const IO::Location& at) {
                    RunSql(at, "INSERT INTO odb_link SELECT l.leftObject, l.association, 1000, l.leftObject "
                               "FROM odb_link l JOIN odb_association a ON a.association = l.association "
                               "WHERE a.id = x'8EFF21733DC54C948DEACA68FE12B2DD' LIMIT 1");
                }),
    };
    // A damaged tree is no container; damaged bytes cost only the parts that read them.
    for (const std::string& name : damaged) {
        Set().ResetActiveLibraries();
        AddLibrary(name);
        EXPECT_NO_THROW(Set().Enumerate(process)) << name;
        const bool treeIntact = name == "lying-contents.lcf";
        EXPECT_EQ(Set().IsExistActiveLibrary(0), treeIntact) << name;
        EXPECT_LT(CatalogueBelow(scratch.Location(name)).size(), treeIntact ? 5u : 1u) << name;
    }
}

TEST_F(DatabaseContainerMount, AContainerInAHostsDatabaseIsBuiltMountedWrittenOutAndDeletedWhole) {
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    testsupport::ContainerDatabase host(scratch.Location("host.db"));
    ODB::Ref<LM::LibraryContainerFileRoot> hostObject(new LM::LibraryContainerFileRoot);
    host->AddObject(hostObject);
    ODB::Ref<ODB::Object> built;
    ASSERT_TRUE(LM::CreateDatabaseLibraryContainer(process, &Set(), hostObject, nullptr, false, &built));
    EXPECT_EQ(built, LM::DLCOwnerRootAssociation.GetRight(hostObject));
    // An object holds one container, and only an object of a database holds one.
    EXPECT_FALSE(LM::CreateDatabaseLibraryContainer(process, &Set(), hostObject, nullptr, false, nullptr));
    EXPECT_FALSE(LM::CreateDatabaseLibraryContainer(
        process, &Set(), ODB::Ref<LM::LibraryContainerFileRoot>(new LM::LibraryContainerFileRoot), nullptr,
        false, nullptr));
    host->Flush();
    EXPECT_TRUE(LM::CheckIfFileDatabaseContainer(ODB::ConstRef<ODB::Object>(hostObject)));
    EXPECT_FALSE(LM::CheckIfFileDatabaseContainer(ODB::ConstRef<ODB::Object>(
        ODB::Ref<LM::LibraryContainerFileRoot>(new LM::LibraryContainerFileRoot))));

    const IO::Location mountPoint = scratch.Location("Mounted");
    {
        LM::DatabaseLibraryContainerVFS fileSystem(hostObject, hostObject);
        EXPECT_EQ(fileSystem.GetContainerRoot()->GetFileCount(), 5u);
        ASSERT_EQ(IO::fileSystem.Mount(&fileSystem, mountPoint), 0);
        EXPECT_EQ(Listing(mountPoint + IO::Name("Objects") + IO::Name("Tables")),
                  (std::vector<std::string>{"Round Table.klm", "Table.klm"}));
        int error = 0;
        EXPECT_EQ(ReadAll(mountPoint + IO::Name("Objects") + IO::Name("readme.txt"), &error),
                  "readme of the objects");
        EXPECT_EQ(fileSystem.GetDatabaseOwner(), hostObject);
        fileSystem.DatabaseOwnerDeleted();
        EXPECT_TRUE(fileSystem.GetDatabaseOwner().IsNull());
        IO::fileSystem.Unmount(mountPoint);
    }
    // Written out from the object as from a file; only into a folder that exists.
    EXPECT_EQ(LM::ExtractContainer(process, hostObject, scratch.Location("out"), nullptr),
              LM::LibPartFileError);
    std::filesystem::create_directory(scratch.Path() / "out");
    EXPECT_EQ(LM::ExtractContainer(process, hostObject, scratch.Location("out"), nullptr), 0);
    EXPECT_EQ(scratch.Read("out/Objects/readme.txt"), "readme of the objects");
    EXPECT_EQ(scratch.Read("out/Objects/Tables/Table.klm"), scratch.Read("Lib/Objects/Tables/Table.klm"));

    // Deleting the container takes every object of it, and leaves the host's object.
    const ODB::RefBase root = LM::DLCOwnerRootAssociation.GetRight(hostObject);
    const ODB::RefBase top = LM::DLCRootFolderAssociation.GetRight(root);
    ODB::RefList firstLevel;
    LM::DLCChildrenAssociation.EnumerateRight(top, &firstLevel);
    ASSERT_FALSE(firstLevel.empty());
    EXPECT_TRUE(LM::DeleteContainerFromFileDatabase(hostObject));
    EXPECT_FALSE(root.IsLive());
    EXPECT_FALSE(top.IsLive());
    EXPECT_FALSE(firstLevel.front().IsLive());
    EXPECT_TRUE(hostObject.IsLive());
    EXPECT_FALSE(LM::CheckIfFileDatabaseContainer(ODB::ConstRef<ODB::Object>(hostObject)));
    host->Flush();
    EXPECT_EQ(QueryInt(scratch.Location("host.db"), "SELECT COUNT(*) FROM odb_object"), 1);
    EXPECT_EQ(QueryInt(scratch.Location("host.db"), "SELECT COUNT(*) FROM odb_link"), 0);
}

// Breaks when asked, and counts how often it was.
class BreakingProcess : public KL::ProcessControl {
public:
    bool BreakRequested() override {
        ++asked;
        return true;
    }
    int asked = 0;
};

TEST_F(DatabaseContainerMount, AMountsProgressOwnsItsProcessAndAsksForABreakEveryEighthFile) {
    BreakingProcess process;
    LM::DatabaseLibraryProcessControl progress(KL::UniString("Reading"));
    progress.Start(process, 10);
    EXPECT_TRUE(progress.IsActive());
    EXPECT_EQ(progress.GetTotal(), 10);
    EXPECT_TRUE(process.IsProcessRunning());
    EXPECT_EQ(process.GetProcessId(), 84);
    EXPECT_EQ(process.GetTitle(), KL::UniString("Reading"));
    for (int file = 1; file < 8; ++file)
        progress.Step(process);
    EXPECT_EQ(process.asked, 0);
    EXPECT_FALSE(progress.IsCancelled());
    progress.Step(process);
    EXPECT_EQ(process.asked, 1);
    EXPECT_TRUE(progress.IsCancelled());
    progress.Finish(process);
    EXPECT_FALSE(progress.IsActive());
    EXPECT_FALSE(process.IsProcessRunning()) << "the process it started ends with it";

    // A process that ran already is left running.
    process.StartProcess(7);
    progress.Start(process, 1);
    EXPECT_FALSE(progress.IsCancelled());
    progress.Finish(process);
    EXPECT_TRUE(process.IsProcessRunning());
    EXPECT_EQ(process.GetProcessId(), 7);
}

TEST_F(DatabaseContainerMount, PreferencesDecideTheFormatAndTheMemoryLimit) {
    // Absent, the switch is off, and the next call asks again.
    ::setenv("LIBMGR_PREFERENCES", (scratch.Path() / "later.json").c_str(), 1);
    LM::ForgetDatabaseContainerPreferences();
    EXPECT_FALSE(LM::IsDatabaseLibraryContainerOpeningEnabled());
    scratch.Write("later.json", R"({"FileFormat": {"DatabaseLibraryContainerFormat": true},
                                    "LibraryManager": {"LibraryContainerMaxMemorySize": 0}})");
    EXPECT_TRUE(LM::IsDatabaseLibraryContainerFormatEnabled());
    EXPECT_EQ(LM::GetLibraryContainerMaxMemorySize(), 0);
    scratch.Write("later.json", R"({"LibraryManager": {"LibraryContainerMaxMemorySize": -1}})");
    LM::ForgetDatabaseContainerPreferences();
    EXPECT_GE(LM::GetLibraryContainerMaxMemorySize(), 30) << "-1 is no value: the limit is computed";
    EXPECT_EQ(LM::LibraryContainerMaxMemorySizeFor(std::uint64_t{255} << 20), 30);
    EXPECT_EQ(LM::LibraryContainerMaxMemorySizeFor(std::uint64_t{256} << 20), 30);
    EXPECT_EQ(LM::LibraryContainerMaxMemorySizeFor(std::uint64_t{200} << 20), 30);
    EXPECT_EQ(LM::LibraryContainerMaxMemorySizeFor(std::uint64_t{8192} << 20), 163);
}

} // namespace
