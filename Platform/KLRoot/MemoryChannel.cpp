#include "KLRoot/MemoryChannel.hpp"

#include <cstring>
#include <exception>

namespace KL {

MemoryIChannel::MemoryIChannel(const void* block, std::uint64_t size, PlatformSign sign) : IChannel(sign) {
    const char* begin = static_cast<const char*>(block);
    SetWindow(begin, begin == nullptr ? begin : begin + size);
}

MemoryIChannel::MemoryIChannel(std::vector<char> block, PlatformSign sign)
    : IChannel(sign), owned(std::move(block)) {
    SetWindow(owned.data(), owned.data() + owned.size());
}

MemoryIChannel::~MemoryIChannel() = default;

MemoryOChannel::MemoryOChannel(PlatformSign sign) : OChannel(sign) {}

MemoryOChannel::~MemoryOChannel() = default;

const std::vector<char>& MemoryOChannel::GetData() {
    Flush();
    return data;
}

std::vector<char> MemoryOChannel::TakeData() {
    Flush();
    return std::move(data);
}

int MemoryOChannel::WriteToSink(const char* bytes, std::uint64_t size) {
    try {
        data.insert(data.end(), bytes, bytes + size);
    } catch (const std::exception&) {
        return ErrNotEnoughMemory;
    }
    return NoError;
}

int MemoryOChannel::PatchSink(std::uint64_t offset, const void* bytes, std::uint64_t size) {
    if (offset + size > data.size())
        return ErrParam;
    std::memcpy(data.data() + offset, bytes, size);
    return NoError;
}

} // namespace KL
