// Extraction into folders: paths too long for the system go to numbered side folders, names that
// meet there are numbered, text files from another platform go to the host's converter, and
// nothing a container holds or a destination already holds leads a write outside it.
#include "support/Catalogue.hpp"
#include "support/ContainerBytes.hpp"
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace {

using testsupport::LcfBytes;
using testsupport::LcfNode;
using testsupport::ScratchFolder;

namespace fs = std::filesystem;

class ContainerExtraction : public ::testing::Test {
protected:
    int Extract(const std::string& bytes, const fs::path& destination, KL::PlatformSign platform = 0x5757) {
        scratch.Write("in.lcf", bytes);
        return LM::ExtractContainer(process, scratch.Location("in.lcf"), IO::Location(destination.string()),
                                    false, false, &platform, false);
    }

    static std::set<std::string> FilesBelow(const fs::path& root) {
        std::set<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(root))
            if (entry.is_regular_file())
                files.insert(fs::relative(entry.path(), root).string());
        return files;
    }

    ScratchFolder scratch;
    KL::NonInterruptibleProcessControl process;
};

TEST_F(ContainerExtraction, PathsPastTheLimitGoToSideFoldersWithNumberedNames) {
    // A destination whose path is exactly 200 characters long.
    const fs::path parent = scratch.Path() / "d";
    const fs::path destination = parent / std::string(200 - parent.string().size() - 1, 'p');
    ASSERT_EQ(destination.string().size(), 200U);

    const std::string fits(46, 'F');    // 200 + 47: the folder is made
    const std::string tooLong(47, 'L'); // 200 + 48: it is not
    std::vector<LcfNode> many;
    for (int i = 0; i < 495; ++i)
        many.push_back(LcfNode::File("f" + std::to_string(i), "many"));
    const std::vector<LcfNode> roots = {
        LcfNode::Folder(fits, {LcfNode::File(std::string(8, 'x') + ".txt", "259"),
                               LcfNode::File(std::string(9, 'y') + ".txt", "260")}),
        LcfNode::Folder(tooLong, {LcfNode::File("a.txt", "first a.txt"), LcfNode::File("a", "first a")}),
        LcfNode::Folder(tooLong + "2",
                        {LcfNode::File("a.txt", "second a.txt"), LcfNode::File("a", "second a")}),
        LcfNode::Folder(tooLong + "3", many)};
    ASSERT_EQ(Extract(LcfBytes().Build(roots), destination), 0);

    EXPECT_EQ(scratch.Read(fs::relative(destination / fits / "xxxxxxxx.txt", scratch.Path())), "259");
    EXPECT_FALSE(fs::exists(destination / tooLong));
    const std::set<std::string> side = FilesBelow(destination / "0000-1");
    EXPECT_EQ(side.size(), 499U); // the 500th overflowing file opens the next side folder
    for (const char* name : {"yyyyyyyyy.txt", "a.txt", "a", "a-2.txt", "a-2"})
        EXPECT_EQ(side.count(name), 1U) << name;
    EXPECT_EQ(scratch.Read(fs::relative(destination / "0000-1" / "a-2.txt", scratch.Path())), "second a.txt");
    EXPECT_EQ(scratch.Read(fs::relative(destination / "0000-1" / "a-2", scratch.Path())), "second a");
    EXPECT_EQ(FilesBelow(destination / "0000-2"), (std::set<std::string>{"f494"}));
}

std::vector<std::string> converted;

int RecordConversion(IO::Location& location, int platform) {
    IO::Name name;
    location.GetLastLocalName(&name);
    converted.push_back(name.ToUTF8() + " " + std::to_string(platform));
    return 0;
}

