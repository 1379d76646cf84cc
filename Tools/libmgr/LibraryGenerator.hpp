#pragma once

// Synthetic libraries for benchmarks and tests: nested folders, a type tree whose ancestry chains
// run 1 to 6 deep, templates and placeable parts with scripts and parameters of realistic sizes,
// pictures, texts, and a few percent of duplicates and revision conflicts. The same options and
// seed give the same files, byte for byte.
#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <LibraryManager.hpp>

namespace libmgr {

struct GeneratorOptions {
    int parts = 1000;
    std::uint32_t seed = 1;
    // The longest ancestry chain of a placeable part.
    int depth = 6;
    // Parts that get a clashing copy, in percent: half of them by id, half as another revision.
    double duplicates = 3.0;
    // Parts of a few hundred bytes, with small pictures: for catalogues of a million parts.
    bool tiny = false;
};

struct GeneratorSummary {
    int parts = 0;
    int templates = 0;
    int idDuplicates = 0;
    int revisionConflicts = 0;
    int pictures = 0;
    int texts = 0;
    int folders = 0;
    std::uint64_t bytes = 0;
};

class LibraryGenerator {
public:
    // Called after each part file with the count written and the count to write; false stops.
    using Progress = std::function<bool(int done, int total)>;
    // What Generate returns when the progress asked it to stop.
    static constexpr int Stopped = 1;

    explicit LibraryGenerator(const GeneratorOptions& options);

    // Writes the library below `root`. Returns 0, Stopped, or an error code with `*failedPath`
    // naming the file that could not be written.
    int Generate(const std::filesystem::path& root, const Progress& progress, GeneratorSummary* summary,
                 std::string* failedPath);

private:
    struct Template {
        KL::UnID id;
        std::string name;
        std::vector<KL::UnID> ancestry;
    };
    struct PartPlan {
        KL::UnID id;
        std::string name;
        std::size_t templateIndex = 0;
        std::string folder;
    };

    std::uint64_t Below(std::uint64_t bound) { return random() % bound; }
    KL::Guid NewGuid();
    void PlanTemplates();
    std::vector<std::string> PlanFolders();
    std::vector<PartPlan> PlanParts(const std::vector<std::string>& folders);
    void MakeTemplate(const Template& type, LPF::SymbolFile* file);
    void MakePart(const PartPlan& plan, LPF::SymbolFile* file);
    void AddScripts(LPF::SymbolFile* file);
    void AddParameters(LPF::SymbolFile* file);
    std::u16string ScriptText(std::size_t units);
    int Save(const LPF::SymbolFile& file, const std::filesystem::path& path, GeneratorSummary* summary,
             std::string* failedPath);
    int WriteBytes(const std::filesystem::path& path, const std::string& bytes, GeneratorSummary* summary,
                   std::string* failedPath);

    GeneratorOptions options;
    std::mt19937_64 random;
    std::vector<Template> templates;
};

} // namespace libmgr
