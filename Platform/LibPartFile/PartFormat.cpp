#include "LibPartFile/PartFormat.hpp"

#include "LibPartFile/LibPartFileErrors.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace LPF {

namespace {

constexpr char Magic[4] = {'K', 'L', 'M', 'P'};

std::uint64_t AlignUp(std::uint64_t value) {
    return (value + SectionAlignment - 1) / SectionAlignment * SectionAlignment;
}

// Reads fields one after the other from a block in a given byte order.
class FieldReader {
public:
    FieldReader(const char* data, KL::PlatformSign order) : cursor(data), order(order) {}
    template <typename T>
    T Take() {
        const T value = KL::LoadInOrder<T>(cursor, order);
        cursor += sizeof(T);
        return value;
    }
    KL::Guid TakeGuid() {
        const KL::Guid guid = KL::Guid::FromRaw(cursor, order);
        cursor += KL::Guid::RawSize;
        return guid;
    }

private:
    const char* cursor;
    KL::PlatformSign order;
};

class FieldWriter {
public:
    FieldWriter(char* data, KL::PlatformSign order) : cursor(data), order(order) {}
    template <typename T>
    void Put(T value) {
        KL::StoreInOrder(cursor, value, order);
        cursor += sizeof(T);
    }
    void PutGuid(const KL::Guid& guid) {
        guid.ToRaw(cursor, order);
        cursor += KL::Guid::RawSize;
    }
    void PutBytes(const void* data, std::size_t size) {
        std::memcpy(cursor, data, size);
        cursor += size;
    }

private:
    char* cursor;
    KL::PlatformSign order;
};

int ByteOrderFromMark(const char* mark, KL::PlatformSign* order) {
    if (mark[0] == 'W' && mark[1] == 'W')
        *order = KL::LittleEndianSign;
    else if (mark[0] == 'M' && mark[1] == 'M')
        *order = KL::BigEndianSign;
    else
        return NotAPartFileError;
    return KL::NoError;
}

} // namespace

int ReadPartHeader(ByteSource& source, PartHeader* header, std::uint64_t* headerSize,
                   std::uint32_t* sectionCount) {
    const std::uint64_t length = source.GetLength();
    std::array<char, FixedHeaderSize> fixed{};
    if (length < FixedHeaderSize) {
        // A file cut short inside the header still tells by its first bytes what it was meant to be.
        if (length < sizeof Magic || source.ReadAt(0, fixed.data(), sizeof Magic) != KL::NoError)
            return NotAPartFileError;
        return std::memcmp(fixed.data(), Magic, sizeof Magic) == 0 ? CorruptHeaderError : NotAPartFileError;
    }
    if (const int err = source.ReadAt(0, fixed.data(), fixed.size()); err != KL::NoError)
        return err;
    if (std::memcmp(fixed.data(), Magic, sizeof Magic) != 0)
        return NotAPartFileError;
    PartHeader result;
    if (const int err = ByteOrderFromMark(fixed.data() + 4, &result.byteOrder); err != KL::NoError)
        return err;
    FieldReader fields(fixed.data() + 6, result.byteOrder);
    if (fields.Take<std::uint16_t>() != CurrentFormatVersion)
        return UnsupportedVersionError;
    *headerSize = fields.Take<std::uint32_t>();
    *sectionCount = fields.Take<std::uint32_t>();
    result.signature = fields.Take<std::uint32_t>();
    result.owner = fields.Take<std::uint32_t>();
    result.ownUnID.mainGuid = fields.TakeGuid();
    result.ownUnID.revGuid = fields.TakeGuid();
    result.version = fields.Take<std::int16_t>();
    result.originalVersion = fields.Take<std::int16_t>();
    result.flags = fields.Take<std::uint32_t>();
    result.migrationValue = fields.Take<std::int32_t>();
    const std::uint32_t nameLength = fields.Take<std::uint32_t>();
    if (nameLength > MaxDocumentNameLength || *headerSize < FixedHeaderSize + 2ULL * nameLength ||
        *headerSize > length)
        return CorruptHeaderError;
    std::u16string name(nameLength, u'\0');
    if (const int err = source.ReadAt(FixedHeaderSize, name.data(), 2ULL * nameLength); err != KL::NoError)
        return err;
    if (result.byteOrder != KL::HostPlatformSign) {
        for (char16_t& unit : name)
            unit = KL::ByteSwap(unit);
    }
    result.documentName = KL::UniString(std::move(name));
    *header = std::move(result);
    return KL::NoError;
}

