#pragma once

#include "InputOutput/FileType.hpp"

#include <cstdint>

namespace LPF {

// Four characters read as a big-endian number, like file type codes.
using SectionTag = std::uint32_t;
using FTM::MakeCode;

namespace Tags {
inline constexpr SectionTag Ancestry = MakeCode("ANCS");
inline constexpr SectionTag Parameters = MakeCode("PARD");
inline constexpr SectionTag MigrationTable = MakeCode("MGRT");
inline constexpr SectionTag CalledMacros = MakeCode("MCRS");
inline constexpr SectionTag Drawing2D = MakeCode("2DDR");
inline constexpr SectionTag Binary3D = MakeCode("3DBN");
inline constexpr SectionTag Preview = MakeCode("GIFF");
inline constexpr SectionTag Picture = MakeCode("QDLP");
inline constexpr SectionTag MasterScript = MakeCode("1DSC");
// The eight script sections, in the order of the script engine's script types 1 to 8.
inline constexpr SectionTag Scripts[8] = {MakeCode("PRSC"), MakeCode("2DSC"), MakeCode("3DSC"),
                                          MakeCode("UISC"), MakeCode("VLSC"), MakeCode("1DSC"),
                                          MakeCode("FMSC"), MakeCode("BMSC")};
} // namespace Tags

constexpr bool IsScriptTag(SectionTag tag) {
    for (const SectionTag script : Tags::Scripts) {
        if (script == tag)
            return true;
    }
    return false;
}

// The tag as its four characters.
inline void TagToText(SectionTag tag, char (&text)[5]) {
    for (int i = 0; i < 4; ++i)
        text[i] = static_cast<char>(tag >> (24 - 8 * i) & 0xFF);
    text[4] = '\0';
}

inline constexpr std::uint16_t DefaultSectionVersion = 1;

// What the directory of a part file says about one section.
struct SectionInfo {
    SectionTag tag = 0;
    std::uint16_t subIdent = 0;
    std::uint16_t version = DefaultSectionVersion;
    std::uint8_t flags = 0;
    std::uint32_t size = 0;
};

// How a part stands to the parts that replace it.
enum MigrationValue : std::int32_t {
    Normal = 0,
    IncompatiblyChanged = 1,
    Obsolete = 2,
};

} // namespace LPF
