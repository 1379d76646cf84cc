// Database containers built from a library set and written out again: which libraries become
// which folders, how folders of equal name merge, what nested containers and embedded libraries
// keep, that a build that does not finish leaves nothing behind, and that extraction keeps to
// its destination and the path rules whatever the database holds.
#include "support/Catalogue.hpp"
#include "support/ContainerBytes.hpp"
#include "support/ContainerDatabase.hpp"
#include "support/Sqlite.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using testsupport::CatalogueTest;
using testsupport::LcfBytes;
using testsupport::LcfInfo;
using testsupport::LcfNode;
using testsupport::QueryInt;
using testsupport::TestId;

namespace fs = std::filesystem;

// Files below `root`, by their path relative to it.
std::set<std::string> FilesBelow(const fs::path& root) {
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (entry.is_regular_file())
            files.insert(fs::relative(entry.path(), root).string());
    return files;
}

class DatabaseContainerBuild : public CatalogueTest {
protected:
    DatabaseContainerBuild() {
        SavePart("Lib/Objects/Chair.klm", TestId(1), "Chair", {});
        SavePart("Lib/Objects/Tables/Table.klm", TestId(2), "Table", {});
        scratch.Write("Lib/readme.txt", "of the first library");
        SavePart("Other/Objects/Lamp.klm", TestId(3), "Lamp", {});
        SavePart("Other/Doors/Door.klm", TestId(4), "Door", {});
        LM::SetDatabaseLibraryContainerFormatEnabled(true);
    }
    ~DatabaseContainerBuild() override { LM::ForgetDatabaseContainerPreferences(); }

    void UseLibraries(const std::vector<std::string>& libraries) {
        Set().ResetActiveLibraries();
        for (const std::string& library : libraries)
            AddLibrary(library);
        ASSERT_EQ(Set().Enumerate(process), 0);
    }

    // Builds `name` and writes it out again below "out-<name>"; the files written.
    std::set<std::string>
    BuildAndExtract(const std::string& name, bool createTopFolder,
                    const KL::HashTable<const LM::LibPart*, bool>* selection = nullptr) {
        EXPECT_TRUE(LM::CreateDatabaseLibraryContainer(process, &Set(), scratch.Location(name), selection,
                                                       createTopFolder));
        return Extract(name);
    }

    // A database container is written only into a folder that exists.
    std::set<std::string> Extract(const std::string& name) {
        const std::string out = "out-" + name;
        fs::create_directories(scratch.Path() / out);
        EXPECT_EQ(LM::ExtractContainer(process, scratch.Location(name), scratch.Location(out), false, false,
                                       nullptr, false),
                  0);
        return FilesBelow(scratch.Path() / out);
    }

    const LM::LibPart* Part(const std::string& relative) {
        return Set().SearchLibPart(scratch.Location(relative), LM::LibrarySet::CurrentLocation);
    }
};

TEST_F(DatabaseContainerBuild, LibrariesBecomeFoldersAsTheTopFolderOptionAndTheirNamesSay) {
    UseLibraries({"Lib", "Other"});
    // Each library in a folder of its own; the file is a container of the same type as a file's.
    EXPECT_EQ(
        BuildAndExtract("both.lcf", true),
        (std::set<std::string>{"Lib/readme.txt", "Lib/Objects/Chair.klm", "Lib/Objects/Tables/Table.klm",
                               "Other/Objects/Lamp.klm", "Other/Doors/Door.klm"}));
    std::uint32_t type = 0;
    std::uint32_t creator = 0;
    EXPECT_EQ(IO::File(scratch.Location("both.lcf")).GetTypeInfo(&type, &creator), 0);
    EXPECT_EQ(type, FTM::MakeCode(".LCF"));
    EXPECT_EQ(creator, FTM::MakeCode("KLTX"));
    EXPECT_FALSE(LM::CheckIfContainer(scratch.Location("both.lcf")));
    EXPECT_TRUE(LM::CheckIfFileDatabaseContainer(scratch.Location("both.lcf")));

    // Without the top folder a container holds the first library alone, directly.
    EXPECT_EQ(BuildAndExtract("first.lcf", false),
              (std::set<std::string>{"readme.txt", "Objects/Chair.klm", "Objects/Tables/Table.klm"}));

    // A false entry and a missing one both leave a part out; the root's count is an estimate.
    KL::HashTable<const LM::LibPart*, bool> selection;
    selection.Put(Part("Lib/Objects/Chair.klm"), true);
    selection.Put(Part("Other/Doors/Door.klm"), false);
    EXPECT_EQ(BuildAndExtract("chosen.lcf", true, &selection),
              (std::set<std::string>{"Lib/Objects/Chair.klm"}));
    EXPECT_EQ(QueryInt(scratch.Location("chosen.lcf"),
                       "SELECT COUNT(*) FROM odb_object WHERE class = x'5CC0B05DA11C4D62B29DA3897814A203'"),
              1);

    // Libraries named as containers: one alone fills the top folder, two keep their folders.
    fs::rename(scratch.Path() / "Lib", scratch.Path() / "One.PLA");
    fs::rename(scratch.Path() / "Other", scratch.Path() / "Two.pla");
    UseLibraries({"One.PLA"});
    EXPECT_EQ(BuildAndExtract("one.lcf", true),
              (std::set<std::string>{"readme.txt", "Objects/Chair.klm", "Objects/Tables/Table.klm"}));
    UseLibraries({"One.PLA", "Two.pla"});
    EXPECT_EQ(BuildAndExtract("two.lcf", true),
              (std::set<std::string>{"One.PLA/readme.txt", "One.PLA/Objects/Chair.klm",
                                     "One.PLA/Objects/Tables/Table.klm", "Two.pla/Objects/Lamp.klm",
                                     "Two.pla/Doors/Door.klm"}));
}

