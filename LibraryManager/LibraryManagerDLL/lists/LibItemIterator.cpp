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

struct LibItemIterator::State {
    const LibrarySet* librarySet;
    bool validOnly;
    int position = -1;
    const LibPart* current = nullptr;
    const ILibItemOrder* order;
    const ILibItemCriteria* criteria;

    // Both directions start at the start part's position; without one, or when the order does not
    // hold it, at `notFound`.
    static State* Make(const LibrarySet& set, const ILibItemOrder& order, const ILibItemCriteria& criteria,
                       bool validOnly, const LibPart* start, int notFound) {
        std::unique_ptr<State> state(new (std::nothrow)
                                         State{&set, validOnly, -1, nullptr, &order, &criteria});
        if (state == nullptr)
            throw KL::OutOfMemoryException();
        const int startIndex = start != nullptr ? set.GetIndexByLibPart(start) : -1;
        state->position = notFound;
        if (startIndex != -1)
            for (int position = 0; position < set.GetLibPartNumber(); ++position)
                if (order(set, position) == startIndex) {
                    state->position = position;
                    break;
                }
        return state.release();
    }

    // Settles on the record at `position` when the walk visits it.
    bool Visits() {
        const int index = (*order)(*librarySet, position);
        current = librarySet->GetLibPartByIndex(index);
        if (current == nullptr || current->GetState() == LibPartStateDeleted ||
            !(*criteria)(*librarySet, index))
            return false;
        return !validOnly || current->IsValid();
    }

    void StepForward() {
        current = nullptr;
        while (position < librarySet->GetLibPartNumber()) {
            ++position;
            if (Visits())
                return;
        }
        current = nullptr;
    }

    void StepBackward() {
        current = nullptr;
        while (position > -1) {
            --position;
            if (Visits())
                return;
        }
        current = nullptr;
    }
};

LibItemIterator::LibItemIterator(const LibrarySet& librarySet, bool validOnly)
    : state(State::Make(librarySet, normalOrder, noFilter, validOnly, nullptr, -1)) {
    state->StepForward();
}

LibItemIterator::LibItemIterator(const LibrarySet& librarySet, ValidFlag valid, const LibPart* start)
    : LibItemIterator(librarySet, normalOrder, noFilter, valid, start) {}

LibItemIterator::LibItemIterator(const LibrarySet& librarySet, const ILibItemOrder& order, ValidFlag valid,
                                 const LibPart* start)
    : LibItemIterator(librarySet, order, noFilter, valid, start) {}

LibItemIterator::LibItemIterator(const LibrarySet& librarySet, const ILibItemCriteria& criteria,
                                 ValidFlag valid, const LibPart* start)
    : LibItemIterator(librarySet, normalOrder, criteria, valid, start) {}

LibItemIterator::LibItemIterator(const LibrarySet& librarySet, const ILibItemOrder& order,
                                 const ILibItemCriteria& criteria, ValidFlag valid, const LibPart* start)
    : state(State::Make(librarySet, order, criteria, valid == ValidItemsOnly, start, -1)) {
    state->StepForward();
}

LibItemIterator::~LibItemIterator() {
    delete state;
}

const LibPart* LibItemIterator::operator->() const {
    return state != nullptr ? state->current : nullptr;
}

LibItemIterator& LibItemIterator::operator++() {
    if (state != nullptr)
        state->StepForward();
    return *this;
}

LibItemReverseIterator::LibItemReverseIterator(const LibrarySet& librarySet, ValidFlag valid,
                                               const LibPart* start)
    : LibItemReverseIterator(librarySet, normalOrder, noFilter, valid, start) {}

LibItemReverseIterator::LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemOrder& order,
                                               ValidFlag valid, const LibPart* start)
    : LibItemReverseIterator(librarySet, order, noFilter, valid, start) {}

LibItemReverseIterator::LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemCriteria& criteria,
                                               ValidFlag valid, const LibPart* start)
    : LibItemReverseIterator(librarySet, normalOrder, criteria, valid, start) {}

LibItemReverseIterator::LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemOrder& order,
                                               const ILibItemCriteria& criteria, ValidFlag valid,
                                               const LibPart* start)
    : state(LibItemIterator::State::Make(librarySet, order, criteria, valid == ValidItemsOnly, start,
                                         librarySet.GetLibPartNumber())) {
    state->StepBackward();
}

LibItemReverseIterator::~LibItemReverseIterator() {
    delete state;
}

const LibPart* LibItemReverseIterator::operator->() const {
    return state != nullptr ? state->current : nullptr;
}

LibItemReverseIterator& LibItemReverseIterator::operator--() {
    if (state != nullptr)
        state->StepBackward();
    return *this;
}

} // namespace LM
