#pragma once

#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace KL {

// Thread identities: numbers unique in the process, never reused.
class LM_EXPORT Thread {
public:
    using Id = std::int64_t;

    static Id GetCurrent();
    // The thread that loaded the library, unless a host named another with SetMain.
    static Id GetMain();
    static void SetMain(Id id);
    static bool IsMain() { return GetCurrent() == GetMain(); }
};

} // namespace KL
