#pragma once

#include "KLRoot/KLExport.hpp"

#include <cstdint>

// Memory handles: a handle (char**) points at a master pointer to a relocatable block, so the
// block may move on resize while the handle stays. A null handle is refused with -109; a handle
// that was killed, or a pointer that never was a handle, is the caller's fault and undefined.
// Blocks hold at most 1 TiB. Every operation records its result for
// BMError on the calling thread: 0, or one of the codes of ErrorCodes.hpp (-50 illegal argument,
// -108 no memory, -109 null handle, -7001 null block, -7002 empty handle).

using GSHandle = char**;

// Flags of BMAllocateHandle and BMReallocHandle.
inline constexpr int BMClearFlag = 2; // fill new bytes with zero

LM_EXPORT GSHandle BMAllocateHandle(std::int64_t size, int flags, int reserved);
LM_EXPORT std::int64_t BMGetHandleSize(GSHandle handle);
// Resizes in place of the handle; the handle stays valid, its block may move. Returns the handle,
// or null on failure with the old block untouched.
LM_EXPORT GSHandle BMReallocHandle(GSHandle handle, std::int64_t newSize, int flags, int reserved);
// Copies the block of `source` into a new handle stored at `*destination`.
LM_EXPORT int BMHandleToHandle(GSHandle source, GSHandle* destination);
// Releases the handle and nulls the caller's variable; a null handle is accepted.
LM_EXPORT int BMKillHandle(GSHandle* handle);
LM_EXPORT int BMError();

namespace KL {

// Owns one handle and kills it when it goes; Release hands it over.
class LM_EXPORT ScopedHandle {
public:
    ScopedHandle() = default;
    explicit ScopedHandle(GSHandle handle) : handle(handle) {}
    ~ScopedHandle() { BMKillHandle(&handle); }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    ScopedHandle(ScopedHandle&& other) noexcept : handle(other.Release()) {}
    ScopedHandle& operator=(ScopedHandle&& other) noexcept {
        Reset(other.Release());
        return *this;
    }

    GSHandle Get() const { return handle; }
    GSHandle* GetAddress() { return &handle; }
    char* GetData() const { return handle != nullptr ? *handle : nullptr; }
    std::int64_t GetSize() const { return handle != nullptr ? BMGetHandleSize(handle) : 0; }
    GSHandle Release() {
        GSHandle released = handle;
        handle = nullptr;
        return released;
    }
    void Reset(GSHandle replacement = nullptr) {
        BMKillHandle(&handle);
        handle = replacement;
    }

private:
    GSHandle handle = nullptr;
};

// A new handle holding a copy of `size` bytes; null with BMError set when memory runs out.
LM_EXPORT GSHandle BMNewHandleFrom(const void* data, std::int64_t size);

} // namespace KL
