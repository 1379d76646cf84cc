// libmgr pack and unpack as a library author runs them: a library packed, as a container file or
// a database container, and unpacked again gives back every file of its catalogue byte for byte
// with its time, the container enumerates to the same catalogue as the folder, and bad requests
// get one clear line.
#include "libmgr/ToolRun.hpp"
#include "support/ContainerBytes.hpp"
#include "support/ScratchFolder.hpp"
#include "support/Sqlite.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

namespace {

using testsupport::ReadAll;
using testsupport::RunLibmgr;
using testsupport::ScratchFolder;
using testsupport::ToolRun;

namespace fs = std::filesystem;

// The catalogue as `list --json` gives it, by each part's place below `root`.
std::map<std::string, std::string> Catalogue(const ScratchFolder& scratch, const std::string& library,
                                             const std::string& root) {
    const ToolRun listed = RunLibmgr(scratch, {"list", "--json", "--no-cache", library});
    EXPECT_EQ(listed.exitCode, 0) << listed.err;
    std::map<std::string, std::string> parts;
    for (const nlohmann::json& part : nlohmann::json::parse(listed.out)) {
        const std::string location = part["location"];
        EXPECT_EQ(location.rfind(root + "/", 0), 0U) << location;
        parts[location.substr(root.size() + 1)] =
            part["name"].get<std::string>() + " " + part["type"].get<std::string>() + " " +
            part["mainGuid"].get<std::string>() + " " + part["revisionGuid"].get<std::string>();
    }
    return parts;
}

// Every file below `root`, with its bytes and its modification time in seconds.
std::map<std::string, std::string> FilesWithTimes(const fs::path& root) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const auto seconds =
            std::chrono::floor<std::chrono::seconds>(entry.last_write_time()).time_since_epoch().count();
        files[fs::relative(entry.path(), root).string()] =
            std::to_string(seconds) + " " + ReadAll(entry.path());
    }
    return files;
}

enum class Kind { File, Compressed, Database };

void ExpectRoundTrip(const ScratchFolder& scratch, const fs::path& library, Kind kind) {
    const bool compress = kind == Kind::Compressed;
    const std::string flag = kind == Kind::File ? "" : compress ? "--compress" : "--database";
    SCOPED_TRACE(library.string() + " " + flag);
    const std::string name = library.filename().string();
    const fs::path container = scratch.Path() / (name + flag + ".lcf");
    const fs::path unpacked = scratch.Path() / (name + flag + "-unpacked");
    const std::map<std::string, std::string> catalogue =
        Catalogue(scratch, library.string(), library.string());
    ASSERT_FALSE(catalogue.empty());

    std::vector<std::string> pack = {"pack", library.string(), "-o", container.string(), "--json"};
    if (!flag.empty())
        pack.push_back(flag);
    const ToolRun packed = RunLibmgr(scratch, pack);
    ASSERT_EQ(packed.exitCode, 0) << packed.err;
    const nlohmann::json summary = nlohmann::json::parse(packed.out);
    EXPECT_EQ(summary["parts"], catalogue.size());
    EXPECT_EQ(summary["compressed"], compress);
    EXPECT_EQ(summary["database"], kind == Kind::Database);
    EXPECT_EQ(summary["bytesOut"], fs::file_size(container));

    // The container, mounted as a library, holds the same catalogue below its top folder.
    EXPECT_EQ(Catalogue(scratch, container.string(), (container / name).string()), catalogue);

    const ToolRun unpack = RunLibmgr(scratch, {"unpack", container.string(), "-o", unpacked.string(), "-q"});
    ASSERT_EQ(unpack.exitCode, 0) << unpack.err;
    const std::map<std::string, std::string> back = FilesWithTimes(unpacked / name);
    const std::map<std::string, std::string> original = FilesWithTimes(library);
    ASSERT_EQ(back.size(), catalogue.size());
    for (const auto& [place, bytes] : back) {
        EXPECT_TRUE(catalogue.count(place) == 1) << place;
        EXPECT_TRUE(original.count(place) == 1 && original.at(place) == bytes) << place << " differs";
    }
}

