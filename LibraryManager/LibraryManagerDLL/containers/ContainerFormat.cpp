#include "containers/ContainerFormat.hpp"

#include "InputOutput/Name.hpp"
#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <cstring>

namespace LM {

namespace {

// Reads a record's bytes whole and hands out its fields in order, big-endian.
class RecordBytes {
public:
    template <std::size_t Size>
    static int Fill(KL::IChannel& channel, char (&bytes)[Size]) {
        return channel.ReadBin(bytes, Size);
    }

    explicit RecordBytes(const char* bytes) : next(bytes) {}

    template <typename T>
    void Take(T& value) {
        value = KL::LoadInOrder<T>(next, KL::BigEndianSign);
        next += sizeof(T);
    }
    void Take(OVFS::DateTime& value) {
        std::uint32_t high = 0;
        std::uint32_t low = 0;
        Take(high);
        Take(low);
        value = OVFS::DateTime(high, low);
    }

private:
    const char* next;
};

// Lays out a record's fields big-endian and writes them in one piece.
class RecordOut {
public:
    explicit RecordOut(char* bytes) : next(bytes) {}

    template <typename T>
    void Put(T value) {
        KL::StoreInOrder(next, value, KL::BigEndianSign);
        next += sizeof(T);
    }
    void Put(const OVFS::DateTime& value) {
        Put(value.GetHigh());
        Put(value.GetLow());
    }

private:
    char* next;
};

template <std::size_t Size, typename... Fields>
int WriteRecord(KL::OChannel& channel, const Fields&... fields) {
    char bytes[Size];
    RecordOut record(bytes);
    (record.Put(fields), ...);
    return channel.WriteBin(bytes, Size);
}

template <std::size_t Size, typename... Fields>
int ReadRecord(KL::IChannel& channel, Fields&... fields) {
    char bytes[Size];
    if (const int err = RecordBytes::Fill(channel, bytes); err != KL::NoError)
        return err;
    RecordBytes record(bytes);
    (record.Take(fields), ...);
    return KL::NoError;
}

} // namespace

int ContainerHeader::Read(KL::IChannel& channel) {
    return ReadRecord<Size>(channel, magic, fileType, versionH, versionL, partCount, headerSize, infoCount);
}

int ContainerHeader::Write(KL::OChannel& channel) const {
    return WriteRecord<Size>(channel, magic, fileType, versionH, versionL, partCount, headerSize, infoCount);
}

int ChunkHeader::Read(KL::IChannel& channel) {
    return ReadRecord<Size>(channel, tag, reserved, flags, count, length);
}

int ChunkHeader::Write(KL::OChannel& channel) const {
    return WriteRecord<Size>(channel, tag, reserved, flags, count, length);
}

int FolderEntry::Read(KL::IChannel& channel) {
    return ReadRecord<Size>(channel, flags, recordSize, nameLength, subfolderCount, fileCount, infoCount,
                            dataOffset);
}

int FolderEntry::Write(KL::OChannel& channel) const {
    return WriteRecord<Size>(channel, flags, recordSize, nameLength, subfolderCount, fileCount, infoCount,
                             dataOffset);
}

int FileEntry::Read(KL::IChannel& channel) {
    return ReadRecord<Size>(channel, flags, recordSize, nameLength, mimeOffset, mimeLength, macType,
                            macCreator, creationTime, modificationTime, dataLength, infoCount, dataOffset);
}

int FileEntry::Write(KL::OChannel& channel) const {
    return WriteRecord<Size>(channel, flags, recordSize, nameLength, mimeOffset, mimeLength, macType,
                             macCreator, creationTime, modificationTime, dataLength, infoCount, dataOffset);
}

InfoData::InfoData(std::uint32_t type, std::uint32_t size, const char* bytes) : type(type), size(size) {
    if (size > 0) {
        data.reset(new char[size]);
        std::memcpy(data.get(), bytes, size);
    }
}

InfoData::InfoData(const InfoData& other) : InfoData(other.type, other.size, other.data.get()) {}

InfoData& InfoData::operator=(const InfoData& other) {
    if (this != &other) {
        InfoData copy(other);
        type = copy.type;
        size = copy.size;
        data = std::move(copy.data);
    }
    return *this;
}

InfoData::~InfoData() = default;

int InfoData::Read(KL::IChannel& channel) {
    std::uint32_t itemType = 0;
    std::uint32_t itemSize = 0;
    if (const int err = ReadRecord<8>(channel, itemType, itemSize); err != KL::NoError)
        return err;
    if (const int err = channel.RequireAvailable(itemSize); err != KL::NoError)
        return err;
    std::unique_ptr<char[]> bytes(itemSize > 0 ? new char[itemSize] : nullptr);
    if (const int err = channel.ReadBin(bytes.get(), itemSize); err != KL::NoError)
        return err;
    type = itemType;
    size = itemSize;
    data = std::move(bytes);
    return KL::NoError;
}

int InfoData::Write(KL::OChannel& channel) const {
    WriteRecord<8>(channel, type, size);
    return channel.WriteBin(data.get(), size);
}

InfoArray::InfoArray(const InfoArray& other) {
    PushAll(other.items);
}

InfoArray& InfoArray::operator=(const InfoArray& other) {
    if (this != &other) {
        Clear();
        PushAll(other.items);
    }
    return *this;
}

void InfoArray::PushAll(const KL::Array<InfoData*>& source) {
    for (const InfoData* item : source)
        Push(*item);
}

InfoArray::~InfoArray() {
    Clear();
}

void InfoArray::Push(const InfoData& item) {
    auto copy = std::make_unique<InfoData>(item);
    items.Push(copy.get());
    copy.release();
}

void InfoArray::Clear() {
    for (InfoData* item : items)
        delete item;
    items.Clear();
}

int InfoArray::ReadBlock(KL::IChannel& channel, std::int32_t count) {
    ChunkHeader block;
    if (const int err = block.Read(channel); err != KL::NoError)
        return err;
    if (block.tag != InfoTag)
        return channel.SetStatus(KL::ErrStreamFormat);
    for (std::int32_t i = 0; i < count; ++i) {
        auto item = std::make_unique<InfoData>();
        if (const int err = item->Read(channel); err != KL::NoError)
            return err;
        items.Push(item.get());
        item.release();
    }
    return KL::NoError;
}

std::uint64_t InfoArray::GetBlockSize() const {
    if (items.IsEmpty())
        return 0;
    std::uint64_t size = ChunkHeader::Size;
    for (const InfoData* item : items)
        size += item->GetStoredSize();
    return size;
}

// A failed item does not stop the others: the channel keeps the first failure, the last item's
// result is the answer.
int InfoArray::WriteBlock(KL::OChannel& channel) const {
    if (items.IsEmpty())
        return KL::NoError;
    ChunkHeader block;
    block.tag = InfoTag;
    block.length = static_cast<std::uint32_t>(GetBlockSize());
    int result = block.Write(channel);
    for (const InfoData* item : items)
        result = item->Write(channel);
    return result;
}

bool HasExtensionAmong(const IO::Name& name, std::initializer_list<const char*> extensions) {
    if (!name.HasExtension())
        return false;
    const KL::UniString extension = name.GetExtension();
    for (const char* wanted : extensions) {
        if (extension.IsEqual(KL::UniString(wanted), KL::CaseInsensitive))
            return true;
    }
    return false;
}

} // namespace LM
