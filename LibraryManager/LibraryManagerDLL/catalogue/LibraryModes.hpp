#pragma once

#include <cstdint>

namespace LM {

// What kind of library an item is; 0 stands for "all" in counts.
enum LibraryMode : std::int32_t {
    AllLibraryModes = 0,
    LocalLibrary = 1,
    UrlLibrary = 2,
    BuiltInLibrary = 3,
    OtherObjectByLocation = 4,
    EmbeddedLibrary = 5,
    OtherObjectByUrl = 6,
    ServerLibrary = 7
};

// 1 is vital: a vital library is read even after the user asked for a break. Any other value is
// not vital.
using VitalMode = std::int32_t;
inline constexpr VitalMode Vital = 1;
inline constexpr VitalMode NotVital = 0;

// How tolerant name searches are; the modes are settled by the search code.
using LibpartSearchCompatibility = std::int32_t;

} // namespace LM