TEST_F(DatabaseContainerBuild, LibrariesMeetingInTheTopFolderMergeFoldersOfEqualName) {
    // One library named as a container among others puts all of them in the top folder, where
    // both "Objects" folders meet: the first keeps the children of both, the second goes.
    fs::rename(scratch.Path() / "Lib", scratch.Path() / "One.lcf");
    UseLibraries({"One.lcf", "Other"});
    EXPECT_EQ(BuildAndExtract("merged.lcf", true),
              (std::set<std::string>{"readme.txt", "Objects/Chair.klm", "Objects/Tables/Table.klm",
                                     "Objects/Lamp.klm", "Doors/Door.klm"}));
    const IO::Location merged = scratch.Location("merged.lcf");
    // Folders: top, Objects, Tables, Doors; nothing else is left in the file.
    EXPECT_EQ(
        QueryInt(merged, "SELECT COUNT(*) FROM odb_object WHERE class = x'85E97D440DBF42C698C86A15DC4EDA93'"),
        4);
    EXPECT_EQ(
        QueryInt(merged,
                 "SELECT COUNT(*) FROM odb_link WHERE rightObject NOT IN (SELECT rowid FROM odb_object)"),
        0);
}

TEST_F(DatabaseContainerBuild, EmbeddedLibrariesAndNestedContainersKeepWhatReadersNeed) {
    LcfBytes inner;
    inner.headerInfos = {LcfInfo{LcfBytes::Tag("VERS"), "2.5"}};
    scratch.Write("Lib/Inner.lcf",
                  inner.Build({LcfNode::Folder("Doors", {LcfNode::File("Door.txt", "door")})}));
    Set().ResetActiveLibraries();
    AddLibrary("Lib");
    Set().AddActiveLibrary(process, scratch.Location("Other"), LM::EmbeddedLibrary, LM::NotVital,
                           KL::NULLGuid, KL::UniString(), false);
    ASSERT_EQ(Set().Enumerate(process), 0);
    const KL::UniString previous = LM::DefaultContainerWriteOptions->GetEmbeddedName();
    LM::DefaultContainerWriteOptions->SetEmbeddedName(KL::UniString("Project Parts"));
    const bool built =
        LM::CreateDatabaseLibraryContainer(process, &Set(), scratch.Location("db.lcf"), nullptr, true);
    LM::DefaultContainerWriteOptions->SetEmbeddedName(previous);
    ASSERT_TRUE(built);
    const std::set<std::string> files = Extract("db.lcf");
    EXPECT_EQ(files.count("Project Parts/Doors/Door.klm"), 1U);
    EXPECT_EQ(files.count("Lib/Inner.lcf/Doors/Door.txt"), 1U);

    // Mounted as a library and packed again, as a database while the format is on, and by the
    // container file writer: the nested container's header and its items come along from the
    // database folder.
    UseLibraries({"db.lcf"});
    ASSERT_EQ(LM::CreateContainer(process, scratch.Location("again-db.lcf"), &Set(), nullptr,
                                  LM::ContainerWriteOptions(nullptr, true)),
              0);
    EXPECT_TRUE(LM::CheckIfFileDatabaseContainer(scratch.Location("again-db.lcf")));
    LM::ContainerWriter writer(&Set(), LM::ContainerWriteOptions(nullptr, true));
    writer.BuildTree(nullptr);
    ASSERT_EQ(writer.WriteToLocation(process, scratch.Location("again.lcf")), 0);
    IO::File again(scratch.Location("again.lcf"));
    ASSERT_EQ(again.Open(IO::File::ReadMode), 0);
    struct Infos : LM::DummyProcessor {
        int ProcessFolder(KL::IChannel&, IO::File*, const LM::FolderEntry&, const IO::Location&,
                          const IO::RelativeLocation& relative, bool,
                          const KL::Array<LM::InfoData*>* items) override {
            if (relative.ToString().ends_with("Inner.lcf"))
                count = static_cast<int>(items->GetSize());
            return 0;
        }
        int count = -1;
    } walk;
    LM::ContainerReader reader(&walk, false, false, nullptr, false);
    EXPECT_EQ(reader.Read(process, again, scratch.Location("walked")), 0);
    EXPECT_EQ(walk.count, 2) << "EMBH and VERS";
}

