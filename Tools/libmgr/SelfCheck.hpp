#pragma once

#include <iosfwd>

namespace libmgr {

// Exercises the foundation through the public interface as a host would, and reports each
// check on `out`. Returns true when all passed.
bool RunSelfCheck(std::ostream& out);

} // namespace libmgr
