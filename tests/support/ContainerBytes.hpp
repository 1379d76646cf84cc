#pragma once

// Container files (".LCF") built byte by byte from the format's tables, big-endian throughout, so
// that the reader is tested against the format and not against our own writer. A node is a
// folder or a file; fields a test wants to get wrong can be set directly.
#include <LibraryManager.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace testsupport {

struct LcfInfo {
    std::uint32_t type = 0;
    std::string payload;
};

struct LcfNode {
    std::string name;
    bool isFolder = false;
    std::vector<LcfNode> children; // folders: subfolders and files, in any order
    std::string content;           // files: the uncompressed bytes
    bool compressed = false;
    std::string mime;
    std::vector<LcfInfo> infos;
    std::int32_t flags = -1; // -1: what a writer puts (folders 2, files 2 | compressed)
    std::uint32_t macType = 0;
    std::uint32_t macCreator = 0;
    TITime creationTime = 0;
    TITime modificationTime = 0;
    std::uint32_t tag = 0;           // 0: FLDR or FILE
    bool zeroBlockLength = false;    // old files leave the block length 0
    std::int64_t rawNameLength = -1; // -1: the encoded name's length
    bool headerOnly = false;         // a block header and nothing else, for unknown tags
    std::string rawNameField;        // when set, the name field's bytes as they stand

    static LcfNode Folder(std::string name, std::vector<LcfNode> children = {}) {
        LcfNode node;
        node.name = std::move(name);
        node.isFolder = true;
        node.children = std::move(children);
        return node;
    }
    // A folder on disk as container nodes, every other file compressed when `compress` is given.
    static LcfNode FromFolder(const std::filesystem::path& path, bool* compress = nullptr) {
        if (std::filesystem::is_directory(path)) {
            LcfNode folder = Folder(path.filename().string());
            std::vector<std::filesystem::path> entries(std::filesystem::directory_iterator(path), {});
            std::sort(entries.begin(), entries.end());
            for (const std::filesystem::path& entry : entries)
                folder.children.push_back(FromFolder(entry, compress));
            return folder;
        }
        std::ifstream stream(path, std::ios::binary);
        std::string content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        if (compress != nullptr)
            *compress = !*compress;
        return File(path.filename().string(), std::move(content), compress != nullptr && *compress);
    }
    static LcfNode File(std::string name, std::string content, bool compressed = false) {
        LcfNode node;
        node.name = std::move(name);
        node.content = std::move(content);
        node.compressed = compressed;
        return node;
    }
};

class LcfBytes {
public:
    std::int16_t versionH = 1;
    std::int16_t versionL = 0;
    std::int32_t mainFlags = 0;
    std::vector<LcfInfo> headerInfos;
    std::uint32_t magic = 0x4B4C4346u;

    std::string Build(const std::vector<LcfNode>& roots) const {
        std::string file;
        PutHeader(file);
        if (!headerInfos.empty())
            file += InfoBlock(headerInfos);
        std::string body;
        for (const LcfNode& root : roots)
            body += Node(root);
        file += Chunk(Tag("MAIN"), mainFlags, static_cast<std::int32_t>(roots.size()), body);
        return file;
    }

    // The name field as the version stores it.
    std::string NameField(const std::string& utf8) const {
        if (versionH == 1 && versionL == 0) {
            const std::u16string units(KL::UniString(utf8).View());
            std::string field = U32(static_cast<std::uint32_t>(units.size()));
            for (char16_t unit : units) {
                field += static_cast<char>(unit >> 8);
                field += static_cast<char>(unit & 0xFF);
            }
            return field;
        }
        return utf8 + '\0';
    }

    static std::uint32_t Tag(const char (&text)[5]) { return LM::ContainerTag(text); }
    static std::string U32(std::uint32_t value) {
        return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
                static_cast<char>(value)};
    }
    static std::string U16(std::uint16_t value) {
        return {static_cast<char>(value >> 8), static_cast<char>(value)};
    }

