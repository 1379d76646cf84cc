// The library cache: an unchanged library comes back from its cache without a part file being
// read, with the very catalogue its walk gave; each change sends its own library, and only that
// one, back to a walk; a writer killed halfway and damaged cache files cost a walk, never a
// wrong catalogue.
#include "InputOutput/MemoryVFS.hpp"
#include "support/Catalogue.hpp"
#include "support/ContainerBytes.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testsupport::CatalogueTest;
using testsupport::LcfBytes;
using testsupport::LcfNode;
using testsupport::MemoryVFS;
using testsupport::ScopedMount;
using testsupport::TestId;

class LibraryCache : public CatalogueTest {
protected:
    LibraryCache() : CatalogueTest(LM::BinaryCachingOnDisk) {}

    void WriteLibrary(const std::string& root, std::uint32_t firstId) {
        SavePart(root + "/Templates/Furniture.klm", TestId(firstId), "Furniture", {}, true);
        SavePart(root + "/Objects/Chair.klm", TestId(firstId + 1), "Chair", {TestId(firstId)});
        SavePart(root + "/Objects/Tables/Table.klm", TestId(firstId + 2), "Table", {TestId(firstId)});
        SavePart(root + "/Objects/Tables/Copy.klm", TestId(firstId + 2), "Table");
        scratch.Write(root + "/Macros/rail.qdl", "! rail\n");
        scratch.Write(root + "/Texts/readme.txt", "text");
    }

    // Everything a host sees: records with their folders and ancestry, folders, duplicates.
    std::vector<std::string> Picture() {
        std::vector<std::string> lines = Catalogue();
        for (int i = 0; i < Set().GetLibPartNumber(); ++i) {
            const LM::LibPart* part = Set().GetLibPartByIndex(i);
            LM::AncestryInfo chain;
            if (Set().GetSymbolAncestryInfo(part, &chain) == 0) {
                std::string line =
                    "chain " + part->GetDocumentName().ToUTF8() + (chain.IsTemplate() ? " T" : "");
                for (unsigned k = 1; k <= chain.GetAncestorsCount(); ++k)
                    line += " " + chain.GetAncestorRef(k).mainGuid.ToString().substr(0, 8);
                lines.push_back(line);
            }
        }
        for (int folder = 0; folder < Set().GetFolderNumber(); ++folder)
            lines.push_back("folder " + FolderPath(folder) + " of " +
                            std::to_string(Set().GetFolderActLibIndex(folder)));
        lines.push_back("duplicates " + std::to_string(Reports().GetIdDuplicates().GetSize()) + " " +
                        std::to_string(Reports().GetNameDuplicates().GetSize()));
        return lines;
    }

    // A second start: the manager anew, the same libraries.
    void Restart(const std::vector<std::string>& libraries) {
        manager.ExitLibraryManager();
        ASSERT_EQ(manager.InitLibraryManager(LM::BinaryCachingOnDisk, nullptr, nullptr, nullptr), 0);
        for (const std::string& library : libraries)
            AddLibrary(library);
    }

    std::string Replays() {
        std::string marks;
        for (int i = 0; i < Set().GetActiveLibraryNum(); ++i)
            marks += Set().IsLibraryReplayed(i) ? 'R' : 'W';
        return marks;
    }

    void SetTime(const std::string& relative, int secondsAgo) {
        std::filesystem::last_write_time(scratch.Path() / relative,
                                         std::filesystem::file_time_type::clock::now() -
                                             std::chrono::seconds(secondsAgo));
    }

    std::filesystem::path CacheFolder() {
        IO::Location folder = Set().GetBinCodes()->GetBinCodeFolder();
        return std::filesystem::path(folder.ToString()) / "LibraryCache";
    }
};

