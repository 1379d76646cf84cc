#pragma once

// What a walk of a library folder leaves out without failing: folders it cannot read, trees deeper
// than the walker goes, paths longer than the system takes, and names that are no UTF-8.
#include <filesystem>
#include <string>
#include <vector>

namespace libmgr {

struct PassedOver {
    std::string kind;
    // From the library's own name on, with bytes that are no UTF-8 written as \xNN.
    std::string place;
};

// A walk of its own, as the library walker would go; links are not followed.
std::vector<PassedOver> FindPassedOver(const std::filesystem::path& library);

} // namespace libmgr
