// The compiled script store on disk: code that survives a restart and is read on demand, programs
// that share one folder, crashes in the middle of a save, hostile cache files and the rule that
// decides what a save throws away. Cache files are built here from the documented layout.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <set>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testsupport::ScratchFolder;

constexpr const char* CacheName = "Tectonix QdlBinCode.dat";
constexpr int Day = 24 * 60 * 60;

KL::UnID PartId(std::uint32_t n) {
    return KL::UnID(KL::Guid(n, 0x51, 0, {}), KL::Guid(n, 0x52, 0, {}));
}

KL::ConstSharedPtr<BinCode> Code(const std::string& bytes) {
    return KL::ConstSharedPtr<BinCode>(
        new BinCode(KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size()))));
}

std::string BytesOf(const KL::ConstSharedPtr<BinCode>& code) {
    return code == nullptr ? "none" : std::string(*code->GetHandle(), BMGetHandleSize(code->GetHandle()));
}

// Runs `work` in a child process and gives its exit status; assertions do not cross the fork, so
// the child says what went wrong by its exit code.
int InChild(const std::function<int()>& work) {
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(work());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// One item of a hand-made cache file.
struct ItemSpec {
    KL::UnID id;
    QDL_ScriptType type = QDL_3DScript;
    std::int32_t usedCount = 1;
    TITime lastUsed = 0;
    std::string code;
    std::string ancestry;
};

std::string TableBytes(const std::vector<ItemSpec>& items, std::int32_t dataStart) {
    KL::MemoryOChannel table;
    KL::OutputFrame frame(table, KL::PagedArrayPrivate::classInfo);
    table.Write(static_cast<std::uint32_t>(items.size() + 1));
    const auto writeItem = [&table](const ItemSpec& item, const IO::Location& location,
                                    std::int32_t codeOffset) {
        item.id.mainGuid.Write(table);
        item.id.revGuid.Write(table);
        location.Write(table);
        table.Write(static_cast<std::int32_t>(item.type));
        const auto codeSize = static_cast<std::int32_t>(item.code.size());
        for (const std::int32_t value :
             {item.usedCount, item.lastUsed, codeSize, static_cast<std::int32_t>(item.ancestry.size()),
              codeOffset, codeOffset + codeSize})
            table.Write(value);
    };
    writeItem(ItemSpec{KL::UnID(), static_cast<QDL_ScriptType>(0), 0, 0, "", ""}, IO::Location(), 0);
    std::int32_t offset = dataStart;
    for (const ItemSpec& item : items) {
        writeItem(item, IO::Location("/lib/part.klm"), offset);
        offset += static_cast<std::int32_t>(item.code.size() + item.ancestry.size());
    }
    frame.Close();
    const std::vector<char> bytes = table.TakeData();
    return std::string(bytes.begin(), bytes.end());
}

// Header, table and data as docs/formats/bincode-cache.md lays them out.
std::string CacheFileBytes(const std::vector<ItemSpec>& items) {
    const std::size_t tableSize = TableBytes(items, 0).size();
    std::string file(24, '\0');
    std::memcpy(file.data(), "FCBQ", 4);
    const std::uint32_t words[] = {0x65B1C0F1u, 1, static_cast<std::uint32_t>(items.size() + 1), 0, 24};
    std::memcpy(file.data() + 4, &words[0], 4);
    std::memcpy(file.data() + 8, &words[1], 2); // version 1, reserved 0
    std::memcpy(file.data() + 12, &words[2], 4);
    std::memcpy(file.data() + 16, &words[3], 4);
    std::memcpy(file.data() + 20, &words[4], 4);
    file += TableBytes(items, static_cast<std::int32_t>(24 + tableSize));
    for (const ItemSpec& item : items)
        file += item.code + item.ancestry;
    return file;
}

class BinCodeFile : public ::testing::Test {
protected:
    IO::Location Folder() const { return scratch.Location("bincode"); }
    std::filesystem::path CachePath() const { return scratch.Path() / "bincode" / CacheName; }
    void WriteCache(const std::string& bytes) const {
        scratch.Write(std::string("bincode/") + CacheName, bytes);
    }

    std::vector<std::string> TemporaryFiles() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(scratch.Path() / "bincode")) {
            const std::string name = entry.path().filename().string();
            if (name.starts_with("TempQDLBinCode_"))
                names.push_back(name);
        }
        return names;
    }

    // The code each part has for a type in a store on the folder, or "none".
    std::string StoredCode(LM::QdlBinCodesContainer& store, const KL::UnID& id, QDL_ScriptType type) {
        const LM::QdlBinCodeIndexArray* indices = store.SearchBinCodeIndex(id, IO::Location());
        if (indices == nullptr || indices->Get(type) == -1)
            return "none";
        KL::ConstSharedPtr<BinCode> code;
        EXPECT_EQ(store.GetQdlBinCode(indices->Get(type), &code, nullptr), 0);
        return BytesOf(code);
    }

    // Stores code as the catalogue does: a known part and type reuse their index.
    static void Put(LM::QdlBinCodesContainer& store, const KL::UnID& id, QDL_ScriptType type,
                    const std::string& code) {
        const LM::QdlBinCodeIndexArray* indices = store.SearchBinCodeIndex(id, IO::Location());
        if (indices != nullptr && indices->Get(type) != -1)
            store.SetQdlBinCode(indices->Get(type), Code(code), nullptr);
        else
            store.StoreQdlBinCode(id, IO::Location("/lib/part.klm"), type, Code(code), nullptr);
    }

    ScratchFolder scratch;
};