TEST_F(LibraryCache, AnUnchangedLibraryComesBackWithoutAPartFileRead) {
    // The library lives on a file system that counts what is read from it. Its files are part
    // files: a file whose name does not settle its type has its first bytes looked at by the type
    // identification, in a replay as in a walk.
    WriteLibrary("Disk", 1);
    MemoryVFS memory;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch.Path() / "Disk"))
        if (entry.is_regular_file() && entry.path().extension() == ".klm")
            memory.AddFile(std::filesystem::relative(entry.path(), scratch.Path() / "Disk").string(),
                           scratch.Read(std::filesystem::relative(entry.path(), scratch.Path()).string()));
    scratch.Write("Mem/.keep", "");
    const ScopedMount mount(memory, scratch.Location("Mem"));
    ASSERT_EQ(mount.GetStatus(), 0);
    AddLibrary("Mem");
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(Replays(), "W");
    const std::vector<std::string> walked = Picture();
    const std::uint64_t readByWalk = memory.GetBytesRead();
    EXPECT_GT(readByWalk, 0U);

    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(Replays(), "R");
    EXPECT_EQ(Picture(), walked);
    EXPECT_EQ(memory.GetBytesRead(), readByWalk);
    Restart({"Mem"});
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(Replays(), "R");
    EXPECT_EQ(Picture(), walked);
    EXPECT_EQ(memory.GetBytesRead(), readByWalk);
    // The parts open when asked, like walked ones.
    const LPF::SymbolFile* chair = Set().GetSymbolFile(LM::LibPartId(TestId(2), KL::UniString()));
    ASSERT_NE(chair, nullptr);
    EXPECT_EQ(chair->GetStatus(), 0);
    EXPECT_GT(memory.GetBytesRead(), readByWalk);
}

TEST_F(LibraryCache, EachChangeSendsItsOwnLibraryBackToAWalk) {
    WriteLibrary("A", 1);
    WriteLibrary("B", 11);
    scratch.Write("A/Packed/Pack.lcf",
                  LcfBytes().Build({LcfNode::Folder("In", {LcfNode::File("in.txt", "in")})}));
    SetTime("A/Texts", 3000);
    AddLibrary("A");
    AddLibrary("B");
    ASSERT_EQ(Set().Enumerate(process), 0);
    const std::vector<std::string> first = Picture();
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(Replays(), "RR");
    EXPECT_EQ(Picture(), first);
    // A part inside a container of a replayed library still opens: the container was mounted.
    EXPECT_TRUE(IO::fileSystem.IsMountPoint(scratch.Location("A/Packed/Pack.lcf")));

    const auto change = [this](const char* what, const std::function<void()>& act, const char* expected) {
        act();
        ASSERT_EQ(Set().Enumerate(process), 0) << what;
        EXPECT_EQ(Replays(), expected) << what;
        ASSERT_EQ(Set().Enumerate(process), 0) << what;
        EXPECT_EQ(Replays(), "RR") << what << ": the walk wrote the cache anew";
    };
    change(
        "a part touched", [this] { SetTime("A/Objects/Chair.klm", 5000); }, "WR");
    change(
        "a part added", [this] { SavePart("A/Objects/Tables/Stool.klm", TestId(9), "Stool"); }, "WR");
    change(
        "a part removed", [this] { std::filesystem::remove(scratch.Path() / "A/Objects/Tables/Stool.klm"); },
        "WR");
    change(
        "a part renamed",
        [this] {
            std::filesystem::rename(scratch.Path() / "A/Macros/rail.qdl",
                                    scratch.Path() / "A/Macros/rails.qdl");
        },
        "WR");
    change(
        "a container replaced",
        [this] {
            scratch.Write("A/Packed/Pack.lcf",
                          LcfBytes().Build({LcfNode::Folder("In", {LcfNode::File("other.txt", "other")})}));
            SetTime("A/Packed/Pack.lcf", 7000);
        },
        "WR");
    change(
        "the library folder's time", [this] { SetTime("A", 9000); }, "WR");
    change(
        "a part of the other library", [this] { SetTime("B/Templates/Furniture.klm", 5000); }, "RW");
    change(
        "a file no catalogue stores",
        [this] {
            scratch.Write("A/Texts/notes.bin", "bytes");
            SetTime("A/Texts", 3000);
        },
        "RR");
}

