// libmgr find and show on the sample library: which stage of the search answered, everything about
// one part, valid JSON for scripts, and clear failures for bad ids and parts that are not there.
#include "libmgr/ToolRun.hpp"
#include "support/ScratchFolder.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>
#include <string>

namespace {

using testsupport::RunLibmgr;
using testsupport::ScratchFolder;
using testsupport::ToolRun;

const std::string DiningChair = "535F2002-B9F7-489E-8689-C846B6B81EC6/857CE06B-F9A2-4BE1-B55C-CA5DB3C7B88E";
const std::string ChairType = "9823BEB1-E6BA-4AD7-8DE4-5321AD915A36";
const std::string LampMain = "B49FE4DD-0D26-41EF-B411-6BB4F69CEAF6";

// The first field of each line: the stage that answered.
std::string FirstLineStage(const std::string& out) {
    return out.substr(0, out.find('\t'));
}

TEST(QueryCommands, FindShowsWhichStageAnswered) {
    ScratchFolder scratch;
    const auto find = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"find", LM_SAMPLE_LIBRARY_DIR});
        return RunLibmgr(scratch, arguments);
    };
    const ToolRun exact = find({"--guid", DiningChair});
    ASSERT_EQ(exact.exitCode, 0) << exact.err;
    // The stage, then the columns of list.
    EXPECT_EQ(exact.out,
              "exact id\tDining Chair\tDining Chair.klm\tpart\t535F2002-B9F7-489E-8689-C846B6B81EC6\t"
              "857CE06B-F9A2-4BE1-B55C-CA5DB3C7B88E\tvalid\tlibrary/Objects/Furniture/Chairs\n");
    // A main guid with two revisions present: the second one found, and said to be ambiguous.
    const ToolRun lamp = find({"--guid", "{" + LampMain + "}"});
    ASSERT_EQ(lamp.exitCode, 0) << lamp.err;
    EXPECT_EQ(FirstLineStage(lamp.out), "main guid, ambiguous");
    const ToolRun byName = find({"--name", "dining chair"});
    EXPECT_EQ(FirstLineStage(byName.out), "document name");
    const ToolRun byFileName = find({"--name", "Dining Chair.klm"});
    EXPECT_EQ(FirstLineStage(byFileName.out), "file name");
    // An unknown revision with the reference's name still leads to a part.
    const ToolRun stale =
        find({"--guid", "535F2002-B9F7-489E-8689-C846B6B81EC6/00000000-0000-0000-0000-000000000001", "--name",
              "Dining Chair"});
    EXPECT_EQ(FirstLineStage(stale.out), "main guid");

    const ToolRun below = find({"--ancestor", ChairType, "--json"});
    ASSERT_EQ(below.exitCode, 0) << below.err;
    const nlohmann::json answer = nlohmann::json::parse(below.out);
    EXPECT_EQ(answer["stage"], "ancestry");
    std::set<std::string> names;
    for (const nlohmann::json& part : answer["parts"]) {
        for (const char* field :
             {"name", "file", "location", "type", "mainGuid", "revisionGuid", "valid", "folder"})
            EXPECT_TRUE(part.contains(field)) << field;
        names.insert(part["name"].get<std::string>());
    }
    EXPECT_EQ(names,
              (std::set<std::string>{"Bar Stool", "Dining Chair", "Office Chair (old)", "Office Chair 2"}));

    const ToolRun file = find({"--file", "bookshelf.KLM"});
    EXPECT_EQ(file.out.rfind("file name\tBookshelf\t", 0), 0U) << file.out;
}

