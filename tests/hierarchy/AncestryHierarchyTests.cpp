// The type tree after enumeration: subtrees follow a type to its present revision and take over
// its parameters, missing types keep their place, old parts are anchored, and the sample library's
// tree is exactly what its ancestry sections say.
#include "support/Catalogue.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;

const KL::Guid FurnitureMain(10, 0, 0, {});
const KL::UnID FurnitureOld(FurnitureMain, KL::Guid(10, 1, 0, {}));
const KL::UnID FurnitureNow(FurnitureMain, KL::Guid(10, 2, 0, {}));

// A parameter section with the given parameter names, each a length of 1.
std::function<void(LPF::SymbolFile&)> WithParameters(std::vector<const char*> names) {
    return [names](LPF::SymbolFile& file) {
        SyParSection section;
        for (const char* name : names)
            section.parameters.push_back({name, ParLength, 0, KL::UniString(name), 0, 0, {1.0}, {}});
        ASSERT_EQ(file.SetSectionDataRef(LPF::Tags::Parameters, 0, BuildSyParHandle(section), true, -1), 0);
    };
}

std::vector<std::string> ParameterNames(const LM::LibPart* part) {
    GSHandle handle = nullptr;
    std::vector<std::string> names;
    SyParSection section;
    if (part->GetSymbolFile()->GetSectionDataRef(LPF::Tags::Parameters, 0, &handle) == 0 &&
        ParseSyParSection(*handle, static_cast<std::uint64_t>(BMGetHandleSize(handle)), &section) == 0)
        for (const SyParameter& parameter : section.parameters)
            names.push_back(parameter.name);
    return names;
}

class TypeTree : public CatalogueTest {
protected:
    const LM::LibPart* Part(const char* name) { return Set().SearchLibPartDocuName(KL::UniString(name)); }

    // The path of a part from the top, by document name, "?" for an id no part has.
    std::string PathOf(const LM::LibPart* part) {
        const LM::AncestryHierarchy& tree = *Set().GetAncestryHierarchy();
        const LM::Paths::TreeEntry* node = part->GetAncestryId();
        if (node == nullptr)
            return "(none)";
        std::vector<KL::UnID> ids(tree.GetPathLength(node));
        tree.GetPath(node, ids.data());
        std::string path;
        for (const KL::UnID& id : ids) {
            const LM::LibPart* named = id.IsNull() ? nullptr : Set().SearchSymbolByUnID(id, nullptr);
            path += (path.empty() ? "" : "/") + (id.IsNull() ? std::string("-")
                                                 : named     ? NameOf(named)
                                                             : "?");
        }
        return path;
    }

    static std::string NameOf(const LM::LibPart* part) { return part->GetDocumentName().ToUTF8(); }

    static bool Conformed(const LM::LibPart* part) {
        return (part->GetFlags() & LM::LibPart::ParametersOverwrittenFlag) != 0;
    }
};

