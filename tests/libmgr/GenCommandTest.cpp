// libmgr gen: a synthetic library that the catalogue reads as the options describe, the same bytes
// for the same seed, and clear refusals of bad options and occupied folders.
#include "libmgr/ToolRun.hpp"
#include "support/ScratchFolder.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <map>
#include <string>

namespace {

using testsupport::ReadAll;
using testsupport::RunLibmgr;
using testsupport::ScratchFolder;
using testsupport::ToolRun;

// Every file below `root` by its relative path, with its bytes.
std::map<std::string, std::string> Files(const std::filesystem::path& root) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        if (entry.is_regular_file())
            files[std::filesystem::relative(entry.path(), root).string()] = ReadAll(entry.path());
    return files;
}

TEST(GenCommand, WritesALibraryThatTheCatalogueReadsAsDescribed) {
    ScratchFolder scratch;
    const std::string library = (scratch.Path() / "gen").string();
    const ToolRun gen = RunLibmgr(
        scratch, {"gen", library, "--parts", "400", "--seed", "3", "--depth", "4", "--duplicates", "5"});
    ASSERT_EQ(gen.exitCode, 0) << gen.err;
    EXPECT_EQ(gen.out.rfind("parts       400 below 10 templates, in 8 folders\n", 0), 0U) << gen.out;
    EXPECT_NE(gen.out.find("clashes     10 copies with the same id, 10 other revisions\n"), std::string::npos)
        << gen.out;

    const ToolRun summary = RunLibmgr(scratch, {"enumerate", "--json", library});
    ASSERT_EQ(summary.exitCode, 0) << summary.err;
    const nlohmann::json counts = nlohmann::json::parse(summary.out);
    // Parts, templates, the other revisions (both stay), 16 pictures and 4 texts; copies lose.
    EXPECT_EQ(counts["parts"], 400 + 10 + 10 + 16 + 4);
    EXPECT_EQ(counts["duplicatesByKind"]["id"], 10);
    EXPECT_EQ(counts["duplicatesByKind"]["revisionConflicts"], 10);

    // No chain is deeper than asked, and every part file is at least 2 KiB.
    const ToolRun parts = RunLibmgr(scratch, {"list", "--json", "--type", "part", library});
    ASSERT_EQ(parts.exitCode, 0) << parts.err;
    std::size_t deepest = 0;
    for (const nlohmann::json& part : nlohmann::json::parse(parts.out)) {
        const std::string name = part["name"].get<std::string>();
        if (name.rfind("Type ", 0) == 0 || name == "General Object")
            continue;
        const ToolRun shown =
            RunLibmgr(scratch, {"show", "--json", library, part["location"].get<std::string>()});
        ASSERT_EQ(shown.exitCode, 0) << shown.err;
        deepest = std::max(deepest, nlohmann::json::parse(shown.out)["ancestry"].size());
        EXPECT_GE(std::filesystem::file_size(part["location"].get<std::string>()), 2048U) << name;
        if (deepest == 4)
            break;
    }
    EXPECT_EQ(deepest, 4U);
}

TEST(GenCommand, TinyPartsAreAFewHundredBytesAndReadAsTheOthers) {
    ScratchFolder scratch;
    const std::string library = (scratch.Path() / "tiny").string();
    const ToolRun gen =
        RunLibmgr(scratch, {"gen", library, "--parts", "200", "--tiny", "--duplicates", "0", "-q"});
    ASSERT_EQ(gen.exitCode, 0) << gen.err;
    const ToolRun summary = RunLibmgr(scratch, {"enumerate", "--json", library});
    ASSERT_EQ(summary.exitCode, 0) << summary.err;
    // Parts, 5 templates, 8 pictures and 2 texts, every one of them catalogued.
    EXPECT_EQ(nlohmann::json::parse(summary.out)["parts"], 200 + 5 + 8 + 2);
    for (const auto& [path, bytes] : Files(library))
        EXPECT_LT(bytes.size(), 1024U) << path;
}

TEST(GenCommand, TheSameSeedGivesTheSameBytes) {
    ScratchFolder scratch;
    const auto generate = [&](const std::string& folder, const std::string& seed) {
        const ToolRun run = RunLibmgr(
            scratch, {"gen", (scratch.Path() / folder).string(), "--parts", "60", "--seed", seed, "-q"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return Files(scratch.Path() / folder);
    };
    const auto first = generate("a", "11");
    EXPECT_EQ(generate("b", "11"), first);
    EXPECT_NE(generate("c", "12"), first);
    EXPECT_GT(first.size(), 60U);
}

TEST(GenCommand, RefusesBadOptionsAndOccupiedFolders) {
    ScratchFolder scratch;
    const std::string out = (scratch.Path() / "out").string();
    for (const std::vector<std::string>& bad : {std::vector<std::string>{"gen", out},
                                                {"gen", "--parts", "5"},
                                                {"gen", out, "--parts", "0"},
                                                {"gen", out, "--parts", "5", "--depth", "7"},
                                                {"gen", out, "--parts", "5x"},
                                                {"gen", out, "--parts", "5", "--duplicates", "60"},
                                                {"gen", out, "--parts", "5", "--colour", "red"},
                                                {"gen", out, "--parts", "5", "--containers", "2"},
                                                {"gen", out, "--parts"}}) {
        const ToolRun run = RunLibmgr(scratch, bad);
        EXPECT_EQ(run.exitCode, 2) << bad.back();
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_FALSE(std::filesystem::exists(out));
    }
    scratch.Write("out/keep.txt", "mine");
    const ToolRun occupied = RunLibmgr(scratch, {"gen", out, "--parts", "5"});
    EXPECT_EQ(occupied.exitCode, 1);
    EXPECT_EQ(occupied.err, "libmgr gen: " + out + ": holds files; give --force to write into it\n");
    EXPECT_EQ(Files(scratch.Path() / "out").size(), 1U);
}

} // namespace
