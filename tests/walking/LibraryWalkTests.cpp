// Walking libraries into a catalogue: folders, parts, scripts, pictures and texts; duplicates
// between libraries; user breaks and vital libraries; trees that fight back.
#include "InputOutput/MemoryVFS.hpp"
#include "support/Catalogue.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;

class LibraryWalk : public CatalogueTest {
protected:
    // A small library: a template, a part below it in a subfolder, a script, a picture, a text, a
    // file of no known type, a name that is only an extension, and a .klm that is no part.
    void WriteOfficeLibrary(const std::string& root) {
        SavePart(root + "/Templates/Furniture.klm", TestId(1), "Furniture", {}, true);
        SavePart(root + "/Objects/Chairs/Chair.klm", TestId(2), "Chair", {TestId(1)});
        scratch.Write(root + "/Macros/rail.qdl", "! rail\n");
        scratch.Write(root + "/Pictures/wood.png", "png");
        scratch.Write(root + "/Texts/readme.txt", "text");
        scratch.Write(root + "/Texts/data.bin", "bytes");
        scratch.Write(root + "/Texts/.klm", "");
        scratch.Write(root + "/Objects/broken.klm", "not a part");
    }
};

TEST_F(LibraryWalk, TurnsAFolderTreeIntoACatalogue) {
    WriteOfficeLibrary("Office");
    AddLibrary("Office");
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_TRUE(Set().IsEnumerated());

    const std::vector<std::string> expected{
        "Office/Macros/rail.qdl in [Office/Macros] rail",
        "Office/Objects/Chairs/Chair.klm in [Office/Objects/Chairs] Chair",
        "Office/Objects/broken.klm in [Office/Objects] broken",
        "Office/Pictures/wood.png in [Office/Pictures] wood",
        "Office/Templates/Furniture.klm in [Office/Templates] Furniture",
        "Office/Texts/readme.txt in [Office/Texts] readme",
    };
    EXPECT_EQ(Catalogue(), expected);

    // Folders after the three fixed ones: the library root first, each below its parent, sorted.
    std::vector<std::string> folders;
    const LM::FolderSet& folderSet = *Set().GetFolderSet();
    for (int i = LM::FolderSet::FirstLibraryFolder; i < folderSet.GetFolderCount(); ++i)
        folders.push_back(FolderPath(i) + " < " + FolderPath(folderSet.GetParent(i)));
    EXPECT_EQ(folders,
              (std::vector<std::string>{"Office < ", "Office/Macros < Office", "Office/Objects < Office",
                                        "Office/Objects/Chairs < Office/Objects", "Office/Pictures < Office",
                                        "Office/Templates < Office", "Office/Texts < Office"}));

    // Ids, types and the type tree: the chair's path runs through its template.
    const LM::LibPart* chair = Set().GetLibPart(LM::LibPartId(TestId(2), KL::UniString()));
    ASSERT_NE(chair, nullptr);
    EXPECT_TRUE(chair->IsPlaceable());
    ASSERT_NE(chair->GetAncestryId(), nullptr);
    EXPECT_TRUE(Set().GetAncestryHierarchy()->IsNodeOnPath(chair->GetAncestryId(), TestId(1)));
    EXPECT_EQ(Set().GetSymbolProxy(chair), chair);
    const LM::LibPart* furniture = Set().GetLibPart(LM::LibPartId(TestId(1), KL::UniString()));
    ASSERT_NE(furniture, nullptr);
    EXPECT_TRUE(furniture->IsTemplate());
    const LM::LibPart* script = Set().GetLibPart(LM::LibPartId(KL::NULLUnID, KL::UniString("rail")));
    ASSERT_NE(script, nullptr);
    EXPECT_EQ(script->GetGeneralFileType(), LM::GetScriptFileType());
    EXPECT_EQ(script, Set().GetLibPart(LM::LibPartId(KL::NULLUnID, KL::UniString("rail.qdl"))));
    const LM::LibPart* picture = Set().GetLibPart(LM::LibPartId(KL::NULLUnID, KL::UniString("wood")));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->GetGeneralFileType(), manager.GetPublicIDs().imageGroup);
    EXPECT_EQ(Set().GetActiveLibraryNum(), 1);

    // The sorted index by name holds every record once.
    std::vector<std::string> byName;
    for (int n = 0; Set().GetSortedSymbolIndexByName(n) != -1; ++n)
        byName.push_back(
            Set().GetLibPartByIndex(Set().GetSortedSymbolIndexByName(n))->GetDocumentName().ToUTF8());
    EXPECT_EQ(byName, (std::vector<std::string>{"broken", "Chair", "Furniture", "rail", "readme", "wood"}));

    // Enumerating again gives the same catalogue.
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(Catalogue(), expected);
}

