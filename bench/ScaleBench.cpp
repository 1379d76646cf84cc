// How a whole `libmgr enumerate` grows with the catalogue: for each library, in the order given
// (smallest first), the process's time and peak resident memory beside a plain walk that opens
// each file, reads its first 4 KiB and closes it; then the growth from the first library to each
// of the others, per part. Medians of three rounds, walk and process in turn: a single process
// at 100,000 parts varies by a third from run to run.
//
//   scale_bench LIBMGR LIBRARY...
#include "BenchClock.hpp"
#include "TreeWalk.hpp"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr int Rounds = 3;

struct Measure {
    std::size_t files = 0;
    long parts = 0;
    double walkMs = 0;
    double enumerateMs = 0;
    long peakKiB = 0;
};

// Runs LIBMGR enumerate --json on the library with its output in `output`; the peak resident
// memory of the child comes from wait4.
bool RunEnumerate(const std::string& libmgr, const fs::path& library, const fs::path& output,
                  Measure* measure) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    std::vector<std::string> words = {libmgr, "enumerate", library.string(), "--no-cache", "--json", "-q"};
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    rusage usage{};
    measure->enumerateMs = bench::Milliseconds([&] {
        if (posix_spawn(&child, libmgr.c_str(), &actions, nullptr, argv.data(), environ) == 0)
            ::wait4(child, &status, 0, &usage);
    });
    posix_spawn_file_actions_destroy(&actions);
    if (child == 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return false;
    measure->peakKiB = usage.ru_maxrss;
    std::ifstream stream(output);
    const std::string json((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const std::size_t at = json.find("\"parts\":");
    measure->parts = at == std::string::npos ? 0 : std::atol(json.c_str() + at + 8);
    return measure->parts > 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: scale_bench LIBMGR LIBRARY...\n");
        return 2;
    }
    const std::string libmgr = fs::absolute(argv[1]).string();
    const fs::path output = fs::temp_directory_path() / ("lm-scale-" + std::to_string(::getpid()) + ".json");
    std::vector<Measure> measures;
    std::printf("| parts | files | 4 KiB walk ms | libmgr enumerate ms | ratio | peak MiB | peak B/part |\n");
    std::printf("|---:|---:|---:|---:|---:|---:|---:|\n");
    for (int i = 2; i < argc; ++i) {
        const fs::path library = fs::absolute(argv[i]);
        Measure measure;
        measure.files = bench::HeaderWalk(library).files; // fills the page cache, as for every other row
        std::vector<double> walks;
        std::vector<double> processes;
        for (int round = 0; round < Rounds; ++round) {
            walks.push_back(bench::Milliseconds([&] { bench::HeaderWalk(library); }));
            if (!RunEnumerate(libmgr, library, output, &measure)) {
                std::fprintf(stderr, "scale_bench: libmgr enumerate failed on %s\n", library.c_str());
                return 1;
            }
            processes.push_back(measure.enumerateMs);
        }
        measure.walkMs = bench::Median(walks);
        measure.enumerateMs = bench::Median(processes);
        std::printf("| %ld | %zu | %.0f | %.0f | %.2f | %.0f | %.0f |\n", measure.parts, measure.files,
                    measure.walkMs, measure.enumerateMs, measure.enumerateMs / measure.walkMs,
                    static_cast<double>(measure.peakKiB) / 1024.0,
                    static_cast<double>(measure.peakKiB) * 1024.0 / static_cast<double>(measure.parts));
        std::fflush(stdout);
        measures.push_back(measure);
    }
    fs::remove(output);
    // Linear growth gives 1.00 per part; n log n for the index build would add a little.
    const Measure& first = measures.front();
    for (std::size_t i = 1; i < measures.size(); ++i) {
        const double scale = static_cast<double>(measures[i].parts) / static_cast<double>(first.parts);
        std::printf(
            "from %ld to %ld parts (%.1f times): time per part %.2f times (the walk's %.2f), memory per part "
            "%.2f times\n",
            first.parts, measures[i].parts, scale, measures[i].enumerateMs / first.enumerateMs / scale,
            measures[i].walkMs / first.walkMs * static_cast<double>(first.files) /
                static_cast<double>(measures[i].files),
            static_cast<double>(measures[i].peakKiB) / static_cast<double>(first.peakKiB) / scale);
    }
    return 0;
}
