// Feeds arbitrary bytes to the state stream readers of every database container class, as a
// database row would hand them over: the first byte picks the class, the rest is the stream.
// A stream that reads must write back to a stream that reads to the same object.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

std::unique_ptr<ODB::Object> Make(std::uint8_t selector) {
    switch (selector % 7) {
    case 0:
        return std::make_unique<LM::DatabaseLibraryContainerRoot>();
    case 1:
        return std::make_unique<LM::DatabaseLibraryContainerEntry>();
    case 2:
        return std::make_unique<LM::DatabaseLibraryContainerFolder>();
    case 3:
        return std::make_unique<LM::DatabaseLibraryContainerLibPartHeader>();
    case 4:
        return std::make_unique<LM::DatabaseLibraryContainerSymbolHeader>();
    case 5:
        return std::make_unique<LM::DatabaseLibraryContainerLibPartContent>();
    default:
        return std::make_unique<LM::LibraryContainerFileRoot>();
    }
}

std::vector<char> Written(const ODB::Object& object) {
    KL::MemoryOChannel channel;
    if (object.WriteIsolatedState(channel) != KL::NoError)
        std::abort();
    return channel.TakeData();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::unique_ptr<ODB::Object> object = Make(data[0]);
    KL::MemoryIChannel channel(data + 1, size - 1);
    if (object->ReadIsolatedState(channel) != KL::NoError)
        return 0;
    const std::vector<char> first = Written(*object);
    const std::unique_ptr<ODB::Object> again = Make(data[0]);
    KL::MemoryIChannel reread(first.data(), first.size());
    if (again->ReadIsolatedState(reread) != KL::NoError || Written(*again) != first)
        std::abort();
    return 0;
}
