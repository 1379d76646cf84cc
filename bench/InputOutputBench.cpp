// The file layer's per-file costs, each beside the plain POSIX or standard-library baseline that
// a library walk would otherwise pay.
#include <LibraryManager.hpp>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int FolderCount = 20;
constexpr int FilesPerFolder = 100;
constexpr std::size_t FileSize = 4096;

// A tree of small files, made once per run in the temporary folder and removed at exit.
class Tree {
public:
    Tree() {
        root = std::filesystem::temp_directory_path() / ("lm-io-bench-" + std::to_string(::getpid()));
        const std::string content(FileSize, 'p');
        for (int folder = 0; folder < FolderCount; ++folder) {
            const std::filesystem::path dir = root / ("folder" + std::to_string(folder));
            std::filesystem::create_directories(dir);
            for (int file = 0; file < FilesPerFolder; ++file) {
                const std::filesystem::path path = dir / ("part" + std::to_string(file) + ".klm");
                std::ofstream(path, std::ios::binary) << content;
                paths.push_back(path.string());
                locations.emplace_back(path.string());
            }
        }
    }
    ~Tree() { std::filesystem::remove_all(root); }

    std::filesystem::path root;
    std::vector<std::string> paths;
    std::vector<IO::Location> locations;
};

Tree& GetTree() {
    static Tree tree;
    return tree;
}

void BaselinePosixOpenRead(benchmark::State& state) {
    Tree& tree = GetTree();
    char buffer[FileSize];
    for (auto _ : state) {
        for (const std::string& path : tree.paths) {
            const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            benchmark::DoNotOptimize(::read(descriptor, buffer, sizeof buffer));
            ::close(descriptor);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(tree.paths.size()));
}
BENCHMARK(BaselinePosixOpenRead);

void FileOpenRead(benchmark::State& state) {
    Tree& tree = GetTree();
    char buffer[FileSize];
    for (auto _ : state) {
        for (const IO::Location& location : tree.locations) {
            IO::File file(location);
            file.Open();
            std::uint64_t count = 0;
            benchmark::DoNotOptimize(file.ReadUpTo(buffer, sizeof buffer, &count));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(tree.locations.size()));
}
BENCHMARK(FileOpenRead);

class CountingWalk : public IO::TreeEnumerator {
public:
    using IO::TreeEnumerator::TreeEnumerator;
    bool FileFound(const IO::Name&) override {
        ++files;
        return true;
    }
    int files = 0;
};

void BaselineDirectoryWalk(benchmark::State& state) {
    Tree& tree = GetTree();
    for (auto _ : state) {
        int files = 0;
        for (const auto& item : std::filesystem::recursive_directory_iterator(tree.root))
            files += item.is_regular_file() ? 1 : 0;
        benchmark::DoNotOptimize(files);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(tree.paths.size()));
}
BENCHMARK(BaselineDirectoryWalk);

void TreeWalk(benchmark::State& state) {
    Tree& tree = GetTree();
    const IO::Folder root(IO::Location(tree.root.string()));
    for (auto _ : state) {
        CountingWalk walk(root);
        walk.Do();
        benchmark::DoNotOptimize(walk.files);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(tree.paths.size()));
}
BENCHMARK(TreeWalk);

} // namespace

BENCHMARK_MAIN();
