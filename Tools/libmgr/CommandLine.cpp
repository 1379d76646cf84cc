#include "CommandLine.hpp"

#include <cstdio>
#include <filesystem>
#include <iostream>

namespace libmgr {

bool Arguments::WantsHelp() const {
    for (const std::string& value : values) {
        if (value == "--help" || value == "-h")
            return true;
    }
    return false;
}

int Complain(const Arguments& arguments, const std::string& text, int exitCode) {
    std::cerr << "libmgr" << (arguments.command.empty() ? "" : " " + arguments.command) << ": " << text
              << '\n';
    return exitCode;
}

std::string ErrorText(int error) {
    const std::string words = LPF::DescribeError(error);
    if (words != LPF::DescribeError(KL::ErrNotSupported - 1))
        return words;
    char code[16];
    std::snprintf(code, sizeof code, "%d", error);
    return words + " (error " + code + ")";
}

std::optional<IO::Location> PathToLocation(const std::string& path) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error || path.empty())
        return std::nullopt;
    IO::Location location(absolute.lexically_normal().string());
    if (!location.IsValid())
        return std::nullopt;
    return location;
}

} // namespace libmgr
