#pragma once

// The records of a container file (".LCF"), docs/formats/lcf.md: the file header, the block
// header, the folder and file records and the info items of INFO blocks. Every integer is
// big-endian on every platform; records are packed. Each Read takes and each Write puts exactly the
// record's bytes, whatever the channel's own byte order; Read checks nothing a caller must judge.
#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"
#include "VBUtils/DateTime.hpp"

#include <cstdint>
#include <initializer_list>
#include <memory>

namespace IO {
class Name;
}

namespace KL {
class IChannel;
class OChannel;
} // namespace KL

namespace LM {

// A four-character tag as the big-endian number it is stored as.
constexpr std::uint32_t ContainerTag(const char (&text)[5]) {
    return (std::uint32_t{static_cast<unsigned char>(text[0])} << 24) |
           (std::uint32_t{static_cast<unsigned char>(text[1])} << 16) |
           (std::uint32_t{static_cast<unsigned char>(text[2])} << 8) |
           std::uint32_t{static_cast<unsigned char>(text[3])};
}

inline constexpr std::uint32_t ContainerMagic = ContainerTag("KLCF");
inline constexpr std::uint32_t ContainerFileTypeCode = 0x65C07A1Eu;
inline constexpr std::uint32_t MainTag = ContainerTag("MAIN");
inline constexpr std::uint32_t FolderTag = ContainerTag("FLDR");
inline constexpr std::uint32_t FileTag = ContainerTag("FILE");
inline constexpr std::uint32_t InfoTag = ContainerTag("INFO");
// The info item on a folder that stood for a nested container file.
inline constexpr std::uint32_t EmbeddedHeaderTag = ContainerTag("EMBH");
// MAIN flag: the container's top folder is not shown.
inline constexpr std::int32_t HideTopFolderFlag = 0x40;
// Folder flag: the folder was a container of its own.
inline constexpr std::int32_t SubContainerFolderFlag = 0x4;
// File flag: the content is one compressed stream.
inline constexpr std::int32_t CompressedFileFlag = 0x1;

struct LM_EXPORT ContainerHeader {
    static constexpr std::uint64_t Size = 24;

    std::int32_t magic = 0;
    std::int32_t fileType = 0;
    std::int16_t versionH = 0;
    std::int16_t versionL = 0;
    std::int32_t partCount = 0;
    std::int32_t headerSize = 0;
    std::int32_t infoCount = 0;

    int Read(KL::IChannel& channel);
    int Write(KL::OChannel& channel) const;
    // Versions up to 1.0 are read; names are IO::Names exactly in 1.0, single-byte texts in 0.4.
    bool IsAcceptedVersion() const { return versionH < 1 || (versionH == 1 && versionL <= 0); }
};

struct LM_EXPORT ChunkHeader {
    static constexpr std::uint64_t Size = 20;

    std::uint32_t tag = 0;
    std::int32_t reserved = 0;
    std::int32_t flags = 0;
    std::int32_t count = 0;
    // The whole block, this header and everything nested included; 0 in old files.
    std::uint32_t length = 0;

    int Read(KL::IChannel& channel);
    int Write(KL::OChannel& channel) const;
    // A block of this tag as the walk knows it: a nonzero reserved word makes it unknown.
    bool Is(std::uint32_t wanted) const { return tag == wanted && reserved == 0; }
};

struct LM_EXPORT FolderEntry {
    static constexpr std::uint64_t Size = 28;

    std::int32_t flags = 0;
    std::int32_t recordSize = 0;
    std::uint32_t nameLength = 0;
    std::int32_t subfolderCount = 0;
    std::int32_t fileCount = 0;
    std::int32_t infoCount = 0;
    std::uint32_t dataOffset = 0;

    int Read(KL::IChannel& channel);
    int Write(KL::OChannel& channel) const;
};

struct LM_EXPORT FileEntry {
    static constexpr std::uint64_t Size = 56;

    std::int32_t flags = 0;
    std::int32_t recordSize = 0;
    std::uint32_t nameLength = 0;
    std::int32_t mimeOffset = 0;
    std::uint32_t mimeLength = 0;
    std::int32_t macType = 0;
    std::int32_t macCreator = 0;
    OVFS::DateTime creationTime;
    OVFS::DateTime modificationTime;
    std::uint32_t dataLength = 0;
    std::int32_t infoCount = 0;
    std::uint32_t dataOffset = 0;

    int Read(KL::IChannel& channel);
    int Write(KL::OChannel& channel) const;
};

// One tagged item of an INFO block, with a deep copy of its payload.
class LM_EXPORT InfoData {
public:
    InfoData() = default;
    InfoData(std::uint32_t type, std::uint32_t size, const char* bytes);
    InfoData(const InfoData& other);
    InfoData& operator=(const InfoData& other);
    ~InfoData();

    // The 8-byte head and the payload; a size past what the channel holds is refused before
    // anything is allocated.
    int Read(KL::IChannel& channel);
    int Write(KL::OChannel& channel) const;
    // The bytes Write puts: head and payload.
    std::uint64_t GetStoredSize() const { return 8 + std::uint64_t{size}; }

    std::uint32_t GetType() const { return type; }
    std::uint32_t GetSize() const { return size; }
    // Null when the size is 0.
    const char* GetData() const { return data.get(); }

private:
    std::uint32_t type = 0;
    std::uint32_t size = 0;
    std::unique_ptr<char[]> data;
};

// The info items of one record, owned; copies are deep.
class LM_EXPORT InfoArray {
public:
    InfoArray() = default;
    InfoArray(const InfoArray& other);
    InfoArray& operator=(const InfoArray& other);
    ~InfoArray();

    // Reads an INFO block of `count` items; the count is the owning record's, never the block's.
    int ReadBlock(KL::IChannel& channel, std::int32_t count);
    // Writes the INFO block of all items; nothing when there are none.
    int WriteBlock(KL::OChannel& channel) const;
    // The bytes WriteBlock puts.
    std::uint64_t GetBlockSize() const;
    void Push(const InfoData& item);
    // Appends deep copies of every item.
    void PushAll(const KL::Array<InfoData*>& source);
    void Clear();
    const KL::Array<InfoData*>& Get() const { return items; }

private:
    KL::Array<InfoData*> items;
};

// True when the name's extension is one of `extensions`, without case: packing tools wrap
// libraries in folders named so.
LM_EXPORT bool HasExtensionAmong(const IO::Name& name, std::initializer_list<const char*> extensions);

} // namespace LM
