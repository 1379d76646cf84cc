#pragma once

// Conventions shared by the commands of libmgr: exit codes, messages, paths.
#include <LibraryManager.hpp>

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace libmgr {

inline constexpr int ExitSuccess = 0;
inline constexpr int ExitFailure = 1;
inline constexpr int ExitUsage = 2;

// The arguments after the command's own name.
struct Arguments {
    std::string command; // e.g. "part build", for messages
    std::vector<std::string> values;

    bool WantsHelp() const;
};

// "libmgr <command>: <text>" on stderr; returns `exitCode`.
int Complain(const Arguments& arguments, const std::string& text, int exitCode);

// The words for an error code, with the code itself when no words are known.
std::string ErrorText(int error);

// A file named so on the command line is standard input or standard output.
inline constexpr const char* StandardStream = "-";

// Writes `text` whole to `path` or to standard output, through a scratch file so that a failure
// leaves an older file untouched; complains and returns 1 on failure.
int WriteOutput(const Arguments& arguments, const std::string& path, const std::string& text);

// A path from the command line as an absolute location; nullopt when it cannot be one.
std::optional<IO::Location> PathToLocation(const std::string& path);

} // namespace libmgr
