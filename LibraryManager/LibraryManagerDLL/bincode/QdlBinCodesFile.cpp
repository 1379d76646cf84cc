// The compiled script store on disk: one cache file in the bin code folder and temporary files
// beside it (docs/formats/bincode-cache.md). A program never writes into the cache file: it writes
// a temporary file and then merges, if it can hold the cache file exclusively; otherwise the
// temporary file waits for a later run. Every file is written through a scratch file, so a crash
// leaves the old file or the new one.
#include "bincode/QdlBinCodesContainer.hpp"

#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/Folder.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Frame.hpp"
#include "KLRoot/PagedArray.hpp"
#include "KLUtils/ScratchFile.hpp"
#include "LibraryManagerErrors.hpp"

#include <chrono>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace LM {

namespace {

constexpr char Magic[4] = {'F', 'C', 'B', 'Q'};
constexpr std::uint32_t SecondMagic = 0x65B1C0F1u;
constexpr std::uint16_t FormatVersion = 1;
constexpr std::uint32_t HeaderSize = 24;
constexpr const char* DefaultCacheName = "Tectonix QdlBinCode";
// The least an item takes in the table: two guids, an empty location, seven numbers.
constexpr std::uint64_t MinItemSize = 16 + 16 + 4 + 7 * 4;
// How long a starting program waits for another one's merge before it starts without the cache.
constexpr auto SharedLockPatience = std::chrono::seconds(5);
constexpr auto SharedLockRetry = std::chrono::milliseconds(20);

void EncodeHeader(std::uint32_t itemCount, TITime lastCompaction, char (&bytes)[HeaderSize]) {
    std::memcpy(bytes, Magic, sizeof Magic);
    KL::StoreInOrder(bytes + 4, SecondMagic, KL::LittleEndianSign);
    KL::StoreInOrder(bytes + 8, FormatVersion, KL::LittleEndianSign);
    KL::StoreInOrder(bytes + 10, std::uint16_t{0}, KL::LittleEndianSign);
    KL::StoreInOrder(bytes + 12, itemCount, KL::LittleEndianSign);
    KL::StoreInOrder(bytes + 16, lastCompaction, KL::LittleEndianSign);
    KL::StoreInOrder(bytes + 20, HeaderSize, KL::LittleEndianSign);
}

// The item count of the header is not used: the table's own count is read.
int DecodeHeader(const char (&bytes)[HeaderSize], TITime* lastCompaction) {
    if (std::memcmp(bytes, Magic, sizeof Magic) != 0 ||
        KL::LoadInOrder<std::uint32_t>(bytes + 4, KL::LittleEndianSign) != SecondMagic ||
        KL::LoadInOrder<std::uint16_t>(bytes + 8, KL::LittleEndianSign) != FormatVersion ||
        KL::LoadInOrder<std::uint16_t>(bytes + 10, KL::LittleEndianSign) != 0 ||
        KL::LoadInOrder<std::uint32_t>(bytes + 20, KL::LittleEndianSign) != HeaderSize)
        return LibPartFileError;
    *lastCompaction = KL::LoadInOrder<TITime>(bytes + 16, KL::LittleEndianSign);
    return KL::NoError;
}

// Data must lie behind the table and inside the file: a hostile table cannot make us allocate
// more than the file holds, nor read the table back as code.
bool LiesInData(std::int32_t offset, std::int32_t size, std::uint64_t dataStart, std::uint64_t fileLength) {
    if (size == 0)
        return true;
    const auto begin = static_cast<std::uint64_t>(offset);
    return begin >= dataStart && begin + static_cast<std::uint64_t>(size) <= fileLength;
}

int ReadTable(IO::File& file, QdlBinCodesContainer::Items* items) {
    KL::InputFrame frame(file, KL::PagedArrayPrivate::classInfo);
    std::uint32_t count = 0;
    if (frame.GetStatus() != KL::NoError || file.Read(count) != KL::NoError)
        return LibPartFileError;
    if (file.RequireAvailable(static_cast<std::uint64_t>(count) * MinItemSize) != KL::NoError)
        return LibPartFileError;
    items->Clear();
    for (std::uint32_t i = 0; i < count; ++i) {
        if (items->PushNew().Read(file) != KL::NoError)
            return LibPartFileError;
    }
    if (frame.Close() != KL::NoError || count == 0)
        return LibPartFileError;
    std::uint64_t length = 0;
    if (file.GetDataLength(&length) != KL::NoError)
        return LibPartFileError;
    const std::uint64_t dataStart = file.GetReadCount();
    for (const QdlBinCodeItem& item : *items) {
        if (!LiesInData(item.codeOffset, item.codeSize, dataStart, length) ||
            !LiesInData(item.ancestryOffset, item.ancestrySize, dataStart, length))
            return LibPartFileError;
    }
    // The reserved item holds nothing, whatever a file says of it.
    (*items)[0].Reset();
    return KL::NoError;
}

int WriteTable(KL::OChannel& channel, const std::vector<QdlBinCodeItem>& table) {
    KL::OutputFrame frame(channel, KL::PagedArrayPrivate::classInfo);
    channel.Write(static_cast<std::uint32_t>(table.size()));
    for (const QdlBinCodeItem& item : table) {
        if (const int err = item.Write(channel); err != KL::NoError)
            return err;
    }
    return frame.Close();
}

// Offsets are 32-bit: a file that would grow past them is not written.
int PositionOf(KL::OChannel& channel, std::int32_t* offset) {
    const std::uint64_t position = channel.GetWrittenCount();
    if (position > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()))
        return LibPartFileError;
    *offset = static_cast<std::int32_t>(position);
    return KL::NoError;
}

