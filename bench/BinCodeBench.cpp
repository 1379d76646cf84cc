// The compiled script cache of 20,000 items: a store that loads the cache file's table and then
// fetches every item's code once, beside the least any reader of that file must do, reading the
// same file whole with plain read calls.
#include <LibraryManager.hpp>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int ItemCount = 20000;
constexpr std::size_t CodeSize = 2048;

KL::UnID ItemId(int n) {
    return KL::UnID(KL::Guid(static_cast<std::uint32_t>(n) * 2654435761u, 1, 2, {}),
                    KL::Guid(static_cast<std::uint32_t>(n), 3, 4, {}));
}

class Cache {
public:
    Cache()
        : folder(std::filesystem::temp_directory_path() /
                 ("lm-bincode-bench-" + std::to_string(::getpid()))) {
        std::filesystem::create_directories(folder);
        LM::QdlBinCodesContainer store(Location(), 0, 0);
        const std::string code(CodeSize, 'c');
        for (int i = 0; i < ItemCount; ++i) {
            const KL::ConstSharedPtr<BinCode> bytes(
                new BinCode(KL::BMNewHandleFrom(code.data(), static_cast<std::int64_t>(code.size()))));
            store.StoreQdlBinCode(ItemId(i), IO::Location("/library/Part " + std::to_string(i) + ".klm"),
                                  QDL_3DScript, bytes, nullptr);
        }
    }
    ~Cache() { std::filesystem::remove_all(folder); }

    IO::Location Location() const { return IO::Location(folder.string()); }
    std::filesystem::path File() const { return folder / "Tectonix QdlBinCode.dat"; }

private:
    std::filesystem::path folder;
};

Cache& GetCache() {
    static Cache cache;
    return cache;
}

void BM_BaselineReadWholeFile(benchmark::State& state) {
    const std::string path = GetCache().File().string();
    std::vector<char> buffer(1 << 16);
    std::int64_t bytes = 0;
    for (auto _ : state) {
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        for (ssize_t got = 0; (got = ::read(descriptor, buffer.data(), buffer.size())) > 0;)
            bytes += got;
        ::close(descriptor);
    }
    state.counters["MiB"] = static_cast<double>(bytes) / static_cast<double>(state.iterations()) / (1 << 20);
}
BENCHMARK(BM_BaselineReadWholeFile)->Unit(benchmark::kMillisecond);

// The store's end writes the cache file back; that is outside the timing.
void LoadAndFetch(benchmark::State& state, bool fetch) {
    std::optional<LM::QdlBinCodesContainer> store;
    for (auto _ : state) {
        store.emplace(GetCache().Location(), 0, 0);
        for (int index = 1; fetch && index < static_cast<int>(store->GetItemCount()); ++index) {
            KL::ConstSharedPtr<BinCode> code;
            store->GetQdlBinCode(index, &code, nullptr);
            benchmark::DoNotOptimize(code);
        }
        state.PauseTiming();
        if (store->GetItemCount() != ItemCount + 1)
            state.SkipWithError("the cache lost items");
        store.reset();
        state.ResumeTiming();
    }
}

void BM_LoadTable(benchmark::State& state) {
    LoadAndFetch(state, false);
}
BENCHMARK(BM_LoadTable)->Unit(benchmark::kMillisecond);

void BM_LoadTableAndFetchEveryCode(benchmark::State& state) {
    LoadAndFetch(state, true);
}
BENCHMARK(BM_LoadTableAndFetchEveryCode)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
