// Searches of the catalogue as a host and the script engine meet them: exact keys, the fall-back
// chains with ambiguity, dummies, migration and compatibility, and remembered answers.
#include "support/Catalogue.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;

const KL::Guid LampMain(50, 0, 0, {});

// One type with three revisions present; their revision guids ascend, so the index holds them in
// this order.
KL::UnID LampRevision(std::uint16_t n) {
    return KL::UnID(LampMain, KL::Guid(50, n, 0, {}));
}

// Gives the part a migration value and the main guids it replaces.
std::function<void(LPF::SymbolFile&)> Replacing(LPF::MigrationValue value,
                                                std::initializer_list<KL::Guid> replaced) {
    const std::vector<KL::Guid> mains(replaced);
    return [value, mains](LPF::SymbolFile& file) {
        file.SetMigrationValue(value);
        MigrationTable table;
        for (const KL::Guid& mainGuid : mains)
            table.Add(mainGuid, {2, true});
        testsupport::SetStreamSection(file, LPF::Tags::MigrationTable,
                                      [&](KL::OChannel& out) { return table.Write(out); });
    };
}

class Search : public CatalogueTest {
protected:
    Search() {
        SavePart("Lib/Templates/Furniture.klm", TestId(1), "Furniture", {}, true);
        SavePart("Lib/Objects/Chair.klm", TestId(2), "Chair", {TestId(1)});
        SavePart("Lib/Objects/Shelf.klm", TestId(3), "A:B", {TestId(1)});
        SavePart("Lib/Lighting/Lamp one.klm", LampRevision(1), "Lamp one", {TestId(1)});
        SavePart("Lib/Lighting/Lamp two.klm", LampRevision(2), "Lamp two", {TestId(1)});
        SavePart("Lib/Lighting/Lamp three.klm", LampRevision(3), "Lamp Three", {TestId(1)});
        // Sofa 2 replaces two old sofas and is itself to be given out only by way of a migration;
        // Sofa 3 replaces the first of them too and is in use.
        SavePart("Lib/Sofas/Sofa 2.klm", TestId(21), "Sofa 2", {TestId(1)}, false,
                 Replacing(LPF::MigrationValue(4), {TestId(20).mainGuid, TestId(23).mainGuid}));
        SavePart("Lib/Sofas/Sofa 3.klm", TestId(22), "Sofa 3", {TestId(1)}, false,
                 Replacing(LPF::Normal, {TestId(20).mainGuid}));
        SavePart("Lib/Old/Old Stool.klm", KL::UnID(), "Old Stool", {TestId(1)});
        SavePart("Lib/Spare/Chair.klm", TestId(2), "Chair");
        AddLibrary("Lib");
        EXPECT_EQ(Set().Enumerate(process), 0);
        LM::AncestryInfo chain;
        chain.Append(TestId(1));
        ghost = Set().StoreDummyLibPart(process, KL::UniString("Ghost"), TestId(30), LM::GetSymbolFileGroup(),
                                        chain, false);
        EXPECT_NE(ghost, nullptr);
    }

    const LM::LibPart* Part(const KL::UnID& id) {
        return Set().GetLibPart(LM::LibPartId(id, KL::UniString()));
    }

    std::string NameOf(const LM::LibPart* part) {
        return part == nullptr ? "none" : part->GetDocumentName().ToUTF8();
    }

    const LM::LibPart* Complex(const KL::UnID& id, const char* name, LM::LibrarySet::LibPartSearchMode mode,
                               bool* ambiguous = nullptr, bool* migrated = nullptr) {
        return Set().SearchLibPartComplex(id, KL::UniString(name), mode, ambiguous, nullptr, migrated);
    }

    const LM::LibPart* ghost = nullptr;
};

