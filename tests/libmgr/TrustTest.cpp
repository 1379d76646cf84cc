// What a library author must be able to trust: damaged files said out loud, names that cannot break
// a tab-separated line, output that cannot be lost without a word, and one way to give options.
#include "libmgr/ToolRun.hpp"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

namespace {

using testsupport::RunLibmgr;
using testsupport::ScratchFolder;
using testsupport::ToolRun;

void WriteNoise(const ScratchFolder& scratch, const std::string& relative, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(700, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    scratch.Write(relative, bytes);
}

TEST(Trust, DamagedPartFilesAreCountedListedAndAnnounced) {
    ScratchFolder scratch;
    scratch.Write("lib/Texts/readme.txt", "words");
    for (unsigned i = 0; i < 3; ++i)
        WriteNoise(scratch, "lib/Noise/noise " + std::to_string(i) + ".klm", i);
    const std::string library = (scratch.Path() / "lib").string();

    const ToolRun summary = RunLibmgr(scratch, {"enumerate", "--no-cache", library});
    EXPECT_EQ(summary.exitCode, 0);
    EXPECT_NE(summary.out.find("parts       4 (1 valid, 0 dummy, 3 damaged)\n"), std::string::npos)
        << summary.out;
    EXPECT_EQ(summary.err, "libmgr enumerate: 3 part files could not be read; 'libmgr check' names them\n");
    // The same from the library cache: a second start says the same.
    const ToolRun replayed = RunLibmgr(scratch, {"enumerate", "--json", library});
    EXPECT_EQ(nlohmann::json::parse(replayed.out)["damagedParts"], 3);
    EXPECT_EQ(RunLibmgr(scratch, {"enumerate", "-q", library}).err, "");

    const ToolRun list = RunLibmgr(scratch, {"list", "-q", library});
    EXPECT_NE(list.out.find("noise 1\tnoise 1.klm\tpart\t00000000-0000-0000-0000-000000000000\t"
                            "00000000-0000-0000-0000-000000000000\tdamaged\tlib/Noise\n"),
              std::string::npos)
        << list.out;
    const ToolRun show = RunLibmgr(scratch, {"show", "--json", "-q", library, "noise 2.klm"});
    ASSERT_EQ(show.exitCode, 0) << show.err;
    const nlohmann::json part = nlohmann::json::parse(show.out);
    EXPECT_EQ(part["valid"], false);
    EXPECT_EQ(part["state"], "damaged");
    EXPECT_EQ(part["damaged"], "not a library part file (wrong signature)");
}

TEST(Trust, TabsAndBackslashesInNamesAreEscaped) {
    ScratchFolder scratch;
    scratch.Write("lib/tab\there.txt", "x");
    scratch.Write("lib/back\\slash.txt", "x");
    const ToolRun list = RunLibmgr(scratch, {"list", "-q", "--no-cache", (scratch.Path() / "lib").string()});
    EXPECT_NE(list.out.find("tab\\there\ttab\\there.txt\ttext\t"), std::string::npos) << list.out;
    EXPECT_NE(list.out.find("back\\\\slash\tback\\\\slash.txt\ttext\t"), std::string::npos) << list.out;
    EXPECT_EQ(std::count(list.out.begin(), list.out.end(), '\n'), 2);
}

TEST(Trust, OutputThatCannotBeWrittenFailsWithOneLine) {
    ScratchFolder scratch;
    const ToolRun full = RunLibmgr(scratch, {"list", "-q", LM_SAMPLE_LIBRARY_DIR}, "/dev/full");
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_EQ(full.err.rfind("libmgr list: cannot write the output", 0), 0U) << full.err;
    EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 1) << full.err;
}

TEST(Trust, OptionsMayStandBeforeTheCommandAndHelpNamesACommand) {
    ScratchFolder scratch;
    const ToolRun before = RunLibmgr(scratch, {"-q", "--json", "enumerate", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(before.exitCode, 0) << before.err;
    EXPECT_EQ(nlohmann::json::parse(before.out)["parts"], 37);
    const ToolRun help = RunLibmgr(scratch, {"help", "check"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.out, RunLibmgr(scratch, {"check", "--help"}).out);
    EXPECT_EQ(help.out.rfind("Usage: libmgr check", 0), 0U) << help.out;
    EXPECT_EQ(RunLibmgr(scratch, {"help", "nonsense"}).exitCode, 2);
}

} // namespace

namespace {

TEST(Trust, NothingIsOverwrittenByMistake) {
    ScratchFolder scratch;
    const std::string source = (scratch.Path() / "Lamp.xml").string();
    std::filesystem::copy_file(std::string(LM_EXAMPLES_SOURCE_DIR) + "/Objects/Lighting/Lamp.xml", source);
    const std::string before = testsupport::ReadAll(source);
    const ToolRun same = RunLibmgr(scratch, {"part", "build", source, "-o", source});
    EXPECT_EQ(same.exitCode, 2);
    EXPECT_EQ(same.err, "libmgr part build: " + source + " is the input; write the output elsewhere\n");
    EXPECT_EQ(testsupport::ReadAll(source), before);

    // "-" is standard input and output: a description through a pipe comes back as equivalent XML.
    const std::string piped = (scratch.Path() / "piped.xml").string();
    ASSERT_EQ(std::system(("'" LM_LIBMGR_PATH "' part build - -o - < '" + source +
                           "' | '" LM_LIBMGR_PATH "' part dump - > '" + piped + "'")
                              .c_str()),
              0);
    const std::string direct = (scratch.Path() / "Lamp.klm").string();
    ASSERT_EQ(RunLibmgr(scratch, {"part", "build", source}).exitCode, 0);
    EXPECT_EQ(testsupport::ReadAll(piped), RunLibmgr(scratch, {"part", "dump", direct}).out);
    const ToolRun dumpOverPart = RunLibmgr(scratch, {"part", "dump", direct, "-o", direct});
    EXPECT_EQ(dumpOverPart.exitCode, 2);

    // XML faults are placed by line and column.
    scratch.Write("bad.xml", "<LibraryPart>\n  <DocumentName>x</Document>\n</LibraryPart>\n");
    const ToolRun bad = RunLibmgr(scratch, {"part", "build", (scratch.Path() / "bad.xml").string()});
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.err.find("at line 2, column "), std::string::npos) << bad.err;
}

TEST(Trust, AnInterruptedGenTakesAwayWhatItWroteAndForceWritesIntoAFullFolder) {
    ScratchFolder scratch;
    const std::string library = (scratch.Path() / "big").string();
    const std::string rc = (scratch.Path() / "rc").string();
    // Interrupted once its first folder stands.
    scratch.Write("interrupt.sh", "'" LM_LIBMGR_PATH "' gen '" + library +
                                      "' --parts 20000 -q 2>/dev/null & pid=$!\n"
                                      "while [ ! -d '" +
                                      library +
                                      "/Templates' ]; do sleep 0.01; done\n"
                                      "kill -INT $pid\nwait $pid\necho $? > '" +
                                      rc + "'\n");
    ASSERT_EQ(std::system(("bash '" + (scratch.Path() / "interrupt.sh").string() + "'").c_str()), 0);
    EXPECT_EQ(testsupport::ReadAll(rc), "1\n");
    EXPECT_FALSE(std::filesystem::exists(library));

    scratch.Write("full/keep.txt", "mine");
    const std::string full = (scratch.Path() / "full").string();
    const ToolRun refused = RunLibmgr(scratch, {"gen", full, "--parts", "3", "-q"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err, "libmgr gen: " + full + ": holds files; give --force to write into it\n");
    EXPECT_EQ(RunLibmgr(scratch, {"gen", full, "--parts=3", "-q", "--force"}).exitCode, 0);
    EXPECT_TRUE(std::filesystem::exists(scratch.Path() / "full/keep.txt"));
    EXPECT_TRUE(std::filesystem::exists(scratch.Path() / "full/Objects"));
}

TEST(Trust, ListMatchesNamesByPatternAndRefusesUnknownTypes) {
    ScratchFolder scratch;
    const ToolRun matched = RunLibmgr(scratch, {"list", "-q", "--match=*WINDOW*", LM_SAMPLE_LIBRARY_DIR});
    ASSERT_EQ(matched.exitCode, 0) << matched.err;
    std::vector<std::string> names;
    std::istringstream lines(matched.out);
    for (std::string line; std::getline(lines, line);)
        names.push_back(line.substr(0, line.find('\t')));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"Casement Window", "Fixed Window", "Window", "Window Sash"}));
    // File names match too.
    EXPECT_EQ(RunLibmgr(scratch, {"list", "-q", "--match", "glass tint.p?g", LM_SAMPLE_LIBRARY_DIR})
                  .out.substr(0, 11),
              "Glass Tint\t");

    const ToolRun unknown = RunLibmgr(scratch, {"list", "-q", "--type", "chairs", LM_SAMPLE_LIBRARY_DIR});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.err, "libmgr list: 'chairs' is no type; the types are part, script, image, text, xml, "
                           "package and other\n");
}

} // namespace

