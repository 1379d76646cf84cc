#pragma once

// Small part files for the lookup benchmarks: numbered ids and names, a folder per so many parts.
// A lookup reads the catalogue, never the files.
#include <LibraryManager.hpp>

#include <filesystem>
#include <functional>
#include <string>

namespace bench {

inline KL::UnID NumberedPartId(int n) {
    return KL::UnID(KL::Guid(static_cast<std::uint32_t>(n) * 2654435761u, 1, 2, {}),
                    KL::Guid(static_cast<std::uint32_t>(n), 3, 4, {}));
}

// Parts 0 to count - 1 as "Group G/<name>.klm".
inline void WriteNumberedParts(const std::filesystem::path& root, int count, int perFolder,
                               const std::function<std::string(int)>& name) {
    for (int i = 0; i < count; ++i) {
        LPF::SymbolFile part;
        part.SetOwnUnID(NumberedPartId(i));
        part.SetDocumentName(KL::UniString(name(i)));
        const std::filesystem::path folder = root / ("Group " + std::to_string(i / perFolder));
        if (i % perFolder == 0)
            std::filesystem::create_directories(folder);
        part.Save(IO::Location((folder / (name(i) + ".klm")).string()));
    }
}

} // namespace bench
