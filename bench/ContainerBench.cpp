// Containers: mounting one of 20,000 entries beside `tar -tf` listing a tar of the same tree, the
// same tree mounted from a database container, the same mount with contents 1,000 times larger (a
// mount must cost by entries, not bytes), and
// enumerating a library held in a container beside the same library as a folder. Median of five
// rounds each, the baseline first in every round. Containers are built here from the format's
// tables, as the tests build them, so that a mount is measured on bytes no writer change can move.
//
//   container_bench WORK LIBRARY
#include "support/ContainerBytes.hpp"

#include "BenchClock.hpp"

#include <LibraryManager.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace {

using bench::Median;
using bench::Milliseconds;

using testsupport::LcfBytes;
using testsupport::LcfNode;

constexpr int Rounds = 5;

// `folders` folders of `perFolder` files of `size` bytes each; no two files share a name, so that
// a catalogue keeps every one.
void MakeTree(const std::filesystem::path& root, int folders, int perFolder, std::size_t size) {
    const std::string content(size, 'x');
    for (int f = 0; f < folders; ++f) {
        const std::filesystem::path folder = root / ("Folder " + std::to_string(f));
        std::filesystem::create_directories(folder);
        for (int i = 0; i < perFolder; ++i)
            std::ofstream(folder / ("Part " + std::to_string(f) + "-" + std::to_string(i) + ".txt"),
                          std::ios::binary)
                << content;
    }
}

void WriteContainer(const std::filesystem::path& tree, const std::filesystem::path& target) {
    std::ofstream(target, std::ios::binary) << LcfBytes().Build({LcfNode::FromFolder(tree)});
}

double MountMilliseconds(const std::filesystem::path& container) {
    KL::NonInterruptibleProcessControl process;
    const LM::LibraryContainerVFSOptions options;
    const IO::Location location(container.string());
    return Milliseconds([&] {
        if (!LM::CreateAndMountContainerFileSystem(process, location, &options))
            std::cerr << "mount failed: " << container << '\n';
        LM::ReleaseVirtualFileSystem(location);
    });
}

// The database container is built by the library's own builder: there is no other source of one.
void WriteDatabaseContainer(const std::filesystem::path& tree, const std::filesystem::path& target) {
    LM::LibrarySetSingletonLP manager;
    manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr);
    KL::NonInterruptibleProcessControl process;
    LM::LibrarySet& set = *manager.GetLibrarySet();
    set.AddActiveLibrary(process, IO::Location(tree.string()), LM::LocalLibrary, LM::NotVital, KL::NULLGuid,
                         KL::UniString(), false);
    set.Enumerate(process);
    if (!LM::CreateDatabaseLibraryContainer(process, &set, IO::Location(target.string()), nullptr, true))
        std::cerr << "database container not built: " << target << '\n';
}

double CommandMilliseconds(const std::string& command) {
    return Milliseconds([&] {
        if (std::system(command.c_str()) != 0)
            std::cerr << "failed: " << command << '\n';
    });
}

double EnumerateMilliseconds(const std::filesystem::path& library) {
    LM::LibrarySetSingletonLP manager;
    manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr);
    KL::NonInterruptibleProcessControl process;
    manager.GetLibrarySet()->AddActiveLibrary(process, IO::Location(library.string()), LM::LocalLibrary,
                                              LM::NotVital, KL::NULLGuid, KL::UniString(), false);
    return Milliseconds([&] { manager.GetLibrarySet()->Enumerate(process); });
}

void PrintRow(const char* what, double milliseconds, double baseline) {
    std::printf("  %-52s %9.1f ms   %5.2f\n", what, milliseconds, milliseconds / baseline);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: container_bench WORK LIBRARY\n";
        return 2;
    }
    const std::filesystem::path work = argv[1];
    const std::filesystem::path library = argv[2];
    MakeTree(work / "small", 100, 200, 64);
    MakeTree(work / "large", 10, 200, 64 * 1024);
    WriteContainer(work / "small", work / "small.lcf");
    LM::SetDatabaseLibraryContainerFormatEnabled(true);
    WriteDatabaseContainer(work / "small", work / "small-db.lcf");
    WriteContainer(work / "large", work / "large.lcf");
    WriteContainer(library, work / "library.lcf");
    const std::string tar =
        "tar -cf '" + (work / "small.tar").string() + "' -C '" + work.string() + "' small";
    if (std::system(tar.c_str()) != 0)
        return 1;

    std::vector<double> tarList, mountSmall, mountDatabase, mountLarge, folderEnum, containerEnum,
        mountFewSmall;
    MakeTree(work / "few", 10, 200, 64);
    WriteContainer(work / "few", work / "few.lcf");
    for (int round = 0; round < Rounds; ++round) {
        tarList.push_back(CommandMilliseconds("tar -tf '" + (work / "small.tar").string() + "' > /dev/null"));
        mountSmall.push_back(MountMilliseconds(work / "small.lcf"));
        mountDatabase.push_back(MountMilliseconds(work / "small-db.lcf"));
        mountFewSmall.push_back(MountMilliseconds(work / "few.lcf"));
        mountLarge.push_back(MountMilliseconds(work / "large.lcf"));
        folderEnum.push_back(EnumerateMilliseconds(library));
        containerEnum.push_back(EnumerateMilliseconds(work / "library.lcf"));
    }
    std::printf("containers (median of %d rounds; ratio to the first line of each group)\n", Rounds);
    PrintRow("tar -tf of 20,000 entries (a process)", Median(tarList), Median(tarList));
    PrintRow("mount a container of 20,000 entries", Median(mountSmall), Median(tarList));
    PrintRow("mount a container of 20,000 entries", Median(mountSmall), Median(mountSmall));
    PrintRow("mount the same as a database container", Median(mountDatabase), Median(mountSmall));
    PrintRow("mount 2,000 entries of 64 B", Median(mountFewSmall), Median(mountFewSmall));
    PrintRow("mount 2,000 entries of 64 KiB", Median(mountLarge), Median(mountFewSmall));
    PrintRow("enumerate the library as a folder", Median(folderEnum), Median(folderEnum));
    PrintRow("enumerate the library as a container", Median(containerEnum), Median(folderEnum));
    return 0;
}
