#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace KL {
class IChannel;
class OChannel;
} // namespace KL

namespace LM {

// One library as lists of the first stream generation stored it; read to convert old projects,
// and written only by lists asked for that generation.
class LM_EXPORT OldLibraryItem {
public:
    enum ItemType : std::int32_t { LocalItem = 1, UrlItem = 2, BuiltInItem = 3, OtherObjectItem = 4 };

    ItemType GetType() const { return type; }
    void SetType(ItemType newType) { type = newType; }
    const KL::UniString& GetName() const { return name; }
    void SetName(const KL::UniString& newName) { name = newName; }
    const IO::Location& GetLocation() const { return location; }
    void SetLocation(const IO::Location& newLocation) { location = newLocation; }
    bool IsUrl() const { return isUrl; }
    void SetIsUrl(bool url) { isUrl = url; }
    const KL::UniString& GetUrl() const { return url; }
    void SetUrl(const KL::UniString& newUrl) { url = newUrl; }
    bool IsVital() const { return vital; }
    void SetVital(bool isVital) { vital = isVital; }
    bool IsMissing() const { return missing; }
    void SetMissing(bool isMissing) { missing = isMissing; }

    // Field by field; a read stops at the first failure.
    int Write(KL::OChannel& channel) const;
    int Read(KL::IChannel& channel);

    bool operator==(const OldLibraryItem& other) const = default;

private:
    ItemType type = LocalItem;
    KL::UniString name;
    IO::Location location;
    bool isUrl = false;
    KL::UniString url;
    bool vital = false;
    bool missing = false;
};

} // namespace LM