TEST_F(BinCodeFile, CodeSurvivesARestartAndIsReadOnlyWhenAskedFor) {
    // Three parts in a library; the first process compiles them, the second reads the code back.
    for (std::uint32_t n = 1; n <= 3; ++n) {
        LPF::SymbolFile part;
        part.SetOwnUnID(PartId(n));
        part.SetDocumentName(KL::UniString("Part " + std::to_string(n)));
        scratch.Write("Lib/Part " + std::to_string(n) + ".klm", "");
        ASSERT_EQ(part.Save(scratch.Location("Lib/Part " + std::to_string(n) + ".klm")), 0);
    }
    const IO::Location library = scratch.Location("Lib");
    const auto start = [&library](LM::LibrarySetSingletonLP& manager, KL::ProcessControl& process) {
        return manager.InitLibraryManager(LM::BinaryCachingOnDisk, nullptr, nullptr, nullptr) == 0 &&
               manager.AddLibrary(process, library, true) == 0;
    };
    const auto part = [](LM::LibrarySetSingletonLP& manager, std::uint32_t n) {
        return manager.GetLibrarySet()->GetLibPart(LM::LibPartId(PartId(n), KL::UniString()));
    };

    ASSERT_EQ(InChild([&] {
                  LM::LibrarySetSingletonLP manager;
                  KL::NonInterruptibleProcessControl process;
                  if (!start(manager, process))
                      return 1;
                  LM::LibrarySet::ThreadSafeModifier modifier(manager.GetLibrarySet());
                  for (std::uint32_t n = 1; n <= 3; ++n) {
                      if (modifier.SetSymbolQdlBinCode(part(manager, n), QDL_3DScript,
                                                       Code("3D code of part " + std::to_string(n))) != 0)
                          return 2;
                  }
                  if (modifier.SetSymbolQdlBinCode(part(manager, 2), QDL_2DScript, Code("2D of 2")) != 0)
                      return 3;
                  manager.ExitLibraryManager();
                  return 0;
              }),
              0);

    LM::LibrarySetSingletonLP manager;
    KL::NonInterruptibleProcessControl process;
    ASSERT_TRUE(start(manager, process));
    LM::QdlBinCodesContainer& store = *manager.GetLibrarySet()->GetBinCodes();
    EXPECT_TRUE(store.IsFileBacked());
    EXPECT_EQ(store.GetItemCount(), 5U);
    EXPECT_EQ(store.GetUsedMemory(), 0); // only the table was read
    LM::LibrarySet::ThreadSafeModifier modifier(manager.GetLibrarySet());
    KL::ConstSharedPtr<BinCode> code;
    for (std::uint32_t n = 1; n <= 3; ++n) {
        ASSERT_EQ(modifier.GetSymbolQdlBinCode(part(manager, n), QDL_3DScript, &code), 0);
        EXPECT_EQ(BytesOf(code), "3D code of part " + std::to_string(n));
    }
    ASSERT_EQ(modifier.GetSymbolQdlBinCode(part(manager, 2), QDL_2DScript, &code), 0);
    EXPECT_EQ(BytesOf(code), "2D of 2");
    EXPECT_GT(store.GetUsedMemory(), 0);
    EXPECT_EQ(modifier.GetSymbolQdlBinCode(part(manager, 1), QDL_2DScript, &code), LM::LibPartFileError);
    // A script type the index arrays do not hold is refused before it reaches them.
    EXPECT_EQ(modifier.GetSymbolQdlBinCode(part(manager, 1), static_cast<QDL_ScriptType>(9), &code),
              LM::LibPartFileError);
    EXPECT_EQ(modifier.SetSymbolQdlBinCode(part(manager, 1), static_cast<QDL_ScriptType>(0), Code("x")),
              LM::LibPartFileError);

    // A reload writes the cache, empties the store and reads the table again.
    EXPECT_EQ(manager.GetModifier().ReloadQdlBinCodes(), 0);
    EXPECT_EQ(store.GetUsedMemory(), 0);
    ASSERT_EQ(modifier.GetSymbolQdlBinCode(part(manager, 3), QDL_3DScript, &code), 0);
    EXPECT_EQ(BytesOf(code), "3D code of part 3");
}