std::int32_t WriteHandle(KL::OChannel& channel, GSHandle handle) {
    if (handle == nullptr)
        return 0;
    const std::int64_t size = BMGetHandleSize(handle);
    channel.WriteBin(*handle, static_cast<std::uint64_t>(size));
    return static_cast<std::int32_t>(size);
}

bool IsTemporaryName(const IO::Name& name) {
    return name.GetText().ToUTF8().starts_with(QdlBinCodesContainer::TempFilePrefix);
}

} // namespace

IO::Location QdlBinCodesContainer::CacheFileLocation(const char* extension) const {
    const KL::UniString& configured = GetLibraryManagerStrings().binCodeFileName;
    const KL::UniString base = configured.IsEmpty() ? KL::UniString(DefaultCacheName) : configured;
    return folder + IO::Name(base + KL::UniString(extension));
}

void QdlBinCodesContainer::DetachCacheFile() {
    cacheFile.reset();
    for (QdlBinCodeItem& item : items)
        item.codeOffset = item.ancestryOffset = 0;
}

// The lock lies on a file of its own that is never replaced: a lock on the cache file itself
// would stay with the old file when a merge renames a new one into its place.
int QdlBinCodesContainer::AcquireLock(IO::FileEntry::LockMode mode) {
    if (lockFile == nullptr) {
        auto opened = std::make_unique<IO::File>(CacheFileLocation(".lock"), IO::File::New);
        if (const int err = opened->Open(IO::File::ReadMode); err != KL::NoError)
            return err;
        lockFile = std::move(opened);
    }
    const auto giveUp = std::chrono::steady_clock::now() + SharedLockPatience;
    for (;;) {
        const int result = lockFile->Lock(mode);
        if (result != IO::LockedError || mode != IO::FileEntry::SharedLock ||
            std::chrono::steady_clock::now() > giveUp)
            return result;
        std::this_thread::sleep_for(SharedLockRetry);
    }
}

void QdlBinCodesContainer::ReleaseLock() {
    lockFile.reset();
}

int QdlBinCodesContainer::ReadHandle(std::int32_t offset, std::int32_t size, KL::ScopedHandle* handle) {
    handle->Reset(BMAllocateHandle(size, 0, 0));
    if (handle->Get() == nullptr)
        return BMError();
    if (const int err = cacheFile->SetPosition(static_cast<std::uint64_t>(offset)); err != KL::NoError)
        return err;
    return cacheFile->ReadBin(handle->GetData(), static_cast<std::uint64_t>(size));
}

