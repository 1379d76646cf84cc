#pragma once

#include "KLRoot/Channel.hpp"
#include "KLRoot/Hex.hpp"
#include "KLRoot/KLExport.hpp"

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace KL {

class IChannel;
class OChannel;
class UniString;

// A 128-bit id with the layout u32, u16, u16, u8[8]. Its text form is
// XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX; the raw and stream forms store the three numbers in the
// byte order of the channel or platform sign and the eight bytes as they are.
class LM_EXPORT Guid {
public:
    static constexpr std::size_t RawSize = 16;

    constexpr Guid() = default;
    constexpr Guid(std::uint32_t d1, std::uint16_t d2, std::uint16_t d3,
                   const std::array<std::uint8_t, 8>& d4)
        : data1(d1), data2(d2), data3(d3), data4(d4) {}
    // For literals in code: a malformed text does not compile. Text from outside goes through Parse.
    consteval explicit Guid(std::string_view text) {
        const std::optional<Guid> parsed = Parse(text);
        if (!parsed)
            throw "malformed guid literal";
        *this = *parsed;
    }

    // Accepts the text form with or without braces, in either case.
    static constexpr std::optional<Guid> Parse(std::string_view text);
    static std::optional<Guid> Parse(const UniString& text);
    static std::optional<Guid> Parse(const std::string& text) { return Parse(std::string_view(text)); }
    static constexpr std::optional<Guid> Parse(const char* text) { return Parse(std::string_view(text)); }
    static Guid Generate();
    static Guid FromRaw(const void* bytes, PlatformSign sign);

    std::uint32_t GetData1() const { return data1; }
    std::uint16_t GetData2() const { return data2; }
    std::uint16_t GetData3() const { return data3; }
    const std::array<std::uint8_t, 8>& GetData4() const { return data4; }

    constexpr bool IsNull() const { return *this == Guid(); }
    void Clear() { *this = Guid(); }

    // Orders by data1, data2, data3, then the bytes of data4; returns -1, 0 or 1.
    constexpr int Compare(const Guid& other) const {
        if (data1 != other.data1)
            return data1 < other.data1 ? -1 : 1;
        if (data2 != other.data2)
            return data2 < other.data2 ? -1 : 1;
        if (data3 != other.data3)
            return data3 < other.data3 ? -1 : 1;
        for (std::size_t i = 0; i < data4.size(); ++i) {
            if (data4[i] != other.data4[i])
                return data4[i] < other.data4[i] ? -1 : 1;
        }
        return 0;
    }
    constexpr bool operator==(const Guid&) const = default;
    constexpr std::strong_ordering operator<=>(const Guid& other) const { return Compare(other) <=> 0; }

    // 16-bit hash: the xor of the guid's eight 16-bit words.
    std::uint16_t GetHashValue() const;
    // Full-width hash for hash tables.
    std::size_t GetFullHashValue() const;

    std::string ToString() const;
    UniString ToUniString() const;

    void ToRaw(void* bytes, PlatformSign sign) const;
    int Write(OChannel& channel) const;
    int Read(IChannel& channel);

private:
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::array<std::uint8_t, 8> data4{};
};

inline constexpr Guid NULLGuid{};

constexpr std::optional<Guid> Guid::Parse(std::string_view text) {
    if (text.size() == 38 && text.front() == '{' && text.back() == '}')
        text = text.substr(1, 36);
    if (text.size() != 36)
        return std::nullopt;
    std::uint8_t bytes[16] = {};
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-')
                return std::nullopt;
            ++i;
            continue;
        }
        const int high = HexDigitValue(text[i]);
        const int low = HexDigitValue(text[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    Guid guid;
    guid.data1 = static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
                 static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
    guid.data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
    guid.data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
    for (std::size_t i = 0; i < 8; ++i)
        guid.data4[i] = bytes[8 + i];
    return guid;
}

// A part's own id: its main guid and its revision guid.
class LM_EXPORT UnID {
public:
    Guid mainGuid;
    Guid revGuid;

    constexpr UnID() = default;
    constexpr UnID(const Guid& main, const Guid& revision) : mainGuid(main), revGuid(revision) {}

    constexpr bool IsNull() const { return mainGuid.IsNull() && revGuid.IsNull(); }
    void Clear() { *this = UnID(); }
    // Main guid first, then revision guid.
    constexpr int Compare(const UnID& other) const {
        const int main = mainGuid.Compare(other.mainGuid);
        return main != 0 ? main : revGuid.Compare(other.revGuid);
    }
    constexpr bool operator==(const UnID&) const = default;
    constexpr std::strong_ordering operator<=>(const UnID& other) const { return Compare(other) <=> 0; }

    std::size_t GetFullHashValue() const;
    std::string ToString() const;

    int Write(OChannel& channel) const;
    int Read(IChannel& channel);
};

inline constexpr UnID NULLUnID{};

} // namespace KL

template <>
struct std::hash<KL::Guid> {
    std::size_t operator()(const KL::Guid& guid) const noexcept { return guid.GetFullHashValue(); }
};

template <>
struct std::hash<KL::UnID> {
    std::size_t operator()(const KL::UnID& id) const noexcept { return id.GetFullHashValue(); }
};
