#include "lists/LibItemIterator.hpp"

#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"

#include "KLRoot/Exceptions.hpp"

#include <memory>
#include <new>

namespace LM {

const std::vector<std::uint32_t>* ILibItemOrder::GetWholeOrder(const LibrarySet&) const {
    return nullptr;
}

ILibItemOrder::~ILibItemOrder() = default;

ILibItemCriteria::~ILibItemCriteria() = default;

int LibItemOrderByName::operator()(const LibrarySet& librarySet, int position) const {
    return librarySet.GetSortedSymbolIndexByName(position);
}

const std::vector<std::uint32_t>* LibItemOrderByName::GetWholeOrder(const LibrarySet& librarySet) const {
    const LibPartSet* parts = librarySet.GetLibPartSet();
    return parts != nullptr ? &parts->GetIndexByName() : nullptr;
}

struct LibItemWalk::State {
    State(const LibrarySet& set, const ILibItemOrder* givenOrder, const ILibItemCriteria* givenCriteria,
          bool onlyValid, Direction walkDirection)
        : librarySet(&set), parts(set.GetLibPartSet()), order(givenOrder), criteria(givenCriteria),
          validOnly(onlyValid), direction(walkDirection) {
        count = parts != nullptr ? static_cast<int>(parts->GetCount()) : 0;
        // The catalogue holds still during a walk: the orders it keeps itself are read in place,
        // a step then costs what a walk over an array costs.
        if (order != nullptr)
            sequence = order->GetWholeOrder(set);
        position = direction == Forward ? -1 : count;
    }

    int RecordAt(int at) const {
        if (order == nullptr)
            return at;
        if (sequence != nullptr)
            return at >= 0 && at < static_cast<int>(sequence->size())
                       ? static_cast<int>((*sequence)[static_cast<std::size_t>(at)])
                       : -1;
        return (*order)(*librarySet, at);
    }

    // Records in an order of names lie anywhere in memory: asking for one some steps ahead lets
    // the memory answer several at once, as it does for a loop over an array.
    void FetchAhead() const {
        constexpr int Distance = 32;
        const int ahead = RecordAt(position + (direction == Forward ? Distance : -Distance));
        if (ahead >= 0 && ahead < count)
            __builtin_prefetch(&parts->GetLibPart(static_cast<std::size_t>(ahead)));
    }

    // Settles on the record at `position` when the walk visits it.
    bool Visits() {
        if (sequence != nullptr)
            FetchAhead();
        const int index = RecordAt(position);
        current = index >= 0 && index < count ? &parts->GetLibPart(static_cast<std::size_t>(index)) : nullptr;
        if (current == nullptr || current->GetState() == LibPartStateDeleted ||
            (criteria != nullptr && !(*criteria)(*librarySet, index)))
            return false;
        return !validOnly || current->IsValid();
    }

    void Step() {
        const int end = direction == Forward ? count : -1;
        const int step = direction == Forward ? 1 : -1;
        current = nullptr;
        while (step > 0 ? position < end : position > end) {
            position += step;
            if (Visits())
                return;
        }
        current = nullptr;
    }

    const LibrarySet* librarySet;
    const LibPartSet* parts;
    const ILibItemOrder* order;       // null: the catalogue's own order
    const ILibItemCriteria* criteria; // null: no filter
    bool validOnly;
    Direction direction;
    int count = 0;
    const SortedRecords* sequence = nullptr;
    // A position in the order, not a record index; -1 and the record count lie beyond its ends.
    int position = -1;
    const LibPart* current = nullptr;
};

// Both directions start at the start part's position; without one, or when the order does not hold
// it, just before the first position in the direction of the walk.
LibItemWalk::LibItemWalk(const LibrarySet& librarySet, const ILibItemOrder* order,
                         const ILibItemCriteria* criteria, bool validOnly, const LibPart* start,
                         Direction direction)
    : state(new (std::nothrow) State(librarySet, order, criteria, validOnly, direction)) {
    if (state == nullptr)
        throw KL::OutOfMemoryException();
    // Held until the first step is done: a throwing order or filter must not leak the state.
    std::unique_ptr<State> owned(state);
    const int startIndex = start != nullptr ? librarySet.GetIndexByLibPart(start) : -1;
    if (startIndex != -1)
        for (int position = 0; position < state->count; ++position)
            if (state->RecordAt(position) == startIndex) {
                state->position = position;
                break;
            }
    state->Step();
    current = state->current;
    static_cast<void>(owned.release());
}

LibItemWalk::~LibItemWalk() {
    delete state;
}

void LibItemWalk::Step() {
    if (state != nullptr) {
        state->Step();
        current = state->current;
    }
}

} // namespace LM
