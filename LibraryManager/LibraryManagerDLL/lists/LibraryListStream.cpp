// The stored forms of a library list.
#include "lists/LibraryList.hpp"

#include "LibraryManagerErrors.hpp"
#include "lists/OldLibraryItem.hpp"
#include "lists/StreamSteps.hpp"

#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <algorithm>

namespace LM {

namespace {

constexpr char ListTag[4] = {'L', 'L', '0', '0'};
constexpr char VersionTag[4] = {'V', '1', '0', '0'};

OldLibraryItem ToOldItem(const LibraryItem& item) {
    OldLibraryItem old;
    old.SetName(item.GetName());
    old.SetVital(item.IsVital());
    old.SetMissing(item.IsMissing());
    switch (item.GetType()) {
    case UrlLibrary:
    case OtherObjectByUrl:
        old.SetType(item.GetType() == UrlLibrary ? OldLibraryItem::UrlItem : OldLibraryItem::OtherObjectItem);
        old.SetIsUrl(true);
        old.SetUrl(item.GetUrl());
        break;
    case BuiltInLibrary:
        old.SetType(OldLibraryItem::BuiltInItem);
        old.SetLocation(item.GetLocation());
        break;
    case OtherObjectByLocation:
        old.SetType(OldLibraryItem::OtherObjectItem);
        old.SetLocation(item.GetLocation());
        break;
    default:
        old.SetType(OldLibraryItem::LocalItem);
        old.SetLocation(item.GetLocation());
        break;
    }
    return old;
}

LibraryItem FromOldItem(const OldLibraryItem& old) {
    LibraryItem item;
    item.SetName(old.GetName());
    item.SetVital(old.IsVital() ? Vital : NotVital);
    item.SetMissing(old.IsMissing());
    if (old.IsUrl()) {
        item.SetType(old.GetType() == OldLibraryItem::OtherObjectItem ? OtherObjectByUrl : UrlLibrary);
        item.SetUrl(old.GetUrl());
        return item;
    }
    switch (old.GetType()) {
    case OldLibraryItem::BuiltInItem:
        item.SetType(BuiltInLibrary);
        break;
    case OldLibraryItem::OtherObjectItem:
        item.SetType(OtherObjectByLocation);
        break;
    default:
        item.SetType(LocalLibrary);
        break;
    }
    item.SetLocation(old.GetLocation());
    return item;
}

// The body of a list's frame by its major version; the frame closes on every path.
template <typename Frame, typename One, typename Two>
int InFrame(Frame& frame, std::uint16_t major, One one, Two two) {
    int err = frame.GetStatus();
    if (err == 0)
        err = major == 1 ? one() : major == 2 ? two() : LibPartFileError;
    const int closed = frame.Close();
    return err != 0 ? err : closed;
}

} // namespace

int LibraryList::Write(KL::OChannel& channel, bool withBuiltIn) const {
    return WriteAtVersion(channel, withBuiltIn, classInfo.GetVersion());
}

int LibraryList::WriteAtVersion(KL::OChannel& channel, bool withBuiltIn, KL::ClassVersion version) const {
    const KL::ClassInfo framed(classInfo.GetName(), classInfo.GetGuid(), version.major, version.minor);
    KL::OutputFrame frame(channel, framed);
    return InFrame(
        frame, version.major, [&] { return Write_1(channel, withBuiltIn); },
        [&] { return Write_2(channel, withBuiltIn); });
}

int LibraryList::Read(KL::IChannel& channel) {
    KL::InputFrame frame(channel, classInfo);
    return InFrame(
        frame, frame.GetVersion().major, [&] { return Read_1(channel); }, [&] { return Read_2(channel); });
}

int LibraryList::Write_2(KL::OChannel& channel, bool withBuiltIn) const {
    const auto count = static_cast<std::uint32_t>(CountStored(withBuiltIn));
    int err = StreamSteps()
                  .Then([&] { return channel.Write(false); })
                  .Then([&] { return channel.Write(count); })
                  .Result();
    for (const LibraryItem& item : items) {
        if (err == 0 && IsStored(item, withBuiltIn))
            err = item.Write(channel);
    }
    return err;
}

int LibraryList::Read_2(KL::IChannel& channel) {
    bool reserved = false;
    std::uint32_t count = 0;
    const int err = StreamSteps()
                        .Then([&] { return channel.Read(reserved); })
                        .Then([&] { return channel.Read(count); })
                        .Result();
    if (err != 0)
        return err;
    items.Clear();
    // Each item is kept even when its read failed; the first failure ends the list. The count is
    // not trusted for a reservation: a hostile one runs into the end of the stream instead.
    for (std::uint32_t i = 0; i < count; ++i) {
        LibraryItem item;
        const int itemErr = item.Read(channel);
        items.Push(std::move(item));
        if (itemErr != 0)
            return itemErr;
    }
    return 0;
}

int LibraryList::Write_1(KL::OChannel& channel, bool withBuiltIn) const {
    const auto count = static_cast<std::uint32_t>(CountStored(withBuiltIn));
    int err = StreamSteps()
                  .Then([&] { return channel.WriteBin(ListTag, sizeof ListTag); })
                  .Then([&] { return channel.WriteBin(VersionTag, sizeof VersionTag); })
                  .Then([&] { return channel.Write(false); })
                  .Then([&] { return channel.Write(count); })
                  .Result();
    for (const LibraryItem& item : items) {
        if (err == 0 && IsStored(item, withBuiltIn))
            err = ToOldItem(item).Write(channel);
    }
    return err;
}

int LibraryList::Read_1(KL::IChannel& channel) {
    char listTag[4] = {};
    char versionTag[4] = {};
    bool reserved = false;
    std::uint32_t count = 0;
    // Any list tag passes; the version tag must be right.
    const int err =
        StreamSteps()
            .Then([&] { return channel.ReadBin(listTag, sizeof listTag); })
            .Then([&] { return channel.ReadBin(versionTag, sizeof versionTag); })
            .Then([&] { return std::equal(versionTag, versionTag + 4, VersionTag) ? 0 : LibPartFileError; })
            .Then([&] { return channel.Read(reserved); })
            .Then([&] { return channel.Read(count); })
            .Result();
    if (err != 0)
        return err;
    for (std::uint32_t i = 0; i < count; ++i) {
        OldLibraryItem old;
        if (const int itemErr = old.Read(channel); itemErr != 0)
            return itemErr;
        items.Push(FromOldItem(old));
    }
    return 0;
}

} // namespace LM
