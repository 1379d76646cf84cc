// The type tree as a host's visitor sees it, level by level.
#include "support/Catalogue.hpp"

#include <gtest/gtest.h>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;
using Node = LM::TypeHierarchyExporter::Node;

// Records each node as "depth:name:marks", and answers every node with `answer`.
class Recorder : public LM::TypeHierarchyExporter {
public:
    explicit Recorder(int answer = GoOn, const ICompare* compare = nullptr, KL::UnID start = KL::NULLUnID,
                      bool recursive = true)
        : answer(answer), compare(compare), start(start), recursive(recursive) {}

    int ExportNode(int context, const Node& node, int* childContext) override {
        EXPECT_EQ(*childContext, 0);
        *childContext = context + 1;
        lines.push_back(std::to_string(context) + ":" + node.libPartId.GetName().ToUTF8() + ":" +
                        (node.isTemplate ? "T" : "") + (node.isPlaceable ? "P" : ""));
        return answer;
    }
    int GetRootContext() override { return 0; }
    KL::UnID GetStartingNodeUnID() override { return start; }
    bool ShouldExportRecursively() override { return recursive; }
    const ICompare* GetCompare() override { return compare; }

    std::vector<std::string> lines;

private:
    int answer;
    const ICompare* compare;
    KL::UnID start;
    bool recursive;
};

class TypeHierarchyExport : public CatalogueTest {};

TEST_F(TypeHierarchyExport, AVisitorSeesEachLevelInItsOrderAndSteersTheWalk) {
    Recorder before;
    EXPECT_EQ(Set().ExportTypeHierarchy(&before), 0);
    EXPECT_TRUE(before.lines.empty());
    ASSERT_EQ(AddSampleLibrary(), 0);
    ASSERT_EQ(Set().Enumerate(process), 0);

    // Templates that are not placeable first, then by name.
    const LM::TypeHierarchyExporter::DefCompare byKindAndName;
    Recorder all(LM::TypeHierarchyExporter::GoOn, &byKindAndName);
    ASSERT_EQ(Set().ExportTypeHierarchy(&all), 0);
    ASSERT_GE(all.lines.size(), 20U);
    EXPECT_EQ(all.lines[0], "0:General Object:T");
    std::vector<std::string> firstLevel;
    std::copy_if(all.lines.begin(), all.lines.end(), std::back_inserter(firstLevel),
                 [](const std::string& line) { return line.rfind("1:", 0) == 0; });
    EXPECT_EQ(firstLevel, (std::vector<std::string>{"1:Annotation:T", "1:Furniture:T", "1:Macro:T",
                                                    "1:Opening:T", "1:Straight Stair:P"}));
    // Depth first: a node's subtree follows it.
    EXPECT_EQ(all.lines[2], "2:North Arrow:P");
    const auto chair = std::find(all.lines.begin(), all.lines.end(), "2:Chair:T");
    const auto bookshelf = std::find(all.lines.begin(), all.lines.end(), "2:Bookshelf:P");
    ASSERT_NE(chair, all.lines.end());
    ASSERT_NE(bookshelf, all.lines.end());
    EXPECT_LT(chair, bookshelf);

    // Not below any node: one level. Stopped at once: the stop's code.
    Recorder shallow(LM::TypeHierarchyExporter::SkipChildren);
    EXPECT_EQ(Set().ExportTypeHierarchy(&shallow), 0);
    EXPECT_EQ(shallow.lines, std::vector<std::string>{"0:General Object:T"});
    Recorder stopped(LM::TypeHierarchyExporter::Stop);
    EXPECT_EQ(Set().ExportTypeHierarchy(&stopped), LM::AncestryHierarchy::ExportStopped);
    EXPECT_EQ(stopped.lines.size(), 1U);

    // From a starting node, one level, in the tree's order.
    const KL::UnID chairId = Set().SearchLibPartDocuName(KL::UniString("Chair"))->GetOwnUnID();
    Recorder chairs(LM::TypeHierarchyExporter::GoOn, &byKindAndName, chairId, false);
    ASSERT_EQ(Set().ExportTypeHierarchy(&chairs), 0);
    EXPECT_EQ(chairs.lines, (std::vector<std::string>{"0:Bar Stool:P", "0:Dining Chair:P",
                                                      "0:Office Chair (old):P", "0:Office Chair 2:P"}));

    // The stream keeps no tree, and reading it leaves the live one as it was.
    KL::MemoryOChannel stream;
    ASSERT_EQ(Set().GetAncestryHierarchy()->Write(stream), 0);
    const std::vector<char> bytes = stream.TakeData();
    KL::MemoryIChannel in(bytes.data(), bytes.size());
    ASSERT_EQ(const_cast<LM::AncestryHierarchy*>(Set().GetAncestryHierarchy())->Read(in), 0);
    Recorder again(LM::TypeHierarchyExporter::GoOn, &byKindAndName);
    ASSERT_EQ(Set().ExportTypeHierarchy(&again), 0);
    EXPECT_EQ(again.lines, all.lines);
}

TEST_F(TypeHierarchyExport, MissingTypesAndPartsWithoutAnIdAreNodesToo) {
    SavePart("Lib/Templates/Object.klm", TestId(1), "Object", {}, true);
    // An ancestor no library holds, and two old parts without an id of their own.
    SavePart("Lib/Orphan.klm", TestId(2), "Orphan", {TestId(1), TestId(9)});
    SavePart("Lib/Old/Zeta.klm", KL::UnID(), "Zeta", {TestId(1)});
    SavePart("Lib/Old/Alpha.klm", KL::UnID(), "Alpha", {TestId(1)});
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);

    Recorder plain;
    ASSERT_EQ(Set().ExportTypeHierarchy(&plain), 0);
    std::vector<std::string> sorted = plain.lines;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted,
              (std::vector<std::string>{"0:Object:T", "1::T", "1:Alpha:P", "1:Zeta:P", "2:Orphan:P"}));

    KL::MemoryOChannel printed;
    Set().GetAncestryHierarchy()->PrintTypeHierarchy(printed);
    const std::vector<char>& bytes = printed.GetData();
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_EQ(text.rfind("LibPart type hierarchy in the Library Manager:\n", 0), 0U) << text;
    EXPECT_NE(text.find("Object:" + LM::Paths::IdText(TestId(1))), std::string::npos) << text;
    EXPECT_NE(text.find("???: " + LM::Paths::IdText(TestId(9))), std::string::npos) << text;
    EXPECT_NE(text.find("<Old Libparts>: " + LM::Paths::IdText(KL::UnID())), std::string::npos) << text;
}

} // namespace
