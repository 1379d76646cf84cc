#pragma once

#include "KLRoot/KLExport.hpp"

#include <cstddef>

namespace LM {

class LibPart;
class LibrarySet;

// Which record stands at a position of a walk.
class LM_EXPORT ILibItemOrder {
public:
    virtual int operator()(const LibrarySet& librarySet, int position) const = 0;
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
};

// Walks the records of a catalogue in an order, through a filter; deleted slots are never visited.
// A walk given a start part begins behind it. The catalogue must not change during a walk.
class LM_EXPORT LibItemIterator {
public:
    enum ValidFlag { AllItems = 0, ValidItemsOnly = 1 };

    LibItemIterator(const LibrarySet& librarySet, bool validOnly);
    LibItemIterator(const LibrarySet& librarySet, ValidFlag valid, const LibPart* start = nullptr);
    LibItemIterator(const LibrarySet& librarySet, const ILibItemOrder& order, ValidFlag valid,
                    const LibPart* start = nullptr);
    LibItemIterator(const LibrarySet& librarySet, const ILibItemCriteria& criteria, ValidFlag valid,
                    const LibPart* start = nullptr);
    LibItemIterator(const LibrarySet& librarySet, const ILibItemOrder& order,
                    const ILibItemCriteria& criteria, ValidFlag valid, const LibPart* start = nullptr);
    ~LibItemIterator();
    LibItemIterator(const LibItemIterator&) = delete;
    LibItemIterator& operator=(const LibItemIterator&) = delete;

    const LibPart* operator->() const;
    const LibPart* Get() const { return operator->(); }
    LibItemIterator& operator++();
    bool operator==(std::nullptr_t) const { return Get() == nullptr; }
    bool operator!=(std::nullptr_t) const { return Get() != nullptr; }

    struct State;

private:
    State* state;
};

// The same walk backwards; without a start part it begins at the last position.
class LM_EXPORT LibItemReverseIterator {
public:
    enum ValidFlag { AllItems = 0, ValidItemsOnly = 1 };

    LibItemReverseIterator(const LibrarySet& librarySet, ValidFlag valid, const LibPart* start = nullptr);
    LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemOrder& order, ValidFlag valid,
                           const LibPart* start = nullptr);
    LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemCriteria& criteria, ValidFlag valid,
                           const LibPart* start = nullptr);
    LibItemReverseIterator(const LibrarySet& librarySet, const ILibItemOrder& order,
                           const ILibItemCriteria& criteria, ValidFlag valid, const LibPart* start = nullptr);
    ~LibItemReverseIterator();
    LibItemReverseIterator(const LibItemReverseIterator&) = delete;
    LibItemReverseIterator& operator=(const LibItemReverseIterator&) = delete;

    const LibPart* operator->() const;
    const LibPart* Get() const { return operator->(); }
    LibItemReverseIterator& operator--();
    bool operator==(std::nullptr_t) const { return Get() == nullptr; }
    bool operator!=(std::nullptr_t) const { return Get() != nullptr; }

private:
    LibItemIterator::State* state;
};

} // namespace LM
