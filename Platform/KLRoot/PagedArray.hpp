#pragma once

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/KLExport.hpp"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace KL {

// Stream identity of a paged array written as a table.
struct LM_EXPORT PagedArrayPrivate {
    static const ClassInfo classInfo;
};

// An array stored in pages of PageSize elements. Elements never move: a pointer to an element
// stays valid while the array grows, until that element is removed or the array cleared.
//
// Retire empties the array but leaves its elements in place, for PushReused to make over in turn,
// so that an array filled again with much the same elements reuses what they hold. Retired
// elements are no part of the array; DropRetired destroys those left.
template <typename T, std::size_t PageSize = 8>
class PagedArray {
    static_assert(PageSize > 0);

public:
    PagedArray() = default;
    PagedArray(const PagedArray& other) {
        try {
            for (const T& item : other)
                Push(item);
        } catch (...) {
            Clear();
            throw;
        }
    }
    PagedArray(PagedArray&& other) noexcept
        : pages(std::move(other.pages)), size(std::exchange(other.size, 0)),
          retiredEnd(std::exchange(other.retiredEnd, 0)) {}
    PagedArray& operator=(const PagedArray& other) {
        if (this != &other) {
            PagedArray copy(other);
            Swap(copy);
        }
        return *this;
    }
    PagedArray& operator=(PagedArray&& other) noexcept {
        if (this != &other) {
            Clear();
            pages = std::move(other.pages);
            size = std::exchange(other.size, 0);
            retiredEnd = std::exchange(other.retiredEnd, 0);
        }
        return *this;
    }
    ~PagedArray() { Clear(); }

    std::size_t GetSize() const { return size; }
    bool IsEmpty() const { return size == 0; }
    T& operator[](std::size_t index) { return *Slot(index); }
    const T& operator[](std::size_t index) const { return *Slot(index); }
    T& GetLast() { return (*this)[size - 1]; }
    const T& GetLast() const { return (*this)[size - 1]; }

    template <typename... Args>
    T& PushNew(Args&&... args) {
        DropRetired();
        if (size == pages.size() * PageSize)
            pages.push_back(std::make_unique<Page>());
        T* slot = ::new (static_cast<void*>(Slot(size))) T(std::forward<Args>(args)...);
        ++size;
        return *slot;
    }
    void Push(const T& item) { PushNew(item); }
    void Push(T&& item) { PushNew(std::move(item)); }
    // Appends the next retired element, made over by `reuse(element)`, or else a new one made by
    // `T()`. `reuse` must leave a valid element whether it returns or throws.
    template <typename Reuse>
    T& PushReused(Reuse reuse) {
        if (size >= retiredEnd)
            return PushNew();
        T& element = *Slot(size);
        reuse(element);
        if (++size == retiredEnd)
            retiredEnd = 0;
        return element;
    }
    void DeleteLast() {
        --size;
        // Next to retired elements it is retired too, so that they stay one run.
        if (retiredEnd == 0)
            Slot(size)->~T();
    }
    void Retire() {
        retiredEnd = std::max(size, retiredEnd);
        size = 0;
    }
    void DropRetired() {
        for (; retiredEnd > size; --retiredEnd)
            Slot(retiredEnd - 1)->~T();
        retiredEnd = 0;
    }
    void Clear() {
        DropRetired();
        while (size > 0)
            DeleteLast();
        pages.clear();
    }
    void Swap(PagedArray& other) noexcept {
        pages.swap(other.pages);
        std::swap(size, other.size);
        std::swap(retiredEnd, other.retiredEnd);
    }

    template <typename Owner, typename Value>
    class Iterator {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = Value*;
        using reference = Value&;

        Iterator() = default;
        Iterator(Owner* array, std::size_t index) : array(array), index(index) {}
        reference operator*() const { return (*array)[index]; }
        pointer operator->() const { return &(*array)[index]; }
        Iterator& operator++() {
            ++index;
            return *this;
        }
        Iterator operator++(int) {
            Iterator old = *this;
            ++index;
            return old;
        }
        Iterator& operator--() {
            --index;
            return *this;
        }
        Iterator operator--(int) {
            Iterator old = *this;
            --index;
            return old;
        }
        Iterator& operator-=(difference_type n) { return *this += -n; }
        friend Iterator operator+(difference_type n, const Iterator& it) { return it + n; }
        Iterator& operator+=(difference_type n) {
            index = static_cast<std::size_t>(static_cast<difference_type>(index) + n);
            return *this;
        }
        Iterator operator+(difference_type n) const {
            Iterator it = *this;
            return it += n;
        }
        Iterator operator-(difference_type n) const {
            Iterator it = *this;
            return it += -n;
        }
        difference_type operator-(const Iterator& other) const {
            return static_cast<difference_type>(index) - static_cast<difference_type>(other.index);
        }
        reference operator[](difference_type n) const { return *(*this + n); }
        bool operator==(const Iterator& other) const { return index == other.index; }
        auto operator<=>(const Iterator& other) const { return index <=> other.index; }

    private:
        Owner* array = nullptr;
        std::size_t index = 0;
    };

    auto begin() { return Iterator<PagedArray, T>(this, 0); }
    auto end() { return Iterator<PagedArray, T>(this, size); }
    auto begin() const { return Iterator<const PagedArray, const T>(this, 0); }
    auto end() const { return Iterator<const PagedArray, const T>(this, size); }

private:
    struct Page {
        alignas(T) unsigned char storage[sizeof(T) * PageSize];
    };

    T* Slot(std::size_t index) const {
        unsigned char* page = pages[index / PageSize]->storage;
        return std::launder(reinterpret_cast<T*>(page + sizeof(T) * (index % PageSize)));
    }

    std::vector<std::unique_ptr<Page>> pages;
    std::size_t size = 0;
    // Elements in [size, retiredEnd) are retired; 0 when there are none.
    std::size_t retiredEnd = 0;
};

} // namespace KL