// The table was checked against the file when it was read, and the file is never changed in
// place: an offset of the table is a place in the open file.
int QdlBinCodesContainer::ReadItemData(QdlBinCodeItem& item, bool wantCode) {
    if (cacheFile == nullptr)
        return KL::NoError;
    const auto onDisk = [](std::int32_t size, std::int32_t offset, bool inMemory) {
        return size != 0 && offset != 0 && !inMemory;
    };
    KL::ScopedHandle code;
    KL::ScopedHandle chain;
    if (wantCode && onDisk(item.codeSize, item.codeOffset, item.code != nullptr))
        if (const int err = ReadHandle(item.codeOffset, item.codeSize, &code); err != KL::NoError)
            return err;
    if (onDisk(item.ancestrySize, item.ancestryOffset, item.ancestry != nullptr))
        if (const int err = ReadHandle(item.ancestryOffset, item.ancestrySize, &chain); err != KL::NoError)
            return err;
    if (code.Get() != nullptr) {
        item.code = KL::ConstSharedPtr<BinCode>(new BinCode(code.Release()));
        usedMemory += item.codeSize;
    }
    if (chain.Get() != nullptr) {
        item.ancestry = KL::ConstSharedPtr<AncestryHandleWrapper>(new AncestryHandleWrapper(chain.Release()));
        usedMemory += item.ancestrySize;
    }
    return KL::NoError;
}

int QdlBinCodesContainer::LoadBinCodesContainer(IO::File* file, Items* fileItems) {
    if ((file == nullptr) != (fileItems == nullptr))
        return LibPartFileError;
    std::unique_ptr<IO::File> own;
    if (file == nullptr) {
        ClearAllQdlBinCodes();
        DetachCacheFile();
        const IO::Location location = CacheFileLocation();
        IO::Name name;
        location.GetLastLocalName(&name);
        const IO::Folder binFolder(folder);
        if (binFolder.GetStatus() != KL::NoError || !binFolder.Contains(name))
            return LibPartFileError;
        own = std::make_unique<IO::File>(location);
        file = own.get();
    }
    // Others may read the cache file beside us; whoever wants to replace it needs the lock alone.
    int result = own != nullptr ? AcquireLock(IO::FileEntry::SharedLock) : KL::NoError;
    if (result == KL::NoError)
        result = file->Open(IO::File::ReadMode);
    char bytes[HeaderSize];
    TITime compaction = 0;
    if (result == KL::NoError)
        result = file->ReadBin(bytes, HeaderSize) == KL::NoError ? DecodeHeader(bytes, &compaction)
                                                                 : LibPartFileError;
    if (result == KL::NoError)
        result = ReadTable(*file, own != nullptr ? &items : fileItems);
    if (own == nullptr)
        return result;
    if (result == KL::NoError) {
        lastCompactionTime = compaction;
        cacheFile = std::move(own);
    } else {
        // What was read of a damaged table stays as index entries without data.
        ReleaseLock();
        if (items.IsEmpty())
            items.PushNew();
        for (QdlBinCodeItem& item : items)
            item.Reset();
    }
    for (int i = 1; i < static_cast<int>(items.GetSize()); ++i)
        AddBinCodeToIndex(i);
    return result;
}

