#include "KLRoot/MemoryManager.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr std::uint32_t LiveMagic = 0x4B4C484Eu; // "KLHN"
// No handle holds more; a larger request, say from a hostile count, fails as out of memory
// without asking the system.
constexpr std::int64_t MaxHandleSize = std::int64_t{1} << 40;

// The master pointer must be the first member: the handle is its address.
struct HandleBlock {
    char* data;
    std::int64_t size;
    std::uint32_t magic;
};
static_assert(offsetof(HandleBlock, data) == 0);

thread_local int lastError = KL::NoError;

int Record(int error) {
    lastError = error;
    return error;
}

HandleBlock* BlockOf(GSHandle handle) {
    if (handle == nullptr)
        return nullptr;
    auto* block = reinterpret_cast<HandleBlock*>(handle);
    return block->magic == LiveMagic ? block : nullptr;
}

// One byte at least, so that a handle of size 0 still has a block.
char* AllocateBytes(std::int64_t size, bool clear) {
    const auto bytes = static_cast<std::size_t>(size > 0 ? size : 1);
    return static_cast<char*>(clear ? std::calloc(bytes, 1) : std::malloc(bytes));
}

} // namespace

GSHandle BMAllocateHandle(std::int64_t size, int flags, int /*reserved*/) {
    if (size < 0) {
        Record(KL::ErrParam);
        return nullptr;
    }
    if (size > MaxHandleSize) {
        Record(KL::ErrNotEnoughMemory);
        return nullptr;
    }
    auto* block = new (std::nothrow) HandleBlock{nullptr, size, LiveMagic};
    if (block != nullptr)
        block->data = AllocateBytes(size, (flags & BMClearFlag) != 0);
    if (block == nullptr || block->data == nullptr) {
        delete block;
        Record(KL::ErrNotEnoughMemory);
        return nullptr;
    }
    Record(KL::NoError);
    return &block->data;
}

std::int64_t BMGetHandleSize(GSHandle handle) {
    HandleBlock* block = BlockOf(handle);
    if (block == nullptr) {
        Record(KL::ErrNilHandle);
        return 0;
    }
    Record(KL::NoError);
    return block->size;
}

GSHandle BMReallocHandle(GSHandle handle, std::int64_t newSize, int flags, int /*reserved*/) {
    HandleBlock* block = BlockOf(handle);
    if (block == nullptr) {
        Record(KL::ErrNilHandle);
        return nullptr;
    }
    if (newSize < 0) {
        Record(KL::ErrParam);
        return nullptr;
    }
    if (newSize > MaxHandleSize) {
        Record(KL::ErrNotEnoughMemory);
        return nullptr;
    }
    char* data =
        static_cast<char*>(std::realloc(block->data, static_cast<std::size_t>(newSize > 0 ? newSize : 1)));
    if (data == nullptr) {
        Record(KL::ErrNotEnoughMemory);
        return nullptr;
    }
    if ((flags & BMClearFlag) != 0 && newSize > block->size)
        std::memset(data + block->size, 0, static_cast<std::size_t>(newSize - block->size));
    block->data = data;
    block->size = newSize;
    Record(KL::NoError);
    return handle;
}

int BMHandleToHandle(GSHandle source, GSHandle* destination) {
    if (destination == nullptr)
        return Record(KL::ErrParam);
    *destination = nullptr;
    HandleBlock* block = BlockOf(source);
    if (block == nullptr)
        return Record(KL::ErrNilHandle);
    GSHandle copy = BMAllocateHandle(block->size, 0, 0);
    if (copy == nullptr)
        return lastError;
    std::memcpy(*copy, block->data, static_cast<std::size_t>(block->size));
    *destination = copy;
    return Record(KL::NoError);
}

int BMKillHandle(GSHandle* handle) {
    if (handle == nullptr)
        return Record(KL::ErrParam);
    if (*handle == nullptr)
        return Record(KL::NoError);
    HandleBlock* block = BlockOf(*handle);
    if (block == nullptr)
        return Record(KL::ErrNilHandle);
    std::free(block->data);
    block->magic = 0;
    delete block;
    *handle = nullptr;
    return Record(KL::NoError);
}

int BMError() {
    return lastError;
}

namespace KL {

GSHandle BMNewHandleFrom(const void* data, std::int64_t size) {
    GSHandle handle = BMAllocateHandle(size, 0, 0);
    if (handle != nullptr && size > 0)
        std::memcpy(*handle, data, static_cast<std::size_t>(size));
    return handle;
}

} // namespace KL