TEST_F(Search, ExactKeysFindValidRecordsOnly) {
    int index = 7;
    EXPECT_EQ(NameOf(Set().SearchSymbolByUnID(TestId(2), &index)), "Chair");
    EXPECT_EQ(Set().GetLibPartByIndex(index), Part(TestId(2)));
    // A dummy is never the answer to an exact search, but the dummy search finds it.
    EXPECT_EQ(Set().SearchSymbolByUnID(TestId(30), &index), nullptr);
    EXPECT_EQ(index, -1);
    EXPECT_EQ(Set().SearchDummySymbol(TestId(30), nullptr, &index), ghost);
    EXPECT_EQ(Set().GetLibPartByIndex(index), ghost);
    const KL::UniString ghostName("ghost");
    EXPECT_EQ(Set().SearchDummySymbol(KL::UnID(), &ghostName, nullptr), ghost);
    EXPECT_EQ(Set().SearchDummySymbol(TestId(2), nullptr, &index), nullptr);
    const KL::UniString noName;
    index = 7;
    EXPECT_EQ(Set().SearchDummySymbol(KL::UnID(), &noName, &index), nullptr);
    EXPECT_EQ(index, -1);
    EXPECT_EQ(Set().SearchSymbolByUnID(KL::UnID(), &index), nullptr);

    // Without a library server no part has a guid of its own.
    EXPECT_EQ(Set().SearchSymbolByGuid(KL::Guid(77, 0, 0, {}), &index), nullptr);
    EXPECT_EQ(index, -1);

    // Names without case, and "/" read as ":".
    EXPECT_EQ(NameOf(Set().SearchLibPartDocuName(KL::UniString("CHAIR"))), "Chair");
    EXPECT_EQ(NameOf(Set().SearchLibPartDocuName(KL::UniString("A/B"))), "A:B");
    EXPECT_EQ(Set().SearchLibPartDocuName(KL::UniString("Ghost")), nullptr);
    EXPECT_EQ(NameOf(Set().SearchLibPartFileName(KL::UniString("chair.KLM"))), "Chair");
    EXPECT_EQ(NameOf(Set().SearchLibPartFileName(KL::UniString("Chair.klm"), LM::GetSymbolFileGroup())),
              "Chair");
    EXPECT_EQ(Set().SearchLibPartFileName(KL::UniString("Chair.klm"), LM::GetScriptFileType()), nullptr);
    EXPECT_EQ(NameOf(Set().SearchLibPartDocuName(KL::UniString("a/b"), LM::GetSymbolFileGroup())), "A:B");
    EXPECT_EQ(Set().SearchLibPartFileName(KL::UniString("")), nullptr);

    // By place: the current one, or also the first place of a part that was moved.
    const IO::Location chairPlace = scratch.Location("Lib/Objects/Chair.klm");
    EXPECT_EQ(Set().SearchLibPart(chairPlace, LM::LibrarySet::CurrentLocation), Part(TestId(2)));
    EXPECT_EQ(
        Set().SearchLibPart(scratch.Location("Lib/Objects/Nothing.klm"), LM::LibrarySet::CurrentLocation),
        nullptr);
    EXPECT_EQ(Set().SearchLibPart(IO::Location(), LM::LibrarySet::OrigLocationToo), nullptr);
    Set().SetTempLocationForLibPart(Part(TestId(2)), scratch.Location("Temp/Chair.klm"));
    EXPECT_EQ(Set().SearchLibPart(chairPlace, LM::LibrarySet::CurrentLocation), nullptr);
    EXPECT_EQ(Set().SearchLibPart(chairPlace, LM::LibrarySet::OrigLocationToo), Part(TestId(2)));
    EXPECT_EQ(Set().SearchLibPart(scratch.Location("Temp/Chair.klm"), LM::LibrarySet::CurrentLocation),
              Part(TestId(2)));
}

