#pragma once

// The plain walks that enumerations are measured against: every regular file of a tree in
// readdir order, on one thread, opened, read and closed.
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>
#include <vector>

namespace bench {

struct WalkFacts {
    std::size_t files = 0;
    std::uint64_t bytes = 0;
};

// Reads up to `bytesPerFile` of each file, in reads of `chunk`.
inline WalkFacts OpenReadWalk(const std::filesystem::path& root, std::uint64_t bytesPerFile,
                              std::size_t chunk) {
    WalkFacts facts;
    std::vector<char> buffer(chunk);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const int fd = ::open(entry.path().c_str(), O_RDONLY);
        if (fd < 0)
            continue;
        std::uint64_t read = 0;
        for (ssize_t n; read < bytesPerFile && (n = ::read(fd, buffer.data(), buffer.size())) > 0;)
            read += static_cast<std::uint64_t>(n);
        facts.bytes += read;
        ::close(fd);
        ++facts.files;
    }
    return facts;
}

// What an enumeration must read at least: a part's header, name and section directory.
inline WalkFacts HeaderWalk(const std::filesystem::path& root) {
    return OpenReadWalk(root, 4096, 4096);
}

inline WalkFacts WholeFileWalk(const std::filesystem::path& root) {
    return OpenReadWalk(root, UINT64_MAX, 64 * 1024);
}

} // namespace bench
