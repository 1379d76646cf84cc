#pragma once

// The store of compiled scripts, one item per part and script type, with the ancestry each was
// compiled against: code whose ancestry differs from the part's present one is stale. It lives in
// memory under a limit and, given a folder, is backed by one cache file there: the constructor
// reads the file's table, data comes in from the file on demand, and the destructor writes a
// temporary file and merges it into the cache file when no other program holds that.
//
// Invariants: item 0 is a reserved empty item. An item's offsets point into the open cache file,
// or are 0; with no file open no data is read from disk. While the cache file is open this
// program holds a shared lock on the lock file beside it; only a program that holds that lock
// alone replaces the cache file. The container has no lock of its own: the catalogue's bin code
// lock guards every call that a script thread can make.
#include "bincode/QdlBinCodeIndexArray.hpp"
#include "bincode/QdlBinCodeItem.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/PagedArray.hpp"

#include <memory>

namespace IO {
class Folder;
class Name;
} // namespace IO

namespace LM {

class AncestryHierarchy;
class LibPart;

class LM_EXPORT QdlBinCodesContainer {
public:
    // A limit of 0 lets the store grow; the host keeps its compiled code whole.
    static constexpr int NoLimit = 0;

    using Items = KL::PagedArray<QdlBinCodeItem, 8>;

    QdlBinCodesContainer(int memoryLimit, int fileLimit);
    // Loads the table of the cache file in `folder`, unless the folder is empty.
    QdlBinCodesContainer(const IO::Location& folder, int memoryLimit, int fileLimit);
    // Saves and merges when the store has a folder.
    ~QdlBinCodesContainer();
    QdlBinCodesContainer(const QdlBinCodesContainer&) = delete;
    QdlBinCodesContainer& operator=(const QdlBinCodesContainer&) = delete;

    void SetAncestryHierarchy(const AncestryHierarchy* newHierarchy) { hierarchy = newHierarchy; }
    const AncestryHierarchy* GetAncestryHierarchy() const { return hierarchy; }
    // Empty for a cache without a folder.
    IO::Location GetBinCodeFolder() const { return folder; }
    int GetMemoryLimit() const { return memoryLimit; }
    int GetFileLimit() const { return fileLimit; }
    std::int64_t GetUsedMemory() const { return usedMemory; }
    // Whether the constructor loaded a cache file.
    bool IsFileBacked() const { return fileBacked != 0; }
    TITime GetLastCompactionTime() const { return lastCompactionTime; }
    // Items, the reserved item at 0 included.
    std::size_t GetItemCount() const { return items.GetSize(); }

    bool IsValidBinCodeIndex(int index) const { return static_cast<unsigned>(index) < items.GetSize(); }
    QDL_ScriptType GetScriptType(int index) const;
    int GetUsedCount(int index) const;
    int GetLastUsed(int index) const;

    // Either output may be null, not both. Index 0 succeeds and gives nothing.
    int GetQdlBinCode(int index, KL::ConstSharedPtr<BinCode>* code,
                      KL::ConstSharedPtr<AncestryHandleWrapper>* ancestry);
    int SetQdlBinCode(int index, const KL::ConstSharedPtr<BinCode>& code,
                      const KL::ConstSharedPtr<AncestryHandleWrapper>& ancestry);
    // A new item; returns its index.
    int StoreQdlBinCode(const KL::UnID& id, const IO::Location& location, QDL_ScriptType type,
                        const KL::ConstSharedPtr<BinCode>& code,
                        const KL::ConstSharedPtr<AncestryHandleWrapper>& ancestry);
    // The indices of a part: by id, or by location for an empty id; null if none.
    const QdlBinCodeIndexArray* SearchBinCodeIndex(const KL::UnID& id, const IO::Location& location) const;
    void AddBinCodeToIndex(int index);

    // The eviction candidate: least recently used, then least often, then lowest index; 0 for none.
    unsigned GetLeastRecentLeastUsed(bool inMemoryOnly) const;
    int CheckAndFixMemoryUsage();