TEST(ContainerCommand, PackThenUnpackGivesBackEveryPartOfTheCatalogue) {
    ScratchFolder scratch;
    const fs::path generated = scratch.Path() / "Generated";
    const ToolRun gen =
        RunLibmgr(scratch, {"gen", generated.string(), "--parts", "2000", "--seed", "5", "-q"});
    ASSERT_EQ(gen.exitCode, 0) << gen.err;
    // A file too large to be held in memory on its way into the container.
    std::string large(300 * 1024, ' ');
    for (std::size_t i = 0; i < large.size(); ++i)
        large[i] = static_cast<char>('a' + (i * 7919) % 26);
    fs::create_directories(generated / "Large");
    std::ofstream(generated / "Large" / "large.txt", std::ios::binary) << large;
    for (const fs::path& library : {fs::path(LM_SAMPLE_LIBRARY_DIR), generated}) {
        for (const Kind kind : {Kind::File, Kind::Compressed, Kind::Database})
            ExpectRoundTrip(scratch, library, kind);
    }
}

TEST(ContainerCommand, OnlyPacksTheMatchingParts) {
    ScratchFolder scratch;
    const fs::path container = scratch.Path() / "pictures.lcf";
    const ToolRun packed = RunLibmgr(scratch, {"pack", LM_SAMPLE_LIBRARY_DIR, "-o", container.string(),
                                               "--only", "Pictures/*", "--no-top-folder"});
    ASSERT_EQ(packed.exitCode, 0) << packed.err;
    const ToolRun unpack =
        RunLibmgr(scratch, {"unpack", container.string(), "-o", (scratch.Path() / "out").string()});
    ASSERT_EQ(unpack.exitCode, 0) << unpack.err;
    // Without the top folder the container's contents stand directly in the destination.
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(scratch.Path() / "out"))
        if (entry.is_regular_file())
            files.insert(fs::relative(entry.path(), scratch.Path() / "out").string());
    EXPECT_EQ(files, (std::set<std::string>{"Pictures/Fabric.png", "Pictures/Glass Tint.png",
                                            "Pictures/Wood Grain.png"}));

    const ToolRun none = RunLibmgr(
        scratch, {"pack", LM_SAMPLE_LIBRARY_DIR, "-o", container.string(), "--only", "nothing-like-this"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.err, "libmgr pack: no part to pack matches --only\n");
}

TEST(ContainerCommand, RefusesWhatItCannotDoInOneLine) {
    ScratchFolder scratch;
    const std::string container = (scratch.Path() / "lib.lcf").string();
    const std::string out = (scratch.Path() / "out").string();
    const auto expectRefusal = [&](const std::vector<std::string>& arguments, int exitCode,
                                   const std::string& err) {
        const ToolRun run = RunLibmgr(scratch, arguments);
        EXPECT_EQ(run.exitCode, exitCode) << arguments[0] << ": " << run.err;
        EXPECT_EQ(run.err, err);
    };
    expectRefusal({"pack", LM_SAMPLE_LIBRARY_DIR}, 2,
                  "libmgr pack: where to? give the container file with -o OUT.lcf\n");
    expectRefusal({"pack", LM_SAMPLE_LIBRARY_DIR, "-o", container, "--compress=12"}, 2,
                  "libmgr pack: --compress takes a level from 0 to 9\n");
    expectRefusal({"pack", LM_SAMPLE_LIBRARY_DIR, "-o", container, "--compress", "--database"}, 2,
                  "libmgr pack: a database container is not compressed: give --compress or --database\n");
    expectRefusal({"unpack", container}, 2, "libmgr unpack: where to? give the folder with -o DIR\n");
    expectRefusal({"unpack", container, "-o", out}, 1, "libmgr unpack: " + container + ": no such file\n");

    scratch.Write("lib.lcf", "not a container at all");
    expectRefusal({"unpack", container, "-o", out}, 1,
                  "libmgr unpack: " + container + ": not a container file\n");

    ASSERT_EQ(RunLibmgr(scratch, {"pack", LM_SAMPLE_LIBRARY_DIR, "-o", container, "-q"}).exitCode, 0);
    scratch.Write("out/kept.txt", "mine");
    expectRefusal({"unpack", container, "-o", out}, 1,
                  "libmgr unpack: " + out + " is not empty; use --force to unpack into it anyway\n");
    EXPECT_EQ(RunLibmgr(scratch, {"unpack", container, "-o", out, "--force", "-q"}).exitCode, 0);
    EXPECT_EQ(scratch.Read("out/kept.txt"), "mine");

    // A container cut short: what could be read is there, and the damage is said.
    const std::string whole = ReadAll(container);
    scratch.Write("cut.lcf", whole.substr(0, whole.size() / 2));
    const std::string cut = (scratch.Path() / "cut.lcf").string();
    const std::string cutOut = (scratch.Path() / "cut-out").string();
    expectRefusal({"unpack", cut, "-o", cutOut}, 1,
                  "libmgr unpack: " + cut + ": damaged container; " + cutOut + " holds what could be read\n");

    // A database container cut short is no container at all; one whose tree reads but whose
    // bytes do not says so in one line.
    const std::string database = (scratch.Path() / "db.lcf").string();
    ASSERT_EQ(
        RunLibmgr(scratch, {"pack", LM_SAMPLE_LIBRARY_DIR, "-o", database, "--database", "-q"}).exitCode, 0);
    const std::string stored = ReadAll(database);
    scratch.Write("db.lcf", stored.substr(0, stored.size() / 2));
    expectRefusal({"unpack", database, "-o", (scratch.Path() / "db-out").string()}, 1,
                  "libmgr unpack: " + database + ": not a container file\n");
}

