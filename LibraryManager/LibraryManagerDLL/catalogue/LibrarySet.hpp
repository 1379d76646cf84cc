#pragma once

#include "catalogue/LibPart.hpp"
#include "catalogue/LibPartId.hpp"
#include "catalogue/LibraryModes.hpp"
#include "catalogue/LibrarySetModifier.hpp"

#include "InputOutput/FileType.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/EventSource.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/PagedArray.hpp"
#include "KLRoot/SpinLock.hpp"
#include "KLRoot/UniString.hpp"

#include "walking/LibraryCacheEntry.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace IO {
class Folder;
}
namespace IOUtil {
class ScratchFile;
}
namespace KL {
class IChannel;
class OChannel;
class ProcessControl;
class XMLOChannel;
} // namespace KL

namespace LM {

class AncestryHierarchy;
class TypeHierarchyExporter;
class AncestryInfo;
struct CachedPartRecord;
class FolderSet;
class ILibraryErrorHandler;
class IServerLibraryCollection;
class LibPartSet;
class LibraryCachePaths;
class LibraryContainerVFSOptions;
class LibraryItem;
class LibraryList;
class LibrarySetObserver;
class QdlBinCodesContainer;

// The catalogue: the active libraries, the parts found in them, the folders those parts lie in,
// and their type hierarchy. Enumerate rebuilds all of it from the active list; the part records it
// hands out live until the next Enumerate. All changes run on the owning thread.
class LM_EXPORT LibrarySet : public KL::EventSource {
public:
    using FileTypeList = KL::ArrayFB<FTM::GeneralID, 10>;
    using IThreadSafeModifier = ILibrarySetThreadSafeModifier;
    using ISingleThreadedModifier = ILibrarySetSingleThreadedModifier;
    using IModifier = ILibrarySetModifier;
    class ThreadSafeModifier;
    class SingleThreadedModifier;
    class Modifier;
    class AccessGuard;
    using LibpartSearchCompatibility = LM::LibpartSearchCompatibility;
    // 1 also matches a part's first place (GetOrigLocation); any other value the current one.
    using SearchMode = std::int32_t;
    static constexpr SearchMode CurrentLocation = 0;
    static constexpr SearchMode OrigLocationToo = 1;
    // 0 takes the set's stored compatibility, 1 ends a search after its direct stage, any other
    // value goes on through the dummy, migration and anyhow stages.
    using LibPartSearchMode = std::int32_t;
    // A part that declares it replaces a searched id, with its migration table entry.
    struct MigrationLibPart {
        const LibPart* libPart = nullptr;
        bool flag = false;
        std::int32_t rank = 0x7fffffff;
    };

    LibrarySet(QdlBinCodesContainer* binCodes, ILibraryErrorHandler& errorHandler,
               IServerLibraryCollection* serverCollection, const FileTypeList& storable,
               const FileTypeList& unsupported, FTM::GroupID textTypeGroupOverride,
               const IO::Location& collapsedLibraryLocation);
    ~LibrarySet() override;
    LibrarySet(const LibrarySet&) = delete;
    LibrarySet& operator=(const LibrarySet&) = delete;

    // No thread check is made: the class of a modifier is the contract, not a run-time test. Kept so
    // that hosts that switch checking on keep building.
    static void EnableAccessCheck(bool enable);
    void AccessCheck() const {}

    bool IsEnumerated() const { return isEnumerated; }
    bool IsInBatchLibPartAdd() const { return inBatch; }
    FTM::GroupID GetTextTypeGroupOverride() const { return textTypeGroupOverride; }
    LibpartSearchCompatibility GetLibpartSearchCompatibility() const { return searchCompatibility; }
    void SetLibpartSearchCompatibility(LibpartSearchCompatibility value) { searchCompatibility = value; }
    FolderSet* GetFolderSet() const { return folderSet; }
    // Null between CleanUp and the next Enumerate.
    const LibPartSet* GetLibPartSet() const { return libParts; }
    const LibraryList* GetActiveLibraries() const { return activeLibraries; }
    QdlBinCodesContainer* GetBinCodes() const { return binCodes; }
    ILibraryErrorHandler* GetErrorHandler() const { return errorHandler; }
    const FileTypeList& GetStorableFileTypes() const { return storableFileTypes; }
    const FileTypeList& GetUnsupportedFileTypes() const { return unsupportedFileTypes; }
    IServerLibraryCollection* GetServerCollection() const { return serverCollection; }

