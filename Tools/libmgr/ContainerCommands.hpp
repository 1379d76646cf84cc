#pragma once

// The commands that write container files and unpack them again.
#include "CommandLine.hpp"

namespace libmgr {

int RunPackCommand(const Arguments& arguments);
int RunUnpackCommand(const Arguments& arguments);

} // namespace libmgr
