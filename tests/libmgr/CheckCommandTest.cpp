// libmgr check as a library author runs it before shipping.
#include "libmgr/ToolRun.hpp"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using testsupport::RunLibmgr;
using testsupport::ScratchFolder;
using testsupport::ToolRun;

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

TEST(CheckCommand, TheSampleLibraryCallsAMacroItLacks) {
    ScratchFolder scratch;
    const ToolRun text = RunLibmgr(scratch, {"check", LM_SAMPLE_LIBRARY_DIR});
    EXPECT_EQ(text.exitCode, 1) << text.err;
    const std::vector<std::string> lines = LinesOf(text.out);
    // Every other call of the sample resolves, the bare script it calls included; the duplicates
    // are there on purpose too.
    ASSERT_EQ(lines.size(), 3U) << text.out;
    EXPECT_EQ(lines[0],
              "missing macro  Shelf Bracket: called by library/Objects/Furniture/Storage/Bookshelf.klm");
    EXPECT_EQ(lines[1].rfind("same id  Round Table: ", 0), 0U);
    EXPECT_EQ(lines[2].rfind("revisions  Lamp: ", 0), 0U);

    const ToolRun json = RunLibmgr(scratch, {"check", "--json", LM_SAMPLE_LIBRARY_DIR});
    EXPECT_EQ(json.exitCode, 1) << json.err;
    const nlohmann::json findings = nlohmann::json::parse(json.out);
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_EQ(findings[0]["kind"], "missing macro");
    EXPECT_EQ(findings[0]["callers"],
              nlohmann::json::array({"library/Objects/Furniture/Storage/Bookshelf.klm"}));
}

TEST(CheckCommand, ACleanLibraryPassesAndDamageOrLongPathsDoNot) {
    ScratchFolder scratch;
    const std::filesystem::path library = scratch.Path() / "lib";
    ASSERT_EQ(
        RunLibmgr(scratch, {"gen", library.string(), "--parts", "200", "--duplicates", "0", "-q"}).exitCode,
        0);
    const ToolRun clean = RunLibmgr(scratch, {"check", library.string()});
    EXPECT_EQ(clean.exitCode, 0) << clean.err;
    EXPECT_EQ(clean.out, "no findings\n");

    scratch.Write("lib/Broken.klm", std::string(600, '\x5a'));
    // One folder moved so deep that every path in it passes the limit.
    const std::filesystem::path deep = library / std::string(240, 'd');
    std::filesystem::create_directories(deep);
    const std::filesystem::path moved = *std::filesystem::directory_iterator(library / "Objects");
    std::filesystem::rename(moved, deep / moved.filename());
    const ToolRun found = RunLibmgr(scratch, {"check", "--no-cache", library.string()});
    EXPECT_EQ(found.exitCode, 1) << found.err;
    const std::vector<std::string> lines = LinesOf(found.out);
    ASSERT_GE(lines.size(), 2U) << found.out;
    EXPECT_EQ(lines[0], "damaged  lib/Broken.klm: not a library part file (wrong signature)");
    for (std::size_t i = 1; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].rfind("path too long  lib/" + std::string(240, 'd') + "/", 0), 0U) << lines[i];
        EXPECT_NE(lines[i].find(" characters, the limit is 260"), std::string::npos) << lines[i];
    }
}

} // namespace
