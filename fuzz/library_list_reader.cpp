// Feeds arbitrary bytes to the readers of stored library lists: the framed streams of both
// generations and, for input that starts with "I", the oldest info block in both byte orders.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static LM::LibrarySetSingletonLP manager;
    static const int started =
        manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr);
    (void)started;
    if (size > 0 && data[0] == 'I') {
        KL::ScopedHandle info(KL::BMNewHandleFrom(data + 1, static_cast<std::int64_t>(size - 1)));
        for (const KL::PlatformSign sign : {KL::LittleEndianSign, KL::BigEndianSign}) {
            LM::LibraryList list;
            manager.GetLibrarySet()->GetLibraryListFromInfo(info.Get(), sign, &list);
        }
        return 0;
    }
    KL::MemoryIChannel channel(data, size);
    LM::LibraryList list;
    list.Read(channel);
    KL::MemoryOChannel out;
    list.Write(out, true);
    return 0;
}
