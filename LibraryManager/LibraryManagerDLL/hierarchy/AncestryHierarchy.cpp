#include "hierarchy/AncestryHierarchy.hpp"

#include "hierarchy/AncestryInfo.hpp"

#include <vector>

namespace LM {

const KL::ClassInfo AncestryHierarchy::classInfo("LM::AncestryHierarchy",
                                                 KL::Guid("0FA63CCD-E0CF-4F75-BE44-C3905969DFF5"), 2, 1);

AncestryHierarchy::AncestryHierarchy(LibrarySet* librarySet) : librarySet(librarySet) {}

AncestryHierarchy::~AncestryHierarchy() = default;

const KL::ClassInfo* AncestryHierarchy::GetClassInfo() const { return &classInfo; }

void AncestryHierarchy::Build(bool) {}

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

} // namespace LM