TEST_F(Search, CollectionsByMainGuidAncestorAndType) {
    KL::PagedArray<const LM::LibPart*, 8> parts;
    EXPECT_EQ(Set().SearchSymbolsByMainID(LampRevision(9), &parts, LM::LibPartSet::ValidRecords), 3U);
    EXPECT_EQ(NameOf(parts[0]) + "," + NameOf(parts[1]) + "," + NameOf(parts[2]),
              "Lamp one,Lamp two,Lamp Three");
    parts.Clear();
    EXPECT_EQ(Set().SearchSymbolsByMainID(TestId(30), &parts, LM::LibPartSet::NotValidRecords), 1U);
    EXPECT_EQ(parts[0], ghost);
    EXPECT_EQ(Set().SearchSymbolsByMainID(TestId(30), nullptr, 0), static_cast<unsigned>(-1));
    KL::PagedArray<int, 8> indices;
    EXPECT_EQ(Set().SearchSymbolsByMainIDIdx(TestId(30), &indices), 0U);
    EXPECT_EQ(Set().SearchSymbolsByMainIDIdx(TestId(2), &indices), 1U);
    EXPECT_EQ(Set().GetLibPartByIndex(indices[0]), Part(TestId(2)));

    // The copy of the chair lost to the first one found and waits in the duplicate store.
    parts.Clear();
    EXPECT_EQ(Set().SearchDuplicateSymbolsByMainID(TestId(2).mainGuid, &parts), 1U);
    EXPECT_EQ(parts[0]->GetLocation(), scratch.Location("Lib/Spare/Chair.klm"));
    EXPECT_EQ(Set().SearchDuplicateSymbolsByMainID(TestId(3).mainGuid, &parts), 0U);

    // Everything below the template, valid and placeable; the template is not its own descendant.
    KL::Array<const LM::LibPart*> below;
    below.Push(ghost);
    EXPECT_EQ(Set().SearchSymbolsByAncestor(TestId(1), below, true), 8);
    EXPECT_FALSE(below.Contains(ghost));
    EXPECT_FALSE(below.Contains(Part(TestId(1))));
    EXPECT_TRUE(below.Contains(Set().SearchLibPartDocuName(KL::UniString("Old Stool"))));
    EXPECT_EQ(Set().SearchSymbolsByAncestor(TestId(2), below, false), 0);
    EXPECT_EQ(NameOf(Set().SearchDocuNameByAncestor(KL::UniString("chair"), TestId(1))), "Chair");
    EXPECT_EQ(Set().SearchDocuNameByAncestor(KL::UniString("Chair"), TestId(2)), nullptr);
    EXPECT_EQ(Set().SearchDocuNameByAncestor(KL::UniString("Furniture"), TestId(1)), nullptr);

    // A type search walks the file name index: every valid part, in file name order.
    KL::PagedArray<const LM::LibPart*, 8> symbols;
    Set().SearchSymbolFileType(LM::GetSymbolFileGroup(), symbols);
    std::vector<std::string> names;
    for (const LM::LibPart* part : symbols)
        names.push_back(NameOf(part));
    EXPECT_EQ(names, (std::vector<std::string>{"Chair", "Furniture", "Lamp one", "Lamp Three", "Lamp two",
                                               "Old Stool", "A:B", "Sofa 2", "Sofa 3"}));
}

TEST_F(Search, AnyhowFallsBackFromIdToMainGuidToName) {
    bool ambiguous = true;
    // Nothing to go by: every stage fails.
    EXPECT_EQ(Set().SearchLibPartAnyhow(KL::UnID(), KL::UniString(), &ambiguous), nullptr);
    EXPECT_FALSE(ambiguous);
    EXPECT_EQ(NameOf(Set().SearchLibPartAnyhow(TestId(2), KL::UniString("Lamp one"), &ambiguous)), "Chair");

    // Three revisions of one type: the second found is the default, a matching name outranks it.
    EXPECT_EQ(NameOf(Set().SearchAnySymbolByMainID(LampRevision(9), &ambiguous)), "Lamp two");
    EXPECT_TRUE(ambiguous);
    EXPECT_EQ(NameOf(Set().SearchLibPartAnyhow(LampRevision(9), KL::UniString("lamp three"), &ambiguous)),
              "Lamp Three");
    EXPECT_TRUE(ambiguous);
    EXPECT_EQ(NameOf(Set().SearchLibPartAnyhow(LampRevision(3), KL::UniString(), &ambiguous)), "Lamp Three");
    EXPECT_FALSE(ambiguous);

    // An unknown id with a name: a valid part of that name under another id will do.
    EXPECT_EQ(NameOf(Set().SearchLibPartAnyhow(TestId(99), KL::UniString("A/B"), nullptr)), "A:B");
    EXPECT_EQ(NameOf(Set().SearchLibPartAnyhow(TestId(99), KL::UniString("Shelf.klm"), nullptr)), "A:B");
    EXPECT_EQ(Set().SearchLibPartAnyhow(TestId(99), KL::UniString(), nullptr), nullptr);
    // A dummy's id leads nowhere by this chain; a null id finds a part without an id by its name.
    EXPECT_EQ(Set().SearchLibPartAnyhow(TestId(30), KL::UniString("Ghost"), nullptr), nullptr);
    EXPECT_EQ(NameOf(Set().SearchLibPartAnyhow(KL::UnID(), KL::UniString("old stool"), nullptr)),
              "Old Stool");

    // Two ids are the same part when they lead to the same record, and two ids that lead nowhere too.
    EXPECT_TRUE(Set().IsSameLibPartByUnId(LampRevision(9), LampRevision(2)));
    EXPECT_FALSE(Set().IsSameLibPartByUnId(LampRevision(1), LampRevision(2)));
    EXPECT_TRUE(Set().IsSameLibPartByUnId(TestId(97), TestId(98)));
}