    // Marks the part's items up to date, or resets those compiled against another ancestry.
    void CheckAncestryUpToDate(const LibPart* part);
    // Makes the next read of the part's code check its ancestry again.
    void DeleteAncestryUpToDate(const LibPart* part);
    bool IsAncestryUpToDate(int index) const;

    // The id under which code of a part without an own id is filed: the MD5 of its file as
    // revision guid; empty if the file cannot be read.
    static KL::UnID CalculateMD5Hash(const IO::Location& location);

    // Empties the store to its reserved item; the cache file stays as it is.
    int ClearAllQdlBinCodes();
    // Saves, empties and loads again: what other programs merged into the cache file comes in.
    int ReloadQdlBinCodes();

    // The cache file and its temporary files, as docs/formats/bincode-cache.md lays them out.
    // With both arguments null, loads the cache file of the folder into this store; otherwise
    // reads the table of `file` into `fileItems`. -7003 for a header or table that is not ours.
    int LoadBinCodesContainer(IO::File* file, Items* fileItems);
    // Writes the cache file itself, or a temporary file that is then merged into it when no other
    // program holds the cache file. A store with only the reserved item deletes the cache file.
    int SaveBinCodesContainer(bool toCacheFile);
    // The indices that a save leaves out: old, seldom used or empty items, and the least recently
    // used beyond the file limit. Sets the compaction time.
    KL::HashSet<int> CompactBinCodesContainer();
    // Takes into this store what the other temporary files of the folder hold for parts it knows
    // and has no code of that type for, then writes the cache file; `ownName` is this program's
    // temporary file.
    int MergeQDLBinCodeFiles(IO::Folder& binFolder, IO::Name& ownName);
    // Folder enumeration callback: collects temporary files into the container's list.
    static bool SearchForTempFiles(const IO::Folder& binFolder, const IO::Name& name, bool isFolder,
                                   void* container);

    static constexpr const char* TempFilePrefix = "TempQDLBinCode_";

private:
    // Each valid index of the part's symbol.
    template <typename Visit>
    void ForEachIndexOf(const LibPart* part, Visit visit) const;
    void ReleaseData(QdlBinCodeItem& item);
    void Touch(QdlBinCodeItem& item) const;
    // Brings in from the open file what the item keeps there; the ancestry comes along with the code.
    int ReadItemData(QdlBinCodeItem& item, bool wantCode);
    int ReadHandle(std::int32_t offset, std::int32_t size, KL::ScopedHandle* handle);
    // The cache file's place, or with another extension that of the lock file beside it.
    IO::Location CacheFileLocation(const char* extension = ".dat") const;
    // Closes the cache file; the offsets of the items go with it.
    void DetachCacheFile();
    // The advisory lock on the lock file beside the cache file: shared while this store reads the
    // cache file, exclusive while it replaces it. A shared lock waits a while for a merge to end.
    int AcquireLock(IO::FileEntry::LockMode mode);
    void ReleaseLock();
    int WriteCacheFile(const IO::Location& target, bool toCacheFile, const KL::HashSet<int>& dropped);
    int MergeOneTemporaryFile(const IO::Folder& binFolder, const IO::Name& name);

    int fileBacked = 0;
    Items items;
    KL::HashTable<IO::Location, QdlBinCodeIndexArray> byLocation;
    KL::HashTable<KL::UnID, QdlBinCodeIndexArray> byId;
    KL::Array<IO::Name> temporaryNames;
    std::int64_t usedMemory = 0;
    int memoryLimit;
    int fileLimit;
    TITime lastCompactionTime = 0;
    IO::Location folder;
    std::unique_ptr<IO::File> cacheFile;
    std::unique_ptr<IO::File> lockFile;
    // A save reads in what it keeps and must not evict what it has not written yet.
    bool saving = false;
    // Set while a merge writes the cache file under the exclusive lock it took.
    bool merging = false;
    const AncestryHierarchy* hierarchy = nullptr;
};

} // namespace LM
