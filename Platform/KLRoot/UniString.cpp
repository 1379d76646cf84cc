#include "KLRoot/UniString.hpp"

#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <ostream>

namespace KL {

namespace {

constexpr std::uint32_t FnvOffset = 2166136261u;
constexpr std::uint32_t FnvPrime = 16777619u;

// Compares with ASCII folding up to the first difference; a non-ASCII unit met before it makes the
// answer ICU's (returns false). A difference between two ASCII units decides alone: folding of
// what follows cannot change it.
bool TryCompareAsciiFolded(std::u16string_view a, std::u16string_view b, int& result) {
    const std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] >= 0x80 || b[i] >= 0x80)
            return false;
        const UniChar x = AsciiLower(a[i]);
        const UniChar y = AsciiLower(b[i]);
        if (x != y) {
            result = x < y ? -1 : 1;
            return true;
        }
    }
    const std::u16string_view& rest = a.size() > n ? a : b;
    if (std::any_of(rest.begin() + static_cast<std::ptrdiff_t>(n), rest.end(),
                    [](UniChar c) { return c >= 0x80; }))
        return false;
    result = a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
    return true;
}

// Runs an ICU case mapping with preflighting: the result may be longer than the source.
template <typename Map>
std::u16string MapCase(std::u16string_view source, Map map) {
    std::u16string result(source.size() + source.size() / 2 + 4, u'\0');
    UErrorCode status = U_ZERO_ERROR;
    auto length = map(result.data(), static_cast<int32_t>(result.size()), source.data(),
                      static_cast<int32_t>(source.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        result.resize(static_cast<std::size_t>(length));
        status = U_ZERO_ERROR;
        length = map(result.data(), static_cast<int32_t>(result.size()), source.data(),
                     static_cast<int32_t>(source.size()), &status);
    }
    if (U_FAILURE(status))
        return std::u16string(source);
    result.resize(static_cast<std::size_t>(length));
    return result;
}

std::u16string Fold(std::u16string_view source) {
    if (IsAsciiText(source)) {
        std::u16string result(source);
        std::transform(result.begin(), result.end(), result.begin(), AsciiLower);
        return result;
    }
    return MapCase(source,
                   [](UChar* dest, int32_t capacity, const UChar* src, int32_t length, UErrorCode* status) {
                       return u_strFoldCase(dest, capacity, src, length, U_FOLD_CASE_DEFAULT, status);
                   });
}

// Decodes one code point at `i` and moves past it. A malformed sequence becomes U+FFFD; an
// overlong one, a surrogate or a value past U+10FFFF gives U+FFFD for its lead byte alone.
char32_t DecodeUTF8(const std::uint8_t* bytes, std::size_t size, std::size_t& i) {
    const std::uint8_t lead = bytes[i];
    if (lead < 0x80) {
        ++i;
        return lead;
    }
    std::size_t length = 0;
    char32_t c = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, c = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, c = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, c = lead & 0x07, minimum = 0x10000;
    }
    if (length == 0) {
        ++i;
        return 0xFFFD;
    }
    // A sequence cut short counts as one malformed unit with its continuation bytes.
    for (std::size_t k = 1; k < length; ++k) {
        if (i + k >= size || (bytes[i + k] & 0xC0) != 0x80) {
            i += k;
            return 0xFFFD;
        }
        c = (c << 6) | (bytes[i + k] & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) {
        ++i;
        return 0xFFFD;
    }
    i += length;
    return c;
}

void AppendUTF8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

std::uint32_t HashUnits(std::u16string_view units) {
    std::uint32_t hash = FnvOffset;
    for (const UniChar c : units) {
        hash = (hash ^ (c & 0xFFu)) * FnvPrime;
        hash = (hash ^ (c >> 8)) * FnvPrime;
    }
    return hash;
}

} // namespace

int CompareCodePointOrder(std::u16string_view a, std::u16string_view b) {
    const auto mismatch = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (mismatch.first == a.end())
        return mismatch.second == b.end() ? 0 : -1;
    if (mismatch.second == b.end())
        return 1;
    return CodePointOrderOf(*mismatch.first) < CodePointOrderOf(*mismatch.second) ? -1 : 1;
}

UniString::UniString(const char* utf8) : UniString(std::string_view(utf8 != nullptr ? utf8 : "")) {}

UniString::UniString(std::string_view utf8) {
    text.reserve(utf8.size());
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(utf8.data());
    for (std::size_t i = 0; i < utf8.size();) {
        const char32_t c = DecodeUTF8(bytes, utf8.size(), i);
        if (c < 0x10000) {
            text.push_back(static_cast<UniChar>(c));
        } else {
            text.push_back(static_cast<UniChar>(0xD7C0 + (c >> 10)));
            text.push_back(static_cast<UniChar>(0xDC00 | (c & 0x3FF)));
        }
    }
}

UniString::UniString(const UniChar* units) {
    if (units != nullptr)
        text = units;
}

std::string UniString::ToUTF8() const {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000)
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        else if (c >= 0xD800 && c < 0xE000)
            c = 0xFFFD; // an unpaired surrogate has no UTF-8 form
        AppendUTF8(result, c);
    }
    return result;
}

void UniString::Insert(std::size_t position, const UniString& other) {
    text.insert(std::min(position, text.size()), other.text);
}

void UniString::Delete(std::size_t position, std::size_t count) {
    if (position < text.size())
        text.erase(position, count);
}

UniString UniString::GetSubstring(std::size_t position, std::size_t count) const {
    if (position >= text.size())
        return {};
    return UniString(text.substr(position, count));
}

UniString UniString::GetSuffix(std::size_t count) const {
    return count >= text.size() ? *this : GetSubstring(text.size() - count);
}