    // One phase per library and one for the finish.
    short GetNumEnumerationPhases() const;

    void Attach(LibrarySetObserver& observer);
    void Detach(LibrarySetObserver& observer);
    void SendSomethingHappened();
    void SendLibraryListChanged();

    // Active library changes. Each leaves the catalogue not enumerated.
    int AddActiveLibrary(KL::ProcessControl& process, const IO::Location& location, LibraryMode mode,
                         VitalMode vital, const KL::Guid& guid, const KL::UniString& langCode,
                         bool collapseLongBranches);
    int AddActiveLibrary(const KL::UniString& url, LibraryMode mode, VitalMode vital);
    int AddServerActiveLibrary(const IO::Location& location, const IO::Location& serverId,
                               const IO::RelativeLocation& relLocation, const KL::UniString& srcLocation,
                               std::int64_t version, int vital);
    int RemoveActiveLibrary(int index);
    int ResetActiveLibraries();
    void CleanUp();
    void AddMountedVFS(const IO::Location& location);
    // Mounts the container file at `location` for the catalogue, which lets it go at CleanUp. A
    // place already mounted stays as it is; a container whose walk fails is passed over. True
    // when a file system is mounted there now.
    bool MountContainerFile(KL::ProcessControl& process, const IO::Location& location);
    void AddStorableFileType(FTM::GeneralID type);
    int SetLibraryContainerVFSOptions(const LibraryContainerVFSOptions& options);
    const LibraryContainerVFSOptions& GetLibraryContainerVFSOptions() const;

    int Enumerate(KL::ProcessControl& process);
    void FinishEnumerate(KL::ProcessControl& process);
    void FinishFolderSet();
    void Reset(KL::ProcessControl& process);
    void StartBatchLibPartAdd();
    void EndBatchLibPartAdd(KL::ProcessControl& process);
    void RebuildTypeHierarchy(KL::ProcessControl& process, bool conformAll);
    void UpdateDuplicateCounters() const;
    const AncestryHierarchy* GetAncestryHierarchy() const { return hierarchy; }
    // Hands the type tree to a host's visitor; 0 before the first Enumerate.
    int ExportTypeHierarchy(TypeHierarchyExporter* exporter) const;

    // ---- Reports. Neither changes anything, nor looks at the channel's errors.
    // Which parts WriteToXML writes: those of each type in `typeIds`, each type walked in turn.
    struct WriteToXMLParameters {
        KL::Array<KL::UnID> typeIds;
        bool symbolsOnly = true;
        bool placeableOnly = false;
        // False: only the direct children of a type.
        bool includeSubTypes = true;
        KL::Array<IO::Location> excludedFolders;
    };
    // The chosen parts in name order inside a "LibParts" element; a part of two types comes twice.
    void WriteToXML(KL::XMLOChannel& channel, unsigned detail, const WriteToXMLParameters& parameters) const;
    // The type tree, the libraries and every record, for diagnosis; nothing after CleanUp.
    void PrintTypeHierarchy(KL::OChannel& channel) const;