TEST_F(LibraryCache, AWriterKilledHalfwayLeavesAWalkOrAWholeReplay) {
    WriteLibrary("Lib", 1);
    for (int i = 0; i < 300; ++i)
        SavePart("Lib/Many/Part " + std::to_string(i) + ".klm", TestId(100 + i),
                 ("Part " + std::to_string(i)).c_str(), {TestId(1)});
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    const std::vector<std::string> expected = Catalogue();
    std::mt19937 random(7);
    for (int round = 0; round < 25; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            // Every pass meets a changed part and so walks and writes the cache again.
            for (int pass = 0;; ++pass) {
                SetTime("Lib/Objects/Chair.klm", 100 + pass % 1000);
                Set().Enumerate(process);
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 80000));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        Restart({"Lib"});
        ASSERT_EQ(Set().Enumerate(process), 0);
        ASSERT_EQ(Catalogue(), expected) << "round " << round << " " << Replays();
    }
}

TEST_F(LibraryCache, DamagedCacheFilesCostAWalk) {
    WriteLibrary("Lib", 1);
    WriteLibrary("Other", 11);
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    const std::vector<std::string> expected = Catalogue();
    const std::filesystem::path parts = CacheFolder() / "Lib";
    const std::filesystem::path validity = CacheFolder() / "Data" / "Lib";
    const std::filesystem::path folders = CacheFolder() / "FolderSet" / "Lib";
    ASSERT_TRUE(std::filesystem::exists(parts) && std::filesystem::exists(validity) &&
                std::filesystem::exists(folders));
    const auto read = [](const std::filesystem::path& path) {
        std::ifstream stream(path, std::ios::binary);
        return std::string{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    };
    const auto write = [](const std::filesystem::path& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    };
    const std::string goodParts = read(parts);
    const std::string goodValidity = read(validity);
    const std::string goodFolders = read(folders);
    // The validity list of another library, with its own path and files.
    Restart({"Other"});
    ASSERT_EQ(Set().Enumerate(process), 0);
    const std::string otherValidity = read(CacheFolder() / "Data" / "Other");

    struct Damage {
        std::string what;
        std::filesystem::path file;
        std::string bytes;
    };
    std::vector<Damage> damages;
    for (std::size_t cut : {0UL, 2UL, 4UL, 40UL, goodParts.size() / 2, goodParts.size() - 1})
        damages.push_back({"part stream cut at " + std::to_string(cut), parts, goodParts.substr(0, cut)});
    for (std::size_t cut : {0UL, 3UL, goodValidity.size() / 2, goodValidity.size() - 1})
        damages.push_back({"validity cut at " + std::to_string(cut), validity, goodValidity.substr(0, cut)});
    for (std::size_t cut : {0UL, goodFolders.size() / 2, goodFolders.size() - 1})
        damages.push_back({"folders cut at " + std::to_string(cut), folders, goodFolders.substr(0, cut)});
    std::string hugeCount = goodParts;
    hugeCount.replace(0, 4, std::string(4, '\xff'));
    damages.push_back({"a part count past the end", parts, hugeCount});
    damages.push_back({"another library's validity list", validity, otherValidity});
    // The first record's folder index (after its name, flags, state and location) out of range,
    // and its state made a dummy's.
    {
        KL::MemoryIChannel channel(goodParts.data(), goodParts.size());
        std::uint32_t count = 0;
        channel.Read(count);
        KL::UniString name;
        name.Read(channel);
        std::uint32_t flags = 0;
        channel.Read(flags);
        const std::size_t state = channel.GetReadCount();
        std::int8_t stateValue = 0;
        channel.Read(stateValue);
        IO::Location location;
        location.Read(channel);
        const std::size_t folder = channel.GetReadCount();
        std::string badState = goodParts;
        badState[state] = 1;
        damages.push_back({"a dummy's record", parts, badState});
        std::string badFolder = goodParts;
        badFolder.replace(folder, 4, std::string("\x00\x00\x00\x7f", 4));
        damages.push_back({"a folder index out of range", parts, badFolder});
    }

    for (const Damage& damage : damages) {
        write(parts, goodParts);
        write(validity, goodValidity);
        write(folders, goodFolders);
        write(damage.file, damage.bytes);
        Restart({"Lib"});
        ASSERT_EQ(Set().Enumerate(process), 0) << damage.what;
        EXPECT_EQ(Replays(), "W") << damage.what;
        EXPECT_EQ(Catalogue(), expected) << damage.what;
    }
}

} // namespace