int ReadPartDirectory(ByteSource& source, const PartHeader& header, std::uint64_t headerSize,
                      std::uint32_t sectionCount, std::vector<DirectoryEntry>* directory) {
    const std::uint64_t length = source.GetLength();
    // The count is checked against the room left before anything is allocated for it.
    if (sectionCount > (length - headerSize) / DirectoryEntrySize)
        return CorruptDirectoryError;
    const std::uint64_t dataStart = headerSize + sectionCount * DirectoryEntrySize;
    std::vector<char> bytes(sectionCount * DirectoryEntrySize);
    if (const int err = source.ReadAt(headerSize, bytes.data(), bytes.size()); err != KL::NoError)
        return err;
    std::vector<DirectoryEntry> entries(sectionCount);
    for (std::uint32_t i = 0; i < sectionCount; ++i) {
        FieldReader fields(bytes.data() + i * DirectoryEntrySize, header.byteOrder);
        DirectoryEntry& entry = entries[i];
        entry.info.tag = fields.Take<std::uint32_t>();
        entry.info.subIdent = fields.Take<std::uint16_t>();
        entry.info.version = fields.Take<std::uint16_t>();
        entry.info.flags = fields.Take<std::uint8_t>();
        fields.Take<std::uint8_t>();
        fields.Take<std::uint16_t>();
        fields.Take<std::uint32_t>();
        entry.offset = fields.Take<std::uint32_t>();
        entry.info.size = fields.Take<std::uint32_t>();
        if (entry.offset < dataStart || entry.offset > length || entry.info.size > length - entry.offset)
            return CorruptDirectoryError;
    }
    std::vector<const DirectoryEntry*> byOffset;
    byOffset.reserve(entries.size());
    for (const DirectoryEntry& entry : entries)
        byOffset.push_back(&entry);
    std::sort(byOffset.begin(), byOffset.end(),
              [](const DirectoryEntry* a, const DirectoryEntry* b) { return a->offset < b->offset; });
    for (std::size_t i = 1; i < byOffset.size(); ++i) {
        if (byOffset[i - 1]->offset + byOffset[i - 1]->info.size > byOffset[i]->offset)
            return CorruptDirectoryError;
    }
    std::sort(byOffset.begin(), byOffset.end(), [](const DirectoryEntry* a, const DirectoryEntry* b) {
        return a->info.tag != b->info.tag ? a->info.tag < b->info.tag : a->info.subIdent < b->info.subIdent;
    });
    for (std::size_t i = 1; i < byOffset.size(); ++i) {
        if (byOffset[i - 1]->info.tag == byOffset[i]->info.tag &&
            byOffset[i - 1]->info.subIdent == byOffset[i]->info.subIdent)
            return CorruptDirectoryError;
    }
    *directory = std::move(entries);
    return KL::NoError;
}

std::vector<char> BuildPartPrologue(const PartHeader& header, std::vector<DirectoryEntry>* directory) {
    const std::u16string& name = header.documentName.Units();
    const std::uint64_t headerSize = AlignUp(FixedHeaderSize + 2 * name.size());
    const std::uint64_t prologueSize = headerSize + directory->size() * DirectoryEntrySize;
    std::vector<char> bytes(prologueSize, '\0');
    FieldWriter fields(bytes.data(), header.byteOrder);
    fields.PutBytes(Magic, sizeof Magic);
    fields.PutBytes(header.byteOrder == KL::BigEndianSign ? "MM" : "WW", 2);
    fields.Put(CurrentFormatVersion);
    fields.Put(static_cast<std::uint32_t>(headerSize));
    fields.Put(static_cast<std::uint32_t>(directory->size()));
    fields.Put(header.signature);
    fields.Put(header.owner);
    fields.PutGuid(header.ownUnID.mainGuid);
    fields.PutGuid(header.ownUnID.revGuid);
    fields.Put(header.version);
    fields.Put(header.originalVersion);
    fields.Put(header.flags & (PlaceableFlag | ArchivableFlag));
    fields.Put(header.migrationValue);
    fields.Put(static_cast<std::uint32_t>(name.size()));
    for (const char16_t unit : name)
        fields.Put(unit);

    std::uint64_t offset = prologueSize;
    FieldWriter entries(bytes.data() + headerSize, header.byteOrder);
    for (DirectoryEntry& entry : *directory) {
        offset = AlignUp(offset);
        entry.offset = offset;
        entries.Put(entry.info.tag);
        entries.Put(entry.info.subIdent);
        entries.Put(entry.info.version);
        entries.Put(entry.info.flags);
        entries.Put(std::uint8_t{0});
        entries.Put(std::uint16_t{0});
        entries.Put(std::uint32_t{0});
        entries.Put(static_cast<std::uint32_t>(entry.offset));
        entries.Put(entry.info.size);
        offset += entry.info.size;
    }
    return bytes;
}

} // namespace LPF
