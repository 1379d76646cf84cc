#pragma once

#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"

#include <compare>
#include <cstdint>

namespace KL {

struct ClassVersion {
    std::uint16_t major = 0;
    std::uint16_t minor = 0;

    constexpr auto operator<=>(const ClassVersion&) const = default;
};

// Name, guid, version and base of a stored class. Streams of the class are framed with it.
class LM_EXPORT ClassInfo {
public:
    constexpr ClassInfo(const char* name, const Guid& guid, std::uint16_t major, std::uint16_t minor,
                        const ClassInfo* base = nullptr)
        : name(name), guid(guid), version{major, minor}, base(base) {}

    const char* GetName() const { return name; }
    const Guid& GetGuid() const { return guid; }
    ClassVersion GetVersion() const { return version; }
    std::uint16_t GetMainVersion() const { return version.major; }
    std::uint16_t GetSubVersion() const { return version.minor; }
    const ClassInfo* GetBase() const { return base; }

    // True when this class is `other` or derives from it.
    bool IsCompatibleWith(const ClassInfo& other) const;

private:
    const char* name;
    Guid guid;
    ClassVersion version;
    const ClassInfo* base;
};

} // namespace KL
