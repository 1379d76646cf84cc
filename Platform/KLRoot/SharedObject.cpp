#include "KLRoot/SharedObject.hpp"

namespace KL {

SharedObject::~SharedObject() = default;

} // namespace KL