TEST_F(Search, ComplexChainWithMigrationDummiesAndCompatibility) {
    bool ambiguous = true;
    bool migrated = true;
    // Parts in use come before parts on their way out.
    KL::Array<LM::LibrarySet::MigrationLibPart> replacements;
    EXPECT_EQ(NameOf(Set().SearchSymbolFromMigrationTable(TestId(20), &replacements)), "Sofa 3");
    ASSERT_EQ(replacements.GetSize(), 2U);
    EXPECT_EQ(NameOf(replacements[1].libPart), "Sofa 2");
    EXPECT_TRUE(replacements[1].flag);
    EXPECT_EQ(replacements[1].rank, 2);
    EXPECT_EQ(Set().SearchSymbolFromMigrationTable(TestId(2), nullptr), nullptr);

    // A part marked 4 is not given out by its own id, only by way of a migration. The search
    // clears `ambiguous` but only ever sets `migrated`: a caller's value stands, and a caller that
    // says "migrated" gets the marked part.
    migrated = false;
    EXPECT_EQ(Complex(TestId(21), "", 2, &ambiguous, &migrated), nullptr);
    EXPECT_FALSE(ambiguous);
    EXPECT_FALSE(migrated);
    migrated = true;
    EXPECT_NE(Complex(TestId(21), "", 2, &ambiguous, &migrated), nullptr);
    EXPECT_TRUE(migrated);
    KL::Array<const LM::LibPart*> migrationParts;
    EXPECT_EQ(NameOf(Set().SearchLibPartComplex(TestId(23), KL::UniString(), 2, &ambiguous, &migrationParts,
                                                &migrated)),
              "Sofa 2");
    EXPECT_TRUE(migrated);
    EXPECT_EQ(migrationParts.GetSize(), 1U);

    // The set starts strict: the direct stage only. Mode 2 asks for the whole chain anyhow.
    EXPECT_EQ(Set().GetLibpartSearchCompatibility(), 1);
    EXPECT_EQ(Complex(TestId(30), "Ghost", 0), nullptr);
    EXPECT_EQ(Complex(TestId(99), "Chair", 1), nullptr);
    EXPECT_EQ(Complex(TestId(30), "Ghost", 2), ghost);
    EXPECT_EQ(NameOf(Complex(TestId(99), "Chair", 2)), "Chair");
    EXPECT_EQ(NameOf(Complex(KL::UnID(), "Chair.klm", 1)), "Chair");
    EXPECT_EQ(Complex(KL::UnID(), "", 2), nullptr);
    // Mode 0 takes the stored value.
    LM::LibrarySet::Modifier(&Set()).SetLibpartSearchCompatibility(0);
    EXPECT_EQ(NameOf(Complex(TestId(99), "Chair", 0)), "Chair");
    // Only records with a symbol count for the symbol form.
    EXPECT_EQ(NameOf(Set().SearchSymbolComplex(TestId(2), KL::UniString(), 0, nullptr, nullptr, nullptr)),
              "Chair");
}