TEST(QueryCommands, FindRefusesBadQuestionsAndSaysWhenNothingMatches) {
    ScratchFolder scratch;
    const ToolRun none = RunLibmgr(scratch, {"find", LM_SAMPLE_LIBRARY_DIR, "--name", "Sofa"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "libmgr find: no part matches\n");
    const ToolRun noneJson = RunLibmgr(scratch, {"find", LM_SAMPLE_LIBRARY_DIR, "--name", "Sofa", "--json"});
    EXPECT_EQ(noneJson.exitCode, 1);
    EXPECT_TRUE(nlohmann::json::parse(noneJson.out)["parts"].empty());

    const ToolRun badId = RunLibmgr(scratch, {"find", LM_SAMPLE_LIBRARY_DIR, "--guid", "chair"});
    EXPECT_EQ(badId.exitCode, 2);
    EXPECT_EQ(badId.err, "libmgr find: 'chair' is not an id (MAIN or MAIN/REVISION)\n");
    const ToolRun twoWays =
        RunLibmgr(scratch, {"find", LM_SAMPLE_LIBRARY_DIR, "--file", "a.klm", "--ancestor", ChairType});
    EXPECT_EQ(twoWays.exitCode, 2);
    const ToolRun noWay = RunLibmgr(scratch, {"find", LM_SAMPLE_LIBRARY_DIR});
    EXPECT_EQ(noWay.exitCode, 2);
    const ToolRun missingValue = RunLibmgr(scratch, {"find", LM_SAMPLE_LIBRARY_DIR, "--name"});
    EXPECT_EQ(missingValue.exitCode, 2);
    const ToolRun help = RunLibmgr(scratch, {"find", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.out.rfind("Usage: libmgr find LIB...", 0), 0U);
}

TEST(QueryCommands, ShowDescribesOnePartInFull) {
    ScratchFolder scratch;
    const ToolRun text = RunLibmgr(scratch, {"show", LM_SAMPLE_LIBRARY_DIR, "Dining Chair"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("name          Dining Chair\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("ancestry      General Object > Furniture > Chair > Dining Chair\n"),
              std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("flags         placeable\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("  3DSC 0  version "), std::string::npos) << text.out;
    const ToolRun replacing = RunLibmgr(scratch, {"show", LM_SAMPLE_LIBRARY_DIR, "office chair 2"});
    EXPECT_NE(replacing.out.find("replaces      Office Chair (old)\n"), std::string::npos) << replacing.out;

    // By id, by file, and as JSON: the replaced part names its replacement.
    const ToolRun json =
        RunLibmgr(scratch, {"show", "--json", LM_SAMPLE_LIBRARY_DIR,
                            std::string(LM_SAMPLE_LIBRARY_DIR) +
                                "/Objects/Furniture/Chairs/Obsolete/Office Chair (old).klm"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    const nlohmann::json old = nlohmann::json::parse(json.out);
    EXPECT_EQ(old["name"], "Office Chair (old)");
    EXPECT_EQ(old["replacedBy"], nlohmann::json::array({"Office Chair 2"}));
    EXPECT_EQ(old["ancestry"].size(), 3U);
    const ToolRun byId = RunLibmgr(scratch, {"show", LM_SAMPLE_LIBRARY_DIR, ChairType, "--json"});
    ASSERT_EQ(byId.exitCode, 0) << byId.err;
    const nlohmann::json chair = nlohmann::json::parse(byId.out);
    EXPECT_EQ(chair["name"], "Chair");
    EXPECT_TRUE(chair["template"].get<bool>());
    EXPECT_EQ(chair["descendants"], 4);

    // A damaged part file is a record all the same, and says what is wrong with it.
    scratch.Write("Lib/garbage.klm", std::string(300, '\x7f'));
    const ToolRun damaged = RunLibmgr(scratch, {"show", (scratch.Path() / "Lib").string(), "garbage"});
    ASSERT_EQ(damaged.exitCode, 0) << damaged.err;
    EXPECT_NE(damaged.out.find("\ndamaged       not a library part file (wrong signature)\n"),
              std::string::npos)
        << damaged.out;

    const ToolRun missing = RunLibmgr(scratch, {"show", LM_SAMPLE_LIBRARY_DIR, "Sofa"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "libmgr show: Sofa: no such part in these libraries\n");
    const ToolRun noPart = RunLibmgr(scratch, {"show"});
    EXPECT_EQ(noPart.exitCode, 2);
    const ToolRun onlyPart = RunLibmgr(scratch, {"show", "Dining Chair"});
    EXPECT_EQ(onlyPart.exitCode, 2);
}

} // namespace
