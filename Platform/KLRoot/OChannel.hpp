#pragma once

#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace KL {

class Object;

// A typed output stream. Values are written in the byte order of the channel's protocol.
//
// The base buffers what is written and hands it to the sink in large blocks. Bytes behind a pin
// (an open frame's length field) stay in the buffer until the pin is released, unless the sink
// can patch what it has already received; so frames work on streams that cannot seek.
// The first failure sticks. Derived channels must call Flush in their destructor.
//
// operator<< writes text, for reports and listings; Write writes binary values.
class LM_EXPORT OChannel {
public:
    explicit OChannel(PlatformSign protocol = LittleEndianSign);
    virtual ~OChannel();
    OChannel(const OChannel&) = delete;
    OChannel& operator=(const OChannel&) = delete;

    PlatformSign GetProtocol() const { return protocol; }
    int SetProtocol(PlatformSign sign);

    int GetStatus() const { return status; }
    void ResetStatus() { status = NoError; }
    int SetStatus(int error);

    // Bytes written since the channel was made, buffered or not.
    std::uint64_t GetWrittenCount() const { return flushedCount + used; }

    int WriteBin(const void* data, std::uint64_t size);

    int Write(bool value) { return WriteValue<std::uint8_t>(value ? 1 : 0); }
    int Write(char value) { return WriteValue(value); }
    int Write(char16_t value) { return WriteValue(value); }
    int Write(std::int8_t value) { return WriteValue(value); }
    int Write(std::uint8_t value) { return WriteValue(value); }
    int Write(std::int16_t value) { return WriteValue(value); }
    int Write(std::uint16_t value) { return WriteValue(value); }
    int Write(std::int32_t value) { return WriteValue(value); }
    int Write(std::uint32_t value) { return WriteValue(value); }
    int Write(std::int64_t value) { return WriteValue(value); }
    int Write(std::uint64_t value) { return WriteValue(value); }
    int Write(float value) { return WriteValue(value); }
    int Write(double value) { return WriteValue(value); }
    int Write(const Object& object);
    // Any other type has no stream form of its own: no silent conversion (a pointer to bool).
    template <typename T>
    requires(!std::is_base_of_v<Object, T>) int Write(const T&) = delete;

    // Hands everything that no pin holds back to the sink.
    int Flush();

    // Overwrites bytes written earlier at `offset` (counted like GetWrittenCount).
    int Patch(std::uint64_t offset, const void* data, std::uint64_t size);
    // Keeps bytes from `offset` on patchable until the matching Unpin.
    void Pin(std::uint64_t offset);
    void Unpin(std::uint64_t offset);

    OChannel& operator<<(std::string_view text);
    OChannel& operator<<(const char* text) { return *this << std::string_view(text != nullptr ? text : ""); }
    OChannel& operator<<(const std::string& text) { return *this << std::string_view(text); }
    OChannel& operator<<(char c) { return *this << std::string_view(&c, 1); }
    OChannel& operator<<(bool value) { return *this << (value ? "true" : "false"); }
    OChannel& operator<<(int value) { return *this << std::to_string(value); }
    OChannel& operator<<(unsigned value) { return *this << std::to_string(value); }
    OChannel& operator<<(long value) { return *this << std::to_string(value); }
    OChannel& operator<<(unsigned long value) { return *this << std::to_string(value); }
    OChannel& operator<<(long long value) { return *this << std::to_string(value); }
    OChannel& operator<<(unsigned long long value) { return *this << std::to_string(value); }
    OChannel& operator<<(double value);

protected:
    virtual int WriteToSink(const char* data, std::uint64_t size) = 0;
    virtual bool CanPatchSink() const { return false; }
    virtual int PatchSink(std::uint64_t offset, const void* data, std::uint64_t size);

private:
    template <typename T>
    int WriteValue(T value) {
        if (status != NoError)
            return status;
        if (buffer.size() - used < sizeof(T)) {
            if (const int err = MakeRoom(sizeof(T)); err != NoError)
                return err;
        }
        StoreInOrder(buffer.data() + used, value, protocol);
        used += sizeof(T);
        return NoError;
    }
    int MakeRoom(std::uint64_t size);

    std::vector<char> buffer;
    std::size_t used = 0;
    std::uint64_t flushedCount = 0;
    std::vector<std::uint64_t> pins;
    PlatformSign protocol;
    int status = NoError;
};

} // namespace KL
