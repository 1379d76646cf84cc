#include "PathNodeStore.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace LM {

namespace {

constexpr std::size_t FirstChunkSize = 64;
constexpr std::size_t LargestChunkSize = 16384;
constexpr unsigned FirstSlotBits = 6;

} // namespace

Paths::TreeEntry* Paths::NodeStore::Allocate() {
    if (TreeEntry* reused = freeNodes; reused != nullptr) {
        freeNodes = reused->nextSibling;
        return reused;
    }
    if (usedInLastChunk == lastChunkSize) {
        const std::size_t size =
            lastChunkSize == 0 ? FirstChunkSize : std::min(lastChunkSize * 2, LargestChunkSize);
        chunks.push_back(std::unique_ptr<TreeEntry[]>(new TreeEntry[size]));
        lastChunkSize = size;
        usedInLastChunk = 0;
    }
    return &chunks.back()[usedInLastChunk++];
}

Paths::TreeEntry* Paths::NodeStore::Fill(TreeEntry* node, TreeEntry* parent, const KL::UnID& id,
                                         std::uint32_t count) {
    node->parent = parent;
    node->firstChild = nullptr;
    node->nextSibling = nullptr;
    node->previousSibling = nullptr;
    node->lastAdded = nullptr;
    node->id = id;
    node->count = count;
    return node;
}

Paths::TreeEntry* Paths::NodeStore::MakeRoot(const KL::UnID& id) {
    return Fill(Allocate(), nullptr, id, 0);
}

// Fibonacci hashing of the id's hash and the parent's address: the top bits pick the slot.
std::size_t Paths::NodeStore::HomeSlot(const TreeEntry* parent, const KL::UnID& id) const {
    const std::uint64_t key = id.GetFullHashValue() + reinterpret_cast<std::uintptr_t>(parent);
    return static_cast<std::size_t>((key * 0x9E3779B97F4A7C15ull) >> (64 - slotBits));
}

Paths::TreeEntry* Paths::NodeStore::FindChild(const TreeEntry* parent, const KL::UnID& id) const {
    if (indexed == 0)
        return nullptr;
    const std::size_t mask = slots.size() - 1;
    for (std::size_t slot = HomeSlot(parent, id);; slot = (slot + 1) & mask) {
        TreeEntry* node = slots[slot];
        if (node == nullptr)
            return nullptr;
        if (node->parent == parent && node->id == id)
            return node;
    }
}

Paths::TreeEntry* Paths::NodeStore::MakeChild(TreeEntry* parent, const KL::UnID& id) {
    if ((indexed + 1) * 2 > slots.size())
        ResizeIndex(slotBits == 0 ? FirstSlotBits : slotBits + 1);
    TreeEntry* child = Fill(Allocate(), parent, id, 1);
    child->nextSibling = parent->firstChild;
    if (parent->firstChild != nullptr)
        parent->firstChild->previousSibling = child;
    parent->firstChild = child;
    Index(child);
    return child;
}

void Paths::NodeStore::Index(TreeEntry* node) {
    const std::size_t mask = slots.size() - 1;
    std::size_t slot = HomeSlot(node->parent, node->id);
    while (slots[slot] != nullptr)
        slot = (slot + 1) & mask;
    slots[slot] = node;
    ++indexed;
}

void Paths::NodeStore::Reserve(std::size_t more) {
    unsigned bits = std::max(slotBits, FirstSlotBits);
    while ((indexed + more) * 2 > std::size_t{1} << bits)
        ++bits;
    if (bits != slotBits)
        ResizeIndex(bits);
}

void Paths::NodeStore::ResizeIndex(unsigned bits) {
    std::vector<TreeEntry*> old(std::size_t{1} << bits, nullptr);
    old.swap(slots);
    slotBits = bits;
    indexed = 0;
    for (TreeEntry* node : old)
        if (node != nullptr)
            Index(node);
}

std::size_t Paths::NodeStore::SlotOf(const TreeEntry* node) const {
    const std::size_t mask = slots.size() - 1;
    std::size_t slot = HomeSlot(node->parent, node->id);
    while (slots[slot] != node)
        slot = (slot + 1) & mask;
    return slot;
}

// Backward-shift deletion: later members of the probe run move up into the hole unless their
// home lies cyclically after it, so no search ever stops early at a removed node.
void Paths::NodeStore::Unindex(TreeEntry* node) {
    const std::size_t mask = slots.size() - 1;
    std::size_t hole = SlotOf(node);
    for (std::size_t next = (hole + 1) & mask; slots[next] != nullptr; next = (next + 1) & mask) {
        const std::size_t home = HomeSlot(slots[next]->parent, slots[next]->id);
        const bool homeAfterHole = hole <= next ? hole < home && home <= next : hole < home || home <= next;
        if (!homeAfterHole) {
            slots[hole] = slots[next];
            hole = next;
        }
    }
    slots[hole] = nullptr;
    --indexed;
}

void Paths::NodeStore::Free(TreeEntry* node) {
    if (TreeEntry* parent = node->parent; parent != nullptr) {
        Unindex(node);
        if (node->previousSibling != nullptr)
            node->previousSibling->nextSibling = node->nextSibling;
        else
            parent->firstChild = node->nextSibling;
        if (node->nextSibling != nullptr)
            node->nextSibling->previousSibling = node->previousSibling;
        if (parent->lastAdded == node)
            parent->lastAdded = nullptr;
    }
    Fill(node, nullptr, KL::UnID(), 0)->nextSibling = std::exchange(freeNodes, node);
}

void Paths::NodeStore::Clear() {
    slots.clear();
    slots.shrink_to_fit();
    slotBits = 0;
    indexed = 0;
    chunks.clear();
    lastChunkSize = 0;
    usedInLastChunk = 0;
    freeNodes = nullptr;
}

} // namespace LM
