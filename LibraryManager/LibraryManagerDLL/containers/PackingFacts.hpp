#pragma once

// What every packer decides alike, whichever container format it writes: which parts go in, the
// facts of a folder that is itself a mounted container or lies inside one, the name an embedded
// library goes under, the type facts of a part's file, and the file type of the result.
#include "containers/ContainerFormat.hpp"

#include "InputOutput/Location.hpp"
#include "InputOutput/Name.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <string>

namespace LM {

class LibPart;
class LibrarySet;

// The type and creator a written container file gets, whichever its format.
inline constexpr std::uint32_t ContainerMacType = 0x2E4C4346;    // ".LCF"
inline constexpr std::uint32_t ContainerMacCreator = 0x4B4C5458; // "KLTX"

// The location of active library `index` when it is packed: it exists, is not built in, and has
// one.
bool GetPackedLibraryLocation(const LibrarySet& librarySet, int index, IO::Location* location);
// A part goes in when `selection` is null or marks it true, it is valid, and the set lets it be
// archived.
LM_EXPORT bool IsPackedPart(const LibrarySet& librarySet,
                            const KL::HashTable<const LibPart*, bool>* selection, const LibPart* part);

// The header of the container mounted at `location` as an "EMBH" item, followed by copies of the
// header's own info items; empty when no readable container file is mounted there.
InfoArray NestedContainerInfos(const IO::Location& location);

// Whether a folder inside a mounted container of either kind is one of its sub-containers.
bool IsMountedSubContainer(const IO::Location& location);
// Appends copies of the info items a mounted container of either kind keeps for that folder.
void AddMountedFolderInfos(const IO::Location& location, InfoArray* infos);

// The process's name for an embedded library; an invalid name when it has no usable one.
IO::Name DefaultEmbeddedFolderName();

struct FileTypeFacts {
    std::string mime; // empty when the type has none
    std::int32_t macType = 0;
    std::int32_t macCreator = 0;
};

// The type a part's file is stored under: groups are resolved, the group of part files by its
// first type, any other by the file at `location`. All empty for an unknown type.
FileTypeFacts FileTypeFactsOf(const LibPart& part, const IO::Location& location);

} // namespace LM
