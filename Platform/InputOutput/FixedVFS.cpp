#include "InputOutput/FixedVFS.hpp"

namespace IO {

FixedVFS::~FixedVFS() = default;

void FixedVFS::Mounted(const Location&) {}

void FixedVFS::Unmounted() {}

} // namespace IO
