// The part store after enumeration: single stores and replacements, duplicates settled at store
// time, deletions that promote a duplicate, dummies and their proxies, batches, and forwarders of
// unknown ids.
#include "support/Catalogue.hpp"
#include "support/ReleaseNote.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;

class PartStore : public CatalogueTest {
protected:
    PartStore() {
        SavePart("Lib/Templates/Furniture.klm", TestId(1), "Furniture", {}, true);
        SavePart("Lib/Objects/Chair.klm", TestId(2), "Chair", {TestId(1)});
        AddLibrary("Lib");
        EXPECT_EQ(Set().Enumerate(process), 0);
    }

    const LM::LibPart* Store(const IO::Location& location, bool preferNew = false,
                             const LM::LibPart** duplicate = nullptr) {
        return Set().StoreLibPart(process, location, -1, nullptr, nullptr, preferNew, duplicate);
    }

    std::vector<std::string> NamesInIndex() {
        std::vector<std::string> names;
        for (int n = 0; Set().GetSortedSymbolIndexByName(n) != -1; ++n)
            names.push_back(
                Set().GetLibPartByIndex(Set().GetSortedSymbolIndexByName(n))->GetDocumentName().ToUTF8());
        return names;
    }
};

TEST_F(PartStore, SingleStoresKeepIndicesFoldersAndDuplicatesUpToDate) {
    // A new part in a new folder: the folder is created, sorted in, and the index takes the part.
    const IO::Location table = SavePart("Lib/Objects/Tables/Table.klm", TestId(3), "Table", {TestId(1)});
    bool folderAdded = false;
    const LM::LibPart* stored = Set().StoreLibPart(process, table, -1, nullptr, &folderAdded, false, nullptr);
    ASSERT_NE(stored, nullptr);
    EXPECT_TRUE(folderAdded);
    EXPECT_EQ(FolderPath(stored->GetFolderIndex()), "Lib/Objects/Tables");
    EXPECT_EQ(NamesInIndex(), (std::vector<std::string>{"Chair", "Furniture", "Table"}));
    EXPECT_EQ(Set().GetLibPart(LM::LibPartId(TestId(3), KL::UniString())), stored);

    // The same id again: the first stays, the newcomer lands in the duplicate store and is reported.
    const IO::Location copy = SavePart("Lib/Objects/Table copy.klm", TestId(3), "Table");
    const LM::LibPart* duplicate = nullptr;
    EXPECT_EQ(Store(copy, false, &duplicate), stored);
    ASSERT_NE(duplicate, nullptr);
    EXPECT_EQ(duplicate->GetLocation(), copy);
    EXPECT_EQ(Set().GetIndexByLibPart(duplicate), -1) << "the duplicate store has no catalogue indices";
    EXPECT_EQ(stored->GetLocation(), table);
    ASSERT_EQ(Reports().GetIdDuplicates().GetSize(), 1U);
    EXPECT_EQ(Reports().GetIdDuplicates()[0].unId, TestId(3));

    // Preferring the new one swaps them: the newcomer takes the first one's index.
    const IO::Location third = SavePart("Lib/Objects/Table third.klm", TestId(3), "Table");
    const int tableIndex = Set().GetIndexByLibPart(stored);
    EXPECT_EQ(Store(third, true, &duplicate), stored);
    EXPECT_EQ(Set().GetLibPartByIndex(tableIndex)->GetLocation(), third);
    EXPECT_EQ(duplicate->GetLocation(), table);
    EXPECT_EQ(Reports().GetIdDuplicates()[0].count, 3);

    // Deleting the winner promotes a duplicate to a new slot at the end; the old slot is a hole.
    const int before = Set().GetLibPartNumber();
    Set().DeleteLibPart(process, Set().GetLibPartByIndex(tableIndex));
    EXPECT_EQ(Set().GetLibPartByIndex(tableIndex)->GetState(), LM::LibPartStateDeleted);
    ASSERT_EQ(Set().GetLibPartNumber(), before + 1);
    const LM::LibPart* promoted = Set().GetLibPart(LM::LibPartId(TestId(3), KL::UniString()));
    ASSERT_NE(promoted, nullptr);
    EXPECT_EQ(Set().GetIndexByLibPart(promoted), before);
    EXPECT_EQ(NamesInIndex(), (std::vector<std::string>{"Chair", "Furniture", "Table"}));
    EXPECT_NE(promoted->GetAncestryId(), nullptr);
    // The first duplicate found is promoted: the copy, which lost first.
    EXPECT_EQ(promoted->GetLocation(), copy);
    EXPECT_EQ(FolderPath(promoted->GetFolderIndex()), "Lib/Objects");

    // A duplicate removed from the store leaves no report behind.
    Set().DeleteDuplicateLibPart(table);
    EXPECT_TRUE(Reports().GetIdDuplicates().IsEmpty());

    // Files that are not wanted change nothing.
    scratch.Write("Lib/Objects/data.bin", "bytes");
    const int count = Set().GetLibPartNumber();
    EXPECT_EQ(Store(scratch.Location("Lib/Objects/data.bin")), nullptr);
    scratch.Write("Lib/Objects/.klm", "");
    EXPECT_EQ(Store(scratch.Location("Lib/Objects/.klm")), nullptr);
    scratch.Write("Elsewhere/x.txt", "text");
    EXPECT_EQ(Store(scratch.Location("Elsewhere/x.txt")), nullptr);
    EXPECT_EQ(Set().GetLibPartNumber(), count);
}

