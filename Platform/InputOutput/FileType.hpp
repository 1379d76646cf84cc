#pragma once

#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

namespace FTM {

// A registered file type or group. Non-negative values are types, negative ones groups.
class GeneralID {
public:
    constexpr GeneralID() = default;
    constexpr explicit GeneralID(std::int32_t id) : value(id) {}

    constexpr std::int32_t GetValue() const { return value; }
    constexpr bool IsType() const { return value >= 0; }
    constexpr bool IsGroup() const { return value < 0; }

    constexpr bool operator==(const GeneralID&) const = default;
    constexpr auto operator<=>(const GeneralID&) const = default;

private:
    std::int32_t value = 0;
};

class TypeID : public GeneralID {
public:
    constexpr TypeID() = default;
    constexpr explicit TypeID(std::int32_t id) : GeneralID(id) {}
};

class GroupID : public GeneralID {
public:
    constexpr GroupID() : GeneralID(UnknownValue) {}
    constexpr explicit GroupID(std::int32_t id) : GeneralID(id) {}

    static constexpr std::int32_t UnknownValue = INT32_MIN;
};

inline constexpr TypeID UnknownType{0};
inline constexpr GroupID RootGroup{-1};
inline constexpr GroupID UnknownGroup{GroupID::UnknownValue};

// Tells from the first bytes of a file whether it is of a type.
using ContentDetector = bool (*)(const char* head, std::size_t size);

// A kind of file: its name, the extensions and the four-character type and creator codes it
// goes by, an optional MIME text and an optional content test.
class LM_EXPORT FileType {
public:
    FileType() = default;
    // `extensions` lists extensions separated by ";" ("jpg;jpeg"). With `byExtension` false the
    // extension alone never identifies a file as of this type.
    FileType(const KL::UniString& name, const KL::UniString& extensions, std::uint32_t creator,
             std::uint32_t type, std::int32_t resourceId = -1, ContentDetector detector = nullptr,
             const char* mime = nullptr, bool byExtension = true);

    const KL::UniString& GetName() const { return name; }
    const std::vector<KL::UniString>& GetExtensions() const { return extensions; }
    std::uint32_t GetMacCreator() const { return creator; }
    std::uint32_t GetMacType() const { return type; }
    std::int32_t GetResourceId() const { return resourceId; }
    ContentDetector GetDetector() const { return detector; }
    const std::string& GetMime() const { return mime; }
    bool IdentifiesByExtension() const { return byExtension; }

    // Case-insensitive, without the dot.
    bool IsExtensionIncluded(const KL::UniString& extension) const;
    // The same for an extension already folded (UniString::GetFolded), for callers that test many types.
    bool IsFoldedExtensionIncluded(const KL::UniString& folded) const;

private:
    KL::UniString name;
    std::vector<KL::UniString> extensions; // folded, so a lookup folds only its argument
    std::uint32_t creator = 0;
    std::uint32_t type = 0;
    std::int32_t resourceId = -1;
    ContentDetector detector = nullptr;
    std::string mime;
    bool byExtension = true;
};

// Four characters as a big-endian number: "TEXT" gives 0x54455854.
constexpr std::uint32_t MakeCode(const char (&text)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(text[0])) << 24 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[1])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[2])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[3]));
}

} // namespace FTM
