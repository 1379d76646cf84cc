// Feeds arbitrary bytes to the library cache's readers: the validity stream, and a part stream
// read as a replay reads it (a count, then part records), with the folder stream before it.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    {
        KL::MemoryIChannel channel(data, size);
        IO::Location library;
        TITime folderTime = 0;
        KL::Array<LM::LibraryCacheEntry> entries;
        LM::LibraryCachePaths::ReadValidityStream(channel, &library, &folderTime, &entries);
    }
    {
        KL::MemoryIChannel channel(data, size);
        LM::FolderSet folders;
        folders.Read(channel, 3);
        std::uint32_t count = 0;
        channel.Read(count);
        // The replay's own reader, on its second thread, with each record's chain read as there.
        LM::CachedPartReader reader(channel, count, 3, [](LM::CachedPartRecord& record) {
            record.chainRead = record.ancestry.Get() != nullptr;
            try {
                const char* const* section = record.ancestry.Get();
                record.hasChain = record.chainRead && record.chain.SetAncestrySection(&section) == 0;
            } catch (const KL::IllegalArgumentException&) {
                record.hasChain = false;
            }
        });
        while (reader.Next() != nullptr) {
        }
    }
    return 0;
}
