#pragma once

// A folder of this process's own below the temporary folder, for targets that read files.
#include <filesystem>
#include <string>
#include <unistd.h>

namespace fuzz {

inline std::filesystem::path MakeFolder(const std::string& name) {
    const std::filesystem::path made =
        std::filesystem::temp_directory_path() / ("lm-fuzz-" + name + "-" + std::to_string(::getpid()));
    std::filesystem::create_directories(made);
    return made;
}

} // namespace fuzz
