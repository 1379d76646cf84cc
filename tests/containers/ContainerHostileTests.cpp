// Hostile containers: every byte changed in turn, cut at every byte, nested too deep, names that
// would climb out of their place. A walk ends with 0, -36 or -7003, never a crash or a hang, and
// what a damaged container still shows reads without harm.
#include "containers/ContainerWalk.hpp"
#include "support/ContainerBytes.hpp"
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testsupport::ContainerWalk;
using testsupport::LcfBytes;
using testsupport::LcfNode;
using testsupport::ScratchFolder;

constexpr int HardFailure = -7003;

std::string Reference() {
    LcfBytes format;
    format.headerInfos = {{0x41424344u, "head"}};
    LcfNode folder = LcfNode::Folder("Lib", {LcfNode::Folder("Sub", {LcfNode::File("s.txt", "sub file")}),
                                             LcfNode::File("a.txt", "plain text"),
                                             LcfNode::File("z.txt", std::string(300, 'z'), true)});
    folder.infos = {{0x1u, "folder info"}};
    folder.children[1].mime = "text/plain";
    folder.children[1].infos = {{0x2u, "file info"}};
    return format.Build({folder, LcfNode::Folder("Other", {LcfNode::File("o.txt", "o")})});
}

class ContainerHostile : public ::testing::Test {
protected:
    // Walks the bytes as a container; what mounted is then read through, entry by entry.
    int WalkAndRead(const std::string& bytes) {
        scratch.Write("c.lcf", bytes);
        const IO::Location location = scratch.Location("c.lcf");
        ContainerWalk walk(scratch.Location("unzip"));
        const int result = walk.Walk(location);
        if (walk.IsMounted())
            ReadEverything(walk, location);
        return result;
    }

    void ReadEverything(ContainerWalk& walk, const IO::Location& folderLocation) {
        IO::Location location = folderLocation;
        IO::FolderEntry* folder = nullptr;
        if (walk.Connect(&location, &folder) != 0)
            return;
        std::vector<std::pair<IO::Name, IO::EntryType>> children;
        folder->EnumerateContents(
            [](const IO::Name& name, IO::EntryType type, void* data) {
                static_cast<std::vector<std::pair<IO::Name, IO::EntryType>>*>(data)->emplace_back(name, type);
                return true;
            },
            &children);
        walk.Disconnect(folder);
        for (const auto& [name, type] : children) {
            if (type == IO::FolderEntryType) {
                ReadEverything(walk, folderLocation + name);
                continue;
            }
            IO::Location fileLocation = folderLocation + name;
            IO::FileEntry* file = nullptr;
            if (walk.Connect(&fileLocation, &file) != 0)
                continue;
            char buffer[512];
            std::uint64_t got = 0;
            if (file->Open(IO::FileEntry::ReadMode) == 0)
                while (file->Read(buffer, sizeof buffer, &got) == 0 && got > 0) {
                }
            file->Close();
            walk.Disconnect(file);
        }
    }

    ScratchFolder scratch;
};

TEST_F(ContainerHostile, ChangedAndCutBytesEndTheWalkCleanly) {
    const std::string good = Reference();
    ASSERT_EQ(WalkAndRead(good), 0);
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (const unsigned char value : {0x00, 0x7F, 0xFF}) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(value);
            const int result = WalkAndRead(bytes);
            EXPECT_TRUE(result == 0 || result == LM::ILibraryContainerProcessor::SoftFailure ||
                        result == HardFailure)
                << "byte " << at << " = " << int{value} << ": " << result;
        }
    }
    // Whatever block a cut lands in, some read comes short.
    for (std::size_t cut = 0; cut < good.size(); ++cut)
        EXPECT_EQ(WalkAndRead(good.substr(0, cut)), HardFailure) << "cut at " << cut;
}

TEST_F(ContainerHostile, DeepNestingAndClimbingNamesAreRefused) {
    const auto nested = [](int depth) {
        LcfNode node = LcfNode::File("leaf.txt", "leaf");
        for (int level = 0; level < depth; ++level)
            node = LcfNode::Folder("d" + std::to_string(level), {node});
        return LcfBytes().Build({node});
    };
    EXPECT_EQ(WalkAndRead(nested(200)), 0);
    EXPECT_EQ(WalkAndRead(nested(300)), HardFailure);

    const auto named = [](const std::string& field, std::uint32_t declared) {
        LcfNode file = LcfNode::File("x", "x");
        file.rawNameField = LcfBytes::U32(declared) + field;
        return LcfBytes().Build({LcfNode::Folder("Lib", {file})});
    };
    const auto units = [](const std::u16string& text) {
        std::string field;
        for (char16_t unit : text)
            field += std::string{static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
        return field;
    };
    EXPECT_EQ(WalkAndRead(named(units(u"ok"), 2)), 0);
    for (const std::u16string& bad : {std::u16string(u".."), std::u16string(u"a/b"),
                                      std::u16string(u"a\0b", 3), std::u16string(u"."), std::u16string()})
        EXPECT_EQ(WalkAndRead(named(units(bad), static_cast<std::uint32_t>(bad.size()))), HardFailure);
    // A count that claims more than the field holds.
    EXPECT_EQ(WalkAndRead(named(units(u"ok"), 0x7FFFFFFF)), HardFailure);
}

} // namespace