    // The active libraries by index; a bad index gives -7003, false or 0.
    int GetActiveLibraryNum() const;
    int GetActiveLibraryIndex(const IO::Location& location) const;
    int GetFirstWritableActiveLibrary(IO::Location* location) const;
    bool IsExistActiveLibrary(int index) const;
    // Whether the last pass replayed the library from its cache instead of walking it.
    bool IsLibraryReplayed(int index) const;
    bool IsVitalActiveLibrary(int index) const;
    bool IsUrlActiveLibrary(int index) const;
    bool IsBuiltInActiveLibrary(int index) const;
    bool IsEmbeddedActiveLibrary(int index) const;
    bool IsLocalActiveLibrary(int index) const;
    bool IsServerActiveLibrary(int index) const;
    int GetActiveLibraryLocation(int index, IO::Location* location) const;
    int GetActiveLibraryTWServerId(int index, IO::Location* serverId) const;
    int GetActiveLibraryRelLocation(int index, IO::RelativeLocation* relLocation) const;
    int GetActiveLibrarySrcLocation(int index, KL::UniString* srcLocation) const;
    int GetActiveLibraryName(int index, KL::UniString* name) const;
    int GetActiveLibraryGuid(int index, KL::Guid* guid) const;
    int GetActiveLibraryKLLangCode(int index, KL::UniString* langCode) const;
    int GetActiveLibraryCollapseLongBranches(int index, bool* collapse) const;
    int GetActiveLibraryUrl(int index, KL::UniString* url) const;
    std::int64_t GetActiveLibraryVersion(int index) const;
    int SetActiveLibraryVersion(int index, std::int64_t version);
    int GetActiveLibrarySupersedes(int index, KL::Array<KL::UniString>* names,
                                   KL::Array<KL::Guid>* guids) const;
    bool ActiveLibrarySupersedesOther(int superseding, int superseded) const;

    // The folders of the last enumeration; a bad index gives -7003, -1, false or nothing.
    int GetFolderNumber() const;
    int GetFolderActLibIndex(int folder) const;
    int GetFolderParent(int folder) const;
    int GetFolderChildNum(int folder) const;
    int GetFolderTreeItemId(int folder) const;
    bool GetFolderExpandState(int folder) const;
    int GetFolderName(int folder, KL::UniString* name) const;
    int GetFolderGuid(int folder, KL::Guid* guid) const;
    int SetFolderExpandState(int folder, bool expanded);
    int SetFolderTreeItemId(int folder, int treeItemId);

    // ---- The part store. Each Store returns null for a file that is not wanted; that is no error.
    const LibPart* StoreLibPart(KL::ProcessControl& process, const IO::Location& location, int folderIndex,
                                const LibPart* oldPart, bool* folderAdded, bool preferNew,
                                const LibPart** duplicate);
    const LibPart* StoreDummyLibPart(KL::ProcessControl& process, const KL::UniString& name,
                                     const KL::UnID& unId, const FTM::GeneralID& fileType,
                                     const AncestryInfo& ancestry, bool temporarilyMissing);
    void DeleteLibPart(KL::ProcessControl& process, const LibPart* part);
    void DeleteDuplicateLibPart(const IO::Location& location);
    // Remembers a search result under a further id.
    void AddIdToLibPartTable(const LibPartId& id, const LibPart* part, const bool* resultFlagFirst,
                             const bool* resultFlagSecond);
    bool AlreadyQueriedLibPartId(const LibPartId& id) const;
    void ResetIdToLibPartTable();
    void DetermineProxy(int index);
    const LibPart* GetProxy(const LibPartId& id) const;
    const LibPart* GetSymbolProxy(const LibPart* part) const;
    int SetSymbolAncestor(LibPart* part, int parentIndex);
    // Enters the part's chain, from `ancestryHandle` or else its own "ANCS" section, in the tree.
    void AddLibPartToAncestryHierarchy(LibPart* part, const char* const* ancestryHandle);
    bool IsLocationStorableFileType(const IO::Location& location, FTM::GeneralID* id) const;
    bool IsLocationUnsupportedFileType(const IO::Location& location, FTM::GeneralID* id) const;
    // The target takes over the parameters it shares with the source.
    int UpdateSymbolParameters(const LibPart* target, const LibPart* source);

