// Feeds arbitrary bytes to the catalogue's own readers: a part record of the library cache with its
// symbol, migration table and ancestry bytes, a folder set at a folder offset, and an ancestry
// section both as a memory handle and as a stream.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    {
        KL::MemoryIChannel channel(data, size);
        LM::LibPart part;
        char** ancestry = nullptr;
        MigrationTableObject migration;
        part.Read(channel, 3, &ancestry, &migration);
        if (ancestry != nullptr) {
            try {
                const LM::AncestryInfo info(&ancestry);
            } catch (const KL::IllegalArgumentException&) {
            }
            BMKillHandle(&ancestry);
        }
    }
    {
        KL::MemoryIChannel channel(data, size);
        LM::FolderSet folders;
        folders.Read(channel, 7);
    }
    {
        KL::MemoryIChannel channel(data, size);
        LM::AncestryInfo info;
        try {
            info.Read(channel);
        } catch (const KL::IllegalArgumentException&) {
        }
        info.CheckAndFix();
    }
    return 0;
}