std::size_t UniString::FindFirst(UniChar c, std::size_t from) const {
    const std::size_t at = text.find(c, from);
    return at == std::u16string::npos ? NotFound : at;
}

std::size_t UniString::FindFirst(const UniString& part, std::size_t from) const {
    const std::size_t at = text.find(part.text, from);
    return at == std::u16string::npos ? NotFound : at;
}

std::size_t UniString::FindLast(UniChar c) const {
    const std::size_t at = text.rfind(c);
    return at == std::u16string::npos ? NotFound : at;
}

std::size_t UniString::FindLast(const UniString& part) const {
    const std::size_t at = text.rfind(part.text);
    return at == std::u16string::npos ? NotFound : at;
}

bool UniString::BeginsWith(const UniString& part, CaseComparison cmp) const {
    if (cmp == CaseSensitive)
        return View().starts_with(part.View());
    return part.IsEmpty() || GetFolded().View().starts_with(part.GetFolded().View());
}

bool UniString::EndsWith(const UniString& part, CaseComparison cmp) const {
    if (cmp == CaseSensitive)
        return View().ends_with(part.View());
    return part.IsEmpty() || GetFolded().View().ends_with(part.GetFolded().View());
}

std::size_t UniString::ReplaceAll(const UniString& from, const UniString& to) {
    if (from.IsEmpty())
        return 0;
    std::size_t count = 0;
    std::u16string result;
    std::size_t start = 0;
    for (std::size_t at = text.find(from.text); at != std::u16string::npos;
         at = text.find(from.text, start)) {
        result.append(text, start, at - start);
        result.append(to.text);
        start = at + from.text.size();
        ++count;
    }
    if (count > 0) {
        result.append(text, start, std::u16string::npos);
        text = std::move(result);
    }
    return count;
}

std::size_t UniString::ReplaceAll(UniChar from, UniChar to) {
    std::size_t count = 0;
    for (UniChar& c : text) {
        if (c == from) {
            c = to;
            ++count;
        }
    }
    return count;
}

UniString UniString::GetFolded() const {
    return UniString(Fold(text));
}

UniString UniString::ToLowerCase() const {
    return UniString(MapCase(
        text, [](UChar* dest, int32_t capacity, const UChar* src, int32_t length, UErrorCode* status) {
            return u_strToLower(dest, capacity, src, length, "", status);
        }));
}

UniString UniString::ToUpperCase() const {
    return UniString(MapCase(
        text, [](UChar* dest, int32_t capacity, const UChar* src, int32_t length, UErrorCode* status) {
            return u_strToUpper(dest, capacity, src, length, "", status);
        }));
}

int UniString::Compare(const UniString& other, CaseComparison cmp) const {
    if (cmp == CaseSensitive)
        return CompareCodePointOrder(text, other.text);
    if (int result = 0; TryCompareAsciiFolded(text, other.text, result))
        return result;
    UErrorCode status = U_ZERO_ERROR;
    const int32_t result = u_strCaseCompare(text.data(), static_cast<int32_t>(text.size()), other.text.data(),
                                            static_cast<int32_t>(other.text.size()),
                                            U_FOLD_CASE_DEFAULT | U_COMPARE_CODE_POINT_ORDER, &status);
    if (U_FAILURE(status))
        return CompareCodePointOrder(Fold(text), Fold(other.text));
    return result < 0 ? -1 : (result > 0 ? 1 : 0);
}

bool UniString::IsEqual(const UniString& other, CaseComparison cmp) const {
    if (cmp == CaseSensitive)
        return text == other.text;
    return Compare(other, CaseInsensitive) == 0;
}

std::uint32_t UniString::GenerateHashValue(CaseComparison cmp) const {
    return HashUnits(cmp == CaseSensitive ? text : Fold(text));
}

int UniString::Write(OChannel& channel) const {
    if (text.size() > UINT32_MAX)
        return channel.SetStatus(ErrParam);
    if (const int err = channel.Write(static_cast<std::uint32_t>(text.size())); err != NoError)
        return err;
    if (channel.GetProtocol() == HostPlatformSign)
        return channel.WriteBin(text.data(), text.size() * sizeof(UniChar));
    for (const UniChar c : text) {
        if (const int err = channel.Write(static_cast<std::uint16_t>(c)); err != NoError)
            return err;
    }
    return NoError;
}

int UniString::Read(IChannel& channel) {
    std::uint32_t count = 0;
    if (const int err = channel.Read(count); err != NoError)
        return err;
    // ICU measures text in int32, so longer text has no stream form.
    if (count > static_cast<std::uint32_t>(INT32_MAX))
        return channel.SetStatus(ErrStreamFormat);
    std::u16string result;
    if (const int err = ReadCountedElements(channel, count, result); err != NoError)
        return err;
    if (channel.GetProtocol() != HostPlatformSign) {
        for (UniChar& c : result)
            c = ByteSwap(c);
    }
    text = std::move(result);
    return NoError;
}

OChannel& operator<<(OChannel& channel, const UniString& text) {
    return channel << text.ToUTF8();
}

std::ostream& operator<<(std::ostream& stream, const UniString& text) {
    return stream << text.ToUTF8();
}

bool IsValidUTF8(std::string_view utf8) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(utf8.data());
    for (std::size_t i = 0; i < utf8.size();) {
        const std::size_t start = i;
        // A replacement character that stands in the text itself is its three bytes EF BF BD.
        if (DecodeUTF8(bytes, utf8.size(), i) == 0xFFFD && utf8.substr(start, i - start) != "\xEF\xBF\xBD")
            return false;
    }
    return true;
}

} // namespace KL
