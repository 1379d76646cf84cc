// libmgr pack and unpack beside the archivers an author would otherwise use, on the same library:
// pack against `tar cf`, unpack against `tar xf`, compressed pack against `zip -qr -1`, and a
// database container packed and unpacked against an SQLite archive (`sqlite3 -A -c` and `-x`). Each is
// the whole command as a user runs it, the pack replaying its library from the cache as a second
// run does. Before each timed run, outside the timing, the outputs are removed and written data
// synced, so that no run pays for the write-back of the one before. Median of three rounds.
//   pack_bench LIBMGR LIBRARY WORKDIR
#include "BenchClock.hpp"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

std::string Quote(const fs::path& path) {
    return "'" + path.string() + "'";
}

double TimedRun(const std::string& command) {
    return bench::Milliseconds([&command] {
        if (std::system(command.c_str()) != 0) {
            std::fprintf(stderr, "pack_bench: failed: %s\n", command.c_str());
            std::exit(1);
        }
    });
}

// The median of three rounds, each round the baseline first; `clear` runs before every command.
void Compare(const char* label, const char* baselineLabel, const std::string& baseline,
             const std::string& command, const std::string& clear) {
    std::vector<double> base;
    std::vector<double> ours;
    const std::string clearAndSync = clear + " && sync";
    for (int round = 0; round < 3; ++round) {
        std::system(clearAndSync.c_str());
        base.push_back(TimedRun(baseline));
        std::system(clearAndSync.c_str());
        ours.push_back(TimedRun(command));
    }
    const double b = bench::Median(base);
    const double o = bench::Median(ours);
    std::printf("| %-34s | %8.0f | 1.00 |\n| %-34s | %8.0f | %.2f |\n", baselineLabel, b, label, o, o / b);
}

// One tool's command beside its baseline's, under their labels.
struct Pair {
    const char* label;
    const char* baselineLabel;
    std::string baseline;
    std::string command;
};

// Times packing, keeps one archive of each tool, then times unpacking those.
void CompareRoundTrip(const Pair& pack, const std::string& clearPacked, const Pair& unpack,
                      const std::string& clearUnpacked) {
    Compare(pack.label, pack.baselineLabel, pack.baseline, pack.command, clearPacked);
    std::system(pack.baseline.c_str());
    std::system(pack.command.c_str());
    Compare(unpack.label, unpack.baselineLabel, unpack.baseline, unpack.command, clearUnpacked);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4 || !fs::is_directory(argv[2])) {
        std::fprintf(stderr, "usage: pack_bench LIBMGR LIBRARY WORKDIR\n");
        return 2;
    }
    const fs::path libmgr = fs::absolute(argv[1]);
    const fs::path library = fs::absolute(argv[2]);
    const fs::path work = fs::absolute(argv[3]);
    fs::create_directories(work);
    const std::string cache = "XDG_CACHE_HOME=" + Quote(work / "cache") + " ";
    const std::string inParent = "cd " + Quote(library.parent_path()) + " && ";
    const std::string name = Quote(library.filename());
    // The library cache is written once, as a first run would.
    std::system((cache + Quote(libmgr) + " enumerate -q " + Quote(library) + " >/dev/null").c_str());

    std::printf("| | ms | ratio |\n|---|---:|---:|\n");
    const std::string ours = cache + Quote(libmgr);
    const std::string clearUnpacked = "rm -rf " + Quote(work / "x") + " " + Quote(work / "y");
    CompareRoundTrip(
        {"`libmgr pack`", "`tar cf`", inParent + "tar cf " + Quote(work / "lib.tar") + " " + name,
         ours + " pack -q " + Quote(library) + " -o " + Quote(work / "lib.lcf")},
        "rm -f " + Quote(work / "lib.tar") + " " + Quote(work / "lib.lcf"),
        {"`libmgr unpack`", "`tar xf`",
         "mkdir " + Quote(work / "x") + " && tar xf " + Quote(work / "lib.tar") + " -C " + Quote(work / "x"),
         ours + " unpack -q " + Quote(work / "lib.lcf") + " -o " + Quote(work / "y")},
        clearUnpacked);
    Compare("`libmgr pack --compress=1`", "`zip -qr -1`",
            inParent + "zip -qr -1 " + Quote(work / "lib.zip") + " " + name,
            ours + " pack -q --compress=1 " + Quote(library) + " -o " + Quote(work / "libz.lcf"),
            "rm -f " + Quote(work / "lib.zip") + " " + Quote(work / "libz.lcf"));
    CompareRoundTrip({"`libmgr pack --database`", "`sqlite3 -A -c`",
                      inParent + "sqlite3 -A -c -f " + Quote(work / "lib.sqlar") + " " + name,
                      ours + " pack -q --database " + Quote(library) + " -o " + Quote(work / "libdb.lcf")},
                     "rm -f " + Quote(work / "lib.sqlar") + " " + Quote(work / "libdb.lcf"),
                     {"`libmgr unpack` of the database", "`sqlite3 -A -x`",
                      "mkdir " + Quote(work / "x") + " && sqlite3 -A -x -f " + Quote(work / "lib.sqlar") +
                          " -C " + Quote(work / "x"),
                      ours + " unpack -q " + Quote(work / "libdb.lcf") + " -o " + Quote(work / "y")},
                     clearUnpacked);
    fs::remove_all(work);
    return 0;
}