TEST(ContainerCommand, CheckReadsEveryEntryOfAContainerAndSaysWhatFails) {
    ScratchFolder scratch;
    testsupport::LcfNode broken =
        testsupport::LcfNode::File("broken.txt", "these bytes are no compressed stream");
    broken.flags = 2 | 1; // says compressed
    const testsupport::LcfNode good = testsupport::LcfNode::File("good.txt", "readable", true);
    scratch.Write("shipped.lcf",
                  testsupport::LcfBytes().Build({testsupport::LcfNode::Folder("Lib", {broken, good})}));
    const ToolRun checked =
        RunLibmgr(scratch, {"check", "--no-cache", (scratch.Path() / "shipped.lcf").string()});
    EXPECT_EQ(checked.exitCode, 1) << checked.err;
    EXPECT_EQ(checked.out.rfind("unreadable  shipped.lcf/Lib/broken.txt: ", 0), 0U) << checked.out;
    EXPECT_EQ(std::count(checked.out.begin(), checked.out.end(), '\n'), 1) << checked.out;

    scratch.Write("clean.lcf", testsupport::LcfBytes().Build({testsupport::LcfNode::Folder("Lib", {good})}));
    const ToolRun clean =
        RunLibmgr(scratch, {"check", "--no-cache", (scratch.Path() / "clean.lcf").string()});
    EXPECT_EQ(clean.exitCode, 0) << clean.err;
    EXPECT_EQ(clean.out, "no findings\n");

    // A database container is read through its mount just the same.
    scratch.Write("Small/good.txt", "readable");
    scratch.Write("Small/broken.txt", std::string(300, 'b'));
    const std::string database = (scratch.Path() / "small.lcf").string();
    ASSERT_EQ(
        RunLibmgr(scratch, {"pack", (scratch.Path() / "Small").string(), "-o", database, "--database", "-q"})
            .exitCode,
        0);
    testsupport::RunSql(IO::Location(database), "UPDATE odb_group_2 SET state = substr(state, 1, 60) "
                                                "WHERE length(state) > 300");
    const ToolRun checkedDatabase = RunLibmgr(scratch, {"check", "--no-cache", database});
    // Its first damaged read, here in the catalogue's walk, leaves the whole container unreadable.
    EXPECT_EQ(checkedDatabase.exitCode, 1) << checkedDatabase.err;
    EXPECT_EQ(checkedDatabase.out, "unreadable  small.lcf: the folder cannot be read\n");
}

} // namespace
