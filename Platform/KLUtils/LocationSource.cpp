#include "KLUtils/LocationSource.hpp"

#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Hex.hpp"

#include <cctype>
#include <string>

namespace IOUtil {

namespace {

constexpr std::string_view FileScheme = "file://";

bool IsUnreserved(unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_' || c == '~' || c == '/';
}

bool PercentDecode(std::string_view text, std::string& result) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        const int high = i + 1 < text.size() ? KL::HexDigitValue(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? KL::HexDigitValue(text[i + 2]) : -1;
        if (high < 0 || low < 0)
            return false;
        result += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

} // namespace

KL::UniString LocationToSource(const IO::Location& location, bool asPath) {
    const std::string path = location.ToString();
    if (asPath || location.IsEmpty())
        return KL::UniString(path);
    std::string url(FileScheme);
    static constexpr char Digits[] = "0123456789ABCDEF";
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (IsUnreserved(byte)) {
            url += c;
        } else {
            url += '%';
            url += Digits[byte >> 4];
            url += Digits[byte & 0xF];
        }
    }
    return KL::UniString(url);
}

int SourceToLocation(const KL::UniString& source, IO::Location* location) {
    if (location == nullptr)
        return KL::ErrParam;
    const std::string text = source.ToUTF8();
    std::string path;
    if (text.starts_with(FileScheme)) {
        std::string_view rest = std::string_view(text).substr(FileScheme.size());
        if (rest.starts_with("localhost"))
            rest.remove_prefix(std::string_view("localhost").size());
        if (!rest.starts_with('/') || !PercentDecode(rest, path))
            return IO::InvalidLocationError;
    } else {
        path = text;
    }
    IO::Location result(path);
    if (result.IsEmpty())
        return IO::InvalidLocationError;
    *location = std::move(result);
    return KL::NoError;
}

} // namespace IOUtil