TEST_F(PartStore, StoringAKnownFileAgainReloadsItInPlace) {
    const LM::LibPart* chair = Set().GetLibPart(LM::LibPartId(TestId(2), KL::UniString()));
    ASSERT_NE(chair, nullptr);
    const int index = Set().GetIndexByLibPart(chair);
    SavePart("Lib/Objects/Chair.klm", TestId(2), "Armchair", {TestId(1)});
    const LM::LibPart* reloaded = Store(scratch.Location("Lib/Objects/Chair.klm"));
    ASSERT_EQ(reloaded, chair);
    EXPECT_EQ(Set().GetIndexByLibPart(reloaded), index);
    EXPECT_EQ(reloaded->GetDocumentName(), KL::UniString("Armchair"));
    EXPECT_EQ(NamesInIndex(), (std::vector<std::string>{"Armchair", "Furniture"}));
    ASSERT_NE(reloaded->GetAncestryId(), nullptr);
    EXPECT_TRUE(Set().GetAncestryHierarchy()->IsNodeOnPath(reloaded->GetAncestryId(), TestId(1)));

    // An id the host gives the record later was never entered; deleting the record forgets the id
    // it was entered under, so that no search leads to the hole.
    Set().SetOwnUnID(LM::LibPartId(TestId(2), KL::UniString()), TestId(5));
    EXPECT_EQ(Set().GetLibPart(LM::LibPartId(TestId(5), KL::UniString())), nullptr);
    Set().DeleteLibPart(process, reloaded);
    EXPECT_EQ(Set().GetLibPart(LM::LibPartId(TestId(2), KL::UniString())), nullptr);
    EXPECT_EQ(Set().GetIndexByLibPart(reloaded), -1);
}

TEST_F(PartStore, EnumeratingAgainReplacesTheCatalogueWholeAndLetsTheHostsDataGo) {
    for (std::uint32_t n = 10; n < 210; ++n) {
        const std::string name = "Part " + std::to_string(n);
        SavePart("Lib/Objects/Many/" + name + ".klm", TestId(n), name.c_str(), {TestId(1)});
    }
    ASSERT_EQ(Set().Enumerate(process), 0);
    const std::vector<std::string> first = Catalogue();
    ASSERT_EQ(first.size(), 202U);

    bool released = false;
    const LM::LibPart* chair = Set().GetLibPart(LM::LibPartId(TestId(2), KL::UniString()));
    Set().SetUserData(chair, KL::Guid(7, 0, 0, {}), testsupport::NewReleaseNote(&released));
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_TRUE(released);
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(Catalogue(), first);
    const LM::LibPart* part = Set().GetLibPart(LM::LibPartId(TestId(200), KL::UniString()));
    ASSERT_NE(part, nullptr);
    ASSERT_NE(part->GetAncestryId(), nullptr);
    EXPECT_TRUE(Set().GetAncestryHierarchy()->IsNodeOnPath(part->GetAncestryId(), TestId(1)));
    EXPECT_EQ(Set().GetAncestryHierarchy()->GetPathReferenceCount(Set().GetAncestryHierarchy()->GetRoot()),
              202U);
}

