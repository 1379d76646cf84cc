#pragma once

#include "KLRoot/KLExport.hpp"

#include <string>
#include <string_view>

namespace KL {

class IChannel;
class OChannel;

// 8-bit text in the default character code (UTF-8). Stream form: a u32 byte count, then the bytes.
class LM_EXPORT String {
public:
    String() = default;
    String(const char* text) : text(text != nullptr ? text : "") {} // NOLINT(google-explicit-constructor)
    String(std::string value) : text(std::move(value)) {}           // NOLINT(google-explicit-constructor)

    const std::string& Get() const { return text; }
    const char* ToCStr() const { return text.c_str(); }
    std::size_t GetLength() const { return text.size(); }
    bool IsEmpty() const { return text.empty(); }
    bool operator==(const String&) const = default;

    int Write(OChannel& channel) const;
    int Read(IChannel& channel);

private:
    std::string text;
};

} // namespace KL
