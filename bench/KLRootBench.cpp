// Micro-benchmarks of the foundation's hot paths, each beside the plain standard-library baseline.
#include <LibraryManager.hpp>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

std::vector<KL::UniString> MakeNames(std::size_t count) {
    std::vector<KL::UniString> names;
    for (std::size_t i = 0; i < count; ++i)
        names.emplace_back("Window Casement " + std::to_string(i * 7919 % 100000) + " Type");
    return names;
}

void CaseInsensitiveCompare(benchmark::State& state) {
    const auto names = MakeNames(1024);
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(names[i % 1024].Compare(names[(i + 1) % 1024], KL::CaseInsensitive));
        ++i;
    }
}
BENCHMARK(CaseInsensitiveCompare);

void BaselineExactCompare(benchmark::State& state) {
    const auto names = MakeNames(1024);
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(names[i % 1024].Units().compare(names[(i + 1) % 1024].Units()));
        ++i;
    }
}
BENCHMARK(BaselineExactCompare);

void ChannelWriteRead(benchmark::State& state) {
    for (auto _ : state) {
        KL::MemoryOChannel out;
        for (std::int32_t i = 0; i < 4096; ++i)
            out.Write(i);
        const std::vector<char> bytes = out.TakeData();
        KL::MemoryIChannel in(bytes.data(), bytes.size());
        std::int32_t sum = 0;
        for (std::int32_t value = 0, i = 0; i < 4096; ++i) {
            in.Read(value);
            sum += value;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(state.iterations() * 4096 * 4 * 2);
}
BENCHMARK(ChannelWriteRead);

} // namespace

BENCHMARK_MAIN();
