// Feeds arbitrary bytes to the foundation's stream readers: frames, texts, guids.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>

namespace {

const KL::ClassInfo fuzzClass("Fuzz::Record", KL::Guid("6D1E3A52-8C04-4B7F-9E21-0A5C7B3D9F10"), 1, 0);

// Reads values of the kinds the first bytes choose, inside nested frames, until the input ends.
void ReadRecord(KL::IChannel& in, int depth) {
    KL::InputFrame frame(in, fuzzClass);
    while (in.GetStatus() == KL::NoError) {
        std::uint8_t kind = 0;
        if (in.Read(kind) != KL::NoError)
            break;
        KL::UniString text;
        KL::String bytes;
        KL::UnID id;
        switch (kind % 5) {
        case 0:
            text.Read(in);
            break;
        case 1:
            bytes.Read(in);
            break;
        case 2:
            id.Read(in);
            break;
        case 3:
            if (depth < 8)
                ReadRecord(in, depth + 1);
            break;
        default:
            in.Skip(kind);
            break;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const KL::PlatformSign sign = (data[0] & 1) != 0 ? KL::BigEndianSign : KL::LittleEndianSign;
    KL::MemoryIChannel in(data + 1, size - 1, sign);
    ReadRecord(in, 0);
    return 0;
}
