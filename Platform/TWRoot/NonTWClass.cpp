#include "TWRoot/NonTWClass.hpp"

namespace TW {

const NonTWClass& NonTWClass::Get() {
    static const NonTWClass property;
    return property;
}

} // namespace TW