    const LibPart* GetLibPart(const LibPartId& id) const;
    const LibPart* GetLibPartByIndex(int index) const;
    int GetIndexByLibPart(const LibPart* part) const;
    int GetLibPartNumber() const;
    bool IsExistingLibPart(const LibPartId& id) const { return GetLibPart(id) != nullptr; }
    bool IsValidLibPart(const LibPartId& id) const { return IsLibPartValid(GetLibPart(id)); }
    bool IsSameLibPart(const LibPartId& a, const LibPartId& b) const {
        return GetLibPart(a) == GetLibPart(b);
    }
    bool IsEqualLibParts(const LibPartId& a, const LibPartId& b) const;
    static bool IsLibPartValid(const LibPart* part) { return part != nullptr && part->IsValid(); }
    int GetSortedSymbolIndexByName(int n) const;
    void SetTempLocationForLibPart(const LibPart* part, const IO::Location& location);
    void AddFlags(const LibPart* part, std::uint32_t bits);
    void SetUserData(const LibPart* part, const KL::Guid& client,
                     const KL::ConstSharedPtr<SymbolUserData>& data);
    int ClearAllSymbolFlags(std::uint32_t mask);
    bool IsSymbolArchivable(const LibPart* part) const;
    bool IsSymbolArchivable(int index) const;

    // ---- Searches. None reports anything: no match is null, -1 or 0. Names are compared with "/"
    // read as ":", and without case.
    const LibPart* SearchLibPart(const IO::Location& location, SearchMode mode) const;
    const LibPart* SearchLibPartDocuName(const KL::UniString& name) const;
    const LibPart* SearchLibPartDocuName(const KL::UniString& name, const FTM::GeneralID& type) const;
    const LibPart* SearchDocuNameByAncestor(const KL::UniString& name, const KL::UnID& ancestor) const;
    const LibPart* SearchSymbolByGuid(const KL::Guid& guid, int* index) const;
    const LibPart* SearchLibPartFileName(const KL::UniString& fileName) const;
    const LibPart* SearchLibPartFileName(const KL::UniString& fileName, const FTM::GeneralID& type) const;
    // Valid records of exactly this id; dummies never.
    const LibPart* SearchSymbolByUnID(const KL::UnID& unId, int* index) const;
    // The exact id, then the main guid, then the name as document or file name.
    const LibPart* SearchLibPartAnyhow(const KL::UnID& unId, const KL::UniString& name,
                                       bool* ambiguous) const;
    const LibPart* SearchDummySymbol(const KL::UnID& unId, const KL::UniString* name, int* index) const;
    const LibPart* SearchAnySymbolByMainID(const KL::UnID& unId, bool* ambiguous) const;
    int SearchSymbolsByAncestor(const KL::UnID& ancestor, KL::Array<const LibPart*>& parts,
                                bool placeableOnly) const;
    unsigned SearchSymbolsByMainIDIdx(const KL::UnID& unId, KL::PagedArray<int, 8>* indices) const;
    unsigned SearchSymbolsByMainID(const KL::UnID& unId, KL::PagedArray<const LibPart*, 8>* parts,
                                   int searchType) const;
    unsigned SearchDuplicateSymbolsByMainID(const KL::Guid& mainGuid,
                                            KL::PagedArray<const LibPart*, 8>* parts) const;
    void SearchSymbolFileType(const FTM::GeneralID& type, KL::PagedArray<const LibPart*, 8>& parts) const;
    // The parts that replace the id, those still in use first; the first of them.
    const LibPart* SearchSymbolFromMigrationTable(const KL::UnID& unId,
                                                  KL::Array<MigrationLibPart>* parts) const;
    const LibPart* GetLibPartArrayFromMigrationGuidTable(const LibPartId& id,
                                                         KL::Array<const LibPart*>* parts) const;
    // The whole chain: direct, then dummy, migration and anyhow stages as the compatibility allows.
    const LibPart* SearchLibPartComplex(const KL::UnID& unId, const KL::UniString& name,
                                        LibPartSearchMode mode, bool* ambiguous,
                                        KL::Array<const LibPart*>* migrationParts, bool* migrated) const;
    const LibPart* SearchSymbolComplex(const KL::UnID& unId, const KL::UniString& name,
                                       LibPartSearchMode mode, bool* ambiguous,
                                       KL::Array<const LibPart*>* migrationParts, bool* migrated) const;
    // The whole chain, remembering its answer under the id asked for.
    const LibPart* GetSymbolAnyhow(const LibPartId& id, bool* isDummy, bool* ambiguous, bool* migrated,
                                   bool doNotRemember, KL::Array<const LibPart*>* migrationParts);
    bool IsSameLibPartByUnId(const KL::UnID& a, const KL::UnID& b) const;

