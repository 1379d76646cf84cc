#include "KLRoot/IChannel.hpp"

#include "KLRoot/OChannel.hpp"
#include "KLRoot/Object.hpp"

#include <algorithm>
#include <cstring>
#include <limits>

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

std::uint64_t IChannel::RemainingInLimit() const {
    if (limits.empty())
        return std::numeric_limits<std::uint64_t>::max();
    const std::uint64_t position = GetReadCount();
    return limits.back() > position ? limits.back() - position : 0;
}

std::int64_t IChannel::GetAvailable() const {
    const std::int64_t beyond = GetAvailableBeyondWindow();
    const std::uint64_t inLimit = RemainingInLimit();
    if (beyond < 0)
        return inLimit > static_cast<std::uint64_t>(INT64_MAX) ? -1 : static_cast<std::int64_t>(inLimit);
    const auto inSource = static_cast<std::uint64_t>(beyond + (windowEnd - cursor));
    return static_cast<std::int64_t>(std::min(inSource, inLimit));
}

int IChannel::RequireAvailable(std::uint64_t size) {
    if (status != NoError)
        return status;
    const std::int64_t available = GetAvailable();
    if (available >= 0 && static_cast<std::uint64_t>(available) < size)
        return SetStatus(ErrStreamFormat);
    return NoError;
}

void IChannel::PushLimit(std::uint64_t end) {
    if (!limits.empty())
        end = std::min(end, limits.back());
    limits.push_back(end);
    UpdateLimit();
}

void IChannel::PopLimit() {
    if (!limits.empty())
        limits.pop_back();
    UpdateLimit();
}

void IChannel::UpdateLimit() {
    limit = windowEnd;
    if (limits.empty())
        return;
    const std::uint64_t windowSize = static_cast<std::uint64_t>(windowEnd - windowBegin);
    const std::uint64_t end = limits.back();
    if (end < windowPosition + windowSize)
        limit = windowBegin + (end > windowPosition ? end - windowPosition : 0);
    if (limit < cursor)
        limit = cursor;
}

void IChannel::SetWindow(const char* begin, const char* end) {
    SetWindowAt(begin, end, GetReadCount());
}

void IChannel::SetWindowAt(const char* begin, const char* end, std::uint64_t position) {
    windowPosition = position;
    windowBegin = cursor = begin;
    windowEnd = end;
    UpdateLimit();
}

int IChannel::Refill() {
    if (limit != windowEnd || RemainingInLimit() == 0)
        return SetStatus(ErrStreamFormat); // the innermost frame ends here
    if (const int err = Underflow(); err != NoError)
        return SetStatus(err);
    return NoError;
}

int IChannel::ReadBin(void* dest, std::uint64_t size) {
    if (status == NoError && size > 0 && dest == nullptr)
        return SetStatus(ErrParam);
    char* out = static_cast<char*>(dest);
    return Drain(size, [&out](const char* bytes, std::uint64_t count) {
        std::memcpy(out, bytes, count);
        out += count;
        return NoError;
    });
}

int IChannel::CopyTo(OChannel& target, std::uint64_t size) {
    return Drain(size,
                 [&target](const char* bytes, std::uint64_t count) { return target.WriteBin(bytes, count); });
}

template <typename Sink>
int IChannel::Drain(std::uint64_t size, Sink sink) {
    if (status != NoError)
        return status;
    if (size == 0)
        return NoError;
    // Refuse before taking anything, so a failed read leaves the destination untouched wherever
    // the source can tell its length.
    if (size > RemainingInLimit())
        return SetStatus(ErrStreamFormat);
    if (const std::int64_t available = GetAvailable();
        available >= 0 && static_cast<std::uint64_t>(available) < size)
        return SetStatus(ErrEndOfData);
    while (size > 0) {
        if (cursor == limit) {
            if (const int err = Refill(); err != NoError)
                return err;
            if (cursor == limit)
                return SetStatus(ErrEndOfData);
        }
        const std::uint64_t chunk = std::min<std::uint64_t>(size, static_cast<std::uint64_t>(limit - cursor));
        if (const int err = sink(cursor, chunk); err != NoError)
            return err;
        cursor += chunk;
        size -= chunk;
    }
    return NoError;
}

int IChannel::ReadUpTo(void* dest, std::uint64_t size, std::uint64_t* count) {
    if (count == nullptr || (dest == nullptr && size > 0))
        return ErrParam;
    *count = 0;
    if (status != NoError)
        return status;
    size = std::min(size, RemainingInLimit());
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
    if (size > RemainingInLimit())
        return SetStatus(ErrStreamFormat);
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
