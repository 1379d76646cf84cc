#pragma once

namespace LM {

// The type tree's store of ancestor chains. A symbol keeps its node here as its ancestry id; the
// tree itself, with its shared prefixes and reference counts, is built by the part store.
class Paths {
public:
    class TreeEntry;
};

} // namespace LM
