#pragma once

// The byte layout of a part file (docs/formats/klm.md): header, directory, section data.
#include "LibPartFile/ByteSource.hpp"
#include "LibPartFile/SectionInfo.hpp"

#include "KLRoot/Channel.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <vector>

namespace LPF {

inline constexpr std::uint16_t CurrentFormatVersion = 1;
inline constexpr std::int16_t CurrentPartVersion = 30;
inline constexpr std::uint64_t FixedHeaderSize = 72;
inline constexpr std::uint64_t DirectoryEntrySize = 24;
inline constexpr std::uint32_t MaxDocumentNameLength = 4096;
inline constexpr std::uint32_t PlaceableFlag = 1;
inline constexpr std::uint32_t ArchivableFlag = 2;

struct PartHeader {
    KL::PlatformSign byteOrder = KL::LittleEndianSign;
    std::uint32_t signature = MakeCode("KSYM");
    std::uint32_t owner = MakeCode("KLTX");
    KL::UnID ownUnID;
    std::int16_t version = CurrentPartVersion;
    std::int16_t originalVersion = CurrentPartVersion;
    std::uint32_t flags = 0;
    std::int32_t migrationValue = Normal;
    KL::UniString documentName;
};

struct DirectoryEntry {
    SectionInfo info;
    std::uint64_t offset = 0;
};

// Reads and checks the header; `headerSize` and `sectionCount` say where the directory lies.
int ReadPartHeader(ByteSource& source, PartHeader* header, std::uint64_t* headerSize,
                   std::uint32_t* sectionCount);

// Reads and checks the directory against the file's length: every section inside the data area,
// none overlapping another, no tag and index twice.
int ReadPartDirectory(ByteSource& source, const PartHeader& header, std::uint64_t headerSize,
                      std::uint32_t sectionCount, std::vector<DirectoryEntry>* directory);

// Header and directory bytes for sections of these sizes, in this order; fills in their offsets.
std::vector<char> BuildPartPrologue(const PartHeader& header, std::vector<DirectoryEntry>* directory);

// Sections start at multiples of this, so that a reader may map them in place.
inline constexpr std::uint64_t SectionAlignment = 8;

} // namespace LPF
