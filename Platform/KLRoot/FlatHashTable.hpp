#pragma once

#include "KLRoot/PagedArray.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace KL {

// A hash table without a heap block per entry, for tables of one entry per catalogued part:
// entries lie in pages in the order they came, and a flat array of slots, each a hash and an entry
// number, finds them by linear probing. Growing moves slots, never entries; removing an entry
// moves the last entry into its place, so a pointer to a value stays valid until the next Delete
// or Clear.
template <typename Key, typename Value, typename Hash = std::hash<Key>, typename Equal = std::equal_to<Key>>
class FlatHashTable {
public:
    struct Entry {
        Key key;
        Value value;
    };

    std::size_t GetSize() const { return entries.GetSize(); }
    bool IsEmpty() const { return entries.IsEmpty(); }

    const Value* GetPtr(const Key& key) const {
        const std::size_t slot = FindSlot(key, HashOf(key));
        return slot == NoSlot ? nullptr : &entries[slots[slot].entry - 1].value;
    }
    Value* GetPtr(const Key& key) { return const_cast<Value*>(std::as_const(*this).GetPtr(key)); }

    // The value of `key`, made with its default when the key is new.
    Value& operator[](const Key& key) {
        const std::uint32_t hash = HashOf(key);
        if (const std::size_t slot = FindSlot(key, hash); slot != NoSlot)
            return entries[slots[slot].entry - 1].value;
        return Append(key, Value(), hash);
    }
    // Adds or replaces.
    void Put(const Key& key, const Value& value) { (*this)[key] = value; }

    bool Delete(const Key& key) {
        const std::size_t slot = FindSlot(key, HashOf(key));
        if (slot == NoSlot)
            return false;
        const std::uint32_t entry = slots[slot].entry;
        const auto last = static_cast<std::uint32_t>(entries.GetSize());
        if (entry != last) {
            Entry& moved = entries[last - 1];
            slots[FindEntrySlot(last, HashOf(moved.key))].entry = entry;
            entries[entry - 1] = std::move(moved);
        }
        entries.DeleteLast();
        CloseGap(slot);
        return true;
    }

    // Keeps the slots, so that a table filled again does not grow again.
    void Clear() {
        entries.Clear();
        std::fill(slots.begin(), slots.end(), Slot{});
    }

    void Reserve(std::size_t count) {
        if (count > SlotsFor(slots.size()))
            Rehash(count);
    }

private:
    // `entry` counts from 1; 0 marks a free slot.
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t entry = 0;
    };
    static constexpr std::size_t NoSlot = std::numeric_limits<std::size_t>::max();

    static std::uint32_t HashOf(const Key& key) {
        // The high half of a multiplicative mix, so that weak hashes still spread over the slots.
        return static_cast<std::uint32_t>((static_cast<std::uint64_t>(Hash{}(key)) * 0x9E3779B97F4A7C15ull) >>
                                          32);
    }
    // How many entries `slotCount` slots take: three in four, so that a miss probes a few slots.
    static std::size_t SlotsFor(std::size_t slotCount) { return slotCount / 4 * 3; }
    std::size_t Mask() const { return slots.size() - 1; }

    std::size_t FindSlot(const Key& key, std::uint32_t hash) const {
        if (slots.empty())
            return NoSlot;
        for (std::size_t at = hash & Mask();; at = (at + 1) & Mask()) {
            const Slot& slot = slots[at];
            if (slot.entry == 0)
                return NoSlot;
            if (slot.hash == hash && Equal{}(entries[slot.entry - 1].key, key))
                return at;
        }
    }

    std::size_t FindEntrySlot(std::uint32_t entry, std::uint32_t hash) const {
        std::size_t at = hash & Mask();
        while (slots[at].entry != entry)
            at = (at + 1) & Mask();
        return at;
    }

    Value& Append(const Key& key, Value value, std::uint32_t hash) {
        if (entries.GetSize() + 1 > SlotsFor(slots.size()))
            Rehash(entries.GetSize() + 1);
        if (entries.GetSize() >= std::numeric_limits<std::uint32_t>::max())
            throw std::length_error("FlatHashTable: too many entries");
        Entry& entry = entries.PushNew(Entry{key, std::move(value)});
        Place(Slot{hash, static_cast<std::uint32_t>(entries.GetSize())});
        return entry.value;
    }

    void Place(Slot slot) {
        std::size_t at = slot.hash & Mask();
        while (slots[at].entry != 0)
            at = (at + 1) & Mask();
        slots[at] = slot;
    }

    // Room for `count` entries, and at least twice as many slots as before.
    void Rehash(std::size_t count) {
        std::size_t size = slots.empty() ? 16 : slots.size() * 2;
        while (SlotsFor(size) < count)
            size *= 2;
        std::vector<Slot> old(size);
        old.swap(slots);
        for (const Slot& slot : old)
            if (slot.entry != 0)
                Place(slot);
    }

    // Moves back into the freed slot each later slot of the run whose home does not lie between the
    // two, so that no probe meets a hole before its key.
    void CloseGap(std::size_t hole) {
        for (std::size_t next = (hole + 1) & Mask(); slots[next].entry != 0; next = (next + 1) & Mask()) {
            const std::size_t home = slots[next].hash & Mask();
            if (((next - home) & Mask()) < ((next - hole) & Mask()))
                continue;
            slots[hole] = slots[next];
            hole = next;
        }
        slots[hole] = Slot{};
    }

    PagedArray<Entry, 256> entries;
    std::vector<Slot> slots;
};

} // namespace KL
