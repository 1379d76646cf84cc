#pragma once

#include "InputOutput/FileType.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace FTM {
class FileTypeManager;
}
namespace IO {
class Location;
}

namespace LM {

// The optional text file of further file types a library may hold, one per line:
// name, extensions, creator code and type code, separated by tabs.
inline constexpr const char* BinFileTypesFileName = "BinFileTypes.txt";

struct BinFileTypeLine {
    std::string name;
    std::string extensions;
    std::uint32_t creator = 0;
    std::uint32_t type = 0;
};

// The lines of the file that describe a type. Lines end at LF or CR or after 255 bytes, so a
// longer line goes on as the next one; a line with an empty field describes nothing. Codes are
// the first four bytes of their field as a little-endian number.
LM_EXPORT std::vector<BinFileTypeLine> ParseBinFileTypes(std::string_view text);

// Registers the types of the file at `location` under the root group and appends their ids to
// `storable`. A file that cannot be read changes nothing.
LM_EXPORT void RegisterBinFileTypes(const IO::Location& location, FTM::FileTypeManager& manager,
                                    KL::Array<FTM::GeneralID>* storable);

} // namespace LM