// Breaks on the first question.
class BreakingProcess : public KL::ProcessControl {
public:
    bool BreakRequested() override { return true; }
};

TEST_F(DatabaseContainerBuild, ABuildThatDoesNotFinishLeavesTheOldFileOrNone) {
    for (int i = 0; i < 200; ++i)
        scratch.Write("Lib/Many/Text " + std::to_string(i) + ".txt",
                      std::string(64 * 1024, char('a' + i % 26)));
    UseLibraries({"Lib"});
    EXPECT_FALSE(
        LM::CreateDatabaseLibraryContainer(process, nullptr, scratch.Location("none.lcf"), nullptr, true));
    ASSERT_TRUE(
        LM::CreateDatabaseLibraryContainer(process, &Set(), scratch.Location("old.lcf"), nullptr, true));
    const std::string old = scratch.Read("old.lcf");
    const std::size_t fileCount = Extract("old.lcf").size();
    BreakingProcess breaking;
    EXPECT_FALSE(
        LM::CreateDatabaseLibraryContainer(breaking, &Set(), scratch.Location("old.lcf"), nullptr, true));
    EXPECT_EQ(scratch.Read("old.lcf"), old);
    EXPECT_EQ(LM::CreateContainer(breaking, scratch.Location("new.lcf"), &Set(), nullptr,
                                  LM::ContainerWriteOptions()),
              LM::LibPartFileError);
    EXPECT_EQ(FilesBelow(scratch.Path()).count("new.lcf"), 0U);

    // Killed at any point, a build leaves the old file, none, or a whole container.
    std::mt19937 random(5);
    for (int round = 0; round < 25; ++round) {
        const bool fromNothing = round % 3 == 0;
        if (fromNothing)
            fs::remove(scratch.Path() / "target.lcf");
        else
            fs::copy_file(scratch.Path() / "old.lcf", scratch.Path() / "target.lcf",
                          fs::copy_options::overwrite_existing);
        const pid_t child = ::fork();
        if (child == 0) {
            for (;;)
                LM::CreateDatabaseLibraryContainer(process, &Set(), scratch.Location("target.lcf"), nullptr,
                                                   false);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 150000));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        if (!fs::exists(scratch.Path() / "target.lcf")) {
            EXPECT_TRUE(fromNothing) << "round " << round << ": the old container is gone";
            continue;
        }
        if (scratch.Read("target.lcf") == old)
            continue;
        fs::remove_all(scratch.Path() / "out-target.lcf");
        EXPECT_EQ(Extract("target.lcf").size(), fileCount) << "round " << round;
    }
}