// A second pass makes the records of the first over into its own. Whatever a record was, its
// successor in that slot must be what a pass from nothing makes of the file now there.
TEST_F(PartStore, EnumeratingAgainOverAChangedLibraryEqualsAPassFromNothing) {
    for (std::uint32_t n = 10; n < 60; ++n) {
        const std::string name = "Part " + std::to_string(n);
        SavePart("Lib/Objects/Many/" + name + ".klm", TestId(n), name.c_str(), {TestId(1)}, n % 7 == 0);
    }
    ASSERT_EQ(Set().Enumerate(process), 0);
    const KL::Guid client(7, 0, 0, {});
    bool released = false;
    Set().SetUserData(Set().GetLibPart(LM::LibPartId(TestId(20), KL::UniString())), client,
                      testsupport::NewReleaseNote(&released));
    // Records shift by one, texts come where parts were, and paths grow and shrink.
    std::filesystem::remove(scratch.Path() / "Lib/Objects/Many/Part 10.klm");
    scratch.Write("Lib/Objects/Many/Part 30 notes.txt", "notes");
    scratch.Write("Lib/Objects/Many/A.txt", "a");
    std::filesystem::remove(scratch.Path() / "Lib/Objects/Many/Part 40.klm");
    SavePart("Lib/Objects/Many/Deeper/And/Deeper/Part 40 moved further down.klm", TestId(40), "Part 40",
             {TestId(1)});

    const auto records = [this, &client] {
        std::vector<std::string> lines;
        for (int i = 0; i < Set().GetLibPartNumber(); ++i) {
            const LM::LibPart& part = *Set().GetLibPartByIndex(i);
            lines.push_back(Relative(part.GetLocation()) + "|" + Relative(part.GetOrigLocation()) + "|" +
                            FolderPath(part.GetFolderIndex()) + "|" + part.GetDocumentName().ToUTF8() + "|" +
                            std::to_string(part.GetState()) + "|" + std::to_string(part.GetFlags()) + "|" +
                            std::to_string(part.GetGeneralFileType().GetValue()) + "|" +
                            std::to_string(part.IsSymbol()) +
                            (part.IsSymbol() ? "|" + part.GetOwnUnID().mainGuid.ToString() + "|" +
                                                   std::to_string(part.IsTemplate()) + "|" +
                                                   std::to_string(part.GetProxy())
                                             : "") +
                            "|" + std::to_string(part.GetUserData(client).IsNull()));
        }
        return lines;
    };
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_TRUE(released);
    const std::vector<std::string> again = records();

    ASSERT_EQ(Set().ResetActiveLibraries(), 0);
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(AddLibrary("Lib"), 0);
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(again, records());
    EXPECT_EQ(again.size(), 2U + 50U - 1U + 2U);
    EXPECT_TRUE(std::any_of(again.begin(), again.end(), [](const std::string& line) {
        return line.starts_with("Lib/Objects/Many/A.txt|") && line.ends_with("|0|1");
    }));
}

TEST_F(PartStore, DummiesStandForMissingPartsAndPointToTheirAncestors) {
    LM::AncestryInfo chain;
    chain.Append(TestId(1));
    const LM::LibPart* missing = Set().StoreDummyLibPart(process, KL::UniString("Sofa"), TestId(7),
                                                         LM::GetSymbolFileGroup(), chain, false);
    ASSERT_NE(missing, nullptr);
    EXPECT_FALSE(missing->IsValid());
    EXPECT_EQ(missing->GetFolderIndex(), LM::FolderSet::MissingFolder);
    // Its proxy is the nearest present ancestor.
    EXPECT_EQ(Set().GetSymbolProxy(missing), Set().GetLibPart(LM::LibPartId(TestId(1), KL::UniString())));
    EXPECT_FALSE(Set().IsSymbolArchivable(missing));
    EXPECT_EQ(
        Set().UpdateSymbolParameters(missing, Set().GetLibPart(LM::LibPartId(TestId(1), KL::UniString()))),
        LM::InvalidPartError);

    const LM::LibPart* later = Set().StoreDummyLibPart(process, KL::UniString("Stool"), TestId(8),
                                                       LM::GetSymbolFileGroup(), LM::AncestryInfo(), true);
    ASSERT_NE(later, nullptr);
    EXPECT_EQ(later->GetFolderIndex(), LM::FolderSet::TemporarilyMissingFolder);
    // Without ancestors a dummy stands for itself.
    EXPECT_EQ(Set().GetSymbolProxy(later), later);
    // Asking again refills the same record.
    EXPECT_EQ(Set().StoreDummyLibPart(process, KL::UniString("Stool"), TestId(8), LM::GetSymbolFileGroup(),
                                      LM::AncestryInfo(), false),
              later);
    EXPECT_EQ(later->GetFolderIndex(), LM::FolderSet::MissingFolder);
    // A dummy of a type the catalogue does not store is refused, and dummies are never duplicates.
    EXPECT_EQ(Set().StoreDummyLibPart(process, KL::UniString("X"), TestId(9),
                                      manager.GetPublicIDs().listSetupType, LM::AncestryInfo(), false),
              nullptr);
    EXPECT_TRUE(Reports().GetIdDuplicates().IsEmpty());
}

