#include "catalogue/LibrarySet.hpp"

#include "bincode/QdlBinCodesContainer.hpp"
#include "catalogue/IServerLibraryCollection.hpp"
#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibraryErrorHandler.hpp"
#include "catalogue/LibrarySetObserver.hpp"
#include "containers/LibraryContainerVFSOptions.hpp"
#include "containers/VirtualFileSystemRegistry.hpp"
#include "hierarchy/AncestryHierarchy.hpp"
#include "lists/FolderSet.hpp"
#include "lists/LibraryList.hpp"
#include "services/LibraryManagerGlobals.hpp"
#include "walking/LibraryCache.hpp"
#include "walking/LibraryEnumerator.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/FixedVFS.hpp"
#include "InputOutput/Folder.hpp"
#include "KLRoot/DebugChannel.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/ProcessControl.hpp"
#include "LibraryManagerErrors.hpp"

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace LM {

namespace {

// The host's table of process steps numbers the finish of an enumeration 118.
constexpr std::int64_t FinishEnumerationStep = 118;

} // namespace

IServerLibraryCollection::~IServerLibraryCollection() = default;

LibrarySet::LibrarySet(QdlBinCodesContainer* binCodes, ILibraryErrorHandler& errorHandler,
                       IServerLibraryCollection* serverCollection, const FileTypeList& storable,
                       const FileTypeList& unsupported, FTM::GroupID textTypeGroupOverride,
                       const IO::Location& collapsedLibraryLocation)
    : storableFileTypes(storable), unsupportedFileTypes(unsupported),
      textTypeGroupOverride(textTypeGroupOverride), binCodes(binCodes), errorHandler(&errorHandler),
      collapsedLibraryLocation(collapsedLibraryLocation), serverCollection(serverCollection) {
    std::unique_ptr<LibPartSet> newParts = std::make_unique<LibPartSet>(&errorHandler, this);
    std::unique_ptr<FolderSet> newFolders = std::make_unique<FolderSet>();
    std::unique_ptr<LibraryList> newList = std::make_unique<LibraryList>();
    hierarchy = new AncestryHierarchy(this);
    libParts = newParts.release();
    folderSet = newFolders.release();
    activeLibraries = newList.release();
    if (binCodes != nullptr)
        binCodes->SetAncestryHierarchy(hierarchy);
}

LibrarySet::~LibrarySet() {
    delete std::exchange(libParts, nullptr);
    delete std::exchange(folderSet, nullptr);
    delete std::exchange(activeLibraries, nullptr);
    if (binCodes != nullptr && binCodes->GetAncestryHierarchy() == hierarchy)
        binCodes->SetAncestryHierarchy(nullptr);
    delete std::exchange(hierarchy, nullptr);
    ReleaseMountedFileSystems();
    delete std::exchange(containerOptions, nullptr);
}

short LibrarySet::GetNumEnumerationPhases() const {
    return static_cast<short>(GetActiveLibraryNum() + 1);
}

void LibrarySet::Attach(LibrarySetObserver& observer) {
    KL::EventSource::Attach(observer);
}

void LibrarySet::Detach(LibrarySetObserver& observer) {
    KL::EventSource::Detach(observer);
}

void LibrarySet::SendSomethingHappened() {
    NotifyObservers(&LibrarySetObserver::SomethingHappened);
}

void LibrarySet::SendLibraryListChanged() {
    NotifyObservers(&LibrarySetObserver::LibraryListChanged);
}

// The base's walk survives observers that attach or detach during a call.
void LibrarySet::NotifyObservers(void (LibrarySetObserver::*notification)()) {
    KL::EventSource::NotifyObservers([notification](KL::EventObserver& observer) {
        if (auto* libraryObserver = dynamic_cast<LibrarySetObserver*>(&observer))
            (libraryObserver->*notification)();
    });
}

// ---- Active libraries

const LibraryItem* LibrarySet::GetItem(int index) const {
    if (activeLibraries == nullptr || index < 0 || index >= GetActiveLibraryNum())
        return nullptr;
    return &(*activeLibraries)[static_cast<unsigned>(index)];
}

LibraryItem* LibrarySet::GetItem(int index) {
    return const_cast<LibraryItem*>(std::as_const(*this).GetItem(index));
}

void LibrarySet::ActiveLibrariesChanged() {
    SendLibraryListChanged();
}

// A library whose location is a file is a container: the host may mount a file system of its own
// on it, otherwise a container file is mounted. A library that can be opened neither way stays in
// the list, but walks are not tried on it.
bool LibrarySet::MakeReachable(KL::ProcessControl& process, const IO::Location& location) {
    if (IO::Folder(location).GetStatus() == 0)
        return true;
    IO::EntryType type = IO::FolderEntryType;
    if (IO::fileSystem.GetType(location, &type) != 0 || type != IO::FileEntryType)
        return false;
    const LibraryManagerCallBacks& callBacks = GetLibraryManagerCallBacks();
    IO::FixedVFS* hostFileSystem =
        callBacks.createLibraryVFS != nullptr ? callBacks.createLibraryVFS(location) : nullptr;
    if (hostFileSystem != nullptr) {
        if (callBacks.setMountProgress != nullptr)
            callBacks.setMountProgress(hostFileSystem, &process);
        bool mounted = false;
        try {
            mounted = IO::fileSystem.Mount(hostFileSystem, location) == 0;
        } catch (...) {
            IO::fileSystem.Unmount(location);
            delete hostFileSystem;
            throw;
        }
        if (callBacks.setMountProgress != nullptr)
            callBacks.setMountProgress(mounted ? hostFileSystem : nullptr, nullptr);
        if (!mounted) {
            delete hostFileSystem;
            return false;
        }
        AddVirtualFileSystem(location, hostFileSystem);
        AddMountedVFS(location);
    } else if (!MountContainerFile(process, location)) {
        return false;
    }
    return IO::Folder(location).GetStatus() == 0;
}

bool LibrarySet::MountContainerFile(KL::ProcessControl& process, const IO::Location& location) {
    if (IO::fileSystem.IsMountPoint(location))
        return true;
    if (!CreateAndMountContainerFileSystem(process, location, &GetLibraryContainerVFSOptions()))
        return false;
    // Registered but not mounted would read as a folder that cannot be listed.
    const IO::FixedVFS* container = IO::fileSystem.GetMountedVFS(location);
    if (IsContainerFileSystem(container) && !IsMountedContainerFileSystem(container)) {
        ReleaseVirtualFileSystem(location);
        return false;
    }
    AddMountedVFS(location);
    return true;
}

int LibrarySet::AddActiveLibrary(KL::ProcessControl& process, const IO::Location& location, LibraryMode mode,
                                 VitalMode vital, const KL::Guid& guid, const KL::UniString& langCode,
                                 bool collapseLongBranches) {
    isEnumerated = false;
    if (activeLibraries == nullptr)
        activeLibraries = new LibraryList;
    const int result =
        activeLibraries->AddLibrary(location, mode, vital, guid, langCode, collapseLongBranches);
    if (LibraryItem* item = GetItem(result))
        item->SetReachable(MakeReachable(process, location));
    ActiveLibrariesChanged();
    return result;
}

int LibrarySet::AddActiveLibrary(const KL::UniString& url, LibraryMode mode, VitalMode vital) {
    isEnumerated = false;
    if (activeLibraries == nullptr)
        activeLibraries = new LibraryList;
    LibraryItem item;
    item.SetType(mode);
    item.SetUrl(url);
    item.SetVital(vital);
    const int result = activeLibraries->Add(item, LibraryList::NoFilter);
    ActiveLibrariesChanged();
    return result;
}

int LibrarySet::AddServerActiveLibrary(const IO::Location& location, const IO::Location& serverId,
                                       const IO::RelativeLocation& relLocation,
                                       const KL::UniString& srcLocation, std::int64_t version, int vital) {
    isEnumerated = false;
    if (activeLibraries == nullptr)
        activeLibraries = new LibraryList;
    const int result =
        activeLibraries->AddServerLibrary(serverId, relLocation, srcLocation, location, version);
    if (LibraryItem* item = GetItem(result)) {
        item->SetVital(vital);
        item->SetReachable(IO::Folder(location).GetStatus() == 0);
    }
    ActiveLibrariesChanged();
    return result;
}

int LibrarySet::RemoveActiveLibrary(int index) {
    isEnumerated = false;
    if (GetItem(index) == nullptr)
        return LibPartFileError;
    activeLibraries->Delete(static_cast<unsigned>(index));
    ActiveLibrariesChanged();
    return 0;
}

int LibrarySet::ResetActiveLibraries() {
    CleanUp();
    activeLibraries = new LibraryList;
    SendLibraryListChanged();
    return 0;
}

void LibrarySet::CleanUp() {
    isEnumerated = false;
    delete std::exchange(libParts, nullptr);
    delete std::exchange(folderSet, nullptr);
    delete std::exchange(activeLibraries, nullptr);
    ReleaseMountedFileSystems();
}

// Nested containers were mounted after the ones that hold them, and hold entries of them: let go
// in reverse, so that each outer container has no entry left and is freed at once.
void LibrarySet::ReleaseMountedFileSystems() {
    DropRetiredCatalogue(); // its records may hold entries of the containers
    for (std::size_t i = mountedVFSLocations.GetSize(); i-- > 0;)
        ReleaseVirtualFileSystem(mountedVFSLocations[i]);
    mountedVFSLocations.Clear();
}

void LibrarySet::AddMountedVFS(const IO::Location& location) {
    mountedVFSLocations.Push(location);
}

int LibrarySet::SetLibraryContainerVFSOptions(const LibraryContainerVFSOptions& options) {
    auto* copy = new LibraryContainerVFSOptions(options);
    delete std::exchange(containerOptions, copy);
    return 0;
}

const LibraryContainerVFSOptions& LibrarySet::GetLibraryContainerVFSOptions() const {
    if (containerOptions != nullptr)
        return *containerOptions;
    static const LibraryContainerVFSOptions defaultOptions;
    return defaultOptions;
}

void LibrarySet::AddStorableFileType(FTM::GeneralID type) {
    if (!storableFileTypes.Contains(type))
        storableFileTypes.Push(type);
}

void LibrarySet::Reset(KL::ProcessControl& process) {
    ResetActiveLibraries();
    Enumerate(process);
}

int LibrarySet::GetActiveLibraryNum() const {
    return activeLibraries != nullptr ? activeLibraries->GetLibraryNum(AllLibraryModes) : 0;
}

int LibrarySet::GetActiveLibraryIndex(const IO::Location& location) const {
    return activeLibraries != nullptr ? activeLibraries->GetIndex(location) : -1;
}

int LibrarySet::GetFirstWritableActiveLibrary(IO::Location* location) const {
    return activeLibraries != nullptr ? activeLibraries->GetFirstWritableLibrary(location) : LibPartFileError;
}

bool LibrarySet::IsExistActiveLibrary(int index) const {
    const LibraryItem* item = GetItem(index);
    return item != nullptr && item->IsReachable();
}

bool LibrarySet::IsVitalActiveLibrary(int index) const {
    const LibraryItem* item = GetItem(index);
    return item != nullptr && item->IsVital();
}

bool LibrarySet::IsUrlActiveLibrary(int index) const {
    const LibraryItem* item = GetItem(index);
    return item != nullptr && !item->GetUrl().IsEmpty();
}

bool LibrarySet::IsBuiltInActiveLibrary(int index) const {
    const LibraryItem* item = GetItem(index);
    return item != nullptr && item->GetType() == BuiltInLibrary;
}

bool LibrarySet::IsEmbeddedActiveLibrary(int index) const {
    const LibraryItem* item = GetItem(index);
    return item != nullptr && item->GetType() == EmbeddedLibrary;
}

bool LibrarySet::IsLocalActiveLibrary(int index) const {
    const LibraryItem* item = GetItem(index);
    return item != nullptr && item->GetType() == LocalLibrary;
}

bool LibrarySet::IsServerActiveLibrary(int index) const {
    const LibraryItem* item = GetItem(index);
    return item != nullptr && item->GetType() == ServerLibrary;
}

namespace {

// The shared shape of the item readers: -7003 for a bad index, else 0 and the field.
template <typename Item, typename Value, typename Read>
int ReadItem(const Item* item, Value* value, Read read) {
    if (item == nullptr)
        return LibPartFileError;
    if (value != nullptr)
        *value = read(*item);
    return 0;
}

} // namespace

int LibrarySet::GetActiveLibraryLocation(int index, IO::Location* location) const {
    return ReadItem(GetItem(index), location, [](const LibraryItem& item) { return item.GetLocation(); });
}

int LibrarySet::GetActiveLibraryTWServerId(int index, IO::Location* serverId) const {
    return ReadItem(GetItem(index), serverId,
                    [](const LibraryItem& item) { return IO::Location(item.GetTWServerUrl()); });
}

int LibrarySet::GetActiveLibraryRelLocation(int index, IO::RelativeLocation* relLocation) const {
    return ReadItem(GetItem(index), relLocation,
                    [](const LibraryItem& item) { return item.GetRelLocation(); });
}

int LibrarySet::GetActiveLibrarySrcLocation(int index, KL::UniString* srcLocation) const {
    return ReadItem(GetItem(index), srcLocation,
                    [](const LibraryItem& item) { return item.GetSourceLocation(); });
}

int LibrarySet::GetActiveLibraryName(int index, KL::UniString* name) const {
    return ReadItem(GetItem(index), name, [](const LibraryItem& item) { return item.GetName(); });
}

int LibrarySet::GetActiveLibraryGuid(int index, KL::Guid* guid) const {
    return ReadItem(GetItem(index), guid, [](const LibraryItem& item) { return item.GetGuid(); });
}

int LibrarySet::GetActiveLibraryKLLangCode(int index, KL::UniString* langCode) const {
    return ReadItem(GetItem(index), langCode, [](const LibraryItem& item) { return item.GetLangCode(); });
}

int LibrarySet::GetActiveLibraryCollapseLongBranches(int index, bool* collapse) const {
    return ReadItem(GetItem(index), collapse,
                    [](const LibraryItem& item) { return item.GetCollapseLongBranches(); });
}

int LibrarySet::GetActiveLibraryUrl(int index, KL::UniString* url) const {
    return ReadItem(GetItem(index), url, [](const LibraryItem& item) { return item.GetUrl(); });
}

std::int64_t LibrarySet::GetActiveLibraryVersion(int index) const {
    const LibraryItem* item = GetItem(index);
    return item != nullptr ? item->GetVersion() : 0;
}

int LibrarySet::SetActiveLibraryVersion(int index, std::int64_t version) {
    LibraryItem* item = GetItem(index);
    if (item == nullptr)
        return LibPartFileError;
    item->SetVersion(version);
    return 0;
}

int LibrarySet::GetActiveLibrarySupersedes(int index, KL::Array<KL::UniString>* names,
                                           KL::Array<KL::Guid>* guids) const {
    const LibraryItem* item = GetItem(index);
    if (item == nullptr)
        return LibPartFileError;
    item->GetSupersedes(names, guids);
    return 0;
}

bool LibrarySet::ActiveLibrarySupersedesOther(int superseding, int superseded) const {
    if (GetItem(superseding) == nullptr || GetItem(superseded) == nullptr)
        return false;
    return activeLibraries->LibrarySupersedesOther(superseding, superseded);
}

int LibrarySet::GetLibItemLibraryIndex(const IO::Location& location) const {
    int best = -1;
    std::size_t bestLength = 0;
    for (int i = 0; i < GetActiveLibraryNum(); ++i) {
        const IO::Location& library = GetItem(i)->GetLocation();
        if (library.IsEmpty() || !library.IsAncestorOf(location))
            continue;
        IO::RelativeLocation difference;
        location.GetDifference(library, &difference);
        if (best == -1 || difference.GetLength() < bestLength) {
            best = i;
            bestLength = difference.GetLength();
        }
    }
    return best;
}

LibraryMode LibrarySet::GetLibItemLibraryMode(const IO::Location& location, int* index) const {
    const int found = GetLibItemLibraryIndex(location);
    if (found == -1)
        return AllLibraryModes;
    if (index != nullptr)
        *index = found;
    const LibraryItem& item = *GetItem(found);
    const LibraryMode mode = item.GetType();
    if (mode == LocalLibrary)
        return LocalLibrary;
    if (!item.GetUrl().IsEmpty())
        return UrlLibrary;
    if (mode == BuiltInLibrary || mode == EmbeddedLibrary || mode == ServerLibrary)
        return mode;
    return AllLibraryModes;
}

KL::UniString LibrarySet::GetLibPartLibraryName(const LibPart* part, int* index) const {
    if (part == nullptr)
        return KL::UniString();
    const int library =
        IsValidFolder(part->GetFolderIndex()) ? folderSet->GetActLibIndex(part->GetFolderIndex()) : -1;
    if (index != nullptr)
        *index = library;
    KL::UniString name;
    GetActiveLibraryName(library, &name);
    return name;
}

void LibrarySet::GetPlaceableAndOtherObjectCount(int libraryIndex, int& placeable, int& other) const {
    placeable = 0;
    other = 0;
    if (!isEnumerated || libraryIndex == -1 || libParts == nullptr)
        return;
    for (std::size_t i = 0; i < libParts->GetCount(); ++i) {
        const LibPart& part = libParts->GetLibPart(i);
        if (!IsValidFolder(part.GetFolderIndex()) ||
            folderSet->GetActLibIndex(part.GetFolderIndex()) != libraryIndex)
            continue;
        ++(part.IsSymbol() && part.IsPlaceable() ? placeable : other);
    }
}

// ---- Folders

bool LibrarySet::IsValidFolder(int folder) const {
    return folderSet != nullptr && folderSet->IsValidIndex(folder);
}

int LibrarySet::GetFolderNumber() const {
    return folderSet != nullptr ? folderSet->GetFolderCount() : 0;
}

int LibrarySet::GetFolderActLibIndex(int folder) const {
    return IsValidFolder(folder) ? folderSet->GetActLibIndex(folder) : -1;
}

int LibrarySet::GetFolderParent(int folder) const {
    return IsValidFolder(folder) ? folderSet->GetParent(folder) : -1;
}

int LibrarySet::GetFolderChildNum(int folder) const {
    return IsValidFolder(folder) ? folderSet->GetNumChild(folder) : 0;
}

int LibrarySet::GetFolderTreeItemId(int folder) const {
    return IsValidFolder(folder) ? folderSet->GetTreeItemId(folder) : 0;
}

bool LibrarySet::GetFolderExpandState(int folder) const {
    return IsValidFolder(folder) && folderSet->GetExpandState(folder);
}

int LibrarySet::GetFolderName(int folder, KL::UniString* name) const {
    if (!IsValidFolder(folder))
        return LibPartFileError;
    folderSet->GetName(folder, name);
    return 0;
}

int LibrarySet::GetFolderGuid(int folder, KL::Guid* guid) const {
    if (!IsValidFolder(folder))
        return LibPartFileError;
    folderSet->GetGuid(folder, guid);
    return 0;
}

int LibrarySet::SetFolderExpandState(int folder, bool expanded) {
    if (!IsValidFolder(folder))
        return LibPartFileError;
    folderSet->SetExpandState(folder, expanded);
    return 0;
}

int LibrarySet::SetFolderTreeItemId(int folder, int treeItemId) {
    if (!IsValidFolder(folder))
        return LibPartFileError;
    folderSet->SetTreeItemId(folder, treeItemId);
    return 0;
}

// ---- Enumeration

int LibrarySet::Enumerate(KL::ProcessControl& process) {
    try {
        return EnumerateLibraries(process);
    } catch (const KL::KLException& exception) {
        // A fault deep in a walk must not leave half a catalogue: drop every library and run an
        // empty pass. That pass may fail too (an observer or afterEnumerate can throw); its own
        // handler then ends the recovery instead of starting another.
        ResetActiveLibraries();
        if (!recoveringFromFault) {
            recoveringFromFault = true;
            Enumerate(process);
            recoveringFromFault = false;
        }
        KL::WriteDebugText("Enumeration failed: " + exception.GetMessage());
        return exception.GetErrorCode();
    }
}

int LibrarySet::EnumerateLibraries(KL::ProcessControl& process) {
    isEnumerated = false;
    StartNewCatalogue();
    const LibraryCachePaths cache(binCodes != nullptr ? binCodes->GetBinCodeFolder() : IO::Location());
    bool stopped = false;
    const int libraryCount = GetActiveLibraryNum();
    replayedLibraries.assign(static_cast<std::size_t>(std::max(libraryCount, 0)), false);
    for (int i = 0; i < libraryCount; ++i)
        EnumerateLibrary(process, i, &stopped, cache);
    DropRetiredCatalogue(); // a pass that stored nothing
    FinishEnumerate(process);
    SendSomethingHappened();
    isEnumerated = true;
    if (GetLibraryManagerCallBacks().afterEnumerate != nullptr) {
        StartBatchLibPartAdd();
        GetLibraryManagerCallBacks().afterEnumerate(0);
        EndBatchLibPartAdd(process);
    }
    return 0;
}

void LibrarySet::StartNewCatalogue() {
    retiredParts.reset(std::exchange(libParts, nullptr));
    retiredFolders.reset(std::exchange(folderSet, nullptr));
    libParts = new LibPartSet(errorHandler, this);
    folderSet = new FolderSet;
    if (activeLibraries == nullptr)
        activeLibraries = new LibraryList;
    hierarchy->Clear();
    // A pass over the same libraries stores about as many records as the last: room for them
    // spares the tables' growth on the way.
    if (retiredParts != nullptr) {
        libParts->Reserve(retiredParts->GetCount());
        hierarchy->Reserve(retiredParts->GetCount());
    }
    inBatch = false;
    batchFolderSetDirty = false;
    batchHierarchyDirty = false;
    batchDuplicatesDirty = false;
}

void LibrarySet::DropRetiredCatalogue() {
    retiredParts.reset();
    retiredFolders.reset();
}

void LibrarySet::RecycleRetiredCatalogue() {
    if (retiredParts != nullptr)
        libParts->TakeSpares(*retiredParts);
    DropRetiredCatalogue();
}

void LibrarySet::FinishEnumerate(KL::ProcessControl& process) {
    libParts->DropSpares();
    FinishFolderSet();
    libParts->AddNullIdEntry();
    libParts->BuildSortedIndices();
    process.SetStep(FinishEnumerationStep);
    RebuildTypeHierarchy(process, false);
    UpdateDuplicateCounters();
}

// Sorting the folders moves them; every held folder index follows through a table from old to
// new index. The three fixed folders never move.
void LibrarySet::FinishFolderSet() {
    if (folderSet == nullptr)
        return;
    const int count = folderSet->GetFolderCount();
    for (int i = 0; i < count; ++i)
        folderSet->SetTreeItemId(i, i);
    folderSet->FinishFolders();
    std::vector<std::int32_t> newIndex(static_cast<std::size_t>(count));
    for (int i = 0; i < std::min(count, 3); ++i)
        newIndex[static_cast<std::size_t>(i)] = i;
    for (int i = 3; i < count; ++i)
        newIndex[static_cast<std::size_t>(folderSet->GetTreeItemId(i))] = i;
    for (int i = 3; i < count; ++i) {
        const int parent = folderSet->GetParent(i);
        if (folderSet->IsValidIndex(parent))
            folderSet->SetParent(i, newIndex[static_cast<std::size_t>(parent)]);
        folderSet->SetTreeItemId(i, 0);
    }
    if (libParts != nullptr)
        libParts->RemapFolderIndices(newIndex);
}

void LibrarySet::StartBatchLibPartAdd() {
    inBatch = true;
    batchFolderSetDirty = false;
    batchHierarchyDirty = false;
    batchDuplicatesDirty = false;
}

void LibrarySet::EndBatchLibPartAdd(KL::ProcessControl& process) {
    if (!inBatch)
        return;
    inBatch = false;
    if (std::exchange(batchFolderSetDirty, false))
        FinishFolderSet();
    if (std::exchange(batchHierarchyDirty, false))
        RebuildTypeHierarchy(process, false);
    if (std::exchange(batchDuplicatesDirty, false))
        UpdateDuplicateCounters();
}

} // namespace LM