namespace {

TEST(Trust, OneStyleForGuidsFilesAndFoldersAndAmbiguityNamed) {
    ScratchFolder scratch;
    std::filesystem::create_directories(scratch.Path() / "lib");
    std::filesystem::copy_file(std::string(LM_SAMPLE_LIBRARY_DIR) + "/Objects/Lighting/Lamp.klm",
                               scratch.Path() / "lib/Lamp.klm");
    std::filesystem::create_directories(scratch.Path() / "lib/Old");
    std::filesystem::copy_file(std::string(LM_SAMPLE_LIBRARY_DIR) + "/Duplicates/Lamp.klm",
                               scratch.Path() / "lib/Old/Lamp.klm");
    const std::string library = (scratch.Path() / "lib").string();

    // A part at the library's root lies in the folder named by the library; guids never in braces.
    const ToolRun list = RunLibmgr(scratch, {"list", "-q", "--no-cache", library});
    EXPECT_NE(list.out.find("\tvalid\tlib\n"), std::string::npos) << list.out;
    const ToolRun show =
        RunLibmgr(scratch, {"show", "-q", library, (scratch.Path() / "lib/Lamp.klm").string()});
    EXPECT_NE(show.out.find("file          Lamp.klm\nfolder        lib\n"), std::string::npos) << show.out;
    EXPECT_NE(
        show.out.find(
            "id            B49FE4DD-0D26-41EF-B411-6BB4F69CEAF6 CDE055B6-C1E6-4246-8CA2-43377202AED9\n"),
        std::string::npos)
        << show.out;
    EXPECT_EQ(show.out.find('{'), std::string::npos) << show.out;
    // The other part of that name is named.
    EXPECT_NE(show.out.find("same name     lib/Old/Lamp.klm (give a file or an id to choose)\n"),
              std::string::npos)
        << show.out;

    // A main guid with two revisions: the one handed out, then the other.
    const ToolRun find =
        RunLibmgr(scratch, {"find", "-q", library, "--guid", "B49FE4DD-0D26-41EF-B411-6BB4F69CEAF6"});
    ASSERT_EQ(find.exitCode, 0) << find.err;
    std::istringstream lines(find.out);
    std::string first, second, third;
    std::getline(lines, first);
    std::getline(lines, second);
    EXPECT_EQ(first.rfind("main guid, ambiguous\tLamp\tLamp.klm\t", 0), 0U) << find.out;
    EXPECT_EQ(second.rfind("other revision\tLamp\tLamp.klm\t", 0), 0U) << find.out;
    EXPECT_FALSE(std::getline(lines, third));
}

} // namespace

