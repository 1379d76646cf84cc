#pragma once

#include "catalogue/LibraryModes.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace LM {

// One library of a library list: what it is and where it lies. Plain data, copied by value;
// nothing is opened until the list is handed to a library set.
class LM_EXPORT LibraryItem : public KL::Object {
public:
    static const KL::ClassInfo classInfo;

    LibraryItem() = default;
    LibraryItem(const LibraryItem&) = default;
    LibraryItem(LibraryItem&&) = default;
    LibraryItem& operator=(const LibraryItem&) = default;
    LibraryItem& operator=(LibraryItem&&) = default;
    ~LibraryItem() override;

    const KL::ClassInfo* GetClassInfo() const override;
    // In a frame of the current version, 1.5; fields of later versions keep their defaults when an
    // older stream is read.
    int Write(KL::OChannel& channel) const override;
    int Read(KL::IChannel& channel) override;
    // As an older version wrote it, for lists that older programs read.
    int WriteAtVersion(KL::OChannel& channel, KL::ClassVersion version) const;

    const KL::UniString& GetName() const { return name; }
    void SetName(const KL::UniString& newName) { name = newName; }
    LibraryMode GetType() const { return type; }
    void SetType(LibraryMode newType) { type = newType; }
    const IO::Location& GetLocation() const { return location; }
    void SetLocation(const IO::Location& newLocation) { location = newLocation; }
    const KL::Guid& GetGuid() const { return guid; }
    void SetGuid(const KL::Guid& newGuid) { guid = newGuid; }
    const KL::UniString& GetLangCode() const { return langCode; }
    void SetLangCode(const KL::UniString& newLangCode) { langCode = newLangCode; }

    bool IsVital() const { return vital; }
    VitalMode GetVitalMode() const { return vital ? Vital : NotVital; }
    void SetVital(VitalMode mode) { vital = mode == Vital; }
    bool IsMissing() const { return missing; }
    void SetMissing(bool isMissing) { missing = isMissing; }

    const KL::UniString& GetTWServerUrl() const { return twServerUrl; }
    // The server URL supersedes the host and port of old streams.
    void SetTWServerUrl(const KL::UniString& serverUrl);
    const KL::UniString& GetHostName() const { return hostName; }
    std::uint16_t GetPort() const { return port; }
    // Only old streams name a server by host and port.
    void SetHostAddress(const KL::UniString& newHostName, std::uint16_t newPort);

    const IO::RelativeLocation& GetRelLocation() const { return relLocation; }
    void SetRelLocation(const IO::RelativeLocation& newRelLocation) { relLocation = newRelLocation; }
    const KL::UniString& GetSourceLocation() const { return sourceLocation; }
    void SetSourceLocation(const KL::UniString& newSourceLocation) { sourceLocation = newSourceLocation; }
    std::int64_t GetVersion() const { return version; }
    void SetVersion(std::int64_t newVersion) { version = newVersion; }
    const KL::UniString& GetUrl() const { return url; }
    void SetUrl(const KL::UniString& newUrl) { url = newUrl; }
    bool GetCollapseLongBranches() const { return collapseLongBranches; }
    void SetCollapseLongBranches(bool collapse) { collapseLongBranches = collapse; }

    // Parts found in the library by the last walk; sizes the progress of the next one.
    std::int32_t GetPartEstimate() const { return partEstimate; }
    void SetPartEstimate(std::int32_t estimate) { partEstimate = estimate; }
    // False when the library's folder could not be opened as it was added; walks skip it.
    bool IsReachable() const { return reachable; }
    void SetReachable(bool isReachable) { reachable = isReachable; }

    // The libraries this one replaces, by name or by guid.
    void SetSupersedes(const KL::Array<KL::UniString>& names, const KL::Array<KL::Guid>& guids);
    // Appends to each array that is given.
    void GetSupersedes(KL::Array<KL::UniString>* names, KL::Array<KL::Guid>* guids) const;
    // A name matches ignoring case; a null guid never matches.
    bool Supersedes(const KL::UniString& otherName, const KL::Guid& otherGuid) const;

    static bool IsUrlMode(LibraryMode mode) { return mode == UrlLibrary || mode == OtherObjectByUrl; }
    bool IsUrl() const { return IsUrlMode(type); }

    // Same mode and the same target; a server library is compared by server, relative and source
    // location, never by where its copy lies.
    bool operator==(const LibraryItem& other) const;
    bool operator!=(const LibraryItem& other) const { return !(*this == other); }
    // As operator==, and a server library must also have the same version.
    bool IsEqualWithVersions(const LibraryItem& other) const;

private:
    bool IsSameServerLibrary(const LibraryItem& other) const;

    KL::UniString name;
    LibraryMode type = AllLibraryModes;
    IO::Location location;
    KL::Guid guid;
    KL::UniString langCode;
    bool vital = false;
    bool missing = false;
    KL::UniString twServerUrl;
    KL::UniString hostName;
    std::uint16_t port = 0;
    IO::RelativeLocation relLocation;
    KL::UniString sourceLocation;
    std::int64_t version = 0;
    KL::UniString url;
    bool collapseLongBranches = false;
    std::int32_t partEstimate = 0;
    bool reachable = true;
    KL::Array<KL::UniString> supersededNames;
    KL::Array<KL::Guid> supersededGuids;
};

} // namespace LM
