// End to end on a library on disk: a cold enumeration, a second one on the same manager, and
// `libmgr enumerate` as a whole process, beside a plain C++ walk of the same tree that opens each
// file, reads its first 4 KiB (what a header needs) and closes it; the walk that reads every file
// whole is a second line. Run back to back, three rounds, the median of each; and the memory a
// catalogue holds per part.
//
//   e2e_bench LIBRARY [LIBMGR]
#include "BenchClock.hpp"
#include "TreeWalk.hpp"

#include <LibraryManager.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using bench::HeaderWalk;
using bench::Median;
using bench::Milliseconds;
using bench::WalkFacts;
using bench::WholeFileWalk;

// A field of /proc/self/status in KiB: VmRSS now, VmHWM the peak since the last reset.
long StatusKiB(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field + ":", 0) == 0)
            return std::stol(line.substr(field.size() + 1));
    return 0;
}

void ResetPeakMemory() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

class Catalogue {
public:
    explicit Catalogue(const std::filesystem::path& root,
                       LM::BinaryCachingMode caching = LM::BinaryCachingInMemory) {
        manager.InitLibraryManager(caching, nullptr, nullptr, nullptr);
        Set().AddActiveLibrary(process, IO::Location(root.string()), LM::LocalLibrary, LM::NotVital,
                               KL::NULLGuid, KL::UniString(), false);
    }
    LM::LibrarySet& Set() { return *manager.GetLibrarySet(); }
    void Enumerate() { Set().Enumerate(process); }

private:
    LM::LibrarySetSingletonLP manager;
    KL::NonInterruptibleProcessControl process;
};

void PrintRow(const char* what, double value, const char* unit, double baseline) {
    std::printf("%-30s %10.1f %-4s", what, value, unit);
    if (baseline > 0)
        std::printf(" %6.2f", value / baseline);
    std::printf("\n");
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3 || !std::filesystem::is_directory(argv[1])) {
        std::cerr << "usage: e2e_bench LIBRARY [LIBMGR]\n";
        return 2;
    }
    const std::filesystem::path root = std::filesystem::absolute(argv[1]);
    // One walk first, so that every timed run reads from the page cache alike.
    const WalkFacts facts = WholeFileWalk(root);

    // Memory: what one catalogue holds at its peak while enumerating, per part.
    int parts = 0;
    long peakPerPart = 0;
    {
        const long before = StatusKiB("VmRSS");
        ResetPeakMemory();
        Catalogue catalogue(root);
        catalogue.Enumerate();
        parts = catalogue.Set().GetLibPartNumber();
        peakPerPart = parts > 0 ? (StatusKiB("VmHWM") - before) * 1024 / parts : 0;
    }

    std::vector<double> walk, wholeWalk, cold, again, process;
    const std::string enumerateCommand = argc == 3 ? "'" + std::string(argv[2]) + "' enumerate '" +
                                                         root.string() + "' --no-cache -q > /dev/null"
                                                   : "";
    for (int round = 0; round < 3; ++round) {
        walk.push_back(Milliseconds([&] { HeaderWalk(root); }));
        wholeWalk.push_back(Milliseconds([&] { WholeFileWalk(root); }));
        {
            Catalogue catalogue(root);
            cold.push_back(Milliseconds([&] { catalogue.Enumerate(); }));
            again.push_back(Milliseconds([&] { catalogue.Enumerate(); }));
        }
        if (!enumerateCommand.empty())
            process.push_back(Milliseconds([&] {
                if (std::system(enumerateCommand.c_str()) != 0)
                    std::cerr << "libmgr enumerate failed\n";
            }));
    }
    // The library cache in a folder of its own: written once by a walk, then replayed by a new
    // manager each round, beside a listing of every file's time by find.
    const std::filesystem::path cacheHome =
        std::filesystem::temp_directory_path() / ("lm-e2e-cache-" + std::to_string(::getpid()));
    ::setenv("XDG_CACHE_HOME", cacheHome.c_str(), 1);
    Catalogue(root, LM::BinaryCachingOnDisk).Enumerate();
    std::vector<double> find, replay;
    const std::string findCommand = "find '" + root.string() + "' -printf '%T@ %p\\n' > /dev/null";
    for (int round = 0; round < 3; ++round) {
        find.push_back(Milliseconds([&] {
            if (std::system(findCommand.c_str()) != 0)
                std::cerr << "find failed\n";
        }));
        Catalogue catalogue(root, LM::BinaryCachingOnDisk);
        replay.push_back(Milliseconds([&] { catalogue.Enumerate(); }));
        if (!catalogue.Set().IsLibraryReplayed(0))
            std::cerr << "the library was walked, not replayed\n";
    }
    std::filesystem::remove_all(cacheHome);

    const double baseline = Median(walk);
    std::printf("end to end: %d parts, %zu files, %.0f MiB; median of 3 rounds, ratio to the 4 KiB walk\n",
                parts, facts.files, static_cast<double>(facts.bytes) / (1024.0 * 1024.0));
    PrintRow("open, read 4 KiB, close walk", baseline, "ms", baseline);
    PrintRow("open, read whole, close walk", Median(wholeWalk), "ms", baseline);
    PrintRow("cold enumerate", Median(cold), "ms", baseline);
    PrintRow("re-enumerate", Median(again), "ms", baseline);
    if (!process.empty())
        PrintRow("libmgr enumerate (a process)", Median(process), "ms", baseline);
    PrintRow("peak memory per part", static_cast<double>(peakPerPart), "B", 0);
    std::printf("library cache: median of 3 rounds, ratio to find -printf '%%T@ %%p' over the same tree\n");
    PrintRow("find -printf (a process)", Median(find), "ms", Median(find));
    PrintRow("replay on a new manager", Median(replay), "ms", Median(find));
    std::printf("%-30s %10.1f times faster than the cold enumerate\n", "replay",
                Median(cold) / Median(replay));
    return 0;
}
