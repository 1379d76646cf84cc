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
        for (std::uint32_t i = 0; i < count && channel.GetStatus() == KL::NoError; ++i) {
            LM::LibPart part;
            char** ancestry = nullptr;
            MigrationTableObject migration;
            part.Read(channel, 3, &ancestry, &migration);
            BMKillHandle(&ancestry);
        }
    }
    return 0;
}