    // ---- Type questions, answered from the type tree.
    // The ancestry test: `ancestor` is on the part's path above the part itself.
    bool HasAncestor(const LibPart& part, const KL::UnID& ancestor) const;
    // A part is of its own type and of every type above it.
    bool IsSymbolTypeOf(const LibPart* part, const KL::UnID& type) const;
    bool IsSymbolTypeOf(const LibPart* part, const LibPart* type) const;
    bool IsSymbolTypeOf(const LibPartId& part, const LibPartId& type) const;
    // The part's chain from the tree, with its template mark; -50 for a part outside the tree.
    int GetSymbolAncestryInfo(const LibPart* part, AncestryInfo* info) const;
    // Brings the chain of a part file that is not catalogued in line with the present revisions.
    int RefreshAncestryInfo(const KL::UnID& own, AncestryInfo* info, const LibPart** found) const;

    // ---- Compiled code; any thread, under the bin code lock.
    int GetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type, KL::ConstSharedPtr<BinCode>* code);
    int SetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                            const KL::ConstSharedPtr<BinCode>& code);
    void DeleteAncestryUpToDate(const LibPart* part);
    int ClearAllQdlBinCodes();
    int ReloadQdlBinCodes();

    // ---- Per-part forwarders by id. For an unknown id a setter does nothing, an output keeps its
    // value, GetFolderIndex gives -1, GetFlags 1, the bool getters false and the pointers null.
    void GetDocumentName(const LibPartId& id, KL::UniString* name) const;
    void GetFileName(const LibPartId& id, KL::UniString* name) const;
    void GetLocation(const LibPartId& id, IO::Location* location) const;
    void GetOrigLocation(const LibPartId& id, IO::Location* location) const;
    int GetFolderIndex(const LibPartId& id) const;
    void GetGeneralFileType(const LibPartId& id, FTM::GeneralID* type) const;
    std::uint32_t GetFlags(const LibPartId& id) const;
    void GetFileModTime(const LibPartId& id, TITime* time) const;
    void GetGuid(const LibPartId& id, KL::Guid* guid) const;
    bool IsSymbol(const LibPartId& id) const;
    const LPF::SymbolFile* GetSymbolFile(const LibPartId& id) const;
    const LPF::ScriptFile* GetScriptFile(const LibPartId& id) const;
    void GetOwnUnID(const LibPartId& id, KL::UnID* unId) const;
    Paths::TreeEntry* GetAncestryId(const LibPartId& id) const;
    bool IsTemplate(const LibPartId& id) const;
    bool IsPlaceable(const LibPartId& id) const;
    bool IsArchivable(const LibPartId& id) const;
    KL::ConstSharedPtr<SymbolUserData> GetUserData(const LibPartId& id, const KL::Guid& client) const;
    void SetLocation(const LibPartId& id, const IO::Location& location);
    void SetOrigLocation(const LibPartId& id, const IO::Location& location);
    void SetFolderIndex(const LibPartId& id, int folderIndex);
    void SetGeneralFileType(const LibPartId& id, const FTM::GeneralID& type);
    void SetFlags(const LibPartId& id, std::uint32_t flags);
    void SetValid(const LibPartId& id, bool valid);
    void SetFileModTime(const LibPartId& id, TITime time);
    void SetOwnUnID(const LibPartId& id, const KL::UnID& unId);
    void SetProxy(const LibPartId& id, int proxy);
    void SetAncestryId(const LibPartId& id, Paths::TreeEntry* entry);
    void SetAncestryId(const LibPart* part, Paths::TreeEntry* entry);
    void SetAsTemplate(const LibPartId& id, bool isTemplate);
    void SetPlaceable(const LibPartId& id, bool placeable);
    void SetArchivable(const LibPartId& id, bool archivable);
    void SetUserData(const LibPartId& id, const KL::Guid& client,
                     const KL::ConstSharedPtr<SymbolUserData>& data);
    void ClearUserData(const LibPartId& id);

    // ---- Library lists of the oldest generation, kept by projects in an info block.
    // Replaces the libraries of `list` (embedded ones stay) by those of the block, written with the
    // byte order `sign`. A block cut short gives what it holds, and 0.
    int GetLibraryListFromInfo(char** info, KL::PlatformSign sign, LibraryList* list) const;
    // A copy of the block in `*converted` when it is one; -7003 when not.
    int ConvertInfoToCurrent(char** info, char*** converted, KL::PlatformSign sign) const;

    // The deepest active library that holds `location`, or -1.
    int GetLibItemLibraryIndex(const IO::Location& location) const;
    LibraryMode GetLibItemLibraryMode(const IO::Location& location, int* index) const;
    KL::UniString GetLibPartLibraryName(const LibPart* part, int* index) const;
    void GetPlaceableAndOtherObjectCount(int libraryIndex, int& placeable, int& other) const;

