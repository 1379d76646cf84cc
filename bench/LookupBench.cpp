// Lookups in a catalogue of 100,000 parts by id, guid, document name and file name, beside a plain
// binary search over a sorted array of the same names: each catalogue figure is read as a ratio to
// that baseline from the same run.
#include "NumberedParts.hpp"

#include <LibraryManager.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int PartCount = 100000;
constexpr int PartsPerFolder = 1000;
// Steps through the parts in an order that defeats the caches a sequential walk would enjoy.
constexpr int Stride = 7919;

KL::UnID PartId(int n) {
    return bench::NumberedPartId(n);
}

std::string PartName(int n) {
    return "Part " + std::to_string(n);
}
std::string FileName(int n) {
    return PartName(n) + ".klm";
}

// The library server's guid of a part: derived from the part's number in its file name.
KL::Guid ServerGuid(int n) {
    return KL::Guid(static_cast<std::uint32_t>(n) ^ 0x5bd1e995u, 7, 7, {});
}

class NumberedServer : public LM::IServerLibraryCollection {
public:
    KL::Guid GetGuid(const KL::UniString&, const IO::RelativeLocation& path) const override {
        const std::string text = path.ToString();
        const std::size_t at = text.rfind("Part ");
        return at == std::string::npos ? KL::NULLGuid : ServerGuid(std::atoi(text.c_str() + at + 5));
    }
};

// Small parts: a lookup reads the catalogue, never the files.
class Library {
public:
    Library()
        : root(std::filesystem::temp_directory_path() / ("lm-lookup-bench-" + std::to_string(::getpid()))) {
        bench::WriteNumberedParts(root, PartCount, PartsPerFolder, PartName);
    }
    ~Library() { std::filesystem::remove_all(root); }

    std::filesystem::path root;
};

class Catalogue {
public:
    Catalogue() {
        manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr);
        set = std::make_unique<LM::LibrarySet>(
            nullptr, reports, &server, manager.GetLibrarySet()->GetStorableFileTypes(),
            LM::LibrarySet::FileTypeList(), FTM::UnknownGroup, IO::Location());
        set->AddActiveLibrary(process, IO::Location(library.root.string()), LM::LocalLibrary, LM::NotVital,
                              KL::NULLGuid, KL::UniString(), false);
        set->Enumerate(process);
        for (int i = 0; i < PartCount; ++i)
            sortedNames.push_back(PartName(i));
        std::sort(sortedNames.begin(), sortedNames.end());
    }

    Library library;
    LM::LibrarySetSingletonLP manager;
    LM::DefLibraryErrorHandler reports;
    NumberedServer server;
    KL::NonInterruptibleProcessControl process;
    std::unique_ptr<LM::LibrarySet> set;
    std::vector<std::string> sortedNames;
};

Catalogue& GetCatalogue() {
    static Catalogue catalogue;
    return catalogue;
}

// Keys are made before the timing starts, so the figures hold the lookup alone.
template <typename Key, typename MakeKey, typename Lookup>
void RunLookups(benchmark::State& state, MakeKey makeKey, Lookup lookup) {
    Catalogue& catalogue = GetCatalogue();
    std::vector<Key> keys;
    for (int i = 0, n = 0; i < 4096; ++i, n = (n + Stride) % PartCount)
        keys.push_back(makeKey(n));
    std::size_t next = 0;
    benchmark::IterationCount found = 0;
    for (auto _ : state) {
        found += lookup(*catalogue.set, keys[next]) != nullptr;
        next = (next + 1) % keys.size();
    }
    if (found != state.iterations())
        state.SkipWithError("a lookup missed");
    state.counters["parts"] = catalogue.set->GetLibPartNumber();
}

void BM_BaselineBinarySearchOfNames(benchmark::State& state) {
    Catalogue& catalogue = GetCatalogue();
    RunLookups<std::string>(state, PartName, [&](const LM::LibrarySet&, const std::string& name) {
        const auto at = std::lower_bound(catalogue.sortedNames.begin(), catalogue.sortedNames.end(), name);
        return at != catalogue.sortedNames.end() && *at == name ? &*at : nullptr;
    });
}
BENCHMARK(BM_BaselineBinarySearchOfNames);

void BM_SearchSymbolByUnID(benchmark::State& state) {
    RunLookups<KL::UnID>(state, PartId, [](const LM::LibrarySet& set, const KL::UnID& id) {
        return set.SearchSymbolByUnID(id, nullptr);
    });
}
BENCHMARK(BM_SearchSymbolByUnID);

void BM_SearchSymbolByGuid(benchmark::State& state) {
    RunLookups<KL::Guid>(state, ServerGuid, [](const LM::LibrarySet& set, const KL::Guid& guid) {
        return set.SearchSymbolByGuid(guid, nullptr);
    });
}
BENCHMARK(BM_SearchSymbolByGuid);

void BM_SearchLibPartDocuName(benchmark::State& state) {
    RunLookups<KL::UniString>(
        state, [](int n) { return KL::UniString(PartName(n)); },
        [](const LM::LibrarySet& set, const KL::UniString& name) { return set.SearchLibPartDocuName(name); });
}
BENCHMARK(BM_SearchLibPartDocuName);

void BM_SearchLibPartFileName(benchmark::State& state) {
    RunLookups<KL::UniString>(
        state, [](int n) { return KL::UniString(FileName(n)); },
        [](const LM::LibrarySet& set, const KL::UniString& name) { return set.SearchLibPartFileName(name); });
}
BENCHMARK(BM_SearchLibPartFileName);

void BM_GetLibPartById(benchmark::State& state) {
    RunLookups<LM::LibPartId>(
        state, [](int n) { return LM::LibPartId(PartId(n), KL::UniString()); },
        [](const LM::LibrarySet& set, const LM::LibPartId& id) { return set.GetLibPart(id); });
}
BENCHMARK(BM_GetLibPartById);

// A walk over the whole catalogue in name order, per part, beside a walk over an array of the
// same record pointers.
void BM_BaselineWalkOfPointers(benchmark::State& state) {
    Catalogue& catalogue = GetCatalogue();
    std::vector<const LM::LibPart*> parts;
    for (int i = 0; i < catalogue.set->GetLibPartNumber(); ++i)
        parts.push_back(catalogue.set->GetLibPartByIndex(catalogue.set->GetSortedSymbolIndexByName(i)));
    for (auto _ : state) {
        std::size_t valid = 0;
        for (const LM::LibPart* part : parts)
            valid += part != nullptr && part->IsValid();
        benchmark::DoNotOptimize(valid);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(parts.size()));
}
BENCHMARK(BM_BaselineWalkOfPointers)->Unit(benchmark::kMillisecond);

void BM_LibItemIteratorByName(benchmark::State& state) {
    Catalogue& catalogue = GetCatalogue();
    const LM::LibItemOrderByName byName;
    for (auto _ : state) {
        std::size_t valid = 0;
        for (LM::LibItemIterator item(*catalogue.set, byName, LM::LibItemIterator::ValidItemsOnly);
             item != nullptr; ++item)
            ++valid;
        benchmark::DoNotOptimize(valid);
    }
    state.SetItemsProcessed(state.iterations() * catalogue.set->GetLibPartNumber());
}
BENCHMARK(BM_LibItemIteratorByName)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
