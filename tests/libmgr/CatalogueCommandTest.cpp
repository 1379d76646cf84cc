// libmgr's catalogue commands as a host engineer or library author runs them: on the sample
// library, with --json for scripts, and on paths that are not libraries.
#include "libmgr/ToolRun.hpp"
#include "support/ContainerBytes.hpp"
#include "support/ScratchFolder.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>
#include <string>

namespace {

using testsupport::RunLibmgr;
using testsupport::ScratchFolder;
using testsupport::ToolRun;

TEST(CatalogueCommands, EnumerateSummarisesTheSampleLibrary) {
    ScratchFolder scratch;
    const ToolRun text = RunLibmgr(scratch, {"enumerate", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_EQ(text.err, "");
    EXPECT_NE(text.out.find("libraries   1\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("parts       37 (37 valid, 0 dummy, 0 damaged)\n"), std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("duplicates  1 by id, 0 by name, 1 revision conflicts"), std::string::npos)
        << text.out;

    const ToolRun json = RunLibmgr(scratch, {"enumerate", "--json", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    const nlohmann::json summary = nlohmann::json::parse(json.out);
    EXPECT_EQ(summary["libraries"], 1);
    EXPECT_EQ(summary["parts"], 37);
    EXPECT_GT(summary["folders"].get<int>(), 10);
    // Round Table by id; the two Lamp revisions conflict, and share a name with different ids.
    EXPECT_EQ(summary["duplicates"], 3);
    EXPECT_EQ(summary["duplicatesByKind"]["id"], 1);
}

// The sample library packed as a container file lists as the folder does, place for place.
TEST(CatalogueCommands, AContainerFileIsALibraryToo) {
    ScratchFolder scratch;
    bool compress = false;
    scratch.Write("library.lcf", testsupport::LcfBytes().Build(
                                     {testsupport::LcfNode::FromFolder(LM_SAMPLE_LIBRARY_DIR, &compress)}));
    const std::string container = (scratch.Path() / "library.lcf").string();
    const ToolRun packed = RunLibmgr(scratch, {"list", "--json", "-q", container});
    const ToolRun folder = RunLibmgr(scratch, {"list", "--json", "-q", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(packed.exitCode, 0) << packed.err;
    ASSERT_EQ(folder.exitCode, 0) << folder.err;
    const auto places = [](const std::string& out, const std::string& root) {
        std::multiset<std::string> lines;
        for (nlohmann::json part : nlohmann::json::parse(out)) {
            const std::string location = part["location"].get<std::string>();
            EXPECT_EQ(location.rfind(root, 0), 0U) << location;
            part["location"] = location.substr(root.size());
            part.erase("display");
            part.erase("folder");
            lines.insert(part.dump());
        }
        return lines;
    };
    EXPECT_EQ(places(packed.out, container + "/library"), places(folder.out, LM_SAMPLE_LIBRARY_DIR));
}

// The second run replays the library from its cache and lists the very same bytes.
TEST(CatalogueCommands, ASecondRunReplaysTheSameCatalogue) {
    ScratchFolder scratch;
    const ToolRun first = RunLibmgr(scratch, {"list", "--json", "-q", LM_SAMPLE_LIBRARY_DIR});
    const ToolRun second = RunLibmgr(scratch, {"list", "--json", "-q", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(second.out, first.out);
    const auto pass = [&scratch](std::vector<std::string> arguments) {
        const ToolRun run = RunLibmgr(scratch, arguments);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return nlohmann::json::parse(run.out)["libraryPasses"][0]["pass"].get<std::string>();
    };
    EXPECT_EQ(pass({"enumerate", "--json", LM_SAMPLE_LIBRARY_DIR}), "replayed");
    EXPECT_EQ(pass({"enumerate", "--json", "--no-cache", LM_SAMPLE_LIBRARY_DIR}), "walked");
    const ToolRun text = RunLibmgr(scratch, {"enumerate", LM_SAMPLE_LIBRARY_DIR});
    EXPECT_NE(text.out.find("library     library (replayed)\n"), std::string::npos) << text.out;
}

TEST(CatalogueCommands, ListShowsEveryPartWithItsFields) {
    ScratchFolder scratch;
    const ToolRun json = RunLibmgr(scratch, {"list", "--json", "-q", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    const nlohmann::json parts = nlohmann::json::parse(json.out);
    ASSERT_EQ(parts.size(), 37U);
    std::set<std::string> types;
    for (const nlohmann::json& part : parts) {
        for (const char* field :
             {"name", "file", "location", "type", "mainGuid", "revisionGuid", "valid", "folder"})
            EXPECT_TRUE(part.contains(field)) << field;
        types.insert(part["type"].get<std::string>());
    }
    EXPECT_EQ(types, (std::set<std::string>{"part", "script", "image", "text"}));

    const ToolRun scripts = RunLibmgr(scratch, {"list", "--type", "script", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(scripts.exitCode, 0) << scripts.err;
    EXPECT_EQ(scripts.out.rfind("Shared Stair Rail\tShared Stair Rail.qdl\tscript\t", 0), 0U) << scripts.out;
    EXPECT_EQ(std::count(scripts.out.begin(), scripts.out.end(), '\n'), 1);
    EXPECT_NE(scripts.out.find("\tvalid\tlibrary/Macros\n"), std::string::npos) << scripts.out;
}

TEST(CatalogueCommands, DuplicatesTreeAndDemoShowWhatTheCatalogueFound) {
    ScratchFolder scratch;
    const ToolRun duplicates = RunLibmgr(scratch, {"duplicates", "--json", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(duplicates.exitCode, 0) << duplicates.err;
    const nlohmann::json reports = nlohmann::json::parse(duplicates.out);
    ASSERT_EQ(reports["idDuplicates"].size(), 1U);
    EXPECT_EQ(reports["idDuplicates"][0]["name"], "Round Table");
    EXPECT_EQ(reports["idDuplicates"][0]["members"].size(), 2U);
    ASSERT_EQ(reports["revisionConflicts"].size(), 1U);
    EXPECT_EQ(reports["revisionConflicts"][0]["revisions"].size(), 2U);

    const ToolRun tree = RunLibmgr(scratch, {"tree", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(tree.exitCode, 0) << tree.err;
    // Each level by name, without spacer lines.
    EXPECT_EQ(tree.out.rfind("General Object (32)\n|-- Annotation (3)\n|   |-- North Arrow (1)\n", 0), 0U)
        << tree.out;
    EXPECT_NE(tree.out.find("\n|-- Furniture (14)\n|   |-- Bookshelf (1)\n|   |-- Chair (5)\n"),
              std::string::npos)
        << tree.out;
    EXPECT_NE(tree.out.find("\n`-- Straight Stair (1)\n"), std::string::npos) << tree.out;
    const ToolRun shallow = RunLibmgr(scratch, {"tree", "--depth=2", "--json", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(shallow.exitCode, 0) << shallow.err;
    const nlohmann::json roots = nlohmann::json::parse(shallow.out);
    ASSERT_EQ(roots.size(), 1U);
    EXPECT_EQ(roots[0]["name"], "General Object");
    EXPECT_EQ(roots[0]["parts"], 32);
    ASSERT_EQ(roots[0]["children"].size(), 5U);
    EXPECT_EQ(roots[0]["children"][1]["name"], "Furniture");
    EXPECT_TRUE(roots[0]["children"][1]["children"].empty());
    EXPECT_EQ(RunLibmgr(scratch, {"tree", "--depth", "0", LM_SAMPLE_LIBRARY_DIR}).exitCode, 2);

    const ToolRun demo = RunLibmgr(scratch, {"demo"});
    ASSERT_EQ(demo.exitCode, 0) << demo.err;
    for (const char* heading : {"== summary\n", "== type tree\n", "== duplicates\n"})
        EXPECT_NE(demo.out.find(heading), std::string::npos) << heading;
}

TEST(CatalogueCommands, BadLibrariesAndBadUsageGetOneClearLine) {
    ScratchFolder scratch;
    scratch.Write("file.txt", "not a folder");
    const std::string missing = (scratch.Path() / "nowhere").string();
    const ToolRun noFolder = RunLibmgr(scratch, {"enumerate", missing});
    EXPECT_EQ(noFolder.exitCode, 1);
    EXPECT_EQ(noFolder.out, "");
    EXPECT_EQ(noFolder.err, "libmgr enumerate: " + missing + ": no such folder or file\n");

    const std::string file = (scratch.Path() / "file.txt").string();
    const ToolRun notFolder = RunLibmgr(scratch, {"list", file});
    EXPECT_EQ(notFolder.exitCode, 1);
    EXPECT_EQ(notFolder.err, "libmgr list: " + file + ": neither a folder nor a container file\n");

    const ToolRun noLibrary = RunLibmgr(scratch, {"tree"});
    EXPECT_EQ(noLibrary.exitCode, 2);
    EXPECT_EQ(std::count(noLibrary.err.begin(), noLibrary.err.end(), '\n'), 1);
    EXPECT_EQ(RunLibmgr(scratch, {"list", "--colour", LM_SAMPLE_LIBRARY_DIR}).exitCode, 2);
    EXPECT_EQ(RunLibmgr(scratch, {"frobnicate"}).exitCode, 2);

    for (const char* command : {"enumerate", "list", "duplicates", "tree", "demo"}) {
        const ToolRun help = RunLibmgr(scratch, {command, "--help"});
        EXPECT_EQ(help.exitCode, 0) << command;
        EXPECT_EQ(help.out.rfind(std::string("Usage: libmgr ") + command, 0), 0U) << help.out;
    }

    // Hostile parts inside a library are records, not failures of the tool.
    scratch.Write("Lib/garbage.klm", std::string(300, '\x7f'));
    scratch.Write("Lib/ok.txt", "fine");
    const ToolRun hostile = RunLibmgr(scratch, {"enumerate", "--json", (scratch.Path() / "Lib").string()});
    ASSERT_EQ(hostile.exitCode, 0) << hostile.err;
    EXPECT_EQ(nlohmann::json::parse(hostile.out)["parts"], 2);
}

} // namespace
