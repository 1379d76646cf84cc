#pragma once

#include "KLRoot/KLExport.hpp"

#include <atomic>
#include <cstddef>
#include <utility>

namespace KL {

// Base of objects shared by counted references. The count is atomic: references may be taken and
// dropped on any thread.
class LM_EXPORT SharedObject {
public:
    SharedObject() = default;
    SharedObject(const SharedObject&) : references(0) {}
    SharedObject& operator=(const SharedObject&) { return *this; }
    virtual ~SharedObject();

    void AddReference() const { references.fetch_add(1, std::memory_order_relaxed); }
    // Deletes the object when the last reference goes.
    void RemoveReference() const {
        if (references.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
    std::size_t GetReferenceCount() const { return references.load(std::memory_order_acquire); }

private:
    mutable std::atomic<std::size_t> references{0};
};

// A counted reference to a SharedObject.
template <typename T>
class SharedPtr {
public:
    SharedPtr() = default;
    SharedPtr(std::nullptr_t) {} // NOLINT(google-explicit-constructor)
    explicit SharedPtr(T* object) : object(object) { Acquire(); }
    SharedPtr(const SharedPtr& other) : object(other.object) { Acquire(); }
    SharedPtr(SharedPtr&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
    template <typename U>
    SharedPtr(const SharedPtr<U>& other) : object(other.Get()) {
        Acquire();
    } // NOLINT(google-explicit-constructor)
    ~SharedPtr() { Release(); }

    SharedPtr& operator=(SharedPtr other) noexcept {
        std::swap(object, other.object);
        return *this;
    }

    T* Get() const { return object; }
    T* operator->() const { return object; }
    T& operator*() const { return *object; }
    explicit operator bool() const { return object != nullptr; }
    bool IsNull() const { return object == nullptr; }
    void Reset() { SharedPtr().Swap(*this); }
    void Swap(SharedPtr& other) noexcept { std::swap(object, other.object); }

    bool operator==(const SharedPtr& other) const { return object == other.object; }
    bool operator==(std::nullptr_t) const { return object == nullptr; }

private:
    void Acquire() const {
        if (object != nullptr)
            object->AddReference();
    }
    void Release() const {
        if (object != nullptr)
            object->RemoveReference();
    }

    T* object = nullptr;
};

// A counted reference through which the object cannot be changed.
template <typename T>
using ConstSharedPtr = SharedPtr<const T>;

template <typename T, typename... Args>
SharedPtr<T> MakeShared(Args&&... args) {
    return SharedPtr<T>(new T(std::forward<Args>(args)...));
}

} // namespace KL
