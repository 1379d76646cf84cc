// libmgr part build|dump as a library author runs them: the bundled sample library round trip, and
// one clear line for every kind of damaged file.
#include "libmgr/ToolRun.hpp"
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using testsupport::ReadAll;
using testsupport::RunLibmgr;
using testsupport::ToolRun;

// Comments and white space between elements dropped, attributes sorted, no indentation.
void SortAttributes(pugi::xml_node node) {
    std::vector<std::pair<std::string, std::string>> attributes;
    for (const pugi::xml_attribute attribute : node.attributes())
        attributes.emplace_back(attribute.name(), attribute.value());
    std::sort(attributes.begin(), attributes.end());
    node.remove_attributes();
    for (const auto& [name, value] : attributes)
        node.append_attribute(name.c_str()).set_value(value.c_str());
    for (pugi::xml_node child : node.children())
        SortAttributes(child);
}

std::string Canonical(const std::string& text) {
    pugi::xml_document document;
    const unsigned options = (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata_single;
    if (!document.load_string(text.c_str(), options))
        return "not XML";
    SortAttributes(document.document_element());
    std::ostringstream out;
    document.document_element().print(out, "", pugi::format_raw);
    return out.str();
}

std::vector<fs::path> ExampleSources() {
    std::vector<fs::path> sources;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(LM_EXAMPLES_SOURCE_DIR)) {
        if (entry.path().extension() == ".xml")
            sources.push_back(entry.path());
    }
    std::sort(sources.begin(), sources.end());
    return sources;
}

} // namespace

TEST(PartCommand, EveryExampleSourceComesBackFromBuildAndDump) {
    const testsupport::ScratchFolder scratch;
    const std::vector<fs::path> sources = ExampleSources();
    ASSERT_GE(sources.size(), 25U);
    for (const fs::path& source : sources) {
        SCOPED_TRACE(source.string());
        const std::string part = (scratch.Path() / "part.klm").string();
        const ToolRun build = RunLibmgr(scratch, {"part", "build", source.string(), "-o", part});
        ASSERT_EQ(build.exitCode, 0) << build.err;
        const ToolRun dump = RunLibmgr(scratch, {"part", "dump", part});
        ASSERT_EQ(dump.exitCode, 0) << dump.err;
        EXPECT_EQ(Canonical(dump.out), Canonical(ReadAll(source)));
        // The parts compiled at build time are the same parts.
        const fs::path relative = fs::relative(source, LM_EXAMPLES_SOURCE_DIR);
        const fs::path compiled =
            fs::path(LM_SAMPLE_LIBRARY_DIR) / relative.parent_path() / (relative.stem().string() + ".klm");
        EXPECT_EQ(ReadAll(compiled), ReadAll(part));
    }
}

TEST(PartCommand, BuildGivesFreshGuidsOnlyWhereTheSourceHasNone) {
    const testsupport::ScratchFolder scratch;
    scratch.Write("new.xml", "<LibraryPart><DocumentName>New</DocumentName></LibraryPart>");
    const auto guids = [&scratch](const std::string& name) {
        RunLibmgr(scratch, {"part", "build", (scratch.Path() / "new.xml").string(), "-o",
                            (scratch.Path() / name).string()});
        const ToolRun dump = RunLibmgr(scratch, {"part", "dump", (scratch.Path() / name).string()});
        pugi::xml_document document;
        document.load_string(dump.out.c_str());
        const pugi::xml_node root = document.child("LibraryPart");
        return std::string(root.child_value("MainGuid")) + root.child_value("RevisionGuid");
    };
    const std::string first = guids("a.klm");
    EXPECT_EQ(first.size(), 72U);
    EXPECT_NE(first, guids("b.klm"));
    EXPECT_EQ(first.find("00000000-0000"), std::string::npos);
}

TEST(PartCommand, DamagedFilesGetOneLineAndExitOne) {
    const testsupport::ScratchFolder scratch;
    const std::string good =
        ReadAll(fs::path(LM_SAMPLE_LIBRARY_DIR) / "Objects/Furniture/Chairs/Dining Chair.klm");
    ASSERT_GT(good.size(), 200U);
    std::string countPastEnd = good;
    countPastEnd.replace(12, 4, std::string("\xff\xff\xff\x7f", 4));
    std::string sectionPastEnd = good;
    const std::size_t headerSize = static_cast<unsigned char>(good[8]) | static_cast<unsigned char>(good[9])
                                                                             << 8;
    sectionPastEnd.replace(headerSize + 20, 4, std::string("\xff\xff\xff\x00", 4));
    std::string overlapping = good;
    overlapping.replace(headerSize + 24 + 16, 4, good.substr(headerSize + 16, 4));
    const std::vector<std::pair<std::string, std::string>> damaged = {
        {"empty.klm", ""},
        {"garbage.klm", std::string(500, '\x5a')},
        {"truncated header.klm", good.substr(0, 40)},
        {"truncated data.klm", good.substr(0, good.size() - 7)},
        {"absurd count.klm", countPastEnd},
        {"section past end.klm", sectionPastEnd},
        {"overlapping.klm", overlapping},
    };
    for (const auto& [name, content] : damaged) {
        SCOPED_TRACE(name);
        scratch.Write(name, content);
        const ToolRun dump = RunLibmgr(scratch, {"part", "dump", (scratch.Path() / name).string()});
        EXPECT_EQ(dump.exitCode, 1);
        EXPECT_TRUE(dump.out.empty());
        EXPECT_EQ(std::count(dump.err.begin(), dump.err.end(), '\n'), 1) << dump.err;
        EXPECT_TRUE(dump.err.starts_with("libmgr part dump: ")) << dump.err;
    }
    const ToolRun missing = RunLibmgr(scratch, {"part", "dump", (scratch.Path() / "nothing.klm").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("no such file"), std::string::npos) << missing.err;
}

TEST(PartCommand, BadSourcesAndBadUsageAreToldApart) {
    const testsupport::ScratchFolder scratch;
    scratch.Write("broken.xml", "<LibraryPart><Script tag=\"2DSC\">");
    scratch.Write("wrong.xml", "<LibraryPart><Script tag=\"XXXX\">LINE 0, 0, 1, 1</Script></LibraryPart>");
    const ToolRun broken = RunLibmgr(scratch, {"part", "build", (scratch.Path() / "broken.xml").string()});
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_NE(broken.err.find("not well-formed XML"), std::string::npos) << broken.err;
    const ToolRun wrong = RunLibmgr(scratch, {"part", "build", (scratch.Path() / "wrong.xml").string()});
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_NE(wrong.err.find("'XXXX' is not a script section"), std::string::npos) << wrong.err;
    EXPECT_FALSE(fs::exists(scratch.Path() / "wrong.klm"));

    EXPECT_EQ(RunLibmgr(scratch, {"part"}).exitCode, 2);
    EXPECT_EQ(RunLibmgr(scratch, {"part", "melt"}).exitCode, 2);
    EXPECT_EQ(RunLibmgr(scratch, {"part", "dump"}).exitCode, 2);
    EXPECT_EQ(RunLibmgr(scratch, {"part", "build", "a.xml", "-o"}).exitCode, 2);
    const ToolRun help = RunLibmgr(scratch, {"part", "dump", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("Usage: libmgr part dump"), std::string::npos);
}