TEST_F(Search, GetSymbolAnyhowRemembersWhatItFoundButNotMigrations) {
    LM::LibrarySet::Modifier modifier(&Set());
    modifier.SetLibpartSearchCompatibility(0);
    const LM::LibPartId byName(TestId(99), KL::UniString("Chair"));
    bool isDummy = true, ambiguous = true, migrated = true;
    EXPECT_FALSE(Set().AlreadyQueriedLibPartId(byName));
    EXPECT_EQ(NameOf(modifier.GetSymbolAnyhow(byName, &isDummy, &ambiguous, &migrated, false, nullptr)),
              "Chair");
    EXPECT_FALSE(isDummy || ambiguous || migrated);
    EXPECT_TRUE(Set().AlreadyQueriedLibPartId(byName));
    // A remembered answer is not searched again, whatever a new search would say now.
    modifier.SetLibpartSearchCompatibility(1);
    EXPECT_EQ(NameOf(modifier.GetSymbolAnyhow(byName, &isDummy, &ambiguous, &migrated, false, nullptr)),
              "Chair");
    EXPECT_EQ(Set().SearchSymbolComplex(TestId(99), KL::UniString("Chair"), 0, nullptr, nullptr, nullptr),
              nullptr);

    // A dummy comes with its mark, and is remembered with it.
    const LM::LibPartId ghostId(TestId(30), KL::UniString());
    EXPECT_EQ(modifier.GetSymbolAnyhow(ghostId, &isDummy, &ambiguous, &migrated, false, nullptr), ghost);
    EXPECT_TRUE(isDummy);
    EXPECT_TRUE(Set().AlreadyQueriedLibPartId(ghostId));
    EXPECT_EQ(modifier.GetSymbolAnyhow(ghostId, &isDummy, nullptr, nullptr, false, nullptr), ghost);
    EXPECT_TRUE(isDummy);

    // Answers by way of a migration are given each time anew.
    const LM::LibPartId old(TestId(23), KL::UniString());
    KL::Array<const LM::LibPart*> migrationParts;
    EXPECT_EQ(NameOf(modifier.GetSymbolAnyhow(old, &isDummy, &ambiguous, &migrated, false, &migrationParts)),
              "Sofa 2");
    EXPECT_TRUE(migrated);
    EXPECT_FALSE(Set().AlreadyQueriedLibPartId(old));

    // Not remembering leaves the table alone; an id that leads nowhere is never remembered.
    const LM::LibPartId lamp(LampRevision(9), KL::UniString());
    EXPECT_EQ(NameOf(modifier.GetSymbolAnyhow(lamp, nullptr, &ambiguous, nullptr, true, nullptr)),
              "Lamp two");
    EXPECT_TRUE(ambiguous);
    EXPECT_FALSE(Set().AlreadyQueriedLibPartId(lamp));
    EXPECT_EQ(modifier.GetSymbolAnyhow(LM::LibPartId(TestId(98), KL::UniString()), nullptr, nullptr, nullptr,
                                       false, nullptr),
              nullptr);
    EXPECT_FALSE(Set().AlreadyQueriedLibPartId(LM::LibPartId(TestId(98), KL::UniString())));
}

// Two revisions of one type, the later one marked to be given out only by way of a migration: the
// main guid stage settles on it, so the chain gives nothing and says nothing is ambiguous.
using MarkedRevisions = CatalogueTest;

TEST_F(MarkedRevisions, AMarkedPartReachedByItsMainGuidIsNotGivenOut) {
    const KL::Guid benchMain(60, 0, 0, {});
    const KL::UnID unknownRevision(benchMain, KL::Guid(60, 9, 0, {}));
    SavePart("Lib/Bench old.klm", KL::UnID(benchMain, KL::Guid(60, 1, 0, {})), "Bench old");
    SavePart("Lib/Bench.klm", KL::UnID(benchMain, KL::Guid(60, 2, 0, {})), "Bench", {}, false,
             Replacing(LPF::MigrationValue(4), {}));
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    const auto nameOf = [](const LM::LibPart* part) {
        return part == nullptr ? std::string("none") : part->GetDocumentName().ToUTF8();
    };
    bool ambiguous = false;
    EXPECT_EQ(nameOf(Set().SearchAnySymbolByMainID(unknownRevision, &ambiguous)), "Bench");
    EXPECT_TRUE(ambiguous);
    EXPECT_EQ(
        nameOf(Set().SearchLibPartComplex(unknownRevision, KL::UniString(), 2, &ambiguous, nullptr, nullptr)),
        "none");
    EXPECT_FALSE(ambiguous);
    // With an id the direct stage goes by the main guid alone; a name changes nothing here.
    EXPECT_EQ(nameOf(Set().SearchLibPartComplex(unknownRevision, KL::UniString("bench old"), 2, &ambiguous,
                                                nullptr, nullptr)),
              "none");
}

