#pragma once

#include "KLRoot/IChannel.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/OChannel.hpp"

#include <cstdint>
#include <memory>

namespace IO {

// How a ZipOChannel compresses: three 32-bit words, kept as they are by whoever stores them.
struct ZipOChannelOptions {
    std::uint32_t level = 6;       // 0 (store) to 9 (smallest)
    std::uint32_t strategy = 0;    // 0 default, 1 filtered, 2 Huffman only, 3 run-length, 4 fixed
    std::uint32_t windowBits = 15; // 9 to 15: history size as a power of two

    bool IsValid() const { return level <= 9 && strategy <= 4 && windowBits >= 9 && windowBits <= 15; }
    bool operator==(const ZipOChannelOptions&) const = default;
};

// Writes one compressed stream (zlib format: deflate with a header and a checksum) into another
// channel. The stream carries its own end, so no length is needed to read it back. The stream is
// finished by Close or, failing that, by the destructor; the target must outlive this channel.
class LM_EXPORT ZipOChannel : public KL::OChannel {
public:
    explicit ZipOChannel(KL::OChannel& target, const ZipOChannelOptions& options = {});
    ~ZipOChannel() override;

    // Finishes the stream; later writes fail.
    int Close();

protected:
    int WriteToSink(const char* data, std::uint64_t size) override;

private:
    struct Stream;
    int Deflate(const char* data, std::uint64_t size, bool finish);

    KL::OChannel& target;
    std::unique_ptr<Stream> stream;
    bool closed = false;
};

// Reads one compressed stream of ZipOChannel from another channel, up to the stream's own end.
// A corrupt or cut stream fails with ErrStreamFormat. It reads its source ahead in blocks, so the
// source's position after the stream is not exact.
class LM_EXPORT ZipIChannel : public KL::IChannel {
public:
    explicit ZipIChannel(KL::IChannel& source, KL::PlatformSign protocol = KL::LittleEndianSign);
    ~ZipIChannel() override;

protected:
    int Underflow() override;

private:
    struct Stream;

    KL::IChannel& source;
    std::unique_ptr<Stream> stream;
};

} // namespace IO