private:
    void PutHeader(std::string& file) const {
        file += U32(magic) + U32(0x65C07A1Eu) + U16(static_cast<std::uint16_t>(versionH)) +
                U16(static_cast<std::uint16_t>(versionL)) + U32(0) + U32(24) +
                U32(static_cast<std::uint32_t>(headerInfos.size()));
    }

    static std::string Chunk(std::uint32_t tag, std::int32_t flags, std::int32_t count,
                             const std::string& body, bool zeroLength = false) {
        const auto length = static_cast<std::uint32_t>(20 + body.size());
        return U32(tag) + U32(0) + U32(static_cast<std::uint32_t>(flags)) +
               U32(static_cast<std::uint32_t>(count)) + U32(zeroLength ? 0 : length) + body;
    }

    static std::string InfoBlock(const std::vector<LcfInfo>& infos) {
        std::string items;
        for (const LcfInfo& info : infos)
            items += U32(info.type) + U32(static_cast<std::uint32_t>(info.payload.size())) + info.payload;
        return Chunk(Tag("INFO"), 0, 0, items);
    }

    static std::string Time(TITime time) {
        const OVFS::DateTime stored = OVFS::DateTime::CreateDateTime(time);
        return U32(stored.GetHigh()) + U32(stored.GetLow());
    }

    std::string Node(const LcfNode& node) const {
        if (node.headerOnly)
            return Chunk(node.tag, 0, 0, "");
        const std::string name = node.rawNameField.empty() ? NameField(node.name) : node.rawNameField;
        const auto nameLength = static_cast<std::uint32_t>(
            node.rawNameLength >= 0 ? node.rawNameLength : std::int64_t(name.size()));
        const std::string infos = node.infos.empty() ? "" : InfoBlock(node.infos);
        if (node.isFolder) {
            std::string folders;
            std::string files;
            std::int32_t folderCount = 0;
            std::int32_t fileCount = 0;
            for (const LcfNode& child : node.children) {
                (child.isFolder ? folders : files) += Node(child);
                ++(child.isFolder ? folderCount : fileCount);
            }
            const std::string record =
                U32(static_cast<std::uint32_t>(node.flags >= 0 ? node.flags : 2)) + U32(28) +
                U32(nameLength) + U32(static_cast<std::uint32_t>(folderCount)) +
                U32(static_cast<std::uint32_t>(fileCount)) +
                U32(static_cast<std::uint32_t>(node.infos.size())) + U32(28 + nameLength);
            return Chunk(node.tag != 0 ? node.tag : Tag("FLDR"), 0, folderCount + fileCount,
                         record + name + infos + folders + files, node.zeroBlockLength);
        }
        const std::string content = node.compressed ? Compressed(node.content) : node.content;
        const std::int32_t flags = node.flags >= 0 ? node.flags : (2 | (node.compressed ? 1 : 0));
        const auto mimeLength = static_cast<std::uint32_t>(node.mime.size());
        const std::string record =
            U32(static_cast<std::uint32_t>(flags)) + U32(56) + U32(nameLength) +
            U32(mimeLength > 0 ? 56 + nameLength : 0) + U32(mimeLength) + U32(node.macType) +
            U32(node.macCreator) + Time(node.creationTime) + Time(node.modificationTime) +
            U32(static_cast<std::uint32_t>(node.content.size())) +
            U32(static_cast<std::uint32_t>(node.infos.size())) + U32(56 + nameLength + mimeLength);
        return Chunk(node.tag != 0 ? node.tag : Tag("FILE"), 0, 1,
                     record + name + node.mime + infos + content, node.zeroBlockLength);
    }

    static std::string Compressed(const std::string& bytes) {
        KL::MemoryOChannel out;
        {
            IO::ZipOChannel zip(out);
            zip.WriteBin(bytes.data(), bytes.size());
            zip.Close();
        }
        const std::vector<char> data = out.TakeData();
        return std::string(data.begin(), data.end());
    }
};

} // namespace testsupport