TEST_F(TypeTree, SubtreesFollowTheirTypeToItsPresentRevision) {
    SavePart("Lib/Furniture.klm", FurnitureNow, "Furniture", {}, true, WithParameters({"A", "Legs"}));
    SavePart("Lib/Chair.klm", TestId(2), "Chair", {FurnitureOld}, false, WithParameters({"A"}));
    SavePart("Lib/Armchair.klm", TestId(3), "Armchair", {FurnitureOld, TestId(2)}, false,
             WithParameters({"A"}));
    SavePart("Lib/Stool.klm", TestId(4), "Stool", {FurnitureNow}, false, WithParameters({"A"}));
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);

    EXPECT_EQ(PathOf(Part("Chair")), "Furniture/Chair");
    EXPECT_EQ(PathOf(Part("Armchair")), "Furniture/Chair/Armchair");
    // The old revision's node is gone: the top holds the present one only.
    KL::Queue<LM::Paths::TreeEntry*> top;
    Set().GetAncestryHierarchy()->GetChildren(Set().GetAncestryHierarchy()->GetRoot(), &top);
    ASSERT_EQ(top.GetSize(), 1U);
    EXPECT_EQ(top[0]->GetId(), FurnitureNow);
    // Moved parts take over the parameters of their nearest present ancestor; the rest keep theirs.
    EXPECT_TRUE(Conformed(Part("Chair")));
    EXPECT_EQ(ParameterNames(Part("Chair")), (std::vector<std::string>{"A", "Legs"}));
    EXPECT_TRUE(Conformed(Part("Armchair")));
    EXPECT_FALSE(Conformed(Part("Stool")));
    EXPECT_EQ(ParameterNames(Part("Stool")), (std::vector<std::string>{"A"}));
    // Conforming everything reaches the parts that did not move.
    LM::LibrarySet::Modifier(&Set()).RebuildTypeHierarchy(process, true);
    EXPECT_TRUE(Conformed(Part("Stool")));
    EXPECT_EQ(ParameterNames(Part("Stool")), (std::vector<std::string>{"A", "Legs"}));

    // Type questions follow the moved paths.
    EXPECT_TRUE(Set().IsSymbolTypeOf(Part("Armchair"), FurnitureNow));
    EXPECT_FALSE(Set().IsSymbolTypeOf(Part("Armchair"), FurnitureOld));
    EXPECT_TRUE(Set().IsSymbolTypeOf(Part("Armchair"), Part("Chair")));
    EXPECT_TRUE(Set().IsSymbolTypeOf(Part("Chair"), Part("Chair")));
    EXPECT_FALSE(Set().IsSymbolTypeOf(Part("Chair"), Part("Armchair")));
    EXPECT_FALSE(Set().IsSymbolTypeOf(Part("Chair"), KL::UnID()));
    LM::AncestryInfo chain;
    ASSERT_EQ(Set().GetSymbolAncestryInfo(Part("Armchair"), &chain), 0);
    ASSERT_EQ(chain.GetAncestorsCount(), 2U);
    EXPECT_EQ(chain.GetAncestorRef(1), FurnitureNow);
    EXPECT_FALSE(chain.IsTemplate());
    ASSERT_EQ(Set().GetSymbolAncestryInfo(Part("Furniture"), &chain), 0);
    EXPECT_TRUE(chain.IsTemplate());
    EXPECT_EQ(chain.GetAncestorsCount(), 0U);
}

TEST_F(TypeTree, MissingTypesKeepTheirPlaceAndLoopsAreCut) {
    const KL::UnID missing = TestId(40);
    SavePart("Lib/Furniture.klm", FurnitureNow, "Furniture", {}, true);
    SavePart("Lib/Sofa.klm", TestId(5), "Sofa", {FurnitureNow, missing});
    SavePart("Lib/Self.klm", TestId(6), "Self", {FurnitureNow, TestId(6), TestId(2)});
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(PathOf(Part("Sofa")), "Furniture/?/Sofa");
    EXPECT_FALSE(Conformed(Part("Sofa")));
    // A part that names itself as its ancestor loses the chain from there on.
    EXPECT_EQ(PathOf(Part("Self")), "Furniture/Self");

    // A dummy below the missing type stands in for itself through its nearest present ancestor.
    LM::AncestryInfo chain;
    chain.Append(FurnitureNow);
    chain.Append(missing);
    const LM::LibPart* ghost = Set().StoreDummyLibPart(process, KL::UniString("Ghost"), TestId(7),
                                                       LM::GetSymbolFileGroup(), chain, false);
    ASSERT_NE(ghost, nullptr);
    EXPECT_EQ(Set().GetSymbolProxy(ghost), Part("Furniture"));

    // Parents come before children; an end without a part gives a null element.
    KL::Array<const LM::LibPart*> walk;
    EXPECT_EQ(Set().GetAncestryHierarchy()->GetPreorderAncestryTreeWalk(&walk), 4);
    ASSERT_EQ(walk.GetSize(), 4U);
    EXPECT_EQ(walk[0], Part("Furniture"));
    EXPECT_TRUE(walk.Contains(Part("Sofa")));
    EXPECT_TRUE(walk.Contains(Part("Self")));
    EXPECT_TRUE(walk.Contains(nullptr));
}