private:
    struct WalkResult {
        int result = 0;
        int partCount = 0;
        bool breakHonoured = false;
    };

    const LibraryItem* GetItem(int index) const;
    LibraryItem* GetItem(int index);
    bool IsValidFolder(int folder) const;
    void NotifyObservers(void (LibrarySetObserver::*notification)());
    void ActiveLibrariesChanged();
    bool MakeReachable(KL::ProcessControl& process, const IO::Location& location);
    void ReleaseMountedFileSystems();
    int EnumerateLibraries(KL::ProcessControl& process);
    void StartNewCatalogue();
    // One library of a pass: replayed from its cache when that is valid, otherwise walked, and
    // the walk written to the cache.
    void EnumerateLibrary(KL::ProcessControl& process, int index, bool* stopped,
                          const LibraryCachePaths& cache);
    void ReadVersionInformation(LibraryItem* item) const;
    bool ReplayLibrary(KL::ProcessControl& process, int index, const IO::Folder& folder,
                       const LibraryCachePaths& cache, const KL::UniString& name);
    int LoadCachedParts(KL::IChannel& channel, int firstFolderIndex);
    int LoadCachedPart(CachedPartRecord& read);
    void PrepareCachedPart(CachedPartRecord& read) const;
    // A chain read from a part's "ANCS" section, cut where it repeats; false for none or a
    // damaged one.
    static bool ReadPartChain(const LibPart& part, const char* const* section, AncestryInfo* chain);
    // Enters `chain`, or no chain, in the tree in place of the part's old one.
    void AddLibPartChain(LibPart* part, const AncestryInfo* chain);
    WalkResult WalkLibrary(KL::ProcessControl& process, int index, const IO::Folder& folder,
                           const LibraryCachePaths& cache, const KL::UniString& name);
    void WriteLibraryCache(IOUtil::ScratchFile& partStream, const WalkResult& walk, int firstFolderIndex,
                           const IO::Folder& folder, const LibraryCachePaths& cache,
                           const KL::UniString& name, const KL::Array<LibraryCacheEntry>& entries);
    static void ReportWalkFailure(const IO::Folder& folder, int result);
    LibPart* MutablePart(const LibPartId& id) const { return const_cast<LibPart*>(GetLibPart(id)); }
    int DetermineStoreFolder(const IO::Location& location, int folderIndex, const IO::Location& previous,
                             bool* folderAdded);
    KL::Guid ServerGuidOf(const IO::Location& location, int folderIndex) const;
    void ForgetSymbolState(LibPart& part);
    // Files and enters the duplicate that Unregister promoted; true when a folder was added.
    bool AdoptPromotedPart();
    // Writes `found` to `index` when given; the record at `found`, or null.
    const LibPart* GiveIndexAndPart(int found, int* index) const;
    int ValidOrNone(int index) const;
    int SearchLibPartDocuNameIndex(const KL::UniString& name) const;
    int SearchLibPartFileNameIndex(const KL::UniString& fileName) const;
    int SearchSymbolByUnIDIndex(const KL::UnID& unId) const;
    int SearchLibPartAnyhowIndex(const KL::UnID& unId, const KL::UniString& name, bool* ambiguous) const;
    int SearchDummySymbolIndex(const KL::UnID& unId, const KL::UniString* name) const;
    int SearchByMainGuidPreferringName(const KL::Guid& mainGuid, const KL::UniString& name,
                                       bool* ambiguous) const;
    template <typename Append>
    unsigned CollectByMainGuid(const KL::Guid& mainGuid, int searchType, Append append) const;
    FTM::GeneralID AdjustedSearchType(const FTM::GeneralID& requested) const;
    const LibPart* SearchByNameAndType(bool fileNames, const KL::UniString& name,
                                       const FTM::GeneralID& type) const;
    const LibPart* SearchComplex(const KL::UnID& unId, const KL::UniString& name,
                                 LibpartSearchCompatibility compatibility, bool* ambiguous,
                                 KL::Array<const LibPart*>* migrationParts, bool* migrated) const;
    template <typename Change>
    int ChangeAllQdlBinCodes(Change change);
    // After a single change outside a walk: the finishing work now, or owed to the batch's end.
    void FinishSingleChange(KL::ProcessControl& process, bool folderAdded, bool hierarchyChanged);
    void DropRetiredCatalogue();
    // The retired records become spares of the new catalogue (LibPartSet::TakeSpares), the rest
    // of it goes.
    void RecycleRetiredCatalogue();

    LibPartSet* libParts = nullptr;
    FolderSet* folderSet = nullptr;
    // The catalogue a new pass replaced. It is freed at the pass's first store, when the pass's
    // reading threads are at work, so that its tear-down overlaps their reading.
    std::unique_ptr<LibPartSet> retiredParts;
    std::unique_ptr<FolderSet> retiredFolders;
    LibraryList* activeLibraries = nullptr;
    AncestryHierarchy* hierarchy = nullptr;
    FileTypeList storableFileTypes;
    FileTypeList unsupportedFileTypes;
    FTM::GroupID textTypeGroupOverride;
    // Guards the compiled script cache; taken before any record lock.
    KL::FastLock binCodeLock;
    QdlBinCodesContainer* binCodes;
    bool isEnumerated = false;
    std::vector<bool> replayedLibraries;
    // Set while the empty pass after a fault runs, so that a fault of that pass ends there.
    bool recoveringFromFault = false;
    bool inBatch = false;
    bool batchFolderSetDirty = false;
    bool batchHierarchyDirty = false;
    bool batchDuplicatesDirty = false;
    LibraryContainerVFSOptions* containerOptions = nullptr;
    ILibraryErrorHandler* errorHandler;
    KL::Array<IO::Location> mountedVFSLocations;
    IO::Location collapsedLibraryLocation;
    LibpartSearchCompatibility searchCompatibility = 1;
    IServerLibraryCollection* serverCollection;
};

