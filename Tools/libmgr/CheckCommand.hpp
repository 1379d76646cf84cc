#pragma once

// libmgr check: what a library author runs before shipping a library.
#include "CommandLine.hpp"

namespace libmgr {

int RunCheckCommand(const Arguments& arguments);

} // namespace libmgr