// A container made by hand, as a hostile sender would: names that climb, separators, a folder
// inside itself, and files whose paths are too long for the system.
TEST_F(DatabaseContainerBuild, ExtractionKeepsToTheDestinationAndThePathRules) {
    {
        testsupport::ContainerDatabase database(scratch.Location("hostile.lcf"));
        ODB::Ref<LM::LibraryContainerFileRoot> fileRoot(new LM::LibraryContainerFileRoot);
        database->AddObject(fileRoot);
        database->SetRootObject(fileRoot);
        ODB::Ref<LM::DatabaseLibraryContainerRoot> root(new LM::DatabaseLibraryContainerRoot);
        root->SetId(LM::DatabaseLibraryContainerRootId);
        LM::DLCOwnerRootAssociation.Connect(fileRoot, root);
        ODB::Ref<LM::DatabaseLibraryContainerFolder> top(new LM::DatabaseLibraryContainerFolder);
        LM::DLCRootFolderAssociation.Connect(root, top);
        const auto file = [](const ODB::RefBase& folder, const std::string& name, const std::string& bytes) {
            ODB::Ref<LM::DatabaseLibraryContainerLibPartHeader> header(
                new LM::DatabaseLibraryContainerLibPartHeader(KL::UniString(name.c_str())));
            ODB::Ref<LM::DatabaseLibraryContainerLibPartContent> content(
                new LM::DatabaseLibraryContainerLibPartContent(KL::UniString(name.c_str()), KL::UniString(),
                                                               {}, {}, 0, 0));
            KL::MemoryIChannel channel(bytes.data(), bytes.size());
            content->SetLibEntry(channel, static_cast<std::uint32_t>(bytes.size()));
            LM::DLCHeaderContentAssociation.Connect(header, content);
            LM::DLCChildrenAssociation.Connect(folder, header);
        };
        const auto folder = [](const ODB::RefBase& parent, const std::string& name) {
            ODB::Ref<LM::DatabaseLibraryContainerFolder> made(
                new LM::DatabaseLibraryContainerFolder(KL::UniString(name.c_str())));
            LM::DLCChildrenAssociation.Connect(parent, made);
            return made;
        };
        file(top, "..", "climbs");
        file(top, "../escaped.txt", "climbs");
        file(top, "a/b.txt", "separated");
        file(folder(top, ".."), "up.txt", "climbs");
        file(folder(top, ""), "nameless.txt", "no name");
        folder(top, "Empty");
        const auto kept = folder(top, "Kept");
        file(kept, "ok.txt", "kept");
        // Two folders whose paths pass 248 characters: their files go to a side folder, where the
        // second a.txt is told apart, and a name without extension keeps its suffix at the end.
        const auto deep = folder(folder(kept, std::string(120, 'x')), std::string(120, 'y'));
        file(deep, "a.txt", "first");
        file(deep, "noext", "plain");
        const auto deeper = folder(folder(kept, std::string(121, 'z')), std::string(121, 'w'));
        file(deeper, "a.txt", "second");
        file(deeper, "noext", "plain too");
        database->Flush();
    }
    // A folder that holds itself.
    testsupport::RunSql(scratch.Location("hostile.lcf"),
                        "INSERT INTO odb_link SELECT l.leftObject, l.association, 1000, l.leftObject "
                        "FROM odb_link l JOIN odb_association a ON a.association = l.association "
                        "WHERE a.id = x'8EFF21733DC54C948DEACA68FE12B2DD' LIMIT 1");
    // A link where a file is to go leads outside; it is replaced, never written through.
    fs::create_directories(scratch.Path() / "dest/Kept");
    fs::create_symlink(scratch.Path() / "outside.txt", scratch.Path() / "dest/Kept/ok.txt");

    const int status = LM::ExtractContainer(process, scratch.Location("hostile.lcf"),
                                            scratch.Location("dest"), false, false, nullptr, false);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(fs::exists(scratch.Path() / "outside.txt"));
    EXPECT_FALSE(fs::exists(scratch.Path() / "escaped.txt"));
    EXPECT_EQ(FilesBelow(scratch.Path() / "dest"),
              (std::set<std::string>{"Kept/ok.txt", "0000-1/a.txt", "0000-1/a-2.txt", "0000-1/noext",
                                     "0000-1/noext-2"}));
    EXPECT_FALSE(fs::is_symlink(scratch.Path() / "dest/Kept/ok.txt"));
    EXPECT_EQ(scratch.Read("dest/0000-1/a-2.txt"), "second");
    EXPECT_FALSE(fs::exists(scratch.Path() / "dest/Empty")) << "an empty folder is not made";

    // The container says it was written here, and that wins over the caller's sign: no text is
    // handed to the host's converter.
    LM::LibraryManagerCallBacks callBacks;
    static int conversions = 0;
    callBacks.convertExtractedFile = [](IO::Location&, int) { return ++conversions, 0; };
    const testsupport::ScopedCallBacks installed(callBacks);
    KL::PlatformSign other = 0x4D4D;
    fs::create_directory(scratch.Path() / "other");
    EXPECT_EQ(LM::ExtractContainer(process, scratch.Location("hostile.lcf"), scratch.Location("other"), false,
                                   false, &other, false),
              0);
    EXPECT_EQ(scratch.Read("other/Kept/ok.txt"), "kept");
    EXPECT_EQ(conversions, 0);
}

} // namespace
