#pragma once

#include "Paths.hpp"
#include "hierarchy/TypeHierarchyExporter.hpp"

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/PagedArray.hpp"
#include "KLRoot/Queue.hpp"

#include <vector>

namespace LM {

class AncestryInfo;
class LibPart;
class LibrarySet;

// The type tree of all parts of one catalogue. Every symbol has one path: its ancestors, then its
// own id; the node at the end is the symbol's ancestry id. A new revision of a type keeps the main
// guid and changes the revision guid, so parts saved against the old revision name an ancestor
// that is gone; Build moves their subtrees under the revision that is present.
class LM_EXPORT AncestryHierarchy : public Paths {
public:
    static const KL::ClassInfo classInfo;

    explicit AncestryHierarchy(LibrarySet* librarySet);
    ~AncestryHierarchy() override;

    const KL::ClassInfo* GetClassInfo() const override;

    // Brings the tree in line with the catalogue after it changed. With `conformAll` every part
    // takes over the parameters of its nearest present ancestor; otherwise only the moved ones.
    void Build(bool conformAll);
    // Every node of the path to `node` but the last, from the top.
    int GetAncestryInfo(const TreeEntry* node, AncestryInfo* info) const;
    // Every symbol with ancestors before descendants, old parts last; a node without a part gives
    // a null element. Returns the element count.
    int GetPreorderAncestryTreeWalk(KL::Array<const LibPart*>* parts) const;
    // Going up from the parent of `node`: the first valid part whose own id stands on the path; null
    // when none does.
    const LibPart* GetNearestPresentAncestor(const TreeEntry* node) const;

    // ---- Export to a host's visitor.
    // One node of a level being exported, with what orders the level.
    struct NodeRecord {
        TypeHierarchyExporter::Node node;
        TreeEntry* entry = nullptr;
        const TypeHierarchyExporter::ICompare* compare = nullptr;
    };
    // What an export returns when the visitor stopped it.
    static constexpr int ExportStopped = static_cast<int>(0x835E0001);
    static bool CmpFunct(const NodeRecord& a, const NodeRecord& b);
    int ExportTypeHierarchy(TypeHierarchyExporter* exporter) const;
    int ExportTypeSubHierarchy(TreeEntry* node, int context, bool recursive, TypeHierarchyExporter* exporter,
                               const TypeHierarchyExporter::ICompare* compare) const;
    int MakeExporterNode(const KL::UnID& id, const LibPart* part, TypeHierarchyExporter::Node* node) const;
    void PrintTypeHierarchy(KL::OChannel& channel) const;
    // Names an id for the print: the part's name, or what stands in for it.
    static void SubstOwnUnIdToName(void* userData, KL::OChannel& channel, const KL::UnID& id);

    // The stream keeps only the class and its version: an empty tree is written, and what is read
    // is dropped. Every enumeration builds the live tree anew.
    int Write(KL::OChannel& channel) const override;
    int Read(KL::IChannel& channel) override;

private:
    class PartMarks;
    using EntryQueue = KL::Queue<TreeEntry*>;

    void MoveSubtree(TreeEntry* entry, const LibPart* part, PartMarks* moved);
    TreeEntry* ReplaceAncestryPath(AncestryInfo chain, unsigned depth, TreeEntry* entry);
    void ConformSymbolToNewHierarchyPosition(const TreeEntry* entry, const LibPart* part);
    unsigned GetSimilarUnIDIdxs(const KL::UnID& id, KL::PagedArray<const LibPart*, 8>* parts) const;
    static void PushDifference(EntryQueue* before, EntryQueue* after, EntryQueue* out);
    void BuildOldLibParts();
    // The ancestor an old part takes its parameters from: the first present one above it, by its
    // exact id, or else by its main guid, below whose present revision the part then moves.
    const LibPart* AnchorOldLibPart(const LibPart* part, TreeEntry* node);
    void MoveBelow(const LibPart* part, TreeEntry* node, unsigned stepsUp, const LibPart* anchor);
    // The parts whose path ends at `end`, found without a scan when only one path ends there.
    KL::Array<const LibPart*> PartsEndingAt(const TreeEntry* end) const;
    // The part's chain from the tree with its own id appended.
    AncestryInfo PathOf(const LibPart* part) const;
    TreeEntry* FindNode(TreeEntry* from, const KL::UnID& id) const;
    void CollectRecords(TreeEntry* child, const TypeHierarchyExporter::ICompare* compare,
                        std::vector<NodeRecord>* records) const;

    LibrarySet* librarySet;
};

} // namespace LM