namespace {

TEST(Trust, AMalformedPreferenceFileIsNamedInOneWarning) {
    ScratchFolder scratch;
    scratch.Write("home/config/libmgr/preferences.json", "{ \"LibraryManager\": ");
    const ToolRun run = RunLibmgr(scratch, {"enumerate", "-q", LM_SAMPLE_LIBRARY_DIR});
    EXPECT_EQ(run.exitCode, 0);
    const std::string path = (scratch.Path() / "home/config/libmgr/preferences.json").string();
    EXPECT_EQ(run.err.rfind("libmgr enumerate: warning: " + path + ": not valid JSON (", 0), 0U) << run.err;
    EXPECT_NE(run.err.find("); its settings are ignored\n"), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
}

} // namespace

namespace {

std::vector<std::string> ErrLines(const ToolRun& run) {
    std::vector<std::string> lines;
    std::istringstream in(run.err);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

TEST(Trust, WhatAWalkPassesOverIsSaidAndStrictFailsOnIt) {
    ScratchFolder scratch;
    scratch.Write("lib/ok.txt", "fine");
    scratch.Write(std::string("lib/bad\xff") + "name.txt", "unreachable by its name");
    std::string deep = "lib";
    for (int i = 0; i < IO::TreeEnumerator::MaxDepth + 3; ++i)
        deep += "/d";
    scratch.Write(deep + "/lost.txt", "too far down");
    const std::string library = (scratch.Path() / "lib").string();

    const ToolRun counted = RunLibmgr(scratch, {"list", "--no-cache", library});
    EXPECT_EQ(counted.exitCode, 0);
    EXPECT_EQ(counted.err, "libmgr list: passed over 1 name not UTF-8, 1 too deep; -v names them\n");
    const ToolRun named = RunLibmgr(scratch, {"-v", "list", "--no-cache", library});
    EXPECT_EQ(named.exitCode, 0);
    const std::vector<std::string> lines = ErrLines(named);
    ASSERT_EQ(lines.size(), 2U) << named.err;
    EXPECT_EQ(lines[0], "libmgr list: passed over (name not UTF-8): lib/bad\\xFFname.txt");
    EXPECT_EQ(lines[1].rfind("libmgr list: passed over (too deep): lib/d/d/", 0), 0U);
    EXPECT_EQ(RunLibmgr(scratch, {"list", "-q", "--no-cache", library}).err, "");

    const ToolRun strict = RunLibmgr(scratch, {"enumerate", "--strict", "-q", library});
    EXPECT_EQ(strict.exitCode, 1);
    EXPECT_EQ(strict.err, "libmgr enumerate: --strict: files were passed over or cannot be read\n");
    // Damage alone fails a strict run too; a clean library passes.
    scratch.Write("clean/readme.txt", "words");
    EXPECT_EQ(RunLibmgr(scratch, {"list", "--strict", (scratch.Path() / "clean").string()}).exitCode, 0);
    WriteNoise(scratch, "clean/noise.klm", 7);
    EXPECT_EQ(RunLibmgr(scratch, {"list", "--strict", "-q", (scratch.Path() / "clean").string()}).exitCode,
              1);
}

TEST(Trust, AFolderThatCannotBeReadIsSaidForAUserWithoutRights) {
    ScratchFolder scratch;
    scratch.Write("lib/open/a.txt", "a");
    scratch.Write("lib/Secret/b.txt", "b");
    std::filesystem::permissions(scratch.Path() / "lib/Secret", std::filesystem::perms::none);
    std::string prefix;
    if (::geteuid() == 0) {
        // Root reads every folder: the tool runs as nobody.
        if (std::system("command -v setpriv >/dev/null") != 0)
            GTEST_SKIP() << "running as root without setpriv";
        std::filesystem::permissions(scratch.Path(), std::filesystem::perms::others_exec,
                                     std::filesystem::perm_options::add);
        prefix = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
    }
    const std::filesystem::path err = scratch.Path() / "err.txt";
    const int status =
        std::system((prefix + "'" LM_LIBMGR_PATH "' list -v --strict --no-cache '" +
                     (scratch.Path() / "lib").string() + "' >/dev/null 2>'" + err.string() + "'")
                        .c_str());
    std::filesystem::permissions(scratch.Path() / "lib/Secret", std::filesystem::perms::owner_all);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(testsupport::ReadAll(err), "libmgr list: passed over (unreadable folder): lib/Secret\n"
                                         "libmgr list: --strict: files were passed over or cannot be read\n");
}

} // namespace
