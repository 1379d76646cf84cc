#pragma once

#include "CommandLine.hpp"

namespace libmgr {

// libmgr report: the chosen parts as XML for tools, or the whole catalogue as one page that a
// library author opens in a browser.
int RunReportCommand(const Arguments& arguments);

} // namespace libmgr
