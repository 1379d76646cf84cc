#include "KLRoot/IChannel.hpp"

#include "KLRoot/Object.hpp"

#include <algorithm>
#include <cstring>

namespace KL {

IChannel::IChannel(PlatformSign sign) : protocol(IsValidPlatformSign(sign) ? sign : LittleEndianSign) {}

IChannel::~IChannel() = default;

int IChannel::SetProtocol(PlatformSign sign) {
    if (!IsValidPlatformSign(sign))
        return ErrParam;
    protocol = sign;
    return NoError;
}

int IChannel::SetStatus(int error) {
    if (status == NoError)
        status = error;
    return status;
}

std::int64_t IChannel::GetAvailable() const {
    const std::int64_t beyond = GetAvailableBeyondWindow();
    if (beyond < 0)
        return -1;
    return beyond + (limit - cursor);
}

int IChannel::RequireAvailable(std::uint64_t size) {
    if (status != NoError)
        return status;
    const std::int64_t available = GetAvailable();
    if (available >= 0 && static_cast<std::uint64_t>(available) < size)
        return SetStatus(ErrStreamFormat);
    return NoError;
}

void IChannel::SetWindow(const char* begin, const char* end) {
    consumedBeforeWindow += static_cast<std::uint64_t>(cursor - windowBegin);
    windowBegin = cursor = begin;
    limit = end;
}

int IChannel::ReadBin(void* dest, std::uint64_t size) {
    if (status != NoError)
        return status;
    if (size == 0)
        return NoError;
    if (dest == nullptr)
        return ErrParam;
    // Refuse before copying anything, so a failed read leaves the destination untouched
    // wherever the source can tell its length.
    if (const std::int64_t available = GetAvailable(); available >= 0 && static_cast<std::uint64_t>(available) < size)
        return SetStatus(ErrEndOfData);
    char* out = static_cast<char*>(dest);
    while (size > 0) {
        if (cursor == limit) {
            if (const int err = Underflow(); err != NoError)
                return SetStatus(err);
            if (cursor == limit)
                return SetStatus(ErrEndOfData);
        }
        const std::uint64_t chunk = std::min<std::uint64_t>(size, static_cast<std::uint64_t>(limit - cursor));
        std::memcpy(out, cursor, chunk);
        cursor += chunk;
        out += chunk;
        size -= chunk;
    }
    return NoError;
}

int IChannel::ReadUpTo(void* dest, std::uint64_t size, std::uint64_t* count) {
    if (count == nullptr)
        return ErrParam;
    *count = 0;
    if (status != NoError)
        return status;
    char* out = static_cast<char*>(dest);
    while (*count < size) {
        if (cursor == limit) {
            if (const int err = Underflow(); err != NoError)
                return SetStatus(err);
            if (cursor == limit)
                break;
        }
        const std::uint64_t chunk =
            std::min<std::uint64_t>(size - *count, static_cast<std::uint64_t>(limit - cursor));
        std::memcpy(out + *count, cursor, chunk);
        cursor += chunk;
        *count += chunk;
    }
    return NoError;
}

int IChannel::Skip(std::uint64_t size) {
    if (status != NoError)
        return status;
    const std::uint64_t inWindow = std::min<std::uint64_t>(size, static_cast<std::uint64_t>(limit - cursor));
    cursor += inWindow;
    if (inWindow == size)
        return NoError;
    if (const int err = SkipBeyondWindow(size - inWindow); err != NoError)
        return SetStatus(err);
    return NoError;
}

int IChannel::SkipBeyondWindow(std::uint64_t size) {
    while (size > 0) {
        if (const int err = Underflow(); err != NoError)
            return err;
        if (cursor == limit)
            return ErrEndOfData;
        const std::uint64_t chunk = std::min<std::uint64_t>(size, static_cast<std::uint64_t>(limit - cursor));
        cursor += chunk;
        size -= chunk;
    }
    return NoError;
}

int IChannel::Read(bool& value) {
    std::uint8_t byte = 0;
    const int err = ReadValue(byte);
    if (err == NoError)
        value = byte != 0;
    return err;
}

int IChannel::Read(Object& object) {
    if (status != NoError)
        return status;
    return object.Read(*this);
}

} // namespace KL
