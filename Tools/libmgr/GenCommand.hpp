#pragma once

#include "CommandLine.hpp"

namespace libmgr {

// libmgr gen: writes a synthetic library for benchmarks and tests.
int RunGenCommand(const Arguments& arguments);

} // namespace libmgr
