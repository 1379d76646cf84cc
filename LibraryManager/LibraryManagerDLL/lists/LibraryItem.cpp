#include "lists/LibraryItem.hpp"

#include "lists/StreamSteps.hpp"

#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLUtils/LocationSource.hpp"

#include <algorithm>

namespace LM {

const KL::ClassInfo LibraryItem::classInfo("LM::LibraryItem",
                                           KL::Guid("9BE5D10A-99E6-4AF7-8338-A13AF925A43D"), 1, 5);

LibraryItem::~LibraryItem() = default;

const KL::ClassInfo* LibraryItem::GetClassInfo() const {
    return &classInfo;
}

namespace {

constexpr KL::ClassVersion Version(std::uint16_t minor) {
    return {1, minor};
}

} // namespace

int LibraryItem::Write(KL::OChannel& channel) const {
    return WriteAtVersion(channel, classInfo.GetVersion());
}

int LibraryItem::WriteAtVersion(KL::OChannel& channel, KL::ClassVersion v) const {
    const KL::ClassInfo framed(classInfo.GetName(), classInfo.GetGuid(), v.major, v.minor);
    KL::OutputFrame frame(channel, framed);
    const int err =
        StreamSteps()
            .Then([&] { return frame.GetStatus(); })
            .Then([&] { return channel.Write(static_cast<std::int32_t>(type)); })
            .Then([&] { return name.Write(channel); })
            .Then([&] { return location.Write(channel); })
            .Then([&] { return url.Write(channel); })
            .Then([&] { return channel.Write(vital); })
            .Then([&] { return channel.Write(missing); })
            // 1.1 kept a network location where 1.2 has the host and port.
            .ThenIf(v == Version(1), [&] { return IO::Location().Write(channel); })
            .ThenIf(v >= Version(2), [&] { return hostName.Write(channel); })
            .ThenIf(v >= Version(2), [&] { return channel.Write(static_cast<std::int16_t>(port)); })
            .ThenIf(v >= Version(1), [&] { return relLocation.Write(channel); })
            .ThenIf(v >= Version(1) && v < Version(4),
                    [&] { return IO::Location(sourceLocation).Write(channel); })
            .ThenIf(v >= Version(4), [&] { return sourceLocation.Write(channel); })
            .ThenIf(v >= Version(3), [&] { return guid.Write(channel); })
            .ThenIf(v >= Version(3), [&] { return langCode.Write(channel); })
            .ThenIf(v >= Version(3), [&] { return channel.Write(collapseLongBranches); })
            .ThenIf(v >= Version(5), [&] { return twServerUrl.Write(channel); })
            .Result();
    const int closed = frame.Close();
    return err != 0 ? err : closed;
}

int LibraryItem::Read(KL::IChannel& channel) {
    KL::InputFrame frame(channel, classInfo);
    const KL::ClassVersion v = frame.GetVersion();
    std::int32_t readType = 0;
    std::int16_t readPort = 0;
    IO::Location oldLocation;
    const int err = StreamSteps()
                        .Then([&] { return frame.GetStatus(); })
                        .Then([&] { return channel.Read(readType); })
                        .Then([&] {
                            type = static_cast<LibraryMode>(readType);
                            return name.Read(channel);
                        })
                        .Then([&] { return location.Read(channel); })
                        .Then([&] { return url.Read(channel); })
                        .Then([&] { return channel.Read(vital); })
                        .Then([&] { return channel.Read(missing); })
                        // Locations of 1.1 carry no network part here: the port that read gives is 0.
                        .ThenIf(v == Version(1),
                                [&] {
                                    port = 0;
                                    return oldLocation.Read(channel);
                                })
                        .ThenIf(v >= Version(2), [&] { return hostName.Read(channel); })
                        .ThenIf(v >= Version(2),
                                [&] {
                                    const int result = channel.Read(readPort);
                                    port = static_cast<std::uint16_t>(readPort);
                                    return result;
                                })
                        .ThenIf(v >= Version(1), [&] { return relLocation.Read(channel); })
                        .ThenIf(v >= Version(1) && v < Version(4),
                                [&] {
                                    const int result = oldLocation.Read(channel);
                                    sourceLocation = result == 0 ? IOUtil::LocationToSource(oldLocation, true)
                                                                 : KL::UniString();
                                    return result;
                                })
                        .ThenIf(v >= Version(4), [&] { return sourceLocation.Read(channel); })
                        .ThenIf(v >= Version(3), [&] { return guid.Read(channel); })
                        .ThenIf(v >= Version(3), [&] { return langCode.Read(channel); })
                        .ThenIf(v >= Version(3), [&] { return channel.Read(collapseLongBranches); })
                        .ThenIf(v >= Version(5), [&] { return twServerUrl.Read(channel); })
                        .Result();
    const int closed = frame.Close();
    return err != 0 ? err : closed;
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
