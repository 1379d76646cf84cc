#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace KL {

// The byte order of a stream, named by the sign of the platform that writes it natively.
using PlatformSign = std::uint16_t;
inline constexpr PlatformSign LittleEndianSign = 0x5757;
inline constexpr PlatformSign BigEndianSign = 0x4D4D;

inline constexpr bool IsValidPlatformSign(PlatformSign sign) {
    return sign == LittleEndianSign || sign == BigEndianSign;
}

inline constexpr PlatformSign HostPlatformSign =
    std::endian::native == std::endian::little ? LittleEndianSign : BigEndianSign;

template <typename T>
constexpr T ByteSwap(T value) {
    static_assert(std::is_trivially_copyable_v<T>);
    if constexpr (sizeof(T) == 1) {
        return value;
    } else {
        if constexpr (sizeof(T) == 2)
            return std::bit_cast<T>(__builtin_bswap16(std::bit_cast<std::uint16_t>(value)));
        else if constexpr (sizeof(T) == 4)
            return std::bit_cast<T>(__builtin_bswap32(std::bit_cast<std::uint32_t>(value)));
        else
            return std::bit_cast<T>(__builtin_bswap64(std::bit_cast<std::uint64_t>(value)));
    }
}

// Stores `value` at `dest` in the byte order of `sign`.
template <typename T>
void StoreInOrder(void* dest, T value, PlatformSign sign) {
    if (sign != HostPlatformSign)
        value = ByteSwap(value);
    std::memcpy(dest, &value, sizeof(T));
}

// Loads a value stored at `src` in the byte order of `sign`.
template <typename T>
T LoadInOrder(const void* src, PlatformSign sign) {
    T value;
    std::memcpy(&value, src, sizeof(T));
    return sign != HostPlatformSign ? ByteSwap(value) : value;
}

} // namespace KL
