#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

namespace KL {

// A growable array. Elements move when it grows: keep indices, not addresses.
template <typename T>
class Array {
public:
    static constexpr std::size_t NotFound = static_cast<std::size_t>(-1);

    Array() = default;
    Array(std::initializer_list<T> items) : items(items) {}
    explicit Array(std::size_t capacity) { items.reserve(capacity); }

    std::size_t GetSize() const { return items.size(); }
    bool IsEmpty() const { return items.empty(); }
    T& operator[](std::size_t index) { return items[index]; }
    const T& operator[](std::size_t index) const { return items[index]; }
    T& GetFirst() { return items.front(); }
    const T& GetFirst() const { return items.front(); }
    T& GetLast() { return items.back(); }
    const T& GetLast() const { return items.back(); }

    void Push(const T& item) { items.push_back(item); }
    void Push(T&& item) { items.push_back(std::move(item)); }
    template <typename... Args>
    T& PushNew(Args&&... args) {
        return items.emplace_back(std::forward<Args>(args)...);
    }
    T Pop() {
        T item = std::move(items.back());
        items.pop_back();
        return item;
    }
    void Insert(std::size_t index, const T& item) {
        items.insert(items.begin() + static_cast<std::ptrdiff_t>(index), item);
    }
    void Insert(std::size_t index, T&& item) {
        items.insert(items.begin() + static_cast<std::ptrdiff_t>(index), std::move(item));
    }
    void Delete(std::size_t index) { items.erase(items.begin() + static_cast<std::ptrdiff_t>(index)); }
    void DeleteLast() { items.pop_back(); }
    void Clear() { items.clear(); }
    void SetSize(std::size_t size) { items.resize(size); }
    void SetCapacity(std::size_t capacity) { items.reserve(capacity); }

    std::size_t FindFirst(const T& item) const {
        const auto it = std::find(items.begin(), items.end(), item);
        return it == items.end() ? NotFound : static_cast<std::size_t>(it - items.begin());
    }
    bool Contains(const T& item) const { return FindFirst(item) != NotFound; }

    auto begin() { return items.begin(); }
    auto end() { return items.end(); }
    auto begin() const { return items.begin(); }
    auto end() const { return items.end(); }
    T* GetContent() { return items.data(); }
    const T* GetContent() const { return items.data(); }

    bool operator==(const Array&) const = default;

private:
    std::vector<T> items;
};

// An array that keeps room for N elements from the start, for the short lists of a hot path.
template <typename T, std::size_t N>
class ArrayFB : public Array<T> {
public:
    ArrayFB() : Array<T>(N) {}
};

} // namespace KL
