// A cold walk of a library of 20,000 parts beside a plain walk that opens and reads every file of
// the same tree, and the cost of one store and of one lookup after enumeration.
#include <LibraryManager.hpp>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int PartCount = 20000;
constexpr int PartsPerFolder = 100;
constexpr std::size_t ScriptUnits = 2 * 1024;

KL::UnID PartId(int n) {
    return KL::UnID(KL::Guid(static_cast<std::uint32_t>(n), 1, 2, {}),
                    KL::Guid(static_cast<std::uint32_t>(n), 3, 4, {}));
}

// Parts in folders of a hundred, each below one of ten templates.
class Library {
public:
    // LM_BENCH_LIBRARY names a folder to keep the library in between runs, for profiling the walk
    // without the writing.
    Library() {
        const char* kept = std::getenv("LM_BENCH_LIBRARY");
        keep = kept != nullptr && *kept != 0;
        root = keep ? std::filesystem::path(kept)
                    : std::filesystem::temp_directory_path() /
                          ("lm-enumerate-bench-" + std::to_string(::getpid()));
        if (keep && std::filesystem::exists(root))
            return;
        std::filesystem::create_directories(root);
        const std::u16string script(ScriptUnits, u'x');
        for (int i = 0; i < PartCount; ++i) {
            LPF::SymbolFile part;
            part.SetOwnUnID(PartId(i));
            part.SetDocumentName(KL::UniString("Part " + std::to_string(i)));
            part.SetPlaceable(i >= 10);
            LM::AncestryInfo chain;
            if (i >= 10)
                chain.Append(PartId(i % 10));
            part.SetSectionDataRef(LPF::Tags::Ancestry, 0, chain.GetAncestrySection(), true, -1);
            LPF::SectionInfo info;
            info.tag = LPF::Tags::Scripts[2];
            part.SetSection(info, script.data(), script.size() * sizeof(char16_t));
            const std::filesystem::path folder = root / ("Group " + std::to_string(i / PartsPerFolder));
            std::filesystem::create_directories(folder);
            part.Save(IO::Location((folder / ("Part " + std::to_string(i) + ".klm")).string()));
        }
    }
    ~Library() {
        if (!keep)
            std::filesystem::remove_all(root);
    }

    std::filesystem::path root;
    bool keep = false;
};

Library& GetLibrary() {
    static Library library;
    return library;
}

void BM_PlainOpenReadWalk(benchmark::State& state) {
    const std::filesystem::path& root = GetLibrary().root;
    std::vector<char> buffer(64 * 1024);
    for (auto _ : state) {
        std::size_t bytes = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            if (!entry.is_regular_file())
                continue;
            const int fd = ::open(entry.path().c_str(), O_RDONLY);
            for (ssize_t n; (n = ::read(fd, buffer.data(), buffer.size())) > 0;)
                bytes += static_cast<std::size_t>(n);
            ::close(fd);
        }
        benchmark::DoNotOptimize(bytes);
    }
}
BENCHMARK(BM_PlainOpenReadWalk)->Unit(benchmark::kMillisecond)->Iterations(3);

class Manager {
public:
    Manager() {
        manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr);
        manager.AddLibrary(process, IO::Location(GetLibrary().root.string()), false);
    }
    LM::LibrarySet& Set() { return *manager.GetLibrarySet(); }

    LM::LibrarySetSingletonLP manager;
    KL::NonInterruptibleProcessControl process;
};

void BM_EnumerateCold(benchmark::State& state) {
    Manager manager;
    for (auto _ : state)
        manager.Set().Enumerate(manager.process);
    state.counters["parts"] = manager.Set().GetLibPartNumber();
}
BENCHMARK(BM_EnumerateCold)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_LookupById(benchmark::State& state) {
    Manager manager;
    manager.Set().Enumerate(manager.process);
    int n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager.Set().GetLibPart(LM::LibPartId(PartId(n), KL::UniString())));
        n = (n + 7919) % PartCount;
    }
}
BENCHMARK(BM_LookupById);

void BM_StoreOnePartAfterEnumeration(benchmark::State& state) {
    Manager manager;
    manager.Set().Enumerate(manager.process);
    const IO::Location part((GetLibrary().root / "Group 7" / "Part 777.klm").string());
    for (auto _ : state)
        benchmark::DoNotOptimize(
            manager.Set().StoreLibPart(manager.process, part, -1, nullptr, nullptr, false, nullptr));
}
BENCHMARK(BM_StoreOnePartAfterEnumeration)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