TEST_F(PartStore, BatchesPutTheFinishingWorkOff) {
    int rebuilds = 0;
    const auto runs = [] {
        const auto totals = KL::ProfilerStep::GetTotals();
        const auto found = totals.find("RebuildTypeHierarchy");
        return found == totals.end() ? std::uint64_t{0} : found->second.runs;
    };
    const std::uint64_t atStart = runs();
    Set().StartBatchLibPartAdd();
    for (int i = 0; i < 5; ++i) {
        const std::string name = "Lib/New/Part" + std::to_string(i) + ".klm";
        ASSERT_NE(Store(SavePart(name, TestId(100 + static_cast<std::uint32_t>(i)), name.c_str())), nullptr);
    }
    EXPECT_EQ(runs(), atStart);
    Set().EndBatchLibPartAdd(process);
    rebuilds = static_cast<int>(runs() - atStart);
    EXPECT_EQ(rebuilds, 1);
    // The folder made during the batch was sorted in at its end.
    const LM::LibPart* first = Set().GetLibPart(LM::LibPartId(TestId(100), KL::UniString()));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(FolderPath(first->GetFolderIndex()), "Lib/New");
    EXPECT_EQ(NamesInIndex().size(), 7U);
}

TEST_F(PartStore, UnknownIdsGiveTheDocumentedDefaults) {
    const LM::LibPartId unknown(TestId(55), KL::UniString("nothing"));
    EXPECT_EQ(Set().GetFlags(unknown), 1U);
    EXPECT_EQ(Set().GetFolderIndex(unknown), -1);
    EXPECT_FALSE(Set().IsSymbol(unknown));
    EXPECT_EQ(Set().GetSymbolFile(unknown), nullptr);
    KL::UniString name("kept");
    Set().GetDocumentName(unknown, &name);
    EXPECT_EQ(name, KL::UniString("kept"));
    Set().SetFlags(unknown, 7);
    EXPECT_TRUE(Set().IsSameLibPart(unknown, LM::LibPartId(TestId(56), KL::UniString())));
    EXPECT_TRUE(Set().IsEqualLibParts(unknown, LM::LibPartId(TestId(56), KL::UniString())));
    const LM::LibPartId chair(TestId(2), KL::UniString());
    EXPECT_FALSE(Set().IsEqualLibParts(unknown, chair));
    EXPECT_TRUE(Set().IsValidLibPart(chair));

    // Flags through the forwarders, and a mask cleared on every record.
    Set().SetFlags(chair, 0x30);
    Set().AddFlags(Set().GetLibPart(chair), 0x1);
    EXPECT_EQ(Set().GetFlags(chair), 0x31U);
    EXPECT_EQ(Set().ClearAllSymbolFlags(0x10), 0);
    EXPECT_EQ(Set().GetFlags(chair), 0x21U);

    // The null id finds the null part after every enumeration.
    EXPECT_TRUE(Set().AlreadyQueriedLibPartId(LM::LibPartId()));
    EXPECT_EQ(Set().GetLibPart(LM::LibPartId()), nullptr);
    // A remembered search result leads to its part until the id table is reset.
    const LM::LibPartId alias(KL::NULLUnID, KL::UniString("Old Chair Name"));
    const bool first = true;
    Set().AddIdToLibPartTable(alias, Set().GetLibPart(chair), &first, nullptr);
    EXPECT_EQ(Set().GetLibPart(alias), Set().GetLibPart(chair));
    Set().ResetIdToLibPartTable();
    EXPECT_EQ(Set().GetLibPart(alias), nullptr);
    EXPECT_NE(Set().GetLibPart(chair), nullptr);
}

