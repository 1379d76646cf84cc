#include "KLUtils/ProductVersionInfo.hpp"

#include "InputOutput/File.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/NumberText.hpp"
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
        bool fault = !KL::IsValidUTF8(line);
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
        std::int32_t parsed = 0;
        if (!KL::ParseInt32(std::string(value), &parsed))
            return false;
        versionNum1 = parsed;
        return true;
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
