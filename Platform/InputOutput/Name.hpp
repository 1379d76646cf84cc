#pragma once

#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <compare>
#include <cstddef>
#include <string>

namespace KL {
class IChannel;
class OChannel;
} // namespace KL

namespace IO {

class NameSequence;

// One element of a path. A valid name is never empty, ".", "..", and holds no "/" and no NUL;
// text that breaks these rules gives an empty, invalid name. So a name read from anywhere can be
// appended to a location without climbing out of it.
class LM_EXPORT Name {
public:
    // Longest name in UTF-16 units; longer than any file system allows, short enough to refuse
    // hostile stream counts before allocating.
    static constexpr std::size_t MaxLength = 1024;

    Name() = default;
    explicit Name(const KL::UniString& text);
    explicit Name(const char* utf8) : Name(KL::UniString(utf8)) {}
    explicit Name(std::string_view utf8) : Name(KL::UniString(utf8)) {}
    explicit Name(const std::string& utf8) : Name(std::string_view(utf8)) {}

    static bool IsValidText(std::u16string_view text);

    bool IsValid() const { return !text.IsEmpty(); }
    bool IsEmpty() const { return text.IsEmpty(); }
    const KL::UniString& GetText() const { return text; }
    std::string ToUTF8() const { return text.ToUTF8(); }
    std::size_t GetLength() const { return text.GetLength(); }

    // The extension is what follows the last "."; a name without "." has none. The base is what
    // precedes it, so ".klm" has the extension "klm" and an empty base.
    bool HasExtension() const;
    KL::UniString GetExtension() const;
    KL::UniString GetBase() const;

    bool operator==(const Name& other) const { return text == other.text; }
    std::strong_ordering operator<=>(const Name& other) const;

    // Stream form: u32 count of UTF-16 units, then the units in the channel's byte order. Read
    // refuses an invalid or over-long name with ErrStreamFormat and leaves this name unchanged.
    int Write(KL::OChannel& channel) const;
    int Read(KL::IChannel& channel);
    // Reads one name in the stream form, checked as Read checks it, onto the end of `text`;
    // for readers that keep several names in one buffer.
    static int ReadAppending(KL::IChannel& channel, std::u16string& text);

private:
    friend class NameSequence;
    // The stream form of units known to make a valid name.
    static int WriteUnits(KL::OChannel& channel, std::u16string_view units);

    KL::UniString text;
};

} // namespace IO

template <>
struct std::hash<IO::Name> {
    std::size_t operator()(const IO::Name& name) const noexcept {
        return std::hash<KL::UniString>()(name.GetText());
    }
};
