// One library of an enumeration pass: its version file, then either a replay from the library
// cache, which opens no part file, or a walk whose findings are written to the cache for the
// next start. A cache that fails at any point only costs a walk.
#include "LibraryContainerVFS.hpp"
#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"
#include "containers/ContainerExtraction.hpp"
#include "database/DatabaseContainerChecks.hpp"
#include "hierarchy/AncestryHierarchy.hpp"
#include "lists/FolderSet.hpp"
#include "lists/LibraryItem.hpp"
#include "lists/VersionFileFinder.hpp"
#include "services/LibraryManagerGlobals.hpp"
#include "walking/CachedPartReader.hpp"
#include "walking/LibraryCache.hpp"
#include "walking/LibraryEnumerator.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileSystem.hpp"
#include "InputOutput/Folder.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLMSections/MigrationTable.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/ProcessControl.hpp"
#include "KLUtils/ScratchFile.hpp"
#include "LibraryManagerErrors.hpp"

#include <algorithm>
#include <optional>

namespace LM {

bool LibrarySet::IsLibraryReplayed(int index) const {
    return index >= 0 && static_cast<std::size_t>(index) < replayedLibraries.size() &&
           replayedLibraries[static_cast<std::size_t>(index)];
}

void LibrarySet::EnumerateLibrary(KL::ProcessControl& process, int index, bool* stopped,
                                  const LibraryCachePaths& cache) {
    LibraryItem* item = GetItem(index);
    if (!item->IsReachable())
        return;
    // After a break only vital libraries are still read.
    if (*stopped && !item->IsVital())
        return;
    process.SetPhaseText(item->GetName());
    process.SetPhaseProgress(0, 0);
    const IO::Folder folder(item->GetLocation());
    if (folder.GetStatus() != 0)
        return;
    ReadVersionInformation(item);
    if (ReplayLibrary(process, index, folder, cache, item->GetName())) {
        replayedLibraries[static_cast<std::size_t>(index)] = true;
        return;
    }
    const WalkResult walk = WalkLibrary(process, index, folder, cache, item->GetName());
    if (walk.breakHonoured)
        *stopped = true;
    if (walk.result != 0)
        ReportWalkFailure(folder, walk.result);
    item->SetPartEstimate(walk.partCount);
}

// Containers carry no version file of their own: their first folder is what was packed.
void LibrarySet::ReadVersionInformation(LibraryItem* item) const {
    if (item->GetType() != LocalLibrary && item->GetType() != ServerLibrary)
        return;
    const IO::Location& location = item->GetLocation();
    if (IO::fileSystem.IsMountPoint(location) || CheckIfContainer(location) ||
        IsOpenableDatabaseContainer(location))
        return;
    if (!collapsedLibraryLocation.IsEmpty() && collapsedLibraryLocation == location) {
        item->SetCollapseLongBranches(true);
        return;
    }
    VersionFileFinder finder(location, 1);
    if (!finder.Do()) {
        item->SetCollapseLongBranches(false);
        return;
    }
    item->SetCollapseLongBranches(finder.GetCollapseLongBranches());
    if (finder.GetSupersedesLibraries().GetSize() == finder.GetSupersedesGuids().GetSize())
        item->SetSupersedes(finder.GetSupersedesLibraries(), finder.GetSupersedesGuids());
}

// A load that fails halfway deletes the part stream; what it merged and stored stays, and the
// walk that follows meets those files again as duplicates.
bool LibrarySet::ReplayLibrary(KL::ProcessControl& process, int index, const IO::Folder& folder,
                               const LibraryCachePaths& cache, const KL::UniString& name) {
    const IO::Location partStreamLocation = cache.PartStream(name);
    if (!cache.IsEnabled() || partStreamLocation.IsEmpty())
        return false;
    IO::File partStream(partStreamLocation);
    if (partStream.Open(IO::File::ReadMode) != KL::NoError ||
        !cache.CheckValidity(process, folder, this, partStreamLocation))
        return false;
    const int firstFolderIndex = folderSet->GetFolderCount();
    IO::File folderStream(cache.FolderStream(name));
    bool loaded = folderStream.Open(IO::File::ReadMode) == KL::NoError;
    if (loaded) {
        FolderSet folders;
        loaded = folders.Read(folderStream, firstFolderIndex) == KL::NoError;
        folderSet->Merge(folders, index);
    }
    if (loaded && LoadCachedParts(partStream, firstFolderIndex) == KL::NoError)
        return true;
    partStream.Close();
    IO::fileSystem.Delete(partStreamLocation);
    return false;
}

int LibrarySet::LoadCachedParts(KL::IChannel& channel, int firstFolderIndex) {
    std::uint32_t count = 0;
    if (const int err = channel.Read(count); err != KL::NoError)
        return err;
    // The count is the stream's word: room for a large library at most, the rest as it comes.
    constexpr std::uint32_t MostReserved = 1U << 18;
    libParts->Reserve(std::min(count, MostReserved));
    hierarchy->Reserve(std::min(count, MostReserved));
    CachedPartReader reader(channel, count, firstFolderIndex,
                            [this](CachedPartRecord& record) { PrepareCachedPart(record); });
    DropRetiredCatalogue();
    while (CachedPartRecord* record = reader.Next()) {
        if (const int err = LoadCachedPart(*record); err != KL::NoError)
            return err;
    }
    return KL::NoError;
}

// On the reading thread: the record's type and chain, from the record alone.
void LibrarySet::PrepareCachedPart(CachedPartRecord& read) const {
    const IO::Location& location = read.part.GetLocation();
    read.typed = IsLocationStorableFileType(location, &read.type) ||
                 IsLocationUnsupportedFileType(location, &read.type);
    read.chainRead = read.part.IsSymbol() && read.ancestry.Get() != nullptr;
    if (read.chainRead)
        read.hasChain = ReadPartChain(read.part, read.ancestry.Get(), &read.chain);
}

// A record is stored as the walk stored it, from what the stream holds alone: its migration
// table and ancestry come with it, so the part file stays closed. A record the walk could not
// have written (another state, a place of no stored type, a folder the stream did not bring)
// fails the load.
int LibrarySet::LoadCachedPart(CachedPartRecord& read) {
    const std::size_t index = libParts->GetCount();
    LibPart& record = libParts->AppendPart();
    record.Swap(&read.part);
    int result = read.result;
    if (result == KL::NoError && (record.GetState() != LibPartStateValid ||
                                  !folderSet->IsValidIndex(record.GetFolderIndex()) || !read.typed))
        result = LibPartFileError;
    if (result != KL::NoError) {
        libParts->MakeHole(index);
        return result;
    }
    const FTM::GeneralID type = read.type;
    record.SetGeneralFileType(type);
    const IO::Location location = record.GetLocation();
    LibPart* loser = nullptr;
    LibPart* stored =
        libParts->Register(index, LibPartSet::AppendedRecord, false, &read.migration.GetTable(), &loser);
    // Of a duplicate only a swap brings this record's data into the catalogue.
    if (loser != nullptr) {
        if (Paths::TreeEntry* node = loser->GetAncestryId()) {
            hierarchy->DeletePath(node);
            loser->SetAncestryId(nullptr);
        }
        if (!(stored->GetLocation() == location))
            return KL::NoError;
    }
    if (type == GetSymbolFileGroup() && read.chainRead)
        AddLibPartChain(stored, read.hasChain ? &read.chain : nullptr);
    else if (type == GetSymbolFileGroup())
        AddLibPartToAncestryHierarchy(stored, nullptr);
    return KL::NoError;
}

LibrarySet::WalkResult LibrarySet::WalkLibrary(KL::ProcessControl& process, int index,
                                               const IO::Folder& folder, const LibraryCachePaths& cache,
                                               const KL::UniString& name) {
    const int firstFolderIndex = folderSet->GetFolderCount();
    std::optional<IOUtil::ScratchFile> partStream;
    KL::Array<LibraryCacheEntry> entries;
    const IO::Location partStreamLocation = cache.PartStream(name);
    if (cache.IsEnabled() && !partStreamLocation.IsEmpty()) {
        cache.DropValidity(name);
        partStream.emplace(partStreamLocation);
        if (partStream->GetStatus() == KL::NoError && partStream->Open(IO::File::WriteMode) == KL::NoError)
            partStream->GetOutputChannel().Write(std::uint32_t{0}); // mended once the count is known
        else
            partStream.reset();
    }
    LibraryEnumerator walker(process, folder, this, index, partStream ? &*partStream : nullptr,
                             partStream ? &entries : nullptr, GetLibPartNumber(), firstFolderIndex,
                             serverCollection);
    WalkResult walk;
    walk.result = walker.Do();
    walk.partCount = walker.GetStoredPartCount();
    walk.breakHonoured = walker.WasInterrupted();
    if (partStream && walk.result == 0)
        WriteLibraryCache(*partStream, walk, firstFolderIndex, folder, cache, name, entries);
    return walk;
}

// The folder stream first, then the part stream under its name, and the validity stream last: a
// crash anywhere before that leaves no validity stream, and the next start walks.
void LibrarySet::WriteLibraryCache(IOUtil::ScratchFile& partStream, const WalkResult& walk,
                                   int firstFolderIndex, const IO::Folder& folder,
                                   const LibraryCachePaths& cache, const KL::UniString& name,
                                   const KL::Array<LibraryCacheEntry>& entries) {
    if (partStream.SetPosition(0) != KL::NoError ||
        partStream.GetOutputChannel().Write(static_cast<std::uint32_t>(walk.partCount)) != KL::NoError)
        return;
    IOUtil::ScratchFile folderStream(cache.FolderStream(name));
    if (folderStream.Open(IO::File::WriteMode) != KL::NoError ||
        folderSet->Write(folderStream.GetOutputChannel(), firstFolderIndex) != KL::NoError ||
        folderStream.MakePermanent() != KL::NoError || partStream.MakePermanent() != KL::NoError)
        return;
    cache.WriteValidity(name, folder.GetLocation(), folder, entries);
}

void LibrarySet::ReportWalkFailure(const IO::Folder& folder, int result) {
    const LibraryManagerCallBacks& callBacks = GetLibraryManagerCallBacks();
    LongFilenameEnumerator longNames(folder);
    longNames.Do();
    void (*report)(const IO::Folder&) = callBacks.libraryWalkFailed;
    if (longNames.IsLongFilenameFound())
        report = callBacks.libraryPathTooLong;
    else if (result == IO::FolderAccessDeniedError) // a folder of the walk could not be read
        report = callBacks.libraryWalkFailedWithCode;
    if (report != nullptr)
        report(folder);
}

} // namespace LM