TEST_F(BinCodeFile, ASecondProgramLeavesATemporaryFileThatTheFirstMerges) {
    {
        LM::QdlBinCodesContainer first(Folder(), 0, 0);
        Put(first, PartId(1), QDL_2DScript, "2D of 1");
        Put(first, PartId(2), QDL_2DScript, "2D of 2");
    }
    ASSERT_TRUE(std::filesystem::exists(CachePath()));

    auto holder = std::make_unique<LM::QdlBinCodesContainer>(Folder(), 0, 0);
    ASSERT_TRUE(holder->IsFileBacked());
    // Another program on the same folder compiles more, and cannot take the cache file while the
    // holder reads it.
    ASSERT_EQ(InChild([this] {
                  LM::QdlBinCodesContainer other(Folder(), 0, 0);
                  Put(other, PartId(1), QDL_3DScript, "3D of 1 from the other");
                  Put(other, PartId(1), QDL_2DScript, "2D of 1 from the other");
                  Put(other, PartId(3), QDL_3DScript, "3D of a part the holder does not know");
                  return other.IsFileBacked() ? 0 : 1;
              }),
              0);
    EXPECT_EQ(TemporaryFiles().size(), 1U);

    // The holder merges at its end: only code of parts it knows, for types it has none of.
    holder.reset();
    EXPECT_TRUE(TemporaryFiles().empty());
    LM::QdlBinCodesContainer next(Folder(), 0, 0);
    EXPECT_EQ(StoredCode(next, PartId(1), QDL_2DScript), "2D of 1");
    EXPECT_EQ(StoredCode(next, PartId(1), QDL_3DScript), "3D of 1 from the other");
    EXPECT_EQ(StoredCode(next, PartId(2), QDL_2DScript), "2D of 2");
    EXPECT_EQ(StoredCode(next, PartId(3), QDL_3DScript), "none");
}

TEST_F(BinCodeFile, AProgramKilledWhileSavingLeavesTheOldFileOrTheNew) {
    // Each generation rewrites every item; a whole file holds one generation only.
    constexpr int Items = 60;
    const std::string padding(16 * 1024, '.');
    const auto codeOf = [&padding](int generation, int item) {
        return "generation " + std::to_string(generation) + " item " + std::to_string(item) + padding;
    };
    std::mt19937 random(20261123);
    int generation = 0;
    std::set<int> generationsSeen;
    for (int round = 0; round < 30; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            for (int next = generation + 1;; ++next) {
                LM::QdlBinCodesContainer store(Folder(), 0, 0);
                for (int item = 1; item <= Items; ++item)
                    Put(store, PartId(static_cast<std::uint32_t>(item)), QDL_3DScript, codeOf(next, item));
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);

        LM::QdlBinCodesContainer store(Folder(), 0, 0);
        if (!std::filesystem::exists(CachePath()))
            continue; // killed before its first save was made permanent
        ASSERT_TRUE(store.IsFileBacked()) << "round " << round;
        const std::string first = StoredCode(store, PartId(1), QDL_3DScript);
        ASSERT_TRUE(first.starts_with("generation ")) << first.substr(0, 40);
        generation = std::stoi(first.substr(11));
        generationsSeen.insert(generation);
        for (int item = 1; item <= Items; ++item)
            ASSERT_EQ(StoredCode(store, PartId(static_cast<std::uint32_t>(item)), QDL_3DScript),
                      codeOf(generation, item))
                << "round " << round;
    }
    // The kills fell at many points: saves were cut short and others completed between them.
    EXPECT_GE(generationsSeen.size(), 5U);
}

