#pragma once

// What the XML writer and reader of part files share: names, defaults and text rules.
#include "LibPartFile/SectionInfo.hpp"
#include "QDL/ParamXML.hpp"

#include "KLRoot/UniString.hpp"

#include <optional>
#include <string>

namespace KLM::Form {

inline constexpr SyBitName StatusBitNames[] = {
    {STBit_UIDefault, "UIDefault"},
    {STBit_FixSize, "FixSize"},
    {STBit_SizeTo2D, "SizeTo2D"},
    {STBit_OneRunVLScript, "OneRunVLScript"},
};

inline constexpr const char* MigrationValueNames[] = {"Normal", "IncompatiblyChanged", "Obsolete"};

// Four printable characters as they are, anything else as 0x and eight hex digits.
std::string CodeToText(std::uint32_t code);
std::optional<std::uint32_t> TextToCode(const std::string& text);

std::string MigrationValueToText(std::int32_t value);
std::optional<std::int32_t> TextToMigrationValue(const std::string& text);

// Whether XML can carry the text exactly: as element content (tabs and line ends allowed) or as
// an attribute value (where a parser would turn them into blanks).
bool IsXMLText(const KL::UniString& text, bool inAttribute);
bool IsXMLText(const std::string& utf8, bool inAttribute);

} // namespace KLM::Form
