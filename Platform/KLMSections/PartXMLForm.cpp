#include "KLMSections/PartXMLForm.hpp"

#include "KLRoot/Hex.hpp"
#include "KLRoot/NumberText.hpp"

#include <cstdio>

namespace KLM::Form {

std::string CodeToText(std::uint32_t code) {
    char text[5];
    LPF::TagToText(code, text);
    for (int i = 0; i < 4; ++i) {
        if (text[i] < 0x20 || text[i] > 0x7E) {
            char hex[11];
            std::snprintf(hex, sizeof hex, "0x%08X", code);
            return hex;
        }
    }
    return text;
}

std::optional<std::uint32_t> TextToCode(const std::string& text) {
    if (text.size() == 4) {
        std::uint32_t code = 0;
        for (const char c : text)
            code = code << 8 | static_cast<unsigned char>(c);
        return code;
    }
    if (text.size() == 10 && text.starts_with("0x")) {
        std::uint32_t code = 0;
        for (std::size_t i = 2; i < text.size(); ++i) {
            const int digit = KL::HexDigitValue(text[i]);
            if (digit < 0)
                return std::nullopt;
            code = code << 4 | static_cast<std::uint32_t>(digit);
        }
        return code;
    }
    return std::nullopt;
}

std::string MigrationValueToText(std::int32_t value) {
    if (value >= 0 && value < static_cast<std::int32_t>(std::size(MigrationValueNames)))
        return MigrationValueNames[value];
    return std::to_string(value);
}

std::optional<std::int32_t> TextToMigrationValue(const std::string& text) {
    for (std::size_t i = 0; i < std::size(MigrationValueNames); ++i) {
        if (text == MigrationValueNames[i])
            return static_cast<std::int32_t>(i);
    }
    std::int32_t value = 0;
    if (KL::ParseInt32(text, &value))
        return value;
    return std::nullopt;
}

bool IsXMLText(const KL::UniString& text, bool inAttribute) {
    const std::u16string& units = text.Units();
    for (std::size_t i = 0; i < units.size(); ++i) {
        const char16_t c = units[i];
        if (c == u'\t' || c == u'\n' || c == u'\r') {
            if (inAttribute)
                return false;
        } else if (c < 0x20 || c == 0xFFFE || c == 0xFFFF) {
            return false;
        } else if (c >= 0xD800 && c <= 0xDBFF) {
            if (i + 1 == units.size() || units[i + 1] < 0xDC00 || units[i + 1] > 0xDFFF)
                return false;
            ++i;
        } else if (c >= 0xDC00 && c <= 0xDFFF) {
            return false;
        }
    }
    return true;
}

bool IsXMLText(const std::string& utf8, bool inAttribute) {
    const KL::UniString text(utf8);
    // A byte sequence that is not UTF-8 would not come back as the same bytes.
    return text.ToUTF8() == utf8 && IsXMLText(text, inAttribute);
}

} // namespace KLM::Form
