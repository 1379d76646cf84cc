#pragma once

#include "catalogue/LibPart.hpp"

#include "KLRoot/KLExport.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace LM {

class LibrarySet;

// Which record stands at a position of a walk.
class LM_EXPORT ILibItemOrder {
public:
    virtual int operator()(const LibrarySet& librarySet, int position) const = 0;
    // The record of every position at once, when the catalogue keeps this order itself: a walk
    // then reads it in place instead of asking position by position. Null otherwise.
    virtual const std::vector<std::uint32_t>* GetWholeOrder(const LibrarySet& librarySet) const;
    virtual ~ILibItemOrder();
};

// Whether a walk visits the record at a catalogue index.
class LM_EXPORT ILibItemCriteria {
public:
    virtual bool operator()(const LibrarySet& librarySet, int index) const = 0;
    virtual ~ILibItemCriteria();
};

// Document names without case, as the name index holds them.
class LM_EXPORT LibItemOrderByName : public ILibItemOrder {
public:
    int operator()(const LibrarySet& librarySet, int position) const override;
    const std::vector<std::uint32_t>* GetWholeOrder(const LibrarySet& librarySet) const override;
};

// Walks the records of a catalogue in an order, through a filter; deleted slots are never visited.
// A walk given a start part begins behind it. The catalogue must not change during a walk. The
// two iterators below differ in their direction only.
class LM_EXPORT LibItemWalk {
public:
    enum ValidFlag { AllItems = 0, ValidItemsOnly = 1 };

    LibItemWalk(const LibItemWalk&) = delete;
    LibItemWalk& operator=(const LibItemWalk&) = delete;

    const LibPart* operator->() const { return current; }
    const LibPart* Get() const { return current; }
    bool operator==(std::nullptr_t) const { return Get() == nullptr; }
    bool operator!=(std::nullptr_t) const { return Get() != nullptr; }

    struct State;

protected:
    enum Direction { Forward, Backward };

    // Null `order` and `criteria` take the catalogue's own order and no filter.
    LibItemWalk(const LibrarySet& librarySet, const ILibItemOrder* order, const ILibItemCriteria* criteria,
                bool validOnly, const LibPart* start, Direction direction)
        : state(Start(librarySet, order, criteria, start, direction)), validOnly(validOnly) {
        Step();
    }
    void Step() {
        for (;;) {
            while (ahead != aheadEnd) {
                const LibPart* part = *ahead++;
                if (Visits(*part)) {
                    current = part;
                    return;
                }
            }
            const Batch batch = NextBatch(state.get());
            if (batch.first == batch.end) {
                current = nullptr;
                return;
            }
            ahead = batch.first;
            aheadEnd = batch.end;
        }
    }

private:
    struct Batch {
        const LibPart* const* first;
        const LibPart* const* end;
    };
    struct StateDeleter {
        void operator()(State* state) const noexcept;
    };

    // Out of line and given the state, never the walk: the walk's address then stays with its
    // caller, whose compiler keeps the position in registers instead of storing it at every step.
    static State* Start(const LibrarySet& librarySet, const ILibItemOrder* order,
                        const ILibItemCriteria* criteria, const LibPart* start, Direction direction);
    // The next records the walk passes, at most a batch; none only at the end.
    static Batch NextBatch(State* state);

    bool Visits(const LibPart& part) const {
        return validOnly ? part.IsValid() : part.GetState() != LibPartStateDeleted;
    }

    std::unique_ptr<State, StateDeleter> state;
    // The records the walk passes next, found in a batch: a step then costs what a step over an
    // array costs, and no call. A batch may hold records the walk does not visit: their states
    // are read here, one by one, so that the reads of many records are under way at once, as in a
    // loop over an array of pointers.
    const LibPart* const* ahead = nullptr;
    const LibPart* const* aheadEnd = nullptr;
    const LibPart* current = nullptr;
    bool validOnly;
};

class LM_EXPORT LibItemIterator : public LibItemWalk {
public:
    LibItemIterator(const LibrarySet& librarySet, bool validOnly)
        : LibItemWalk(librarySet, nullptr, nullptr, validOnly, nullptr, Forward) {}
    LibItemIterator(const LibrarySet& librarySet, ValidFlag valid, const LibPart* start = nullptr)
        : LibItemWalk(librarySet, nullptr, nullptr, valid == ValidItemsOnly, start, Forward) {}
    LibItemIterator(const LibrarySet& librarySet, const ILibItemOrder& order, ValidFlag valid,
                    const LibPart* start = nullptr)
        : LibItemWalk(librarySet, &order, nullptr, valid == ValidItemsOnly, start, Forward) {}
    LibItemIterator(const LibrarySet& librarySet, const ILibItemCriteria& criteria, ValidFlag valid,
                    const LibPart* start = nullptr)
        : LibItemWalk(librarySet, nullptr, &criteria, valid == ValidItemsOnly, start, Forward) {}
    LibItemIterator(const LibrarySet& librarySet, const ILibItemOrder& order,
                    const ILibItemCriteria& criteria, ValidFlag valid, const LibPart* start = nullptr)
        : LibItemWalk(librarySet, &order, &criteria, valid == ValidItemsOnly, start, Forward) {}

    LibItemIterator& operator++() {
        Step();
        return *this;
    }
};

// Without a start part the walk backwards begins at the last position.
class LM_EXPORT LibItemReverseIterator : public LibItemWalk {
public:
    LibItemReverseIterator(const LibrarySet& librarySet, ValidFlag valid, const LibPart* start = nullptr)
        : LibItemWalk(librarySet, nullptr, nullptr, valid == ValidItemsOnly, start, Backward) {}
    LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemOrder& order, ValidFlag valid,
                           const LibPart* start = nullptr)
        : LibItemWalk(librarySet, &order, nullptr, valid == ValidItemsOnly, start, Backward) {}
    LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemCriteria& criteria, ValidFlag valid,
                           const LibPart* start = nullptr)
        : LibItemWalk(librarySet, nullptr, &criteria, valid == ValidItemsOnly, start, Backward) {}
    LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemOrder& order,
                           const ILibItemCriteria& criteria, ValidFlag valid, const LibPart* start = nullptr)
        : LibItemWalk(librarySet, &order, &criteria, valid == ValidItemsOnly, start, Backward) {}

    LibItemReverseIterator& operator--() {
        Step();
        return *this;
    }
};

} // namespace LM