TEST_F(BinCodeFile, HostileFilesGiveAnEmptyStore) {
    const std::string good = CacheFileBytes({{PartId(1), QDL_3DScript, 3, TIGetTime(), "code", "chain"}});
    const auto patched = [&good](std::size_t at, std::initializer_list<unsigned char> bytes) {
        std::string file = good;
        for (unsigned char byte : bytes)
            file[at++] = static_cast<char>(byte);
        return file;
    };
    const std::size_t table = 24 + 24; // header, then the frame's own header
    std::vector<std::pair<std::string, std::string>> files = {
        {"wrong magic", patched(0, {'Q'})},
        {"wrong second magic", patched(4, {0})},
        {"header size 32", patched(20, {32})},
        {"version 1 with reserved 1", patched(10, {1})},
        {"version 2", patched(8, {2})},
        {"foreign frame", patched(24, {0xEE})},
        {"huge count", patched(table, {0xFF, 0xFF, 0xFF, 0xFF})},
        {"code size past the end", patched(good.size() - 9 - 16, {0xFF, 0xFF, 0})},
        {"negative code offset", patched(good.size() - 9 - 8, {0, 0, 0, 0x80})},
        {"code offset inside the table", patched(good.size() - 9 - 8, {30, 0, 0, 0})},
        {"nothing", ""},
    };
    for (std::size_t cut : {10UL, 24UL, 40UL, table + 2, table + 30, good.size() - 12, good.size() - 1})
        files.emplace_back("cut at " + std::to_string(cut), good.substr(0, cut));

    // The untouched file is fine, so every refusal below is the patch's doing.
    WriteCache(good);
    {
        LM::QdlBinCodesContainer store(Folder(), 0, 0);
        ASSERT_TRUE(store.IsFileBacked());
        EXPECT_EQ(StoredCode(store, PartId(1), QDL_3DScript), "code");
    }
    for (const auto& [what, bytes] : files) {
        WriteCache(bytes);
        LM::QdlBinCodesContainer store(Folder(), 0, 0);
        EXPECT_FALSE(store.IsFileBacked()) << what;
        EXPECT_EQ(store.GetUsedMemory(), 0) << what;
        EXPECT_EQ(StoredCode(store, PartId(1), QDL_3DScript), "none") << what;
        LM::QdlBinCodesContainer::Items items;
        IO::File file(IO::Location(CachePath().string()));
        EXPECT_EQ(store.LoadBinCodesContainer(&file, &items), LM::LibPartFileError) << what;
    }
}

TEST_F(BinCodeFile, ASaveDropsOldAndSeldomUsedCode) {
    const TITime now = TIGetTime();
    WriteCache(CacheFileBytes({
        {PartId(1), QDL_3DScript, 50, now - 40 * Day, "forty days ago", ""},
        {PartId(2), QDL_3DScript, 4, now - 20 * Day, "twenty days, four uses", ""},
        {PartId(3), QDL_3DScript, 5, now - 20 * Day, "twenty days, five uses", "chain"},
        {PartId(4), QDL_3DScript, 1, now - Day, "yesterday", ""},
        {PartId(5), QDL_3DScript, 9, now, "", "only a chain"},
    }));
    {
        LM::QdlBinCodesContainer store(Folder(), 0, 0);
        EXPECT_EQ(store.GetItemCount(), 6U);
    }
    LM::QdlBinCodesContainer store(Folder(), 0, 0);
    EXPECT_EQ(store.GetItemCount(), 3U);
    EXPECT_EQ(StoredCode(store, PartId(3), QDL_3DScript), "twenty days, five uses");
    EXPECT_EQ(StoredCode(store, PartId(4), QDL_3DScript), "yesterday");
    EXPECT_GE(store.GetLastCompactionTime(), now);
    for (std::uint32_t gone : {1U, 2U, 5U})
        EXPECT_EQ(StoredCode(store, PartId(gone), QDL_3DScript), "none") << gone;

    // A store left with its reserved item alone takes the cache file away.
    store.ClearAllQdlBinCodes();
    EXPECT_EQ(store.SaveBinCodesContainer(true), 0);
    EXPECT_FALSE(std::filesystem::exists(CachePath()));
}

TEST(BinCodeStoreMemory, StoringOverEvictedCodeKeepsTheCountTrue) {
    LM::QdlBinCodesContainer store(10, 0);
    const int first = store.StoreQdlBinCode(PartId(1), IO::Location("/lib/a.klm"), QDL_3DScript,
                                            Code("twelve bytes"), nullptr);
    EXPECT_EQ(store.GetUsedMemory(), 0); // over the limit at once: evicted
    EXPECT_EQ(store.SetQdlBinCode(first, Code("four"), nullptr), 0);
    EXPECT_EQ(store.GetUsedMemory(), 4);
    const int second =
        store.StoreQdlBinCode(PartId(2), IO::Location("/lib/b.klm"), QDL_3DScript, Code("five!"), nullptr);
    EXPECT_EQ(store.GetUsedMemory(), 9);
    EXPECT_EQ(store.SetQdlBinCode(second, Code("six..."), nullptr), 0);
    EXPECT_EQ(store.GetUsedMemory(), 10);
}

} // namespace
