#include "VBUtils/ProcessControl.hpp"

namespace OVFS {

ProcessControl::~ProcessControl() = default;

} // namespace OVFS
