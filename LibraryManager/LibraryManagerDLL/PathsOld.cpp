#include "PathsOld.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace LM {

namespace {

constexpr std::size_t InitialCapacity = 100;
// An old record is the entry's stream form padded to the record size.
constexpr std::uint64_t OldRecordPadding = PathsOld::OldRecordSize - PathsOld::TreeEntry::StreamSize;

// Fields in order, stopping at the first failure.
template <typename... Steps>
int Sequence(Steps... steps) {
    int error = 0;
    ((error == 0 ? (error = steps()) : 0), ...);
    return error;
}

} // namespace

const KL::ClassInfo PathsOld::entryArrayClassInfo("KL::Array<LM::PathsOld::TreeEntry>",
                                                  KL::Guid("5B0E7C41-2D93-4F6A-A1C8-93E4D7B0F256"), 1, 0);

PathsOld::TreeEntry::~TreeEntry() = default;

bool PathsOld::TreeEntry::operator==(const TreeEntry& other) const {
    return links[0] == other.links[0] && links[1] == other.links[1] && links[2] == other.links[2] &&
           id == other.id && next == other.next;
}

int PathsOld::TreeEntry::Read(KL::IChannel& channel) {
    return Sequence([&] { return channel.Read(links[0]); }, [&] { return channel.Read(links[1]); },
                    [&] { return channel.Read(links[2]); }, [&] { return id.mainGuid.Read(channel); },
                    [&] { return id.revGuid.Read(channel); }, [&] { return channel.Read(next); });
}

int PathsOld::TreeEntry::Write(KL::OChannel& channel) const {
    return Sequence([&] { return channel.Write(links[0]); }, [&] { return channel.Write(links[1]); },
                    [&] { return channel.Write(links[2]); }, [&] { return id.mainGuid.Write(channel); },
                    [&] { return id.revGuid.Write(channel); }, [&] { return channel.Write(next); });
}

PathsOld::PathsOld() : entries(InitialCapacity) {
    entries.PushNew();
}

PathsOld::~PathsOld() = default;

int PathsOld::ReadHead(KL::IChannel& channel) {
    return Sequence([&] { return channel.Read(rootIndex); }, [&] { return channel.Read(reserved); });
}

int PathsOld::WriteHead(KL::OChannel& channel) const {
    return Sequence([&] { return channel.Write(rootIndex); }, [&] { return channel.Write(reserved); });
}

// Entries are read one by one, never sized from the count: a lying count meets the end of the data
// before it costs memory.
int PathsOld::Read(KL::IChannel& channel) {
    if (int error = ReadHead(channel); error != 0)
        return error;
    KL::InputFrame frame(channel, entryArrayClassInfo);
    if (frame.GetStatus() != 0)
        return frame.GetStatus();
    std::uint32_t count = 0;
    if (int error = channel.Read(count); error != 0)
        return error;
    entries.Clear();
    for (std::uint32_t i = 0; i < count; ++i)
        if (int error = entries.PushNew().Read(channel); error != 0)
            return error;
    return frame.Close();
}

int PathsOld::Write(KL::OChannel& channel) const {
    if (int error = WriteHead(channel); error != 0)
        return error;
    KL::OutputFrame frame(channel, entryArrayClassInfo);
    if (frame.GetStatus() != 0)
        return frame.GetStatus();
    if (int error = channel.Write(static_cast<std::uint32_t>(entries.GetSize())); error != 0)
        return error;
    for (const TreeEntry& entry : entries)
        if (int error = entry.Write(channel); error != 0)
            return error;
    return frame.Close();
}

int PathsOld::ReadOld(KL::IChannel& channel) {
    std::uint16_t version = 0;
    std::uint32_t count = 0;
    std::uint32_t blockReserved = 0;
    std::uint32_t recordSize = 0;
    if (int error = ReadHead(channel); error != 0)
        return error;
    if (int error = channel.Read(version); error != 0)
        return error;
    if (version != OldBlockVersion)
        return KL::ErrStreamFormat;
    if (int error = Sequence([&] { return channel.Read(count); }, [&] { return channel.Read(blockReserved); },
                             [&] { return channel.Read(recordSize); });
        error != 0)
        return error;
    entries.Clear();
    char padding[OldRecordPadding];
    for (std::uint32_t i = 0; i < count; ++i) {
        if (int error = entries.PushNew().Read(channel); error != 0)
            return error;
        if (int error = channel.ReadBin(padding, OldRecordPadding); error != 0)
            return error;
    }
    return 0;
}

int PathsOld::WriteOld(KL::OChannel& channel) const {
    static constexpr char padding[OldRecordPadding] = {};
    if (int error = Sequence(
            [&] { return WriteHead(channel); }, [&] { return channel.Write(OldBlockVersion); },
            [&] { return channel.Write(static_cast<std::uint32_t>(entries.GetSize())); },
            [&] { return channel.Write(std::uint32_t{0}); }, [&] { return channel.Write(OldRecordSize); });
        error != 0)
        return error;
    for (const TreeEntry& entry : entries) {
        if (int error = entry.Write(channel); error != 0)
            return error;
        if (int error = channel.WriteBin(padding, OldRecordPadding); error != 0)
            return error;
    }
    return 0;
}

} // namespace LM
