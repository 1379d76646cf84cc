#pragma once

#include "Paths.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace LM {

// The nodes of one path tree and the index that finds a child by its parent and id. A type of a
// large library has thousands of parts below it; one open-addressed table for the whole tree
// costs a probe per search and no allocation per child. Nodes live in chunks that are freed
// whole, so a tree of a million nodes goes in a few frees, and a removed node's room is reused.
class Paths::NodeStore {
public:
    NodeStore() = default;
    NodeStore(const NodeStore&) = delete;
    NodeStore& operator=(const NodeStore&) = delete;

    TreeEntry* MakeRoot(const KL::UnID& id);
    TreeEntry* FindChild(const TreeEntry* parent, const KL::UnID& id) const;
    // A new child with count 1, first among its siblings.
    TreeEntry* MakeChild(TreeEntry* parent, const KL::UnID& id);
    // Takes a childless node out of its parent and the index; its room is reused.
    void Free(TreeEntry* node);
    void Clear();
    // Room in the index for `more` nodes, so that a known number of additions never regrows it.
    void Reserve(std::size_t more);

private:
    TreeEntry* Allocate();
    // A node's room reused or new: no links, this parent, id and count.
    static TreeEntry* Fill(TreeEntry* node, TreeEntry* parent, const KL::UnID& id, std::uint32_t count);
    std::size_t HomeSlot(const TreeEntry* parent, const KL::UnID& id) const;
    std::size_t SlotOf(const TreeEntry* node) const;
    void Index(TreeEntry* node);
    void Unindex(TreeEntry* node);
    void ResizeIndex(unsigned bits);

    // Linear probing; a null slot is empty. Its size is a power of two, at most half full.
    std::vector<TreeEntry*> slots;
    unsigned slotBits = 0;
    std::size_t indexed = 0;
    std::vector<std::unique_ptr<TreeEntry[]>> chunks;
    std::size_t lastChunkSize = 0;
    std::size_t usedInLastChunk = 0;
    // Removed nodes, linked through their sibling pointer.
    TreeEntry* freeNodes = nullptr;
};

} // namespace LM
