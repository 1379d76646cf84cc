#include "hierarchy/AncestryHierarchy.hpp"

#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"
#include "hierarchy/AncestryInfo.hpp"
#include "lists/LibItemIterator.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include <algorithm>
#include <vector>

namespace LM {

namespace {

bool IsPartFile(const LibPart& part) {
    return part.IsSymbol() && part.GetGeneralFileType() == GetSymbolFileGroup();
}

} // namespace

// Marks on records by catalogue index: a build visits every part, and an entry in a hash table
// would cost an allocation each.
class AncestryHierarchy::PartMarks {
public:
    explicit PartMarks(const LibrarySet& set)
        : set(set), marks(static_cast<std::size_t>(std::max(set.GetLibPartNumber(), 0))) {}
    void Mark(const LibPart* part) {
        if (const std::size_t index = IndexOf(part); index < marks.size())
            marks[index] = true;
    }
    bool IsMarked(const LibPart* part) const {
        const std::size_t index = IndexOf(part);
        return index < marks.size() && marks[index];
    }

private:
    // Past the end for a record outside the catalogue (-1 wraps).
    std::size_t IndexOf(const LibPart* part) const {
        return static_cast<std::size_t>(set.GetIndexByLibPart(part));
    }

    const LibrarySet& set;
    std::vector<bool> marks;
};

const KL::ClassInfo AncestryHierarchy::classInfo("LM::AncestryHierarchy",
                                                 KL::Guid("0FA63CCD-E0CF-4F75-BE44-C3905969DFF5"), 2, 1);

AncestryHierarchy::AncestryHierarchy(LibrarySet* librarySet) : librarySet(librarySet) {}

AncestryHierarchy::~AncestryHierarchy() = default;

const KL::ClassInfo* AncestryHierarchy::GetClassInfo() const {
    return &classInfo;
}

int AncestryHierarchy::GetAncestryInfo(const TreeEntry* node, AncestryInfo* info) const {
    info->Clear();
    const unsigned length = GetPathLength(node);
    if (length == 0)
        return 0;
    std::vector<KL::UnID> ids(length);
    GetPath(node, ids.data());
    for (unsigned i = 0; i + 1 < length; ++i)
        info->Append(ids[i]);
    return 0;
}

AncestryInfo AncestryHierarchy::PathOf(const LibPart* part) const {
    AncestryInfo chain;
    if (const TreeEntry* node = part->GetAncestryId())
        GetAncestryInfo(node, &chain);
    chain.Append(part->GetOwnUnID());
    return chain;
}

// Breadth first from the top, so that a type is settled before the types below it.
void AncestryHierarchy::Build(bool conformAll) {
    if (GetRoot() == nullptr)
        return;
    PartMarks visited(*librarySet);
    PartMarks moved(*librarySet);
    EntryQueue work;
    GetChildren(GetRoot(), &work);
    while (!work.IsEmpty()) {
        TreeEntry* entry = work.Pop();
        const KL::UnID& id = entry->GetId();
        if (id.IsNull())
            continue; // old parts, re-anchored at the end
        if (const LibPart* part = librarySet->SearchSymbolByUnID(id, nullptr)) {
            visited.Mark(part);
            if (conformAll || moved.IsMarked(part)) {
                ConformSymbolToNewHierarchyPosition(entry, part);
                librarySet->DeleteAncestryUpToDate(part);
            }
            GetChildren(entry, &work);
            continue;
        }
        KL::PagedArray<const LibPart*, 8> revisions;
        if (GetSimilarUnIDIdxs(id, &revisions) == 0) {
            // No revision of this type at all: the subtree stays where it is.
            GetChildren(entry, &work);
            continue;
        }
        const LibPart* present = revisions[0];
        EntryQueue before;
        GetChildren(present->GetAncestryId(), &before);
        MoveSubtree(entry, present, &moved);
        if (visited.IsMarked(present)) {
            // The present revision was walked already: walk what just arrived under it.
            EntryQueue after;
            GetChildren(present->GetAncestryId(), &after);
            PushDifference(&before, &after, &work);
        }
    }
    BuildOldLibParts();
}

unsigned AncestryHierarchy::GetSimilarUnIDIdxs(const KL::UnID& id,
                                               KL::PagedArray<const LibPart*, 8>* parts) const {
    parts->Clear();
    const unsigned found = librarySet->SearchSymbolsByMainID(id, parts, LibPartSet::ValidRecords);
    if (found == static_cast<unsigned>(-1) || found == 0)
        return 0;
    // The index holds one revision's records together, so equal neighbours are one revision.
    unsigned distinct = found;
    for (std::size_t i = 1; i < parts->GetSize(); ++i)
        if ((*parts)[i]->GetOwnUnID() == (*parts)[i - 1]->GetOwnUnID())
            --distinct;
    return distinct;
}

KL::Array<const LibPart*> AncestryHierarchy::PartsEndingAt(const TreeEntry* end) const {
    KL::Array<const LibPart*> parts;
    if (GetPathReferenceCount(end) == 1) {
        const KL::UnID& id = end->GetId();
        const LibPart* part = librarySet->SearchSymbolByUnID(id, nullptr);
        if (part == nullptr)
            part = librarySet->SearchDummySymbol(id, nullptr, nullptr);
        if (part != nullptr && IsPartFile(*part) && part->GetAncestryId() == end)
            parts.Push(part);
        return parts;
    }
    // Old parts share end nodes; only a scan finds them all.
    for (int i = 0; i < librarySet->GetLibPartNumber(); ++i) {
        const LibPart* part = librarySet->GetLibPartByIndex(i);
        if (IsPartFile(*part) && part->GetAncestryId() == end)
            parts.Push(part);
    }
    return parts;
}

void AncestryHierarchy::MoveSubtree(TreeEntry* entry, const LibPart* part, PartMarks* moved) {
    const AncestryInfo chain = PathOf(part);
    const unsigned depth = GetPathLength(entry) - 1;
    EntryQueue ends;
    GetPathEnds(entry, &ends);
    for (TreeEntry* end : ends) {
        // Collected before any path changes, since a replaced end node may be freed and reused.
        for (const LibPart* mover : PartsEndingAt(end)) {
            TreeEntry* newEnd =
                ReplaceAncestryPath(chain, depth, const_cast<TreeEntry*>(mover->GetAncestryId()));
            moved->Mark(mover);
            librarySet->SetAncestryId(mover, newEnd);
        }
    }
}

Paths::TreeEntry* AncestryHierarchy::ReplaceAncestryPath(AncestryInfo chain, unsigned depth,
                                                         TreeEntry* entry) {
    const unsigned length = GetPathLength(entry);
    std::vector<KL::UnID> old(length);
    GetPath(entry, old.data());
    for (unsigned i = depth + 1; i < length; ++i)
        chain.Append(old[i]);
    // A chain that would loop loses its tail here.
    chain.CheckAndFix();
    const KL::Array<KL::UnID>& ids = chain.GetAncestors();
    return ReplacePath(entry, ids.GetContent(), static_cast<unsigned>(ids.GetSize()));
}

const LibPart* AncestryHierarchy::GetNearestPresentAncestor(const TreeEntry* node) const {
    // The root carries the null id, which no search finds: the walk ends there.
    for (const TreeEntry* above = node->GetParent(); above != nullptr; above = above->GetParent())
        if (const LibPart* present = librarySet->SearchSymbolByUnID(above->GetId(), nullptr))
            return present;
    return nullptr;
}

void AncestryHierarchy::ConformSymbolToNewHierarchyPosition(const TreeEntry* entry, const LibPart* part) {
    librarySet->UpdateSymbolParameters(part, GetNearestPresentAncestor(entry));
}

void AncestryHierarchy::PushDifference(EntryQueue* before, EntryQueue* after, EntryQueue* out) {
    while (!before->IsEmpty()) {
        TreeEntry* known = before->Pop();
        while (!after->IsEmpty()) {
            TreeEntry* next = after->Pop();
            if (next == known)
                break;
            out->Push(next);
        }
    }
    while (!after->IsEmpty())
        out->Push(after->Pop());
}

// Old parts carry no id of their own, so Build cannot find them by it: each is anchored below the
// nearest ancestor that is present in some revision.
void AncestryHierarchy::BuildOldLibParts() {
    for (LibItemIterator item(*librarySet, false); item != nullptr; ++item) {
        const LibPart* part = item.Get();
        TreeEntry* node = part->GetAncestryId();
        if (!IsPartFile(*part) || node == nullptr || !part->GetOwnUnID().IsNull())
            continue;
        if (const LibPart* anchor = AnchorOldLibPart(part, node))
            librarySet->UpdateSymbolParameters(part, anchor);
    }
}

const LibPart* AncestryHierarchy::AnchorOldLibPart(const LibPart* part, TreeEntry* node) {
    for (unsigned up = 1;; ++up) {
        KL::UnID id;
        GetPathNodeFromBack(node, up, &id);
        // Above the top: nothing to anchor to, and nothing to take parameters from.
        if (id.IsNull())
            return nullptr;
        if (const LibPart* exact = librarySet->SearchSymbolByUnID(id, nullptr))
            return exact;
        KL::PagedArray<int, 8> indices;
        const unsigned found = librarySet->SearchSymbolsByMainIDIdx(id, &indices);
        if (found != 0 && found != static_cast<unsigned>(-1)) {
            const LibPart* anchor = librarySet->GetLibPartByIndex(indices[0]);
            MoveBelow(part, node, up, anchor);
            return anchor;
        }
    }
}

// The new path: the anchor's, then the ids walked over in the order of the walk upward, then the
// part's empty id.
void AncestryHierarchy::MoveBelow(const LibPart* part, TreeEntry* node, unsigned stepsUp,
                                  const LibPart* anchor) {
    AncestryInfo path = PathOf(anchor);
    for (unsigned k = 2; k <= stepsUp; ++k) {
        KL::UnID walked;
        GetPathNodeFromBack(node, k, &walked);
        path.Append(walked);
    }
    path.Append(KL::UnID());
    const KL::Array<KL::UnID>& ids = path.GetAncestors();
    librarySet->SetAncestryId(part,
                              ReplacePath(node, ids.GetContent(), static_cast<unsigned>(ids.GetSize())));
}

int AncestryHierarchy::GetPreorderAncestryTreeWalk(KL::Array<const LibPart*>* parts) const {
    EntryQueue ends;
    if (GetRoot() != nullptr)
        GetPathEnds(GetRoot(), &ends);
    for (const TreeEntry* end : ends)
        if (!end->GetId().IsNull())
            parts->Push(librarySet->SearchSymbolByUnID(end->GetId(), nullptr));
    for (LibItemIterator item(*librarySet, false); item != nullptr; ++item)
        if (item.Get()->GetAncestryId() != nullptr && item.Get()->GetOwnUnID().IsNull())
            parts->Push(item.Get());
    return static_cast<int>(parts->GetSize());
}

} // namespace LM
