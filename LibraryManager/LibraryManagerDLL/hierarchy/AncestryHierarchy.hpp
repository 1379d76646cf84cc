#pragma once

#include "Paths.hpp"

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/KLExport.hpp"

namespace LM {

class AncestryInfo;
class LibrarySet;

// The type tree of all parts of one catalogue. Every symbol has one path: its ancestors, then its
// own id; the node at the end is the symbol's ancestry id.
class LM_EXPORT AncestryHierarchy : public Paths {
public:
    static const KL::ClassInfo classInfo;

    explicit AncestryHierarchy(LibrarySet* librarySet);
    ~AncestryHierarchy() override;

    const KL::ClassInfo* GetClassInfo() const override;

    // Brings the tree in line with the catalogue after it changed. Moving subtrees under present
    // revisions and re-anchoring old parts come with the type tree's own work; until then the
    // paths stay as the parts brought them.
    void Build(bool conformAll);
    // Every node of the path to `node` but the last, from the top.
    int GetAncestryInfo(const TreeEntry* node, AncestryInfo* info) const;

private:
    LibrarySet* librarySet;
};

} // namespace LM
