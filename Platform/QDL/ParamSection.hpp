#pragma once

// The parameter section "PARD" of a part (docs/formats/klm.md): a fixed header, a block of parameter
// records, a block of their descriptions and values, frame expressions and orientation texts.
#include "KLRoot/Channel.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <string>
#include <vector>

enum SyParType : std::uint16_t {
    ParLength = 1,
    ParAngle = 2,
    ParRealNum = 3,
    ParInteger = 4,
    ParBoolean = 5,
    ParString = 6,
    ParMaterial = 7,
    ParFillPattern = 8,
    ParLineType = 9,
    ParPenColor = 10,
    ParSeparator = 11,
    ParTitle = 12,
};

enum SyParFlag : std::uint16_t {
    ParFlagHidden = 1,
    ParFlagChild = 2,
    ParFlagBoldName = 4,
    ParFlagFixed = 8,
    ParFlagUnique = 0x10,
};

enum SyParStatusBit : std::uint16_t {
    STBit_UIDefault = 1,
    STBit_FixSize = 2,
    STBit_SizeTo2D = 4,
    STBit_OneRunVLScript = 0x10,
};

inline constexpr std::uint8_t CurrentParHeaderVersion = 2;
inline constexpr std::size_t MaxParNameLength = 31;
inline constexpr std::size_t MaxFrameExpressions = 6;
inline constexpr std::size_t OrientationTextSize = 32;

struct SyParHeader {
    std::uint8_t version = CurrentParHeaderVersion;
    bool autoHotspots = false;
    std::uint16_t statusBits = 0;
    float leftFrame = 0, rightFrame = 0, topFrame = 0, bottomFrame = 0;
    std::uint32_t layerFlags = 0;
    float mirrorThickness = 0;
    float wallInset = 0;
    std::uint32_t symbolColor = 0;

    bool operator==(const SyParHeader&) const = default;
};

// One parameter. Scalars hold one value; arrays dim1 values, or dim1 × dim2 row by row. String
// parameters keep their values in `texts`, the others in `numbers`; separators and titles have none.
struct SyParameter {
    std::string name;
    std::uint16_t type = ParRealNum;
    std::uint16_t flags = 0;
    KL::UniString description;
    std::uint32_t dim1 = 0;
    std::uint32_t dim2 = 0;
    std::vector<double> numbers;
    std::vector<KL::UniString> texts;

    bool operator==(const SyParameter&) const = default;
};

LM_EXPORT bool IsKnownParType(std::uint16_t type);
LM_EXPORT bool HasParValue(std::uint16_t type);
// How many values the parameter's shape asks for.
LM_EXPORT std::uint64_t GetParValueCount(const SyParameter& parameter);

struct SyParSection {
    SyParHeader header;
    std::vector<SyParameter> parameters;
    std::vector<std::string> frameExpressions;
    bool hasOrientation = false;
    std::string orientationDef;
    std::string orientationMirr;

    bool operator==(const SyParSection&) const = default;
};

// Decodes and checks a section in the host's order; KL::ErrStreamFormat for any fault.
LM_EXPORT int ParseSyParSection(const char* data, std::uint64_t size, SyParSection* section);
// A new handle with the section's bytes, or null when memory runs out or the section cannot be
// encoded (a name too long, values that do not fit the shape).
LM_EXPORT GSHandle BuildSyParHandle(const SyParSection& section);

// Checks a parameter handle in the host's order, as the engine does before it reads one.
LM_EXPORT int QDLDecode_ParHdl(GSHandle handle);
// The section's bytes from one byte order to the other, in place.
LM_EXPORT int ConvertParamSection(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to);

// Splits a parameter section: the header, the parameter records, their descriptions and values,
// the frame expressions and the orientation. Each output may be null; each handle given is new.
LM_EXPORT int SplitSyParHandle(const char* const* section, SyParHeader* header, GSHandle* names,
                               GSHandle* values, GSHandle* frameExpressions, GSHandle* orientation);
// The parameters alone, as the handle that QDLAddParData is built from.
LM_EXPORT int SplitSyParHandle(const char* const* section, GSHandle* addPar);
LM_EXPORT int ParseAddParHandle(const char* const* addPar, std::vector<SyParameter>* parameters);
LM_EXPORT int ParseSyParameters(const char* const* names, const char* const* values,
                                std::vector<SyParameter>* parameters);

// A new section with the header and parameters of `reference`, in which every parameter that
// `actual` has too, with the same name, type and shape, takes the value from `actual`. Merge type
// 0 is the only one; other values, or sections that do not parse, give null.
LM_EXPORT GSHandle NewSyParHdlFromRef(const char* const* reference, const char* const* actual, void* reserved,
                                      int mergeType);

// A section of length parameters named A, B, C… holding the given values (at most 26).
LM_EXPORT GSHandle QDLParamsToVarHdl(const double* values, int count);
