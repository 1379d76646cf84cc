#include "lists/LibItemIterator.hpp"

#include "catalogue/LibrarySet.hpp"

#include "KLRoot/Exceptions.hpp"

#include <memory>
#include <new>

namespace LM {

ILibItemOrder::~ILibItemOrder() = default;

ILibItemCriteria::~ILibItemCriteria() = default;

int LibItemOrderByName::operator()(const LibrarySet& librarySet, int position) const {
    return librarySet.GetSortedSymbolIndexByName(position);
}

namespace {

class LibItemNormalOrder : public ILibItemOrder {
public:
    int operator()(const LibrarySet&, int position) const override { return position; }
};

class LibItemNoFilter : public ILibItemCriteria {
public:
    bool operator()(const LibrarySet&, int) const override { return true; }
};

const LibItemNormalOrder normalOrder;
const LibItemNoFilter noFilter;

} // namespace

struct LibItemWalk::State {
    const LibrarySet* librarySet;
    const ILibItemOrder* order;
    const ILibItemCriteria* criteria;
    bool validOnly;
    Direction direction;
    // A position in the order, not a record index; -1 and the record count lie beyond its ends.
    int position = -1;
    const LibPart* current = nullptr;

    // Settles on the record at `position` when the walk visits it.
    bool Visits() {
        const int index = (*order)(*librarySet, position);
        current = librarySet->GetLibPartByIndex(index);
        if (current == nullptr || current->GetState() == LibPartStateDeleted ||
            !(*criteria)(*librarySet, index))
            return false;
        return !validOnly || current->IsValid();
    }

    void Step() {
        const int end = direction == Forward ? librarySet->GetLibPartNumber() : -1;
        const int step = direction == Forward ? 1 : -1;
        current = nullptr;
        while (step > 0 ? position < end : position > end) {
            position += step;
            if (Visits())
                return;
        }
        current = nullptr;
    }
};

// Both directions start at the start part's position; without one, or when the order does not hold
// it, just before the first position in the direction of the walk.
LibItemWalk::LibItemWalk(const LibrarySet& librarySet, const ILibItemOrder* order,
                         const ILibItemCriteria* criteria, bool validOnly, const LibPart* start,
                         Direction direction)
    : state(new (std::nothrow) State{&librarySet, order != nullptr ? order : &normalOrder,
                                     criteria != nullptr ? criteria : &noFilter, validOnly, direction}) {
    if (state == nullptr)
        throw KL::OutOfMemoryException();
    // Held until the first step is done: a throwing order or filter must not leak the state.
    std::unique_ptr<State> owned(state);
    state->position = direction == Forward ? -1 : librarySet.GetLibPartNumber();
    const int startIndex = start != nullptr ? librarySet.GetIndexByLibPart(start) : -1;
    if (startIndex != -1)
        for (int position = 0; position < librarySet.GetLibPartNumber(); ++position)
            if ((*state->order)(librarySet, position) == startIndex) {
                state->position = position;
                break;
            }
    state->Step();
    static_cast<void>(owned.release());
}

LibItemWalk::~LibItemWalk() {
    delete state;
}

const LibPart* LibItemWalk::operator->() const {
    return state != nullptr ? state->current : nullptr;
}

void LibItemWalk::Step() {
    if (state != nullptr)
        state->Step();
}

} // namespace LM