TEST_F(ContainerExtraction, TextsFromAnotherPlatformGoToTheHostsConverter) {
    LM::LibraryManagerCallBacks callBacks;
    callBacks.convertExtractedFile = RecordConversion;
    const testsupport::ScopedCallBacks installed(callBacks);
    const auto typed = [](const std::string& name, const char(&type)[5]) {
        LcfNode file = LcfNode::File(name, "text");
        file.macType = FTM::MakeCode(type);
        return file;
    };
    const std::string bytes = LcfBytes().Build({LcfNode::Folder(
        "Lib", {LcfNode::File("a.TXT", "text"), LcfNode::File("b.lis", "list"), typed("c.dat", "TEXT"),
                typed("d.txt", "CRIT"), LcfNode::File("e.dat", "data")})});

    converted.clear();
    ASSERT_EQ(Extract(bytes, scratch.Path() / "mac", 0x4D4D), 0);
    std::sort(converted.begin(), converted.end());
    EXPECT_EQ(converted, (std::vector<std::string>{"a.TXT 19789", "b.lis 19789", "c.dat 19789"}));

    converted.clear();
    ASSERT_EQ(Extract(bytes, scratch.Path() / "here"), 0);
    EXPECT_TRUE(converted.empty());
    std::uint32_t type = 0;
    std::uint32_t creator = 0;
    EXPECT_EQ(IO::File(scratch.Location("here/Lib/c.dat")).GetTypeInfo(&type, &creator), 0);
    EXPECT_EQ(type, FTM::MakeCode("TEXT"));
}

TEST_F(ContainerExtraction, NothingIsWrittenOutsideTheDestination) {
    scratch.Write("outside/secret.txt", "keep");
    const fs::path destination = scratch.Path() / "dest";
    fs::create_directories(destination / "Lib");
    fs::create_directory_symlink(scratch.Path() / "outside", destination / "Lib/evil");
    fs::create_symlink(scratch.Path() / "outside/secret.txt", destination / "Lib/linked.txt");
    fs::create_hard_link(scratch.Path() / "outside/secret.txt", destination / "Lib/hard.txt");
    const std::string bytes = LcfBytes().Build(
        {LcfNode::Folder("Lib", {LcfNode::Folder("evil", {LcfNode::File("secret.txt", "through a link")}),
                                 LcfNode::File("linked.txt", "through a link"),
                                 LcfNode::File("hard.txt", "through a link", true)})});
    ASSERT_EQ(Extract(bytes, destination), 0);
    EXPECT_EQ(scratch.Read("outside/secret.txt"), "keep");
    EXPECT_EQ(FilesBelow(scratch.Path() / "outside"), (std::set<std::string>{"secret.txt"}));
    // The container's entries took the links' places.
    EXPECT_FALSE(fs::is_symlink(destination / "Lib/evil"));
    EXPECT_FALSE(fs::is_symlink(destination / "Lib/linked.txt"));
    for (const char* place : {"dest/Lib/evil/secret.txt", "dest/Lib/linked.txt", "dest/Lib/hard.txt"})
        EXPECT_EQ(scratch.Read(place), "through a link") << place;

    // Names that would climb or carry a separator end the walk before anything is made of them.
    const auto named = [](const std::u16string& text) {
        std::string field = LcfBytes::U32(static_cast<std::uint32_t>(text.size()));
        for (char16_t unit : text)
            field += std::string{static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
        LcfNode file = LcfNode::File("escaped.txt", "escaped");
        file.rawNameField = field;
        LcfNode folder = LcfNode::Folder("x", {LcfNode::File("escaped.txt", "escaped")});
        folder.rawNameField = field;
        return LcfBytes().Build({LcfNode::Folder("Lib", {folder, file})});
    };
    for (const std::u16string& bad :
         {std::u16string(u".."), std::u16string(u"../../outside"), std::u16string(u"/tmp")}) {
        EXPECT_EQ(Extract(named(bad), scratch.Path() / "inner/dest"), LM::LibPartFileError);
        EXPECT_FALSE(fs::exists(scratch.Path() / "inner/escaped.txt"));
        EXPECT_FALSE(fs::exists(scratch.Path() / "outside/escaped.txt"));
        EXPECT_TRUE(FilesBelow(scratch.Path() / "inner").empty());
    }

    // A source that cannot be opened is no error, and makes nothing.
    EXPECT_EQ(LM::ExtractContainer(process, scratch.Location("missing.lcf"), scratch.Location("none"), false,
                                   false, nullptr, false),
              0);
    EXPECT_FALSE(fs::exists(scratch.Path() / "none"));
}

} // namespace