// A library server gives parts guids of its own, by library name and path in the library.
class ServerGuids : public LM::IServerLibraryCollection {
public:
    KL::Guid GetGuid(const KL::UniString&, const IO::RelativeLocation& path) const override {
        return path.ToString() == "Objects/Chair.klm" ? KL::Guid(88, 0, 0, {}) : KL::NULLGuid;
    }
};

TEST_F(Search, ByTheGuidThatTheLibraryServerGave) {
    ServerGuids server;
    LM::DefLibraryErrorHandler reports;
    LM::LibrarySet set(nullptr, reports, &server, Set().GetStorableFileTypes(), {}, FTM::UnknownGroup,
                       IO::Location());
    ASSERT_EQ(set.AddActiveLibrary(process, scratch.Location("Lib"), LM::LocalLibrary, LM::NotVital,
                                   KL::NULLGuid, KL::UniString(), false),
              0);
    ASSERT_EQ(set.Enumerate(process), 0);
    int index = -1;
    const LM::LibPart* chair = set.SearchSymbolByGuid(KL::Guid(88, 0, 0, {}), &index);
    ASSERT_NE(chair, nullptr);
    EXPECT_EQ(chair->GetLocation(), scratch.Location("Lib/Objects/Chair.klm"));
    EXPECT_EQ(set.GetLibPartByIndex(index), chair);
    EXPECT_EQ(set.SearchSymbolByGuid(KL::Guid(89, 0, 0, {}), &index), nullptr);
}

TEST_F(Search, AnEmptySetAnswersNothing) {
    LM::LibrarySetSingletonLP empty;
    ASSERT_EQ(empty.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr), 0);
    LM::LibrarySet& set = *empty.GetLibrarySet();
    set.CleanUp();
    int index = 5;
    EXPECT_EQ(set.SearchSymbolByUnID(TestId(2), &index), nullptr);
    EXPECT_EQ(index, -1);
    EXPECT_EQ(set.SearchLibPartDocuName(KL::UniString("Chair")), nullptr);
    KL::PagedArray<const LM::LibPart*, 8> parts;
    EXPECT_EQ(set.SearchSymbolsByMainID(TestId(2), &parts, 0), static_cast<unsigned>(-1));
    EXPECT_EQ(set.GetSymbolAnyhow(LM::LibPartId(TestId(2), KL::UniString()), nullptr, nullptr, nullptr, false,
                                  nullptr),
              nullptr);
    EXPECT_TRUE(set.IsSameLibPartByUnId(TestId(1), TestId(2)));
}

// Records without a symbol stand first in the id orders, among themselves by name without case,
// and a record entered after the build takes its place by the same order.
TEST_F(CatalogueTest, IdOrdersPutRecordsWithoutASymbolFirstByName) {
    scratch.Write("Lib/Pictures/beta.png", "b");
    scratch.Write("Lib/Pictures/Alpha.png", "a");
    scratch.Write("Lib/Texts/GAMMA.txt", "g");
    SavePart("Lib/Objects/Two.klm", TestId(2), "Two");
    SavePart("Lib/Objects/One.klm", TestId(1), "One");
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    LM::AncestryInfo none;
    ASSERT_NE(Set().StoreDummyLibPart(process, KL::UniString("Three"), TestId(3), LM::GetSymbolFileGroup(),
                                      none, false),
              nullptr);
    scratch.Write("Lib/Pictures/delta.png", "d");
    const LM::LibPart* alpha = Set().SearchLibPartFileName(KL::UniString("Alpha.png"));
    ASSERT_NE(alpha, nullptr);
    ASSERT_NE(Set().StoreLibPart(process, scratch.Location("Lib/Pictures/delta.png"), alpha->GetFolderIndex(),
                                 nullptr, nullptr, false, nullptr),
              nullptr);

    const LM::LibPartSet& parts = *Set().GetLibPartSet();
    const auto namesIn = [&](const std::vector<std::uint32_t>& order, std::size_t count) {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < std::min(count, order.size()); ++i)
            names.push_back(parts.GetLibPart(order[i]).GetDocumentName().ToUTF8());
        return names;
    };
    const std::vector<std::string> withoutSymbol = {"Alpha", "beta", "delta", "GAMMA"};
    std::vector<std::string> byUnId = withoutSymbol;
    byUnId.insert(byUnId.end(), {"One", "Two", "Three"});
    EXPECT_EQ(namesIn(parts.GetIndexByUnId(), 100), byUnId);
    EXPECT_EQ(namesIn(parts.GetIndexByGuid(), withoutSymbol.size()), withoutSymbol);
    const LM::LibPart* one = Set().SearchSymbolByUnID(TestId(1), nullptr);
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(one->GetDocumentName(), KL::UniString("One"));
}

