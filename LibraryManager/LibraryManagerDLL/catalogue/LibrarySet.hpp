#pragma once

#include "catalogue/LibPart.hpp"
#include "catalogue/LibrarySetModifier.hpp"
#include "catalogue/LibraryModes.hpp"

#include "InputOutput/FileType.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/EventSource.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/SpinLock.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace IO {
class Folder;
}
namespace KL {
class ProcessControl;
}

namespace LM {

class AncestryHierarchy;
class FolderSet;
class ILibraryErrorHandler;
class IServerLibraryCollection;
class LibPartSet;
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
    using IModifier = ILibrarySetModifier;
    class Modifier;

    LibrarySet(QdlBinCodesContainer* binCodes, ILibraryErrorHandler& errorHandler,
               IServerLibraryCollection* serverCollection, const FileTypeList& storable,
               const FileTypeList& unsupported, FTM::GroupID textTypeGroupOverride,
               const IO::Location& collapsedLibraryLocation);
    ~LibrarySet() override;
    LibrarySet(const LibrarySet&) = delete;
    LibrarySet& operator=(const LibrarySet&) = delete;

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
    const AncestryHierarchy* GetAncestryHierarchy() const { return hierarchy; }
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

    // The active libraries by index; a bad index gives -7003, false or 0.
    int GetActiveLibraryNum() const;
    int GetActiveLibraryIndex(const IO::Location& location) const;
    int GetFirstWritableActiveLibrary(IO::Location* location) const;
    bool IsExistActiveLibrary(int index) const;
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
    int GetActiveLibrarySupersedes(int index, KL::Array<KL::UniString>* names, KL::Array<KL::Guid>* guids) const;
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
    void ReleaseMountedFileSystems();
    int EnumerateLibraries(KL::ProcessControl& process);
    void StartNewCatalogue();
    void PrepareLibraryCache() const;
    void EnumerateLibrary(KL::ProcessControl& process, int index, bool* stopped);
    void ReadVersionInformation(LibraryItem* item) const;
    WalkResult WalkLibrary(KL::ProcessControl& process, int index, const IO::Folder& folder);
    static void ReportWalkFailure(const IO::Folder& folder, int result);

    LibPartSet* libParts = nullptr;
    FolderSet* folderSet = nullptr;
    LibraryList* activeLibraries = nullptr;
    AncestryHierarchy* hierarchy = nullptr;
    FileTypeList storableFileTypes;
    FileTypeList unsupportedFileTypes;
    FTM::GroupID textTypeGroupOverride;
    // Guards the compiled script cache; taken before any record lock.
    KL::FastLock binCodeLock;
    QdlBinCodesContainer* binCodes;
    bool isEnumerated = false;
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

// The right to change everything in a set; handed out by the set's owner.
class LM_EXPORT LibrarySet::Modifier : public ILibrarySetModifier {
public:
    explicit Modifier(LibrarySet* librarySet) : librarySet(librarySet) {}

    int ResetActiveLibraries() const override;
    int AddActiveLibrary(const KL::UniString& url, LibraryMode mode, VitalMode vital) const override;
    int AddActiveLibrary(KL::ProcessControl& process, const IO::Location& location, LibraryMode mode, VitalMode vital,
                         const KL::Guid& guid, const KL::UniString& langCode, bool collapseLongBranches) const override;
    int AddServerActiveLibrary(const IO::Location& location, const IO::Location& serverId,
                               const IO::RelativeLocation& relLocation, const KL::UniString& srcLocation,
                               std::int64_t version, int vital) const override;
    int RemoveActiveLibrary(int index) const override;
    void AddStorableFileType(FTM::GeneralID type) const override;
    void StartBatchLibPartAdd() const override;
    void EndBatchLibPartAdd(KL::ProcessControl& process) const override;
    int SetActiveLibraryVersion(int index, std::int64_t version) const override;
    int Enumerate(KL::ProcessControl& process) const override;
    void Reset(KL::ProcessControl& process) const override;
    void CleanUp() const override;
    void SetLibpartSearchCompatibility(LibpartSearchCompatibility compatibility) const override;
    FolderSet* GetFolderSet() const override;

private:
    LibrarySet* librarySet;
};

} // namespace LM