// Revisions of one main guid: a part that has the main guid only stands first and must not hide
// the conflict of the revisions after it; every member is reported once, at its present place.
TEST_F(PartStore, RevisionConflictsReachPastAPartWithoutRevision) {
    const KL::Guid lamp(77, 0, 0, {});
    const auto revision = [&lamp](std::uint16_t n) { return KL::UnID(lamp, KL::Guid(77, n, 0, {})); };
    SavePart("Lib/Lamps/A.klm", KL::UnID(lamp, KL::NULLGuid), "Lamp");
    SavePart("Lib/Lamps/B.klm", revision(1), "Lamp");
    SavePart("Lib/Lamps/C.klm", revision(2), "Lamp");
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(Reports().GetRevisionConflicts().GetSize(), 1U);
    EXPECT_EQ(Reports().GetRevisionConflicts()[0].name, KL::UniString("Lamp"));
    EXPECT_EQ(Reports().GetRevisionConflicts()[0].unId.mainGuid, lamp);
    EXPECT_EQ(Reports().GetRevisionConflicts()[0].count, 2);

    // A third revision joins the same conflict once.
    Store(SavePart("Lib/Lamps/D.klm", revision(3), "Lamp"));
    ASSERT_EQ(Reports().GetRevisionConflicts().GetSize(), 1U);
    const LM::DuplicateReport& conflict = Reports().GetRevisionConflicts()[0];
    ASSERT_EQ(conflict.count, 3);
    std::vector<std::string> members;
    for (std::size_t i = 0; i < conflict.locations.GetSize(); ++i)
        members.push_back(Relative(conflict.locations[i]) + " " + conflict.revisions[i].ToString());
    std::sort(members.begin(), members.end());
    EXPECT_EQ(members, (std::vector<std::string>{"Lib/Lamps/B.klm " + revision(1).revGuid.ToString(),
                                                 "Lib/Lamps/C.klm " + revision(2).revGuid.ToString(),
                                                 "Lib/Lamps/D.klm " + revision(3).revGuid.ToString()}));

    // Same name, different content names each part where it is now, not where it was found.
    const LM::LibPart* moved = Set().GetLibPart(LM::LibPartId(revision(2), KL::UniString()));
    ASSERT_NE(moved, nullptr);
    Set().SetTempLocationForLibPart(moved, scratch.Location("Elsewhere/C.klm"));
    Set().UpdateDuplicateCounters();
    ASSERT_EQ(Reports().GetSameNameDifferentContents().GetSize(), 1U);
    std::vector<std::string> places;
    for (const IO::Location& location : Reports().GetSameNameDifferentContents()[0].locations)
        places.push_back(Relative(location));
    std::sort(places.begin(), places.end());
    EXPECT_EQ(places, (std::vector<std::string>{"Elsewhere/C.klm", "Lib/Lamps/A.klm", "Lib/Lamps/B.klm",
                                                "Lib/Lamps/D.klm"}));

    // Members taken out, the first and one in the middle, leave the others to be met by the next.
    Set().DeleteLibPart(process,
                        Set().GetLibPart(LM::LibPartId(KL::UnID(lamp, KL::NULLGuid), KL::UniString())));
    Set().DeleteLibPart(process, moved);
    Store(SavePart("Lib/Lamps/E.klm", revision(4), "Lamp"));
    Set().UpdateDuplicateCounters();
    ASSERT_EQ(Reports().GetRevisionConflicts().GetSize(), 1U);
    const LM::DuplicateReport& after = Reports().GetRevisionConflicts()[0];
    members.clear();
    for (std::size_t i = 0; i < after.locations.GetSize(); ++i)
        members.push_back(Relative(after.locations[i]));
    std::sort(members.begin(), members.end());
    EXPECT_EQ(members, (std::vector<std::string>{"Lib/Lamps/B.klm", "Lib/Lamps/D.klm", "Lib/Lamps/E.klm"}));
}

} // namespace
