#include "lists/LibItemIterator.hpp"

#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"

#include "KLRoot/Exceptions.hpp"

#include <array>
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
          Direction walkDirection)
        : librarySet(&set), parts(set.GetLibPartSet()), order(givenOrder), criteria(givenCriteria),
          direction(walkDirection) {
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

    // The next records the walk passes, at most a batch; none only at the end.
    void Fill() {
        filled = 0;
        if (sequence != nullptr && criteria == nullptr)
            FillInKeptOrder();
        else
            FillOneByOne();
    }

    // An order the catalogue keeps, read straight from its array: the common walk. The batch
    // holds where the records are and asks for their states, which the steps then read.
    void FillInKeptOrder() {
        const int size = static_cast<int>(sequence->size());
        const int step = direction == Forward ? 1 : -1;
        if (position > size)
            position = size;
        while (filled == 0) {
            const int left = direction == Forward ? size - 1 - position : position;
            if (left <= 0) {
                position = direction == Forward ? size : -1;
                break;
            }
            const int take = left < BatchSize ? left : BatchSize;
            filled = LocateBatch(*parts, sequence->data() + position + step, step, take, batch.data());
            position += step * take;
        }
    }

    // Restrict: the batch's stores cannot change the part table, which is then read once.
    static int LocateBatch(const LibPartSet& set, const std::uint32_t* record, int step, int take,
                           const LibPart** __restrict slot) {
        const std::uint32_t known = static_cast<std::uint32_t>(set.GetCount());
        int found = 0;
        for (int taken = 0; taken < take; ++taken, record += step) {
            if (*record >= known)
                continue;
            const LibPart* part = &set.GetLibPart(*record);
            part->PrefetchState();
            slot[found++] = part;
        }
        return found;
    }

    // A filter is the caller's code: it is asked about a record only when the walk reaches it, and
    // never about a deleted one. Whether the walk wants valid records only is the step's to check.
    void FillOneByOne() {
        const int end = direction == Forward ? count : -1;
        const int step = direction == Forward ? 1 : -1;
        const int limit = criteria != nullptr ? 1 : BatchSize;
        while (filled < limit && (step > 0 ? position < end : position > end)) {
            position += step;
            const int index = RecordAt(position);
            if (index < 0 || index >= count)
                continue;
            const LibPart& part = parts->GetLibPart(static_cast<std::size_t>(index));
            if (part.GetState() != LibPartStateDeleted &&
                (criteria == nullptr || (*criteria)(*librarySet, index)))
                batch[static_cast<std::size_t>(filled++)] = &part;
        }
    }

    static constexpr int BatchSize = 256;

    const LibrarySet* librarySet;
    const LibPartSet* parts;
    const ILibItemOrder* order;       // null: the catalogue's own order
    const ILibItemCriteria* criteria; // null: no filter
    Direction direction;
    int count = 0;
    const SortedRecords* sequence = nullptr;
    // A position in the order, not a record index; -1 and the record count lie beyond its ends.
    int position = -1;
    std::array<const LibPart*, BatchSize> batch{};
    int filled = 0;
};

// Both directions start at the start part's position; without one, or when the order does not hold
// it, just before the first position in the direction of the walk.
LibItemWalk::State* LibItemWalk::Start(const LibrarySet& librarySet, const ILibItemOrder* order,
                                       const ILibItemCriteria* criteria, const LibPart* start,
                                       Direction direction) {
    State* state = new (std::nothrow) State(librarySet, order, criteria, direction);
    if (state == nullptr)
        throw KL::OutOfMemoryException();
    // A throwing order must not leak the state.
    std::unique_ptr<State> owned(state);
    const int startIndex = start != nullptr ? librarySet.GetIndexByLibPart(start) : -1;
    if (startIndex != -1)
        for (int position = 0; position < state->count; ++position)
            if (state->RecordAt(position) == startIndex) {
                state->position = position;
                break;
            }
    return owned.release();
}

LibItemWalk::Batch LibItemWalk::NextBatch(State* state) {
    state->Fill();
    return {state->batch.data(), state->batch.data() + state->filled};
}

void LibItemWalk::StateDeleter::operator()(State* state) const noexcept {
    delete state;
}

} // namespace LM
