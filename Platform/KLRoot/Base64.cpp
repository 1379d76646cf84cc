#include "KLRoot/Base64.hpp"

#include <cstdint>

namespace KL {

namespace {

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int SextetOf(char c) {
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

} // namespace

std::string Base64Encode(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::string text;
    text.reserve((size + 2) / 3 * 4);
    for (std::size_t i = 0; i < size; i += 3) {
        const std::size_t left = size - i;
        const std::uint32_t group = std::uint32_t{bytes[i]} << 16 |
                                    (left > 1 ? std::uint32_t{bytes[i + 1]} << 8 : 0) |
                                    (left > 2 ? bytes[i + 2] : 0);
        text += Alphabet[group >> 18 & 63];
        text += Alphabet[group >> 12 & 63];
        text += left > 1 ? Alphabet[group >> 6 & 63] : '=';
        text += left > 2 ? Alphabet[group & 63] : '=';
    }
    return text;
}

bool Base64Decode(std::string_view text, std::vector<char>* bytes) {
    if (text.size() % 4 != 0)
        return false;
    bytes->clear();
    bytes->reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        const int padding = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
        std::uint32_t group = 0;
        for (int k = 0; k < 4; ++k) {
            const int sextet = k >= 4 - padding ? 0 : SextetOf(text[i + k]);
            if (sextet < 0)
                return false;
            group = group << 6 | static_cast<std::uint32_t>(sextet);
        }
        if (padding == 1 && text[i + 2] == '=')
            return false;
        bytes->push_back(static_cast<char>(group >> 16));
        if (padding < 2)
            bytes->push_back(static_cast<char>(group >> 8 & 0xFF));
        if (padding < 1)
            bytes->push_back(static_cast<char>(group & 0xFF));
    }
    return true;
}

} // namespace KL