KL::HashSet<int> QdlBinCodesContainer::CompactBinCodesContainer() {
    KL::HashSet<int> dropped;
    if (items.GetSize() < 2)
        return dropped;
    const TITime now = TIGetTime();
    const TITime monthAgo = TIDateToTime(TIAddMonths(TITimeToDate(now), -1));
    // Halfway without the sum, which leaves the time type's range in its later years.
    const TITime middle = monthAgo + (now - monthAgo) / 2;
    for (int i = 1; i < static_cast<int>(items.GetSize()); ++i) {
        const QdlBinCodeItem& item = items[static_cast<std::size_t>(i)];
        if (item.codeSize == 0 || item.lastUsed < monthAgo || (item.lastUsed < middle && item.usedCount < 5))
            dropped.Add(i);
    }
    if (fileLimit != 0) {
        std::int64_t total = 0;
        for (std::size_t i = 1; i < items.GetSize(); ++i) {
            if (!items[i].id.IsNull())
                total += std::int64_t{items[i].codeSize} + items[i].ancestrySize;
        }
        // The candidate search does not skip what it chose before, so one item may be subtracted
        // again and again; the file then keeps more than the limit would. Kept as it is.
        while (total > fileLimit) {
            const unsigned candidate = GetLeastRecentLeastUsed(false);
            if (candidate == 0)
                break;
            total -= std::int64_t{items[candidate].codeSize} + items[candidate].ancestrySize;
            dropped.Add(static_cast<int>(candidate));
        }
    }
    lastCompactionTime = now;
    return dropped;
}

// Header, the table with provisional offsets, the data of each kept item, then the table again
// with the final offsets; its length does not change.
int QdlBinCodesContainer::WriteCacheFile(const IO::Location& target, bool toCacheFile,
                                         const KL::HashSet<int>& dropped) {
    std::vector<int> kept;
    std::vector<QdlBinCodeItem> table;
    for (int i = 0; i < static_cast<int>(items.GetSize()); ++i) {
        if (dropped.Contains(i))
            continue;
        kept.push_back(i);
        table.push_back(items[static_cast<std::size_t>(i)]);
        table.back().code.Reset();
        table.back().ancestry.Reset();
    }
    IOUtil::ScratchFile scratch(target);
    if (const int err = scratch.Open(IO::File::WriteMode); err != KL::NoError)
        return err;
    KL::OChannel& out = scratch.GetOutputChannel();
    char header[HeaderSize];
    EncodeHeader(static_cast<std::uint32_t>(table.size()), lastCompactionTime, header);
    out.WriteBin(header, HeaderSize);
    if (const int err = WriteTable(out, table); err != KL::NoError)
        return err;
    for (std::size_t k = 1; k < kept.size(); ++k) {
        KL::ConstSharedPtr<BinCode> code;
        KL::ConstSharedPtr<AncestryHandleWrapper> ancestry;
        if (const int err = GetQdlBinCode(kept[k], &code, &ancestry); err != KL::NoError)
            return err;
        QdlBinCodeItem& entry = table[k];
        if (const int err = PositionOf(out, &entry.codeOffset); err != KL::NoError)
            return err;
        entry.codeSize = WriteHandle(out, code != nullptr ? code->GetHandle() : nullptr);
        if (const int err = PositionOf(out, &entry.ancestryOffset); err != KL::NoError)
            return err;
        entry.ancestrySize = WriteHandle(out, ancestry != nullptr ? ancestry->GetHandle() : nullptr);
        if (const int err = out.GetStatus(); err != KL::NoError)
            return err;
    }
    std::int32_t fileEnd = 0; // the last item's data must end within reach of an offset too
    if (const int err = PositionOf(out, &fileEnd); err != KL::NoError)
        return err;
    if (const int err = scratch.SetPosition(HeaderSize); err != KL::NoError)
        return err;
    if (const int err = WriteTable(scratch.GetOutputChannel(), table); err != KL::NoError)
        return err;
    if (toCacheFile)
        DetachCacheFile();
    return scratch.MakePermanent();
}

