#pragma once

#include "InputOutput/IOErrors.hpp"

namespace SU {

// Status codes of the utilities' own file formats; the file layer's codes pass through unchanged.
inline constexpr int VersionFileFormatError =
    IO::ToErrorCode(0x81060001u); // a version file breaks its format, is too large or is not UTF-8

} // namespace SU
