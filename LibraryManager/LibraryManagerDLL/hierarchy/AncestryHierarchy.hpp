#pragma once

#include "KLRoot/KLExport.hpp"

namespace LM {

// The type tree of all parts, built from their ancestor chains after every enumeration. The
// catalogue owns one for its whole life and hands it to the compiled script cache; the tree and
// its questions are built on the path trees.
class LM_EXPORT AncestryHierarchy {
public:
    AncestryHierarchy();
    ~AncestryHierarchy();
    AncestryHierarchy(const AncestryHierarchy&) = delete;
    AncestryHierarchy& operator=(const AncestryHierarchy&) = delete;
};

} // namespace LM