TEST_F(TypeTree, OldPartsAreAnchoredBelowThePresentRevisionOfTheirType) {
    SavePart("Lib/Furniture.klm", FurnitureNow, "Furniture", {}, true, WithParameters({"A", "Legs"}));
    SavePart("Lib/Old Stool.klm", KL::UnID(), "Old Stool", {FurnitureOld}, false, WithParameters({"A"}));
    SavePart("Lib/Old Bench.klm", KL::UnID(), "Old Bench", {FurnitureOld}, false, WithParameters({"A"}));
    SavePart("Lib/Old Crate.klm", KL::UnID(), "Old Crate", {TestId(41)}, false, WithParameters({"A"}));
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    // Both share one end node, below the present revision, and both took over its parameters.
    EXPECT_EQ(PathOf(Part("Old Stool")), "Furniture/-");
    EXPECT_EQ(Part("Old Stool")->GetAncestryId(), Part("Old Bench")->GetAncestryId());
    EXPECT_EQ(Set().GetAncestryHierarchy()->GetPathReferenceCount(Part("Old Bench")->GetAncestryId()), 2U);
    EXPECT_TRUE(Conformed(Part("Old Stool")));
    EXPECT_TRUE(Conformed(Part("Old Bench")));
    // With no revision of its type anywhere an old part stays where it is, untouched.
    EXPECT_EQ(PathOf(Part("Old Crate")), "?/-");
    EXPECT_FALSE(Conformed(Part("Old Crate")));
    // Old parts come last in the walk.
    KL::Array<const LM::LibPart*> walk;
    ASSERT_EQ(Set().GetAncestryHierarchy()->GetPreorderAncestryTreeWalk(&walk), 4);
    EXPECT_EQ(walk[0], Part("Furniture"));
    EXPECT_TRUE(walk[1]->GetOwnUnID().IsNull() && walk[2]->GetOwnUnID().IsNull() &&
                walk[3]->GetOwnUnID().IsNull());
}

// An old part alone below missing types and an old revision: the walk up finds the present revision
// by its main guid and hangs the part below it, keeping the ids it walked over in the order of the
// walk upward.
TEST_F(TypeTree, AnOldPartIsReanchoredByTheMainGuidOfAnAncestor) {
    const KL::UnID missingOne = TestId(51);
    const KL::UnID missingTwo = TestId(52);
    SavePart("Lib/Furniture.klm", FurnitureNow, "Furniture", {}, true, WithParameters({"A", "Legs"}));
    SavePart("Lib/Old Crate.klm", KL::UnID(), "Old Crate", {FurnitureOld, missingOne, missingTwo}, false,
             WithParameters({"A"}));
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    LM::AncestryInfo chain;
    ASSERT_EQ(Set().GetSymbolAncestryInfo(Part("Old Crate"), &chain), 0);
    ASSERT_EQ(chain.GetAncestorsCount(), 3U);
    EXPECT_EQ(chain.GetAncestorRef(1), FurnitureNow);
    EXPECT_EQ(chain.GetAncestorRef(2), missingOne);
    EXPECT_EQ(chain.GetAncestorRef(3), FurnitureOld);
    EXPECT_TRUE(Conformed(Part("Old Crate")));
}

// The old revision sorts after the present one, so the walk has passed the present one when the
// old subtree arrives below it: what arrived is walked too, and conformed.
TEST_F(TypeTree, ASubtreeArrivingBelowAWalkedTypeIsWalkedToo) {
    const KL::UnID furnitureLater(FurnitureMain, KL::Guid(10, 3, 0, {}));
    SavePart("Lib/Furniture.klm", FurnitureNow, "Furniture", {}, true, WithParameters({"A", "Legs"}));
    SavePart("Lib/Stool.klm", TestId(4), "Stool", {FurnitureNow}, false, WithParameters({"A"}));
    SavePart("Lib/Chair.klm", TestId(2), "Chair", {furnitureLater}, false, WithParameters({"A"}));
    SavePart("Lib/Armchair.klm", TestId(3), "Armchair", {furnitureLater, TestId(2)}, false,
             WithParameters({"A"}));
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(PathOf(Part("Armchair")), "Furniture/Chair/Armchair");
    EXPECT_TRUE(Conformed(Part("Chair")));
    EXPECT_TRUE(Conformed(Part("Armchair")));
    EXPECT_FALSE(Conformed(Part("Stool")));
}

