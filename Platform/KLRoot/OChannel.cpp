#include "KLRoot/OChannel.hpp"

#include "KLRoot/Object.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace KL {

namespace {
constexpr std::size_t BlockSize = 64 * 1024;
}

OChannel::OChannel(PlatformSign sign)
    : buffer(BlockSize), protocol(IsValidPlatformSign(sign) ? sign : LittleEndianSign) {}

OChannel::~OChannel() = default;

int OChannel::SetProtocol(PlatformSign sign) {
    if (!IsValidPlatformSign(sign))
        return ErrParam;
    protocol = sign;
    return NoError;
}

int OChannel::SetStatus(int error) {
    if (status == NoError)
        status = error;
    return status;
}

int OChannel::PatchSink(std::uint64_t, const void*, std::uint64_t) {
    return ErrNotSupported;
}

int OChannel::WriteBin(const void* data, std::uint64_t size) {
    if (status != NoError)
        return status;
    if (size == 0)
        return NoError;
    if (data == nullptr)
        return SetStatus(ErrParam);
    if (buffer.size() - used < size) {
        if (const int err = MakeRoom(size); err != NoError)
            return err;
    }
    std::memcpy(buffer.data() + used, data, size);
    used += size;
    return NoError;
}

int OChannel::Write(const Object& object) {
    if (status != NoError)
        return status;
    return object.Write(*this);
}

int OChannel::Flush() {
    if (status != NoError)
        return status;
    std::uint64_t flushable = used;
    if (!pins.empty() && !CanPatchSink())
        flushable = std::min<std::uint64_t>(used, *std::min_element(pins.begin(), pins.end()) - flushedCount);
    if (flushable == 0)
        return NoError;
    if (const int err = WriteToSink(buffer.data(), flushable); err != NoError)
        return SetStatus(err);
    std::memmove(buffer.data(), buffer.data() + flushable, used - flushable);
    used -= flushable;
    flushedCount += flushable;
    return NoError;
}

int OChannel::MakeRoom(std::uint64_t size) {
    if (const int err = Flush(); err != NoError)
        return err;
    if (buffer.size() - used >= size)
        return NoError;
    try {
        buffer.resize(std::max<std::size_t>(buffer.size() * 2, used + size));
    } catch (const std::exception&) { // bad_alloc, or length_error past the vector's maximum
        return SetStatus(ErrNotEnoughMemory);
    }
    return NoError;
}

int OChannel::Patch(std::uint64_t offset, const void* data, std::uint64_t size) {
    if (status != NoError)
        return status;
    const std::uint64_t written = GetWrittenCount();
    if (data == nullptr || size > written || offset > written - size)
        return SetStatus(ErrParam);
    const char* bytes = static_cast<const char*>(data);
    if (offset < flushedCount) {
        const std::uint64_t sunk = std::min(size, flushedCount - offset);
        if (const int err = PatchSink(offset, bytes, sunk); err != NoError)
            return SetStatus(err);
        offset += sunk;
        bytes += sunk;
        size -= sunk;
    }
    std::memcpy(buffer.data() + (offset - flushedCount), bytes, size);
    return NoError;
}

void OChannel::Pin(std::uint64_t offset) {
    pins.push_back(offset);
}

void OChannel::Unpin(std::uint64_t offset) {
    const auto it = std::find(pins.rbegin(), pins.rend(), offset);
    if (it != pins.rend())
        pins.erase(std::next(it).base());
}

OChannel& OChannel::operator<<(std::string_view text) {
    WriteBin(text.data(), text.size());
    return *this;
}

OChannel& OChannel::operator<<(double value) {
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return *this << std::string_view(text, static_cast<std::size_t>(result.ptr - text));
}

} // namespace KL
