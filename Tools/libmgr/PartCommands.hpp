#pragma once

#include "CommandLine.hpp"

namespace libmgr {

// libmgr part build|dump: compile an XML description into a part file, and back.
int RunPartCommand(const Arguments& arguments);

} // namespace libmgr
