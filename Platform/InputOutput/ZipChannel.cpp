#include "InputOutput/ZipChannel.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <limits>
#include <zlib.h>

namespace IO {

namespace {

constexpr std::size_t InputBlockSize = 16 * 1024;
constexpr std::size_t OutputBlockSize = 64 * 1024;

int ToErrorCode(int zlibResult) {
    return zlibResult == Z_MEM_ERROR ? KL::ErrNotEnoughMemory : KL::ErrStreamFormat;
}

} // namespace

struct ZipOChannel::Stream {
    z_stream z{};
    bool ready = false;
    unsigned char out[OutputBlockSize];

    ~Stream() {
        if (ready)
            deflateEnd(&z);
    }
};

ZipOChannel::ZipOChannel(KL::OChannel& channel, const ZipOChannelOptions& options)
    : KL::OChannel(channel.GetProtocol()), target(channel), stream(std::make_unique<Stream>()) {
    if (!options.IsValid()) {
        SetStatus(KL::ErrParam);
        return;
    }
    const int result =
        deflateInit2(&stream->z, static_cast<int>(options.level), Z_DEFLATED,
                     static_cast<int>(options.windowBits), 8, static_cast<int>(options.strategy));
    if (result != Z_OK) {
        SetStatus(ToErrorCode(result));
        return;
    }
    stream->ready = true;
}

ZipOChannel::~ZipOChannel() {
    Close();
}

int ZipOChannel::Close() {
    if (closed)
        return GetStatus();
    Flush();
    closed = true;
    if (GetStatus() != KL::NoError || !stream->ready)
        return GetStatus();
    return SetStatus(Deflate(nullptr, 0, true));
}

int ZipOChannel::WriteToSink(const char* data, std::uint64_t size) {
    if (closed || !stream->ready)
        return KL::ErrParam;
    return Deflate(data, size, false);
}

int ZipOChannel::Deflate(const char* data, std::uint64_t size, bool finish) {
    z_stream& z = stream->z;
    do {
        // zlib counts in 32 bits: feed large blocks in slices.
        const auto slice = static_cast<uInt>(std::min<std::uint64_t>(size, std::numeric_limits<uInt>::max()));
        z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
        z.avail_in = slice;
        const bool last = finish || slice == size;
        int result = Z_OK;
        do {
            z.next_out = stream->out;
            z.avail_out = OutputBlockSize;
            result = deflate(&z, finish && last ? Z_FINISH : Z_NO_FLUSH);
            if (result == Z_STREAM_ERROR)
                return KL::ErrStreamFormat;
            if (const int err = target.WriteBin(stream->out, OutputBlockSize - z.avail_out);
                err != KL::NoError)
                return err;
        } while (z.avail_out == 0 || (finish && last && result != Z_STREAM_END));
        if (data != nullptr)
            data += slice;
        size -= slice;
    } while (size > 0);
    return KL::NoError;
}

struct ZipIChannel::Stream {
    z_stream z{};
    bool ready = false;
    bool ended = false;
    unsigned char in[InputBlockSize];
    char out[OutputBlockSize];

    ~Stream() {
        if (ready)
            inflateEnd(&z);
    }
};

ZipIChannel::ZipIChannel(KL::IChannel& channel, KL::PlatformSign protocol)
    : KL::IChannel(protocol), source(channel), stream(std::make_unique<Stream>()) {
    const int result = inflateInit(&stream->z);
    if (result != Z_OK) {
        SetStatus(ToErrorCode(result));
        return;
    }
    stream->ready = true;
}

ZipIChannel::~ZipIChannel() = default;

int ZipIChannel::Underflow() {
    if (!stream->ready)
        return KL::ErrStreamFormat;
    z_stream& z = stream->z;
    if (stream->ended) {
        SetWindow(stream->out, stream->out);
        return KL::NoError;
    }
    z.next_out = reinterpret_cast<Bytef*>(stream->out);
    z.avail_out = OutputBlockSize;
    // Loop until some output comes, the stream ends, or the input proves cut or corrupt.
    while (z.avail_out == OutputBlockSize && !stream->ended) {
        if (z.avail_in == 0) {
            std::uint64_t count = 0;
            if (const int err = source.ReadUpTo(stream->in, InputBlockSize, &count); err != KL::NoError)
                return err;
            if (count == 0)
                return KL::ErrStreamFormat; // the source ended inside the stream
            z.next_in = stream->in;
            z.avail_in = static_cast<uInt>(count);
        }
        const int result = inflate(&z, Z_NO_FLUSH);
        if (result == Z_STREAM_END)
            stream->ended = true;
        else if (result != Z_OK && result != Z_BUF_ERROR)
            return ToErrorCode(result);
    }
    SetWindow(stream->out, stream->out + (OutputBlockSize - z.avail_out));
    return KL::NoError;
}

} // namespace IO
