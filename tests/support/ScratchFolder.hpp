#pragma once

// A fresh folder per test, with the home, XDG folders and temporary folder moved into it, so no
// test touches the real home.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace testsupport {

class ScratchFolder {
public:
    ScratchFolder() {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        path = std::filesystem::temp_directory_path() /
               ("lmtest-" + std::to_string(::getpid()) + "-" + info->test_suite_name() + "-" + info->name());
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path / "home");
        for (const char* variable :
             {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "TMPDIR"}) {
            const char* old = std::getenv(variable);
            saved.emplace_back(variable, old != nullptr ? std::optional<std::string>(old) : std::nullopt);
        }
        Redirect("HOME", "home");
        Redirect("XDG_CONFIG_HOME", "home/config");
        Redirect("XDG_DATA_HOME", "home/data");
        Redirect("XDG_CACHE_HOME", "home/cache");
        Redirect("TMPDIR", "home/tmp");
    }
    ~ScratchFolder() {
        for (const auto& [variable, value] : saved) {
            if (value)
                ::setenv(variable.c_str(), value->c_str(), 1);
            else
                ::unsetenv(variable.c_str());
        }
        std::error_code ignored;
        std::filesystem::permissions(path, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return path; }
    IO::Location Location(const std::string& relative = {}) const {
        return IO::Location((relative.empty() ? path : path / relative).string());
    }
    // Writes a file, making the folders above it.
    void Write(const std::string& relative, const std::string& content) const {
        std::filesystem::create_directories((path / relative).parent_path());
        std::ofstream(path / relative, std::ios::binary) << content;
    }
    std::string Read(const std::string& relative) const {
        std::ifstream stream(path / relative, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

private:
    void Redirect(const char* variable, const char* relative) {
        ::setenv(variable, (path / relative).c_str(), 1);
    }

    std::filesystem::path path;
    std::vector<std::pair<std::string, std::optional<std::string>>> saved;
};

// Root may read anything; tests of refused permissions make no sense then.
inline bool PermissionsAreEnforced() {
    return ::geteuid() != 0;
}

} // namespace testsupport
