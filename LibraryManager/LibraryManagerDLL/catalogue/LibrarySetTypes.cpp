// Type questions: what a part is a kind of, answered from the paths of the type tree.
#include "LibraryManagerErrors.hpp"
#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"
#include "hierarchy/AncestryHierarchy.hpp"
#include "hierarchy/AncestryInfo.hpp"

namespace LM {

namespace {

void SetTemplateMark(AncestryInfo* info, bool isTemplate) {
    if (isTemplate)
        info->MarkAsTemplate();
    else
        info->MarkAsNonTemplate();
}

} // namespace

bool LibrarySet::HasAncestor(const LibPart& part, const KL::UnID& ancestor) const {
    const Paths::TreeEntry* node = part.GetAncestryId();
    // The root carries the null id, which is nobody's ancestor.
    if (node == nullptr || ancestor.IsNull())
        return false;
    return hierarchy->IsNodeOnPath(node->GetParent(), ancestor);
}

bool LibrarySet::IsSymbolTypeOf(const LibPart* part, const KL::UnID& type) const {
    if (part == nullptr || type.IsNull())
        return false;
    return part->GetOwnUnID() == type || HasAncestor(*part, type);
}

bool LibrarySet::IsSymbolTypeOf(const LibPart* part, const LibPart* type) const {
    return type != nullptr && IsSymbolTypeOf(part, type->GetOwnUnID());
}

bool LibrarySet::IsSymbolTypeOf(const LibPartId& part, const LibPartId& type) const {
    return IsSymbolTypeOf(GetLibPart(part), GetLibPart(type));
}

int LibrarySet::GetSymbolAncestryInfo(const LibPart* part, AncestryInfo* info) const {
    if (part == nullptr || info == nullptr)
        return InvalidPartError;
    info->Clear();
    if (const Paths::TreeEntry* node = part->GetAncestryId())
        hierarchy->GetAncestryInfo(node, info);
    SetTemplateMark(info, part->IsTemplate());
    return 0;
}

int LibrarySet::RefreshAncestryInfo(const KL::UnID& own, AncestryInfo* info, const LibPart** found) const {
    if (found != nullptr)
        *found = nullptr;
    if (info == nullptr)
        return InvalidPartError;
    // The chain to try, nearest first: the part itself, then its ancestors from the parent up.
    KL::Array<KL::UnID> candidates;
    for (unsigned p = info->GetAncestorsCount(); p >= 1; --p)
        candidates.Push(info->GetAncestorRef(p));
    const bool withOwn = !own.IsNull();
    if (withOwn)
        candidates.Insert(0, own);
    for (std::size_t c = 0; c < candidates.GetSize(); ++c) {
        const LibPart* hit = SearchSymbolByUnID(candidates[c], nullptr);
        if (hit == nullptr) {
            KL::PagedArray<const LibPart*, 8> sameType;
            if (SearchSymbolsByMainID(candidates[c], &sameType, LibPartSet::ValidRecords) == 1)
                hit = sameType[0];
        }
        if (hit == nullptr)
            continue;
        // Ancestors behind the hit are the 1-based positions after it in the old chain.
        const unsigned hitPosition = static_cast<unsigned>(withOwn ? info->GetAncestorsCount() + 1 - c
                                                                   : info->GetAncestorsCount() - c);
        AncestryInfo refreshed;
        GetSymbolAncestryInfo(hit, &refreshed);
        refreshed.Append(hit->GetOwnUnID());
        for (unsigned p = hitPosition + 1; p <= info->GetAncestorsCount(); ++p)
            refreshed.Append(info->GetAncestorRef(p));
        SetTemplateMark(&refreshed, info->IsTemplate());
        *info = refreshed;
        if (found != nullptr)
            *found = hit;
        break;
    }
    info->CheckAndFix(own);
    return 0;
}

} // namespace LM
