#pragma once

#include "CommandLine.hpp"

namespace libmgr {

// The commands that ask the catalogue about parts: find runs the search chains and says which
// stage answered; show describes one part in full.
int RunFindCommand(const Arguments& arguments);
int RunShowCommand(const Arguments& arguments);

} // namespace libmgr
