// Macro calls of a running script at 20,000 parts: 100,000 calls from one caller, by names that its
// map of called macros holds and by names that only the catalogue knows, beside a plain hash-table
// lookup of the same names from the same run.
#include "NumberedParts.hpp"

#include <LibraryManager.hpp>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int PartCount = 20000;
constexpr int PartsPerFolder = 500;
// A busy caller: the macros its scripts name.
constexpr int CalledCount = 64;
constexpr int CallsPerRound = 100000;

KL::UnID PartId(int n) {
    return bench::NumberedPartId(n);
}

std::string PartName(int n) {
    return "Macro " + std::to_string(n);
}

void SaveCaller(const std::filesystem::path& path) {
    LPF::SymbolFile caller;
    caller.SetOwnUnID(PartId(PartCount));
    caller.SetDocumentName(KL::UniString("Caller"));
    KL::Array<SyCalledMacroItem> items;
    for (int i = 0; i < CalledCount; ++i)
        items.Push(SyCalledMacroItem{KL::UniString(PartName(i)), PartId(i), nullptr});
    KL::MemoryOChannel stream(KL::HostPlatformSign);
    WriteCalledMacroList(stream, items);
    const std::vector<char>& bytes = stream.GetData();
    caller.SetSectionDataRef(LPF::Tags::CalledMacros, 0,
                             KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size())), true,
                             -1);
    caller.Save(IO::Location(path.string()));
}

class Catalogue {
public:
    Catalogue()
        : root(std::filesystem::temp_directory_path() / ("lm-macro-bench-" + std::to_string(::getpid()))) {
        bench::WriteNumberedParts(root, PartCount, PartsPerFolder, PartName);
        SaveCaller(root / "Caller.klm");
        manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr);
        LM::LibrarySet& set = *manager.GetLibrarySet();
        set.AddActiveLibrary(process, IO::Location(root.string()), LM::LocalLibrary, LM::NotVital,
                             KL::NULLGuid, KL::UniString(), false);
        set.Enumerate(process);
        caller = std::make_unique<FileRef>(set.SearchLibPartDocuName(KL::UniString("Caller")),
                                           *manager.GetFileServices());
    }
    ~Catalogue() {
        caller.reset();
        std::filesystem::remove_all(root);
    }

    std::filesystem::path root;
    LM::LibrarySetSingletonLP manager;
    KL::NonInterruptibleProcessControl process;
    std::unique_ptr<FileRef> caller;
};

Catalogue& GetCatalogue() {
    static Catalogue catalogue;
    return catalogue;
}

// The caller's own macros, or as many names that only the catalogue knows.
std::vector<KL::UniString> Names(bool inCallersMap) {
    std::vector<KL::UniString> names;
    for (int i = 0; i < CalledCount; ++i)
        names.emplace_back(PartName(inCallersMap ? i : PartCount / 2 + i * 97));
    return names;
}

// One round is 100,000 calls; each must find its macro.
template <typename Call>
void RunCalls(benchmark::State& state, const std::vector<KL::UniString>& names, Call call) {
    std::int64_t found = 0;
    for (auto _ : state) {
        for (int i = 0; i < CallsPerRound; ++i)
            found += call(names[static_cast<std::size_t>(i) % names.size()]);
    }
    if (found != state.iterations() * CallsPerRound)
        state.SkipWithError("a call missed");
    state.SetItemsProcessed(state.iterations() * CallsPerRound);
}

void BM_BaselineHashLookupOfNames(benchmark::State& state) {
    const std::vector<KL::UniString> names = Names(true);
    KL::HashTable<KL::UniString, int> table;
    for (std::size_t i = 0; i < names.size(); ++i)
        table.Put(names[i], static_cast<int>(i));
    RunCalls(state, names, [&](const KL::UniString& name) { return table.GetPtr(name) != nullptr; });
}
BENCHMARK(BM_BaselineHashLookupOfNames)->Unit(benchmark::kMillisecond);

// The resolution alone, as GetMacroFile gives it: a location and a part.
void ResolveFromCaller(benchmark::State& state, bool inCallersMap) {
    Catalogue& catalogue = GetCatalogue();
    FileServices& services = *catalogue.manager.GetFileServices();
    const LM::LibPart* caller = nullptr;
    catalogue.caller->GetLibPart(&caller);
    const IO::Location callerLocation = caller->GetLocation();
    RunCalls(state, Names(inCallersMap), [&](const KL::UniString& name) {
        const LM::LibPart* found = nullptr;
        bool missing = false;
        return services.GetMacroFile(name, callerLocation, caller, nullptr, &found, &missing, nullptr, false);
    });
}

void BM_GetMacroFileCallersMap(benchmark::State& state) {
    ResolveFromCaller(state, true);
}
BENCHMARK(BM_GetMacroFileCallersMap)->Unit(benchmark::kMillisecond);

void BM_GetMacroFileCatalogueSearch(benchmark::State& state) {
    ResolveFromCaller(state, false);
}
BENCHMARK(BM_GetMacroFileCatalogueSearch)->Unit(benchmark::kMillisecond);

// The engine's whole call: the caller's reference in, a new reference out and given back.
void BM_Macro2FileCallersMap(benchmark::State& state) {
    Catalogue& catalogue = GetCatalogue();
    FileServices& services = *catalogue.manager.GetFileServices();
    RunCalls(state, Names(true), [&](const KL::UniString& name) {
        short missing = 0;
        QDL::IFileRef* macro = services.Macro2File(name, catalogue.caller.get(), nullptr, &missing,
                                                   QDL_3DScript, nullptr, false);
        const bool found = macro != nullptr;
        services.Dispose(&macro);
        return found;
    });
}
BENCHMARK(BM_Macro2FileCallersMap)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
