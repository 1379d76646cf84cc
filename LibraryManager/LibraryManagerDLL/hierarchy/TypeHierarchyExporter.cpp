#include "hierarchy/TypeHierarchyExporter.hpp"

namespace LM {

namespace {

int Rank(const TypeHierarchyExporter::Node& node) {
    if (!node.isTemplate)
        return 3;
    return node.isPlaceable ? 2 : 1;
}

} // namespace

TypeHierarchyExporter::ICompare::~ICompare() = default;
TypeHierarchyExporter::~TypeHierarchyExporter() = default;

int TypeHierarchyExporter::DefCompare::CmpFunct(const Node& a, const Node& b) const {
    const int rankA = Rank(a);
    const int rankB = Rank(b);
    if (rankA != rankB)
        return rankA < rankB ? -1 : 1;
    const int order = a.libPartId.GetName().Compare(b.libPartId.GetName(), KL::CaseSensitive);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

} // namespace LM
