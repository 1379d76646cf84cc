#include "lists/LibraryItem.hpp"

#include <algorithm>

namespace LM {

const KL::ClassInfo LibraryItem::classInfo("LM::LibraryItem",
                                           KL::Guid("9BE5D10A-99E6-4AF7-8338-A13AF925A43D"), 1, 5);

LibraryItem::~LibraryItem() = default;

const KL::ClassInfo* LibraryItem::GetClassInfo() const {
    return &classInfo;
}

void LibraryItem::SetTWServerUrl(const KL::UniString& serverUrl) {
    twServerUrl = serverUrl;
    hostName.Clear();
    port = 0;
}

void LibraryItem::SetHostAddress(const KL::UniString& newHostName, std::uint16_t newPort) {
    hostName = newHostName;
    port = newPort;
}

void LibraryItem::SetSupersedes(const KL::Array<KL::UniString>& names, const KL::Array<KL::Guid>& guids) {
    supersededNames = names;
    supersededGuids = guids;
}

void LibraryItem::GetSupersedes(KL::Array<KL::UniString>* names, KL::Array<KL::Guid>* guids) const {
    if (names != nullptr) {
        for (const KL::UniString& supersededName : supersededNames)
            names->Push(supersededName);
    }
    if (guids != nullptr) {
        for (const KL::Guid& supersededGuid : supersededGuids)
            guids->Push(supersededGuid);
    }
}

bool LibraryItem::Supersedes(const KL::UniString& otherName, const KL::Guid& otherGuid) const {
    const bool byName =
        std::any_of(supersededNames.begin(), supersededNames.end(),
                    [&](const KL::UniString& name) { return name.IsEqual(otherName, KL::CaseInsensitive); });
    return byName || (!otherGuid.IsNull() && supersededGuids.Contains(otherGuid));
}

bool LibraryItem::IsSameServerLibrary(const LibraryItem& other) const {
    return twServerUrl.IsEqual(other.twServerUrl, KL::CaseInsensitive) && relLocation == other.relLocation &&
           sourceLocation == other.sourceLocation;
}

bool LibraryItem::operator==(const LibraryItem& other) const {
    if (type != other.type)
        return false;
    if (IsUrl() && url != other.url)
        return false;
    if (type != ServerLibrary)
        return location == other.location;
    return IsSameServerLibrary(other);
}

bool LibraryItem::IsEqualWithVersions(const LibraryItem& other) const {
    if (*this != other)
        return false;
    return type != ServerLibrary || version == other.version;
}

} // namespace LM
