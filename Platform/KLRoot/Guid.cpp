#include "KLRoot/Guid.hpp"

#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdio>
#include <cstring>
#include <random>

#include <sys/random.h>

namespace KL {

std::optional<Guid> Guid::Parse(const UniString& text) {
    return Parse(std::string_view(text.ToUTF8()));
}

Guid Guid::Generate() {
    // Straight from the kernel's generator: no state to share between threads or to duplicate
    // into a forked child.
    std::uint64_t words[2] = {};
    if (getrandom(words, sizeof words, 0) != static_cast<ssize_t>(sizeof words)) {
        std::random_device device;
        words[0] = std::uint64_t{device()} << 32 | device();
        words[1] = std::uint64_t{device()} << 32 | device();
    }
    const std::uint64_t high = words[0];
    const std::uint64_t low = words[1];
    Guid guid;
    guid.data1 = static_cast<std::uint32_t>(high >> 32);
    guid.data2 = static_cast<std::uint16_t>(high >> 16);
    // Version 4 (random) and the standard variant, so generated ids read as such elsewhere.
    guid.data3 = static_cast<std::uint16_t>((high & 0x0FFF) | 0x4000);
    for (std::size_t i = 0; i < 8; ++i)
        guid.data4[i] = static_cast<std::uint8_t>(low >> (56 - 8 * i));
    guid.data4[0] = static_cast<std::uint8_t>((guid.data4[0] & 0x3F) | 0x80);
    return guid;
}

Guid Guid::FromRaw(const void* bytes, PlatformSign sign) {
    const char* raw = static_cast<const char*>(bytes);
    Guid guid;
    guid.data1 = LoadInOrder<std::uint32_t>(raw, sign);
    guid.data2 = LoadInOrder<std::uint16_t>(raw + 4, sign);
    guid.data3 = LoadInOrder<std::uint16_t>(raw + 6, sign);
    std::memcpy(guid.data4.data(), raw + 8, 8);
    return guid;
}

void Guid::ToRaw(void* bytes, PlatformSign sign) const {
    char* raw = static_cast<char*>(bytes);
    StoreInOrder(raw, data1, sign);
    StoreInOrder(raw + 4, data2, sign);
    StoreInOrder(raw + 6, data3, sign);
    std::memcpy(raw + 8, data4.data(), 8);
}

std::uint16_t Guid::GetHashValue() const {
    std::uint16_t hash =
        static_cast<std::uint16_t>(data1 >> 16) ^ static_cast<std::uint16_t>(data1) ^ data2 ^ data3;
    for (std::size_t i = 0; i < 8; i += 2)
        hash ^= static_cast<std::uint16_t>(data4[i] << 8 | data4[i + 1]);
    return hash;
}

std::size_t Guid::GetFullHashValue() const {
    std::uint64_t tail = 0;
    std::memcpy(&tail, data4.data(), 8);
    std::uint64_t head =
        static_cast<std::uint64_t>(data1) << 32 | static_cast<std::uint64_t>(data2) << 16 | data3;
    // A 64-bit mix (from splitmix64) so that guids differing in any bits spread over the buckets.
    std::uint64_t x = head ^ (tail * 0x9E3779B97F4A7C15ull);
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return static_cast<std::size_t>(x ^ (x >> 31));
}

std::string Guid::ToString() const {
    char text[37];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", data1, data2, data3,
                  data4[0], data4[1], data4[2], data4[3], data4[4], data4[5], data4[6], data4[7]);
    return text;
}

UniString Guid::ToUniString() const {
    return UniString(ToString());
}

int Guid::Write(OChannel& channel) const {
    char raw[RawSize];
    ToRaw(raw, channel.GetProtocol());
    return channel.WriteBin(raw, RawSize);
}

int Guid::Read(IChannel& channel) {
    char raw[RawSize];
    if (const int err = channel.ReadBin(raw, RawSize); err != NoError)
        return err;
    *this = FromRaw(raw, channel.GetProtocol());
    return NoError;
}

std::size_t UnID::GetFullHashValue() const {
    return mainGuid.GetFullHashValue() ^ (revGuid.GetFullHashValue() * 0x9E3779B97F4A7C15ull);
}

std::string UnID::ToString() const {
    return mainGuid.ToString() + "-" + revGuid.ToString();
}

int UnID::Write(OChannel& channel) const {
    if (const int err = mainGuid.Write(channel); err != NoError)
        return err;
    return revGuid.Write(channel);
}

int UnID::Read(IChannel& channel) {
    UnID id;
    if (const int err = id.mainGuid.Read(channel); err != NoError)
        return err;
    if (const int err = id.revGuid.Read(channel); err != NoError)
        return err;
    *this = id;
    return NoError;
}

} // namespace KL
