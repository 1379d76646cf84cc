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

int WriteOutput(const Arguments& arguments, const std::string& path, const std::string& text) {
    if (path == StandardStream) {
        std::cout << text;
        return ExitSuccess;
    }
    const std::optional<IO::Location> location = PathToLocation(path);
    if (!location)
        return Complain(arguments, path + ": not a usable path", ExitFailure);
    IOUtil::ScratchFile file(*location);
    int err = file.Open(IO::File::WriteMode);
    if (err == KL::NoError)
        err = file.Write(text.data(), text.size());
    if (err == KL::NoError)
        err = file.MakePermanent();
    if (err != KL::NoError)
        return Complain(arguments, path + ": " + ErrorText(err), ExitFailure);
    return ExitSuccess;
}

} // namespace libmgr
