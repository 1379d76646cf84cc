#pragma once

#include "KLRoot/KLExport.hpp"

namespace LPF {

// Error codes of the part file layer. Format faults are told apart so that a tool can say which
// rule a hostile or damaged file broke.
inline constexpr int SectionNotFoundError = static_cast<int>(0x81050001); // no section of that tag and index
inline constexpr int NotAPartFileError = static_cast<int>(0x81050002); // wrong signature or byte order mark
inline constexpr int UnsupportedVersionError =
    static_cast<int>(0x81050003); // a format version this reader does not know
inline constexpr int CorruptHeaderError = static_cast<int>(0x81050004); // header sizes do not fit the file
inline constexpr int CorruptDirectoryError =
    static_cast<int>(0x81050005); // section count, bounds, overlap or repeats
inline constexpr int CorruptSectionError =
    static_cast<int>(0x81050006); // a section's content breaks its own layout
inline constexpr int FileChangedError =
    static_cast<int>(0x81050007);                                // the file changed after its header was read
inline constexpr int NoFileError = static_cast<int>(0x81050008); // a part that lives only in memory

// One line of text for a code of this layer, the file layer or the foundation.
LM_EXPORT const char* DescribeError(int error);

} // namespace LPF
