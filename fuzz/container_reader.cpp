// Feeds arbitrary bytes to the container reader as a container file: the walk that mounts it, and
// then every folder listed and every file read through the mounted file system's entries, the
// compressed ones inflated.
#include "FuzzFolder.hpp"

#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace {

const std::filesystem::path& Folder() {
    static const std::filesystem::path folder = fuzz::MakeFolder("container");
    return folder;
}

class Walk : public LM::LibraryContainerVFS {
public:
    Walk() : LM::LibraryContainerVFS(LM::LibraryContainerVFSOptions(IO::Location(Folder().string()))) {}

    int Mount(const IO::Location& location) {
        IO::File file(location);
        if (file.Open(IO::File::ReadMode) != KL::NoError)
            return -1;
        KL::NonInterruptibleProcessControl process;
        return Mounted(process, location, file);
    }

    void ReadAll(const IO::Location& folderLocation, int depth) {
        IO::Location location = folderLocation;
        IO::FolderEntry* folder = nullptr;
        if (depth > 300 || Connect(&location, &folder) != 0)
            return;
        std::vector<std::pair<IO::Name, IO::EntryType>> children;
        folder->EnumerateContents(
            [](const IO::Name& name, IO::EntryType type, void* data) {
                static_cast<std::vector<std::pair<IO::Name, IO::EntryType>>*>(data)->emplace_back(name, type);
                return true;
            },
            &children);
        Disconnect(folder);
        for (const auto& [name, type] : children) {
            IO::Location child = folderLocation + name;
            if (type == IO::FolderEntryType) {
                ReadAll(child, depth + 1);
                continue;
            }
            IO::FileEntry* file = nullptr;
            if (Connect(&child, &file) != 0)
                continue;
            char buffer[4096];
            std::uint64_t got = 0;
            if (file->Open(IO::FileEntry::ReadMode) == 0) {
                while (file->Read(buffer, sizeof buffer, &got) == 0 && got > 0) {
                }
                file->Seek(IO::FileEntry::FromEnd, -1, nullptr);
            }
            file->Close();
            Disconnect(file);
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::filesystem::path path = Folder() / "input.lcf";
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    const IO::Location location(path.string());
    LM::CheckIfContainer(location);
    Walk walk;
    walk.Mount(location);
    if (walk.IsMounted())
        walk.ReadAll(location, 0);
    return 0;
}
