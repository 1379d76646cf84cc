#pragma once

// Runs the built libmgr as a user would, with its output and errors caught in files.
#include "support/ScratchFolder.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace testsupport {

struct ToolRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline std::string Quote(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// `stdoutTarget` sends the standard output elsewhere, such as /dev/full; `out` is then empty.
inline ToolRun RunLibmgr(const ScratchFolder& scratch, const std::vector<std::string>& arguments,
                         const std::filesystem::path& stdoutTarget = {}) {
    std::string command = Quote(LM_LIBMGR_PATH);
    for (const std::string& argument : arguments)
        command += " " + Quote(argument);
    const std::filesystem::path out = stdoutTarget.empty() ? scratch.Path() / "stdout.txt" : stdoutTarget;
    const std::filesystem::path err = scratch.Path() / "stderr.txt";
    command += " >" + Quote(out.string()) + " 2>" + Quote(err.string());
    const int status = std::system(command.c_str());
    return ToolRun{WIFEXITED(status) ? WEXITSTATUS(status) : -1, stdoutTarget.empty() ? ReadAll(out) : "",
                   ReadAll(err)};
}

} // namespace testsupport
