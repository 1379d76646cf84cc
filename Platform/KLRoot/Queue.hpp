#pragma once

#include <cstddef>
#include <deque>
#include <utility>

namespace KL {

// First in, first out.
template <typename T>
class Queue {
public:
    std::size_t GetSize() const { return items.size(); }
    bool IsEmpty() const { return items.empty(); }
    void Push(const T& item) { items.push_back(item); }
    void Push(T&& item) { items.push_back(std::move(item)); }
    T Pop() {
        T item = std::move(items.front());
        items.pop_front();
        return item;
    }
    T& GetFirst() { return items.front(); }
    const T& GetFirst() const { return items.front(); }
    const T& operator[](std::size_t index) const { return items[index]; }
    void Clear() { items.clear(); }

    auto begin() const { return items.begin(); }
    auto end() const { return items.end(); }

private:
    std::deque<T> items;
};

} // namespace KL
