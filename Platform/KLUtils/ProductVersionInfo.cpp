#include "KLUtils/ProductVersionInfo.hpp"

#include "InputOutput/File.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLUtils/KLUtilsErrors.hpp"

#include <charconv>
#include <cstddef>
#include <optional>
#include <string>

namespace SU {

namespace {

constexpr std::string_view Signature = "KLVersionFile 1";
constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
// Version files are a few lines long; the bound keeps a wrong file from being read whole.
constexpr std::uint64_t MaxFileSize = 1024 * 1024;

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Strict: overlong forms, surrogates and values past U+10FFFF are refused too.
bool IsValidUTF8(std::string_view text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t size = text.size();
    for (std::size_t i = 0; i < size;) {
        const unsigned char lead = bytes[i];
        std::size_t length = 0;
        char32_t c = 0;
        char32_t minimum = 0;
        if (lead < 0x80) {
            ++i;
            continue;
        }
        if ((lead & 0xE0) == 0xC0) {
            length = 2, c = lead & 0x1F, minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, c = lead & 0x0F, minimum = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, c = lead & 0x07, minimum = 0x10000;
        } else {
            return false;
        }
        if (size - i < length)
            return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((bytes[i + k] & 0xC0) != 0x80)
                return false;
            c = (c << 6) | (bytes[i + k] & 0x3F);
        }
        if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000))
            return false;
        i += length;
    }
    return true;
}

std::optional<std::int32_t> ParseInt32(std::string_view text) {
    std::int32_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || text.empty())
        return std::nullopt;
    return value;
}

std::optional<bool> ParseBool(std::string_view text) {
    if (text == "true")
        return true;
    if (text == "false")
        return false;
    return std::nullopt;
}

} // namespace

ProductVersionInfo::ProductVersionInfo(const IO::Location& location) {
    IO::File file(location);
    status = file.GetStatus();
    if (status != KL::NoError)
        return;
    status = file.Open(IO::File::ReadMode);
    if (status != KL::NoError)
        return;
    std::uint64_t length = 0;
    status = file.GetDataLength(&length);
    if (status != KL::NoError)
        return;
    if (length > MaxFileSize) {
        status = VersionFileFormatError;
        return;
    }
    std::string content(static_cast<std::size_t>(length), '\0');
    status = file.ReadBin(content.data(), length);
    if (status != KL::NoError)
        return;
    Parse(content);
}

KL::UniString ProductVersionInfo::GetPreferencesPostfix() {
    return KL::UniString("R1");
}

void ProductVersionInfo::Parse(std::string_view text) {
    if (text.starts_with(ByteOrderMark))
        text.remove_prefix(ByteOrderMark.size());
    bool signatureSeen = false;
    int lineNumber = 0;
    for (std::size_t start = 0;;) {
        ++lineNumber;
        const std::size_t newline = text.find('\n', start);
        std::string_view line =
            text.substr(start, newline == std::string_view::npos ? text.npos : newline - start);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        const std::string_view trimmed = Trim(line);
        bool fault = !IsValidUTF8(line);
        if (!fault && !trimmed.empty()) {
            if (!signatureSeen) {
                fault = line != Signature;
                signatureSeen = true;
            } else if (trimmed.front() != '#') {
                const std::size_t equals = trimmed.find('=');
                fault = equals == std::string_view::npos || equals == 0 ||
                        !ApplyEntry(Trim(trimmed.substr(0, equals)), Trim(trimmed.substr(equals + 1)));
            }
        }
        if (fault) {
            status = VersionFileFormatError;
            errorLine = lineNumber;
            return;
        }
        if (newline == std::string_view::npos)
            break;
        start = newline + 1;
    }
    // A file without its signature is not a version file: blame the end, where it was still awaited.
    if (!signatureSeen) {
        status = VersionFileFormatError;
        errorLine = lineNumber;
    }
}

bool ProductVersionInfo::ApplyEntry(std::string_view key, std::string_view value) {
    const auto text = [value](KL::UniString& target) {
        target = KL::UniString(value);
        return true;
    };
    const auto appendText = [value](KL::Array<KL::UniString>& target) {
        target.Push(KL::UniString(value));
        return true;
    };
    const auto id = [value](KL::Guid& target) {
        const std::optional<KL::Guid> parsed = KL::Guid::Parse(value);
        if (parsed)
            target = *parsed;
        return parsed.has_value();
    };
    const auto appendId = [value](KL::Array<KL::Guid>& target) {
        const std::optional<KL::Guid> parsed = KL::Guid::Parse(value);
        if (parsed)
            target.Push(*parsed);
        return parsed.has_value();
    };

    if (key == "Name")
        return text(name);
    if (key == "Guid")
        return id(guid);
    if (key == "Language")
        return text(languageCode);
    if (key == "Version") {
        const std::optional<std::int32_t> parsed = ParseInt32(value);
        if (parsed)
            versionNum1 = *parsed;
        return parsed.has_value();
    }
    if (key == "CollapseLongBranches") {
        const std::optional<bool> parsed = ParseBool(value);
        if (parsed)
            collapseLongBranches = *parsed;
        return parsed.has_value();
    }
    if (key == "UpdatesLibrary")
        return text(updatesLibrary);
    if (key == "UpdatesGuid")
        return id(updatesGuid);
    if (key == "NeedsLibrary")
        return appendText(needsLibrary);
    if (key == "NeedsGuid")
        return appendId(needsGuid);
    if (key == "SupersedesLibrary")
        return appendText(supersedesLibrary);
    if (key == "SupersedesGuid")
        return appendId(supersedesGuid);
    // Unknown keys belong to newer writers.
    return true;
}

} // namespace SU
