// Opening a part for its header beside the POSIX reads a walk would otherwise pay: the first 4 KiB of
// the file, and the whole file. A part here carries a 64 KiB script that the header open must not read.
#include <LibraryManager.hpp>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int PartCount = 1000;
constexpr std::size_t ScriptUnits = 32 * 1024;

class Parts {
public:
    Parts() {
        root = std::filesystem::temp_directory_path() / ("lm-klm-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(root);
        const std::u16string script(ScriptUnits, u'x');
        for (int i = 0; i < PartCount; ++i) {
            LPF::SymbolFile part;
            part.SetOwnUnID(KL::UnID(KL::Guid::Generate(), KL::Guid::Generate()));
            part.SetDocumentName(KL::UniString("Part " + std::to_string(i)));
            part.SetPlaceable(true);
            LPF::SectionInfo info;
            info.tag = LPF::Tags::Scripts[2];
            part.SetSection(info, script.data(), script.size() * sizeof(char16_t));
            const std::filesystem::path path = root / ("part" + std::to_string(i) + ".klm");
            part.Save(IO::Location(path.string()));
            paths.push_back(path.string());
            locations.emplace_back(path.string());
        }
    }
    ~Parts() { std::filesystem::remove_all(root); }

    std::filesystem::path root;
    std::vector<std::string> paths;
    std::vector<IO::Location> locations;
};

Parts& GetParts() {
    static Parts parts;
    return parts;
}

void PosixRead(benchmark::State& state, std::size_t size) {
    Parts& parts = GetParts();
    std::vector<char> buffer(size);
    for (auto _ : state) {
        for (const std::string& path : parts.paths) {
            const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            benchmark::DoNotOptimize(::read(descriptor, buffer.data(), buffer.size()));
            ::close(descriptor);
        }
    }
    state.SetItemsProcessed(state.iterations() * PartCount);
}

void BaselinePosixReadFirst4KiB(benchmark::State& state) {
    PosixRead(state, 4096);
}
BENCHMARK(BaselinePosixReadFirst4KiB);

void BaselinePosixReadWholeFile(benchmark::State& state) {
    PosixRead(state, 2 * ScriptUnits + 4096);
}
BENCHMARK(BaselinePosixReadWholeFile);

void SymbolFileHeader(benchmark::State& state) {
    Parts& parts = GetParts();
    for (auto _ : state) {
        for (const IO::Location& location : parts.locations) {
            const LPF::SymbolFile part(location);
            KL::UnID id;
            KL::UniString name;
            part.GetOwnUnID(&id);
            part.GetDocumentName(&name);
            benchmark::DoNotOptimize(id);
        }
    }
    state.SetItemsProcessed(state.iterations() * PartCount);
}
BENCHMARK(SymbolFileHeader);

} // namespace

BENCHMARK_MAIN();