// Names that share long beginnings, fold to other lengths or lie beyond the basic plane: each is
// found in any case, a near name is not, and a walk by name gives the order of a case-insensitive
// compare, for parts walked and for one stored afterwards.
TEST_F(CatalogueTest, NameSearchesAndTheNameOrderHoldForAwkwardNames) {
    const std::vector<std::string> names = {"Window Double Hung 24",
                                            "Window Double Hung 36",
                                            "Window Double Hung",
                                            "Sixteen units ab",
                                            "Sixteen units abc",
                                            "Stra\xc3\x9f"
                                            "e",
                                            "\xf0\x9f\x9a\xaa Door",
                                            "\xee\x80\x80 Private",
                                            "a",
                                            "B"};
    for (std::size_t i = 0; i < names.size(); ++i)
        SavePart("Lib/Part " + std::to_string(i) + ".klm", TestId(static_cast<std::uint32_t>(100 + i)),
                 names[i].c_str());
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    LM::AncestryInfo none;
    ASSERT_NE(Set().StoreDummyLibPart(process, KL::UniString("Window Double Hung 30"), TestId(99),
                                      LM::GetSymbolFileGroup(), none, false),
              nullptr);

    for (const std::string& name : names) {
        const KL::UniString text(name);
        for (const KL::UniString& query : {text, text.ToUpperCase(), text.ToLowerCase()}) {
            const LM::LibPart* part = Set().SearchLibPartDocuName(query);
            ASSERT_NE(part, nullptr) << query;
            EXPECT_EQ(part->GetDocumentName(), text);
        }
    }
    EXPECT_EQ(Set().SearchLibPartDocuName(KL::UniString("STRASSE"))->GetDocumentName(),
              KL::UniString("Stra\xc3\x9f"
                            "e"));
    EXPECT_EQ(Set().SearchLibPartFileName(KL::UniString("PART 5.KLM"))->GetDocumentName(),
              KL::UniString(names[5]));
    for (const char* near :
         {"Window Double Hung 2", "Window Double Hung 240", "Sixteen units a", "Sixteen units abcd", ""})
        EXPECT_EQ(Set().SearchLibPartDocuName(KL::UniString(near)), nullptr) << near;
    const KL::UniString stored("window double hung 30");
    EXPECT_NE(Set().SearchDummySymbol(KL::UnID(), &stored, nullptr), nullptr);

    std::vector<KL::UniString> walked;
    const LM::LibItemOrderByName byName;
    for (LM::LibItemIterator item(Set(), byName, LM::LibItemIterator::AllItems); item != nullptr; ++item)
        walked.push_back(item->GetDocumentName());
    ASSERT_EQ(walked.size(), names.size() + 1);
    EXPECT_TRUE(
        std::is_sorted(walked.begin(), walked.end(), [](const KL::UniString& a, const KL::UniString& b) {
            return a.Compare(b, KL::CaseInsensitive) < 0;
        }));
    std::vector<KL::UniString> backwards;
    for (LM::LibItemReverseIterator item(Set(), byName, LM::LibItemIterator::AllItems); item != nullptr;
         --item)
        backwards.push_back(item->GetDocumentName());
    EXPECT_TRUE(std::equal(walked.rbegin(), walked.rend(), backwards.begin(), backwards.end()));
}

} // namespace