// Only the program that holds the lock alone replaces or removes the cache file; a nested save
// of a merge already holds it. Eviction waits until the save is over, so that nothing is let go
// before it is written.
int QdlBinCodesContainer::SaveBinCodesContainer(bool toCacheFile) {
    const bool nested = merging;
    saving = true;
    const KL::HashSet<int> dropped = CompactBinCodesContainer();
    int result = KL::NoError;
    if (items.GetSize() < 2) {
        if (AcquireLock(IO::FileEntry::ExclusiveLock) == KL::NoError)
            IO::fileSystem.Delete(CacheFileLocation());
    } else {
        IO::Folder binFolder(folder, IO::Folder::Create);
        IO::Name name;
        result = binFolder.GetStatus();
        if (result == KL::NoError && toCacheFile) {
            CacheFileLocation().GetLastLocalName(&name);
            result = AcquireLock(IO::FileEntry::ExclusiveLock);
        } else if (result == KL::NoError) {
            const IO::Name base(KL::UniString(std::string(TempFilePrefix) + std::to_string(::getpid())));
            result = binFolder.GenerateUnusedName(base, &name, KL::UniString(".dat"));
        }
        if (result == KL::NoError)
            result = WriteCacheFile(folder + name, toCacheFile, dropped);
        // Without the lock another program reads the cache file: our temporary file waits for the
        // next program that merges.
        if (result == KL::NoError && !toCacheFile && AcquireLock(IO::FileEntry::ExclusiveLock) == KL::NoError)
            result = MergeQDLBinCodeFiles(binFolder, name);
    }
    if (!nested) {
        DetachCacheFile();
        ReleaseLock();
    }
    saving = nested;
    return result;
}

bool QdlBinCodesContainer::SearchForTempFiles(const IO::Folder&, const IO::Name& name, bool isFolder,
                                              void* container) {
    if (!isFolder && IsTemporaryName(name))
        static_cast<QdlBinCodesContainer*>(container)->temporaryNames.Push(name);
    return true;
}

int QdlBinCodesContainer::MergeQDLBinCodeFiles(IO::Folder& binFolder, IO::Name& ownName) {
    temporaryNames.Clear();
    if (const int err = binFolder.Enumerate(SearchForTempFiles, this); err != KL::NoError)
        return err;
    if (temporaryNames.GetSize() == 1 && temporaryNames[0] == ownName) {
        // Only our own: it becomes the cache file as it is.
        DetachCacheFile();
        return IO::fileSystem.Move(folder + ownName, CacheFileLocation());
    }
    std::unique_ptr<IO::File> aside = std::move(cacheFile);
    for (const IO::Name& name : temporaryNames) {
        if (!(name == ownName))
            MergeOneTemporaryFile(binFolder, name);
    }
    cacheFile = std::move(aside);
    merging = true;
    const int result = SaveBinCodesContainer(true);
    merging = false;
    if (result == KL::NoError) {
        for (const IO::Name& name : temporaryNames)
            binFolder.Delete(name);
    }
    return result;
}

// Takes the items of parts this store knows and has no code of that type for. While they are read,
// the temporary file is the open file; once in memory their offsets no longer point anywhere.
int QdlBinCodesContainer::MergeOneTemporaryFile(const IO::Folder& binFolder, const IO::Name& name) {
    cacheFile = std::make_unique<IO::File>(binFolder.GetLocation() + name);
    Items found;
    const int result = LoadBinCodesContainer(cacheFile.get(), &found);
    for (std::size_t i = 1; result == KL::NoError && i < found.GetSize(); ++i) {
        const QdlBinCodeItem& candidate = found[i];
        const QdlBinCodeIndexArray* known = SearchBinCodeIndex(candidate.id, candidate.location);
        if (known == nullptr || !QdlBinCodeIndexArray::IsScriptType(candidate.scriptType) ||
            known->Get(candidate.scriptType) != QdlBinCodeIndexArray::NoIndex)
            continue;
        items.Push(candidate);
        const int index = static_cast<int>(items.GetSize() - 1);
        AddBinCodeToIndex(index);
        KL::ConstSharedPtr<BinCode> code;
        GetQdlBinCode(index, &code, nullptr);
        items[static_cast<std::size_t>(index)].codeOffset = 0;
        items[static_cast<std::size_t>(index)].ancestryOffset = 0;
    }
    cacheFile.reset();
    return result;
}

int QdlBinCodesContainer::ReloadQdlBinCodes() {
    if (const int err = SaveBinCodesContainer(false); err != KL::NoError)
        return err;
    if (const int err = ClearAllQdlBinCodes(); err != KL::NoError)
        return err;
    LoadBinCodesContainer(nullptr, nullptr);
    return 0;
}

} // namespace LM