TEST_F(LibraryWalk, ASecondLibraryWithTheSamePartsGivesDuplicates) {
    WriteOfficeLibrary("First");
    WriteOfficeLibrary("Second");
    SavePart("Second/Objects/Chairs/Chair 2.klm", KL::UnID(TestId(2).mainGuid, TestId(9).revGuid), "Chair");
    AddLibrary("First");
    AddLibrary("Second");
    ASSERT_EQ(Set().Enumerate(process), 0);

    // The first library's parts win; the second's wait in the duplicate store.
    for (const std::string& line : Catalogue())
        EXPECT_EQ(line.rfind("First/", 0) == 0 || line.find("Chair 2") != std::string::npos, true) << line;
    EXPECT_EQ(Set().GetLibPartSet()->GetDuplicateCount(), 6U);

    // Parts with ids are id duplicates; those without (script, picture, text, the broken part) are
    // name duplicates by their file names. Each report names both places.
    ASSERT_EQ(Reports().GetIdDuplicates().GetSize(), 2U);
    EXPECT_EQ(Reports().GetNameDuplicates().GetSize(), 4U);
    for (const LM::DuplicateReport& report : Reports().GetIdDuplicates()) {
        ASSERT_EQ(report.count, 2);
        EXPECT_EQ(Relative(report.locations[0]).substr(0, 6), "First/");
        EXPECT_EQ(Relative(report.locations[1]).substr(0, 7), "Second/");
        EXPECT_EQ(report.actLibIndices[0], 0);
        EXPECT_EQ(report.actLibIndices[1], 1);
    }
    // The chair of another revision conflicts with the first chair, and shares its name.
    ASSERT_EQ(Reports().GetRevisionConflicts().GetSize(), 1U);
    // Both chairs of the first revision are members: the revision check comes before the
    // duplicate check.
    const LM::DuplicateReport& conflict = Reports().GetRevisionConflicts()[0];
    EXPECT_EQ(conflict.count, 3);
    std::set<KL::Guid> revisions(conflict.revisions.begin(), conflict.revisions.end());
    EXPECT_EQ(revisions, (std::set<KL::Guid>{TestId(2).revGuid, TestId(9).revGuid}));
    ASSERT_EQ(Reports().GetSameNameDifferentContents().GetSize(), 1U);
    EXPECT_EQ(Reports().GetSameNameDifferentContents()[0].name, KL::UniString("Chair"));
}

// Says "stop" from the moment the named library's phase begins.
class BreakInLibrary : public KL::ProcessControl {
public:
    explicit BreakInLibrary(const char* library) : library(library) {}
    bool BreakRequested() override {
        ++questions;
        return GetPhaseText() == library;
    }
    KL::UniString library;
    int questions = 0;
};

TEST_F(LibraryWalk, ABreakLeavesLaterLibrariesUnreadUnlessVital) {
    for (const char* name : {"One", "Two", "Three"})
        for (int i = 0; i < 3; ++i)
            scratch.Write(std::string(name) + "/" + name + std::to_string(i) + ".txt", name);
    const auto partsFrom = [this](const std::string& library) {
        int count = 0;
        for (const std::string& line : Catalogue())
            count += line.rfind(library + "/", 0) == 0 ? 1 : 0;
        return count;
    };

    AddLibrary("One");
    AddLibrary("Two");
    AddLibrary("Three");
    BreakInLibrary breakInTwo("Two");
    ASSERT_EQ(Set().Enumerate(breakInTwo), 0);
    EXPECT_EQ(partsFrom("One"), 3);
    // The very first file of a walk asks, so the break ends "Two" before it stores anything.
    EXPECT_EQ(partsFrom("Two"), 0);
    EXPECT_EQ(partsFrom("Three"), 0);
    EXPECT_TRUE(Set().IsEnumerated());
    // One question per walk that stored nothing new since the last one: once in "One" (at 0 parts)
    // and once in "Two"; "Three" is never walked.
    EXPECT_EQ(breakInTwo.questions, 2);

    // A vital library is read all the same, and a break in a vital library is not honoured.
    ASSERT_EQ(Set().ResetActiveLibraries(), 0);
    AddLibrary("One");
    AddLibrary("Two", LM::Vital);
    AddLibrary("Three", LM::Vital);
    BreakInLibrary breakAgain("Two");
    ASSERT_EQ(Set().Enumerate(breakAgain), 0);
    EXPECT_EQ(partsFrom("Two"), 3);
    EXPECT_EQ(partsFrom("Three"), 3);

    // Only vital libraries are read after a break.
    ASSERT_EQ(Set().ResetActiveLibraries(), 0);
    AddLibrary("Two");
    AddLibrary("One");
    AddLibrary("Three", LM::Vital);
    BreakInLibrary breakInTwoFirst("Two");
    ASSERT_EQ(Set().Enumerate(breakInTwoFirst), 0);
    EXPECT_EQ(partsFrom("One"), 0);
    EXPECT_EQ(partsFrom("Three"), 3);
}

