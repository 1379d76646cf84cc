#pragma once

#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <type_traits>
#include <vector>

namespace KL {

class Object;
class OChannel;

// A typed input stream. Values are read in the byte order of the channel's protocol.
//
// Every read is bounds-checked: a read past the end of the data fails with ErrEndOfData, a read
// past the end of the innermost open frame with ErrStreamFormat, and neither reads anything. The
// first failure sticks: later reads return it without touching the source, so a chain of reads
// can be checked once at its end. Derived channels supply bytes through a window (SetWindow) that
// they refill in Underflow, which keeps typed reads free of virtual calls.
class LM_EXPORT IChannel {
public:
    explicit IChannel(PlatformSign protocol = LittleEndianSign);
    virtual ~IChannel();
    IChannel(const IChannel&) = delete;
    IChannel& operator=(const IChannel&) = delete;

    PlatformSign GetProtocol() const { return protocol; }
    int SetProtocol(PlatformSign sign);

    int GetStatus() const { return status; }
    void ResetStatus() { status = NoError; }
    // Records a failure found by a reader of this channel (a bad length, a foreign frame);
    // the first failure stays.
    int SetStatus(int error);

    // The position: bytes from the start of the source to the next byte to read.
    std::uint64_t GetReadCount() const {
        return windowPosition + static_cast<std::uint64_t>(cursor - windowBegin);
    }
    // Bytes that remain, within the innermost open frame; -1 when the source cannot tell and no
    // frame limits the read (a compressed stream, a pipe).
    std::int64_t GetAvailable() const;
    // Fails with ErrStreamFormat when fewer than `size` bytes are known to remain, so that a
    // length read from the stream can be checked before anything is allocated for it.
    int RequireAvailable(std::uint64_t size);

    // Reads exactly `size` bytes.
    int ReadBin(void* dest, std::uint64_t size);
    // Reads up to `size` bytes, fewer only at the end of the data, which is no failure here.
    int ReadUpTo(void* dest, std::uint64_t size, std::uint64_t* count);
    int Skip(std::uint64_t size);
    // Reads exactly `size` bytes into `target`, straight from the window, a block at a time.
    int CopyTo(OChannel& target, std::uint64_t size);

    int Read(bool& value);
    int Read(char& value) { return ReadValue(value); }
    int Read(char16_t& value) { return ReadValue(value); }
    int Read(std::int8_t& value) { return ReadValue(value); }
    int Read(std::uint8_t& value) { return ReadValue(value); }
    int Read(std::int16_t& value) { return ReadValue(value); }
    int Read(std::uint16_t& value) { return ReadValue(value); }
    int Read(std::int32_t& value) { return ReadValue(value); }
    int Read(std::uint32_t& value) { return ReadValue(value); }
    int Read(std::int64_t& value) { return ReadValue(value); }
    int Read(std::uint64_t& value) { return ReadValue(value); }
    int Read(float& value) { return ReadValue(value); }
    int Read(double& value) { return ReadValue(value); }
    int Read(Object& object);
    // Any other type has no stream form of its own: no silent conversion.
    template <typename T>
    requires(!std::is_base_of_v<Object, T>) int Read(T&) = delete;

    // Limits reads to the bytes before `end` (a position) until PopLimit; limits nest, and an
    // inner one never reaches past an outer one. Used by InputFrame.
    void PushLimit(std::uint64_t end);
    void PopLimit();

protected:
    // Makes more bytes available through SetWindow; at the end of the data it leaves the window
    // empty and returns NoError.
    virtual int Underflow() = 0;
    // Bytes that follow the current window, or -1 if unknown.
    virtual std::int64_t GetAvailableBeyondWindow() const { return -1; }
    // Skips bytes that lie beyond the current window; seekable channels do better than reading.
    virtual int SkipBeyondWindow(std::uint64_t size);

    // Continues the stream with a new window of bytes that directly follow the old one.
    void SetWindow(const char* begin, const char* end);
    // Starts a window at an absolute position, after a seek.
    void SetWindowAt(const char* begin, const char* end, std::uint64_t position);

private:
    template <typename T>
    int ReadValue(T& value) {
        if (status != NoError)
            return status;
        if (static_cast<std::size_t>(limit - cursor) >= sizeof(T)) {
            value = LoadInOrder<T>(cursor, protocol);
            cursor += sizeof(T);
            return NoError;
        }
        char bytes[sizeof(T)];
        if (const int err = ReadBin(bytes, sizeof(T)); err != NoError)
            return err;
        value = LoadInOrder<T>(bytes, protocol);
        return NoError;
    }
    // Bytes left before the innermost limit, or UINT64_MAX without one.
    std::uint64_t RemainingInLimit() const;
    // Clamps `limit` to the window's end and the innermost frame limit.
    void UpdateLimit();
    // Refills an exhausted window; fails at a frame limit.
    int Refill();
    // Hands exactly `size` bytes to `sink` in window-sized pieces.
    template <typename Sink>
    int Drain(std::uint64_t size, Sink sink);

    const char* windowBegin = nullptr;
    const char* cursor = nullptr;
    const char* limit = nullptr; // end of what may be read from the window now
    const char* windowEnd = nullptr;
    std::uint64_t windowPosition = 0; // position of windowBegin
    std::vector<std::uint64_t> limits;
    PlatformSign protocol;
    int status = NoError;
};

// Reads `count` elements of trivially copyable type as raw bytes into `result`. The length is
// checked against what remains first; on a stream of unknown length `result` grows with the data
// actually read, so a hostile count cannot force a large allocation. Leaves `result` unspecified
// on failure.
template <typename Container>
int ReadCountedElements(IChannel& channel, std::uint32_t count, Container& result) {
    using Element = typename Container::value_type;
    static_assert(std::is_trivially_copyable_v<Element>);
    if (const int err = channel.RequireAvailable(std::uint64_t{count} * sizeof(Element)); err != NoError)
        return err;
    constexpr std::size_t Chunk = 64 * 1024 / sizeof(Element);
    result.clear();
    for (std::size_t done = 0; done < count;) {
        const std::size_t n = count - done < Chunk ? count - done : Chunk;
        result.resize(done + n);
        if (const int err = channel.ReadBin(result.data() + done, n * sizeof(Element)); err != NoError)
            return err;
        done += n;
    }
    return NoError;
}

} // namespace KL