// The rights that any thread may use; handed out to the script engine's services.
class LM_EXPORT LibrarySet::ThreadSafeModifier : public ILibrarySetThreadSafeModifier {
public:
    explicit ThreadSafeModifier(LibrarySet* librarySet) : librarySet(librarySet) {}

    const LibrarySet* GetConstLibrarySet() const override { return librarySet; }
    void SetUserData(const LibPart* part, const KL::Guid& client,
                     const KL::ConstSharedPtr<SymbolUserData>& data) const override;
    void SetUserData(const LibPartId& id, const KL::Guid& client,
                     const KL::ConstSharedPtr<SymbolUserData>& data) const override;
    void ClearUserData(const LibPartId& id) const override;
    int SetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                            const KL::ConstSharedPtr<BinCode>& code) const override;
    int GetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                            KL::ConstSharedPtr<BinCode>* code) const override;
    void AddFlags(const LibPart* part, unsigned bits) const override;
    void Attach(LibrarySetObserver& observer) override;
    void Detach(LibrarySetObserver& observer) override;

protected:
    LibrarySet* librarySet;
};

// Adds the folder tree's view state, which belongs to the owner's thread.
class LM_EXPORT LibrarySet::SingleThreadedModifier : public ThreadSafeModifier,
                                                     public ILibrarySetSingleThreadedModifier {
public:
    explicit SingleThreadedModifier(LibrarySet* librarySet)
        : ThreadSafeModifier(librarySet), singleThreadedSet(librarySet) {}

    void AccessCheck() const {}
    int GetFolderTreeItemId(int folder) const override;
    bool GetFolderExpandState(int folder) const override;
    int SetFolderExpandState(int folder, bool expanded) const override;
    int SetFolderTreeItemId(int folder, int treeItemId) const override;

private:
    LibrarySet* singleThreadedSet;
};

