#include "walking/LibraryEnumerator.hpp"

#include "catalogue/IServerLibraryCollection.hpp"
#include "catalogue/LibrarySet.hpp"
#include "containers/VirtualFileSystemRegistry.hpp"
#include "lists/FolderSet.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/FileHeadPrefetcher.hpp"
#include "InputOutput/FileSystem.hpp"
#include "KLRoot/ProcessControl.hpp"
#include "KLUtils/ResourceFileSystem.hpp"
#include "KLUtils/ScratchFile.hpp"

namespace LM {

namespace {

const KL::UniString ContainerExtension("LCF");

bool IsContainerName(const IO::Name& name) {
    return name.GetExtension().IsEqual(ContainerExtension, KL::CaseInsensitive);
}

// Told by the file system's kind: a host may mount file systems of its own below a library.
bool IsOnContainerFileSystem(const IO::Folder& folder) {
    return IsContainerFileSystem(folder.GetOwnerFileSystem());
}

// 0 for a file whose time cannot be had: the cache's comparison then fails on it.
TITime ModificationTimeOf(const IO::Location& location) {
    TITime modTime = 0;
    IO::fileSystem.GetFileModificationTime(location, &modTime);
    return modTime;
}

// A resource library is named after where its resources come from, not after its mount point.
KL::UniString RootFolderName(const IO::Location& rootLocation) {
    const IO::Location named = IOUtil::IsResourceFileSystemMountPoint(rootLocation)
                                   ? IOUtil::GetResourceFileSystemLocationFromMountPoint(rootLocation)
                                   : rootLocation;
    IO::Name last;
    named.GetLastLocalName(&last);
    return last.GetText();
}

} // namespace

LibraryEnumerator::LibraryEnumerator(KL::ProcessControl& processControl, const IO::Folder& root,
                                     LibrarySet* librarySet, int libraryIndex,
                                     IOUtil::ScratchFile* cacheStream,
                                     KL::Array<LibraryCacheEntry>* cacheEntries, int firstPartIndex,
                                     int firstFolderIndex, IServerLibraryCollection* serverCollection)
    : IO::TreeEnumerator(root), librarySet(librarySet), libraryIndex(libraryIndex), cacheStream(cacheStream),
      cacheEntries(cacheEntries), firstPartIndex(firstPartIndex), firstFolderIndex(firstFolderIndex),
      processControl(processControl), rootLocation(root.GetLocation()), serverCollection(serverCollection) {
    // The root never asks for a folder id: it is the library itself.
    folderStack.push_back(librarySet->GetFolderSet()->StoreFolder(
        rootLocation, KL::NULLGuid, RootFolderName(rootLocation), FolderSet::RootFolder, libraryIndex));
}

LibraryEnumerator::~LibraryEnumerator() = default;

void LibraryEnumerator::RecordCacheEntry(const IO::Location& location, TITime modTime) {
    if (cacheEntries == nullptr || insideContainer)
        return;
    LibraryCacheEntry entry;
    location.GetDifference(rootLocation, &entry.relLocation);
    entry.modTime = modTime;
    cacheEntries->Push(std::move(entry));
}

int LibraryEnumerator::Do() {
    prefetcher = std::make_unique<IO::FileHeadPrefetcher>();
    const IO::FileHeadPrefetcher::Scope scope(*prefetcher);
    const int result = IO::TreeEnumerator::Do();
    prefetcher.reset();
    return result;
}

// Only files of the local disk are read ahead: a container's entries share its one file.
void LibraryEnumerator::FolderListed(const IO::Folder& folder, const IO::Folder::TimedListing& listing) {
    if (prefetcher == nullptr || folder.GetOwnerFileSystem() != nullptr)
        return;
    std::vector<IO::Location> files;
    files.reserve(listing.size());
    for (const IO::Folder::TimedEntry& entry : listing)
        if (entry.type == IO::FileEntryType && !IsContainerName(entry.name))
            files.push_back(folder.GetLocation() + entry.name);
    prefetcher->Announce(folder.GetLocation(), std::move(files));
}

// A container file is no part: it is mounted where it lies, and the walk goes on through it.
bool LibraryEnumerator::EntryFound(const IO::Name& name, bool isFolder) {
    if (isFolder || !IsContainerName(name))
        return true;
    const IO::Location location = GetParent().GetLocation() + name;
    if (cacheEntries != nullptr && !insideContainer)
        RecordCacheEntry(location, ModificationTimeOf(location));
    librarySet->MountContainerFile(processControl, location);
    return false;
}

bool LibraryEnumerator::FileFound(const IO::Name& name) {
    if (interrupted)
        return false;
    // Asked only at every 50th stored part, to keep the question off the per-file path.
    if (storedPartCount % CancelTestInterval == 0 && processControl.BreakRequested() &&
        !librarySet->IsVitalActiveLibrary(libraryIndex)) {
        interrupted = true;
        Stop();
        return false;
    }
    const IO::Location location = GetParent().GetLocation() + name;
    const LibPart* duplicate = nullptr;
    const LibPart* stored = librarySet->StoreLibPart(processControl, location, folderStack.back(), nullptr,
                                                     nullptr, false, &duplicate);
    // A file that lost to an equal id is still this file's record, and the cache must replay it
    // as the walk found it.
    const LibPart* part = duplicate != nullptr ? duplicate : stored;
    if (part == nullptr)
        return false;
    ++storedPartCount;
    RecordCacheEntry(part->GetLocation(), part->GetFileModTime());
    if (cacheStream != nullptr) {
        // When the newcomer won, the loser's slot holds the earlier part, whose files were let go
        // when it was stored; its record takes its ancestry and migration table from them.
        if (duplicate != nullptr && duplicate->IsSymbol() &&
            duplicate->GetGeneralFileType() == GetSymbolFileGroup())
            duplicate->GetSymbolFile();
        part->Write(cacheStream->GetOutputChannel(), firstFolderIndex);
    }
    part->ReleaseFiles();
    if (stored != nullptr && stored != part)
        stored->ReleaseFiles();
    return false;
}

KL::Guid LibraryEnumerator::FolderGuid(const IO::Location& location) const {
    if (serverCollection == nullptr)
        return KL::NULLGuid;
    IO::Location libraryLocation;
    KL::UniString libraryName;
    if (librarySet->GetActiveLibraryLocation(libraryIndex, &libraryLocation) != 0 ||
        librarySet->GetActiveLibraryName(libraryIndex, &libraryName) != 0)
        return KL::NULLGuid;
    IO::RelativeLocation relative;
    location.GetDifference(libraryLocation, &relative);
    return serverCollection->GetGuid(libraryName, relative);
}

void LibraryEnumerator::FolderEntered(const IO::Name& name, const IO::Folder& folder) {
    if (!insideContainer && IsOnContainerFileSystem(folder))
        insideContainer = true;
    const IO::Location& location = folder.GetLocation();
    // Library indices travel through the host's 16-bit field.
    const auto library = static_cast<std::int16_t>(libraryIndex);
    folderStack.push_back(librarySet->GetFolderSet()->StoreFolder(
        location, FolderGuid(location), name.GetText(), folderStack.back(), library));
}

void LibraryEnumerator::FolderExited(const IO::Name&, const IO::Folder& folder) {
    if (prefetcher != nullptr)
        prefetcher->Withdraw(folder.GetLocation());
    if (insideContainer)
        insideContainer = IsOnContainerFileSystem(GetParent());
    if (folderStack.size() > 1)
        folderStack.pop_back();
}

LongFilenameEnumerator::LongFilenameEnumerator(const IO::Folder& root) : IO::TreeEnumerator(root) {}

LongFilenameEnumerator::~LongFilenameEnumerator() = default;

std::size_t LongFilenameEnumerator::PathLength(const IO::Location& location) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < location.GetLength(); ++i) {
        IO::Name localName;
        if (location.GetLocalName(i, &localName) != 0)
            break;
        length += localName.GetLength() + 1;
    }
    return length;
}

bool LongFilenameEnumerator::EntryFound(const IO::Name& name, bool) {
    if (PathLength(GetParent().GetLocation() + name) <= MaxPathLength)
        return true;
    longFilenameFound = true;
    Stop();
    return false;
}

} // namespace LM
