// Feeds arbitrary bytes to the file layer's readers: names, locations and compressed streams.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>

namespace {

// What was read must write back to the same value.
template <typename Path>
void CheckRoundTrip(const Path& read, KL::PlatformSign sign) {
    KL::MemoryOChannel out(sign);
    read.Write(out);
    const std::vector<char> bytes = out.TakeData();
    KL::MemoryIChannel in(bytes.data(), bytes.size(), sign);
    Path again;
    if (again.Read(in) != KL::NoError || !(again == read))
        __builtin_trap();
}

void ReadPaths(KL::IChannel& in, KL::PlatformSign sign) {
    while (in.GetStatus() == KL::NoError) {
        std::uint8_t kind = 0;
        if (in.Read(kind) != KL::NoError)
            return;
        if (kind % 3 == 0) {
            IO::Name name;
            if (name.Read(in) == KL::NoError)
                CheckRoundTrip(name, sign);
        } else if (kind % 3 == 1) {
            IO::Location location;
            if (location.Read(in) == KL::NoError)
                CheckRoundTrip(location, sign);
        } else {
            IO::RelativeLocation relative;
            if (relative.Read(in) == KL::NoError)
                CheckRoundTrip(relative, sign);
        }
    }
}

void Decompress(KL::IChannel& in) {
    IO::ZipIChannel zip(in);
    char block[4096];
    std::uint64_t count = 0;
    do {
        if (zip.ReadUpTo(block, sizeof block, &count) != KL::NoError)
            return;
    } while (count > 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const KL::PlatformSign sign = (data[0] & 1) != 0 ? KL::BigEndianSign : KL::LittleEndianSign;
    KL::MemoryIChannel in(data + 1, size - 1, sign);
    if ((data[0] & 2) != 0)
        Decompress(in);
    else
        ReadPaths(in, sign);
    return 0;
}