// The right to change everything in a set; handed out by the set's owner.
class LM_EXPORT LibrarySet::Modifier : public SingleThreadedModifier, public ILibrarySetModifier {
public:
    explicit Modifier(LibrarySet* librarySet) : SingleThreadedModifier(librarySet) {}

    void AccessCheck() const {}
    int ResetActiveLibraries() const override;
    int AddActiveLibrary(const KL::UniString& url, LibraryMode mode, VitalMode vital) const override;
    int AddActiveLibrary(KL::ProcessControl& process, const IO::Location& location, LibraryMode mode,
                         VitalMode vital, const KL::Guid& guid, const KL::UniString& langCode,
                         bool collapseLongBranches) const override;
    int AddServerActiveLibrary(const IO::Location& location, const IO::Location& serverId,
                               const IO::RelativeLocation& relLocation, const KL::UniString& srcLocation,
                               std::int64_t version, int vital) const override;
    int RemoveActiveLibrary(int index) const override;
    void AddStorableFileType(FTM::GeneralID type) const override;
    int ReloadQdlBinCodes() const override;
    void StartBatchLibPartAdd() const override;
    void EndBatchLibPartAdd(KL::ProcessControl& process) const override;
    void RebuildTypeHierarchy(KL::ProcessControl& process, bool conformAll) const override;
    int SetActiveLibraryVersion(int index, std::int64_t version) const override;
    const LibPart* GetSymbolAnyhow(const LibPartId& id, bool* isDummy, bool* ambiguous, bool* migrated,
                                   bool doNotRemember,
                                   KL::Array<const LibPart*>* migrationParts) const override;
    const LibPart* StoreLibPart(KL::ProcessControl& process, const IO::Location& location, int folderIndex,
                                const LibPart* oldPart, bool* folderAdded, bool preferNew,
                                const LibPart** duplicate) const override;
    const LibPart* StoreDummyLibPart(KL::ProcessControl& process, const KL::UniString& name,
                                     const KL::UnID& unId, const FTM::GeneralID& fileType,
                                     const AncestryInfo& ancestry, bool temporarilyMissing) const override;
    void DeleteLibPart(KL::ProcessControl& process, const LibPart* part) const override;
    void DeleteDuplicateLibPart(const IO::Location& location) const override;
    void ResetIdToLibPartTable() const override;
    int Enumerate(KL::ProcessControl& process) const override;
    void Reset(KL::ProcessControl& process) const override;
    void CleanUp() const override;
    int ClearAllSymbolFlags(unsigned mask) const override;
    void SetValid(const LibPartId& id, bool valid) const override;
    void SetLibpartSearchCompatibility(LibpartSearchCompatibility compatibility) const override;
    int ClearAllQdlBinCodes() const override;
    FolderSet* GetFolderSet() const override;
    void SetTempLocationForLibPart(const LibPart* part, const IO::Location& location) const override;
};

// Marks a span of read access on the stack. It takes no lock and checks no thread.
class LM_EXPORT LibrarySet::AccessGuard {
public:
    explicit AccessGuard(const LibrarySet* librarySet) : librarySet(librarySet) { Add(); }
    ~AccessGuard() { Remove(); }
    AccessGuard(const AccessGuard&) = delete;
    AccessGuard& operator=(const AccessGuard&) = delete;

    std::int64_t GetCreatorThreadId() const { return creatorThreadId; }

private:
    void Add() {}
    void Remove() {}

    const LibrarySet* librarySet;
    std::int64_t creatorThreadId = 0;
};

} // namespace LM