struct WalkReports {
    static inline std::vector<std::string> calls;
};

TEST_F(LibraryWalk, HostileTreesAreWalkedToTheEndAndReported) {
    // Garbage part files, files of no type, a link loop, a dangling link, a tree too deep to walk.
    scratch.Write("Lib/garbage.klm", std::string(4096, '\xff'));
    scratch.Write("Lib/empty.klm", "");
    scratch.Write("Lib/ok.txt", "fine");
    scratch.Write("Lib/Sub/note.txt", "fine");
    std::filesystem::create_directory_symlink(scratch.Path() / "Lib", scratch.Path() / "Lib/Sub/loop");
    std::filesystem::create_symlink(scratch.Path() / "nowhere.klm", scratch.Path() / "Lib/dangling.klm");
    std::string deep = "Lib/Deep";
    for (int i = 0; i < IO::TreeEnumerator::MaxDepth + 2; ++i)
        deep += "/d";
    scratch.Write(deep + "/lost.txt", "too deep");
    scratch.Write("Fine/readme.txt", "fine");

    LM::LibraryManagerCallBacks callBacks;
    callBacks.libraryPathTooLong = [](const IO::Folder& folder) {
        WalkReports::calls.push_back("too long: " + folder.GetLocation().ToString());
    };
    callBacks.libraryWalkFailedWithCode = [](const IO::Folder&) { WalkReports::calls.push_back("denied"); };
    callBacks.libraryWalkFailed = [](const IO::Folder&) { WalkReports::calls.push_back("failed"); };
    testsupport::ScopedCallBacks scoped(callBacks);
    WalkReports::calls.clear();

    AddLibrary("Lib");
    AddLibrary("Fine");
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(WalkReports::calls,
              (std::vector<std::string>{"too long: " + scratch.Location("Lib").ToString()}));
    const std::vector<std::string> catalogue = Catalogue();
    // Damaged part files are still records (symbols without an id); the walk went on past them.
    EXPECT_NE(std::find(catalogue.begin(), catalogue.end(), "Lib/garbage.klm in [Lib] garbage"),
              catalogue.end());
    EXPECT_NE(std::find(catalogue.begin(), catalogue.end(), "Lib/Sub/note.txt in [Lib/Sub] note"),
              catalogue.end());
    EXPECT_NE(std::find(catalogue.begin(), catalogue.end(), "Fine/readme.txt in [Fine] readme"),
              catalogue.end());
    for (const std::string& line : catalogue)
        EXPECT_EQ(line.find("lost"), std::string::npos) << line;
    // The walker's count of the failed library still reaches its item.
    EXPECT_GT(Set().GetActiveLibraries()->operator[](0).GetPartEstimate(), 0);

    if (testsupport::PermissionsAreEnforced()) {
        WalkReports::calls.clear();
        std::filesystem::remove_all(scratch.Path() / "Lib/Deep");
        std::filesystem::create_directories(scratch.Path() / "Lib/Locked");
        std::filesystem::permissions(scratch.Path() / "Lib/Locked", std::filesystem::perms::none);
        ASSERT_EQ(Set().Enumerate(process), 0);
        EXPECT_EQ(WalkReports::calls, (std::vector<std::string>{"denied"}));
        std::filesystem::permissions(scratch.Path() / "Lib/Locked", std::filesystem::perms::owner_all);
    }
}

