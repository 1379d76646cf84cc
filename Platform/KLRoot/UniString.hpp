#pragma once

#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace KL {

class IChannel;
class OChannel;

using UniChar = char16_t;

// A code unit's place in code point order: surrogates move above the rest of the BMP, so that
// comparing these places unit by unit orders texts by code point.
constexpr std::uint16_t CodePointOrderOf(UniChar c) {
    if (c < 0xD800)
        return c;
    return static_cast<std::uint16_t>(c >= 0xE000 ? c - 0x800u : c + 0x2000u);
}

// Full case folding of ASCII text is this alone: A to Z lowered.
constexpr UniChar AsciiLower(UniChar c) {
    return (c >= u'A' && c <= u'Z') ? static_cast<UniChar>(c + 32) : c;
}

inline bool IsAsciiText(std::u16string_view text) {
    for (const UniChar c : text)
        if (c >= 0x80)
            return false;
    return true;
}

// Negative, zero or positive, in code point order, exactly (UniString::Compare on views).
LM_EXPORT int CompareCodePointOrder(std::u16string_view a, std::u16string_view b);

// How text is compared: exactly, or through Unicode full case folding ("Straße" equals "STRASSE").
enum CaseComparison { CaseSensitive = 0, CaseInsensitive = 1 };

// Unicode text as UTF-16 code units. Comparisons order by code point; case-insensitive ones fold
// case with ICU. The stream form is a u32 count of code units followed by the units in the
// channel's byte order.
class LM_EXPORT UniString {
public:
    static constexpr std::size_t NotFound = static_cast<std::size_t>(-1);

    UniString() = default;
    UniString(const char* utf8); // NOLINT(google-explicit-constructor): text literals read naturally
    UniString(std::string_view utf8);
    UniString(const std::string& utf8) : UniString(std::string_view(utf8)) {}
    UniString(const UniChar* units);
    UniString(const UniChar* units, std::size_t count) : text(units, count) {}
    UniString(std::u16string units) : text(std::move(units)) {}
    UniString(std::u16string_view units) : text(units) {}

    static UniString FromUTF8(std::string_view utf8) { return UniString(utf8); }
    std::string ToUTF8() const;

    std::size_t GetLength() const { return text.size(); }
    bool IsEmpty() const { return text.empty(); }
    UniChar operator[](std::size_t index) const { return text[index]; }
    const UniChar* GetContent() const { return text.c_str(); }
    std::u16string_view View() const { return text; }
    const std::u16string& Units() const { return text; }

    void Clear() { text.clear(); }
    // Empties both texts, this one keeping the memory `other` had: a text assigned next takes
    // no allocation when it fits.
    void TakeMemoryOf(UniString& other) noexcept {
        text.swap(other.text);
        text.clear();
        other.text.clear();
    }
    UniString& Append(const UniString& other) {
        text.append(other.text);
        return *this;
    }
    UniString& Append(UniChar c) {
        text.push_back(c);
        return *this;
    }
    UniString& operator+=(const UniString& other) { return Append(other); }
    UniString& operator+=(UniChar c) { return Append(c); }
    void Insert(std::size_t position, const UniString& other);
    void Delete(std::size_t position, std::size_t count = NotFound);
    UniString GetSubstring(std::size_t position, std::size_t count = NotFound) const;
    UniString GetPrefix(std::size_t count) const { return GetSubstring(0, count); }
    UniString GetSuffix(std::size_t count) const;

    std::size_t FindFirst(UniChar c, std::size_t from = 0) const;
    std::size_t FindFirst(const UniString& part, std::size_t from = 0) const;
    std::size_t FindLast(UniChar c) const;
    std::size_t FindLast(const UniString& part) const;
    bool Contains(const UniString& part) const { return FindFirst(part) != NotFound; }
    bool BeginsWith(const UniString& part, CaseComparison cmp = CaseSensitive) const;
    bool EndsWith(const UniString& part, CaseComparison cmp = CaseSensitive) const;
    // Replaces every occurrence, left to right without overlap; returns how many were replaced.
    std::size_t ReplaceAll(const UniString& from, const UniString& to);
    std::size_t ReplaceAll(UniChar from, UniChar to);

    // Unicode full case folding (the form case-insensitive comparisons use).
    UniString GetFolded() const;
    UniString ToLowerCase() const;
    UniString ToUpperCase() const;

    // Negative, zero or positive; in code point order, after folding when case-insensitive.
    int Compare(const UniString& other, CaseComparison cmp = CaseSensitive) const;
    bool IsEqual(const UniString& other, CaseComparison cmp = CaseSensitive) const;
    bool operator==(const UniString& other) const { return text == other.text; }
    bool operator==(const char* utf8) const { return *this == UniString(utf8); }
    bool operator<(const UniString& other) const { return Compare(other) < 0; }

    // 32-bit hash; equal texts under `cmp` hash alike.
    std::uint32_t GenerateHashValue(CaseComparison cmp = CaseSensitive) const;

    int Write(OChannel& channel) const;
    int Read(IChannel& channel);

private:
    std::u16string text;
};

inline UniString operator+(UniString left, const UniString& right) {
    return left.Append(right);
}

// Text output, as UTF-8.
LM_EXPORT OChannel& operator<<(OChannel& channel, const UniString& text);
// Strict: overlong forms, surrogates and values past U+10FFFF are refused too.
LM_EXPORT bool IsValidUTF8(std::string_view utf8);
LM_EXPORT std::ostream& operator<<(std::ostream& stream, const UniString& text);

// Hash and equality functors for tables keyed by text without case.
struct CaseInsensitiveHash {
    std::size_t operator()(const UniString& text) const { return text.GenerateHashValue(CaseInsensitive); }
};
struct CaseInsensitiveEqual {
    bool operator()(const UniString& a, const UniString& b) const { return a.IsEqual(b, CaseInsensitive); }
};

} // namespace KL

template <>
struct std::hash<KL::UniString> {
    std::size_t operator()(const KL::UniString& text) const noexcept { return text.GenerateHashValue(); }
};
