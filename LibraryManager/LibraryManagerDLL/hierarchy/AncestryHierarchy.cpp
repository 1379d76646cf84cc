#include "hierarchy/AncestryHierarchy.hpp"

namespace LM {

AncestryHierarchy::AncestryHierarchy() = default;
AncestryHierarchy::~AncestryHierarchy() = default;

} // namespace LM