// Permissions do not bind root, so an unreadable folder is made where the tests decide what can be
// read: in a container file that a file system in memory serves.
TEST_F(LibraryWalk, UnreadableFoldersInAContainerAreReportedAndPassedOver) {
    SavePart("Parts/Chair.klm", TestId(2), "Chair");
    testsupport::MemoryVFS box;
    box.AddFile("Open/Chair.klm", scratch.Read("Parts/Chair.klm"));
    box.AddFile("Locked/Secret.txt", "hidden");
    box.AddFile("After/readme.txt", "fine");
    box.Lock("Locked");
    scratch.Write("Lib/Box.lcf", "container");
    testsupport::ScopedMount mount(box, scratch.Location("Lib/Box.lcf"));
    ASSERT_EQ(mount.GetStatus(), 0);

    LM::LibraryManagerCallBacks callBacks;
    callBacks.libraryWalkFailedWithCode = [](const IO::Folder& folder) {
        WalkReports::calls.push_back("denied: " + folder.GetLocation().ToString());
    };
    callBacks.libraryWalkFailed = [](const IO::Folder&) { WalkReports::calls.push_back("failed"); };
    testsupport::ScopedCallBacks scoped(callBacks);
    WalkReports::calls.clear();
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(WalkReports::calls,
              (std::vector<std::string>{"denied: " + scratch.Location("Lib").ToString()}));
    const std::vector<std::string> catalogue = Catalogue();
    EXPECT_EQ(catalogue,
              (std::vector<std::string>{"Lib/Box.lcf/After/readme.txt in [Lib/Box.lcf/After] readme",
                                        "Lib/Box.lcf/Open/Chair.klm in [Lib/Box.lcf/Open] Chair"}));
}

TEST_F(LibraryWalk, LongPathsAreMeasuredByNamesAndSeparators) {
    // The long name check counts every name and one separator each; 260 passes, 261 does not.
    const std::size_t rootLength = scratch.Location("L").ToString().size();
    ASSERT_LT(rootLength + 10, LM::LongFilenameEnumerator::MaxPathLength);
    const std::size_t room = LM::LongFilenameEnumerator::MaxPathLength - rootLength - 1;
    scratch.Write("L/" + std::string(room, 'a'), "");
    const IO::Folder library(scratch.Location("L"));
    LM::LongFilenameEnumerator fits(library);
    fits.Do();
    EXPECT_FALSE(fits.IsLongFilenameFound());
    scratch.Write("L/" + std::string(room + 1, 'b'), "");
    LM::LongFilenameEnumerator over(library);
    over.Do();
    EXPECT_TRUE(over.IsLongFilenameFound());
}

TEST_F(LibraryWalk, TheSampleLibraryBecomesACatalogue) {
    AddLibrary("unused");
    ASSERT_EQ(Set().ResetActiveLibraries(), 0);
    ASSERT_EQ(AddSampleLibrary(), 0);
    ASSERT_EQ(Set().Enumerate(process), 0);
    int symbols = 0;
    int others = 0;
    for (int i = 0; i < Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* part = Set().GetLibPartByIndex(i);
        ASSERT_TRUE(part->IsValid()) << part->GetLocation().ToString();
        ++(part->IsSymbol() ? symbols : others);
    }
    // 33 part files and one bare script, less the duplicate of Round Table; three pictures and a text.
    EXPECT_EQ(symbols, 33);
    EXPECT_EQ(others, 4);
    ASSERT_EQ(Reports().GetIdDuplicates().GetSize(), 1U);
    EXPECT_EQ(Reports().GetIdDuplicates()[0].name, KL::UniString("Round Table"));
    ASSERT_EQ(Reports().GetRevisionConflicts().GetSize(), 1U);
    EXPECT_EQ(Reports().GetRevisionConflicts()[0].name, KL::UniString("Lamp"));
    // Every symbol of the sample has its own id and a place in the type tree.
    for (int i = 0; i < Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* part = Set().GetLibPartByIndex(i);
        if (part->GetGeneralFileType() == LM::GetSymbolFileGroup()) {
            EXPECT_NE(part->GetAncestryId(), nullptr) << part->GetDocumentName().ToUTF8();
        }
    }
}

} // namespace