TEST_F(TypeTree, RefreshingAChainThatIsNotCatalogued) {
    SavePart("Lib/Furniture.klm", FurnitureNow, "Furniture", {}, true);
    SavePart("Lib/Chair.klm", TestId(2), "Chair", {FurnitureNow});
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    // A part saved against the old revision: its chain is rebuilt from the present one, by main guid.
    LM::AncestryInfo chain;
    chain.Append(FurnitureOld);
    chain.Append(TestId(42));
    chain.MarkAsTemplate();
    const LM::LibPart* found = nullptr;
    EXPECT_EQ(Set().RefreshAncestryInfo(TestId(43), &chain, &found), 0);
    EXPECT_EQ(found, Part("Furniture"));
    ASSERT_EQ(chain.GetAncestorsCount(), 2U);
    EXPECT_EQ(chain.GetAncestorRef(1), FurnitureNow);
    EXPECT_EQ(chain.GetAncestorRef(2), TestId(42));
    EXPECT_TRUE(chain.IsTemplate());
    // The nearest known ancestor decides: below the chair, the chair's own chain comes first.
    LM::AncestryInfo below;
    below.Append(TestId(2));
    Set().RefreshAncestryInfo(TestId(44), &below, &found);
    EXPECT_EQ(found, Part("Chair"));
    ASSERT_EQ(below.GetAncestorsCount(), 2U);
    EXPECT_EQ(below.GetAncestorRef(1), FurnitureNow);
    EXPECT_EQ(below.GetAncestorRef(2), TestId(2));
    // Nothing known: the chain stays.
    LM::AncestryInfo unknown;
    unknown.Append(TestId(45));
    Set().RefreshAncestryInfo(TestId(46), &unknown, &found);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(unknown.GetAncestorsCount(), 1U);
}

TEST_F(TypeTree, TheSampleLibraryTreeIsWhatItsAncestrySectionsSay) {
    ASSERT_EQ(AddSampleLibrary(), 0);
    ASSERT_EQ(Set().Enumerate(process), 0);
    int checked = 0;
    for (LM::LibItemIterator item(Set(), true); item != nullptr; ++item) {
        GSHandle section = nullptr;
        if (!item->IsSymbol() || item->GetSymbolFile() == nullptr ||
            item->GetSymbolFile()->GetSectionDataRef(LPF::Tags::Ancestry, 0, &section) != 0)
            continue;
        const LM::AncestryInfo stored(&section);
        LM::AncestryInfo inTree;
        ASSERT_EQ(Set().GetSymbolAncestryInfo(item.Get(), &inTree), 0);
        EXPECT_EQ(inTree, stored) << item->GetDocumentName().ToUTF8();
        EXPECT_EQ(inTree.IsTemplate(), stored.IsTemplate()) << item->GetDocumentName().ToUTF8();
        ++checked;
    }
    EXPECT_EQ(checked, 32);
    EXPECT_EQ(PathOf(Part("Dining Chair")), "General Object/Furniture/Chair/Dining Chair");
    EXPECT_TRUE(Set().IsSymbolTypeOf(Part("Casement Window"), Part("Opening")));
    EXPECT_FALSE(Set().IsSymbolTypeOf(Part("Casement Window"), Part("Furniture")));
    KL::Array<const LM::LibPart*> chairs;
    Set().SearchSymbolsByAncestor(Part("Chair")->GetOwnUnID(), chairs, true);
    std::vector<std::string> names;
    for (const LM::LibPart* chair : chairs)
        names.push_back(NameOf(chair));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"Bar Stool", "Dining Chair", "Office Chair (old)",
                                               "Office Chair 2"}));

    // A missing part below a missing variant of Dining Chair is represented by Dining Chair.
    LM::AncestryInfo chain;
    Set().GetSymbolAncestryInfo(Part("Dining Chair"), &chain);
    chain.Append(Part("Dining Chair")->GetOwnUnID());
    chain.Append(TestId(60));
    const LM::LibPart* missing = Set().StoreDummyLibPart(process, KL::UniString("Lost Chair"), TestId(61),
                                                         LM::GetSymbolFileGroup(), chain, false);
    ASSERT_NE(missing, nullptr);
    EXPECT_EQ(Set().GetSymbolProxy(missing), Part("Dining Chair"));
}

} // namespace
