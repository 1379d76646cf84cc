#pragma once

#include "catalogue/LibraryModes.hpp"

#include "InputOutput/FileType.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/SharedObject.hpp"
#include "QDL/ScriptTypes.hpp"

#include <cstdint>

class BinCode;

namespace IO {
class Location;
class RelativeLocation;
} // namespace IO
namespace KL {
class Guid;
class ProcessControl;
class UniString;
class UnID;
} // namespace KL

namespace LM {

class AncestryInfo;
class FolderSet;
class LibPart;
class LibPartId;
class LibrarySet;
class LibrarySetObserver;
class SymbolUserData;

// The rights to change a catalogue form a ladder; the class of a modifier says what its holder may
// do. These are the operations that any thread may run while the owner's thread works: each is
// guarded by the bin code lock or by the lock of the record it touches.
class LM_EXPORT ILibrarySetThreadSafeModifier {
public:
    virtual const LibrarySet* GetConstLibrarySet() const = 0;
    virtual void SetUserData(const LibPart* part, const KL::Guid& client,
                             const KL::ConstSharedPtr<SymbolUserData>& data) const = 0;
    virtual void SetUserData(const LibPartId& id, const KL::Guid& client,
                             const KL::ConstSharedPtr<SymbolUserData>& data) const = 0;
    virtual void ClearUserData(const LibPartId& id) const = 0;
    virtual int SetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                                    const KL::ConstSharedPtr<BinCode>& code) const = 0;
    virtual int GetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                                    KL::ConstSharedPtr<BinCode>* code) const = 0;
    virtual void AddFlags(const LibPart* part, unsigned bits) const = 0;
    virtual void Attach(LibrarySetObserver& observer) = 0;
    virtual void Detach(LibrarySetObserver& observer) = 0;
    virtual ~ILibrarySetThreadSafeModifier();
};

// What the owner's thread may change while other threads only read: the folder tree's view state.
class LM_EXPORT ILibrarySetSingleThreadedModifier {
public:
    virtual int GetFolderTreeItemId(int folder) const = 0;
    virtual bool GetFolderExpandState(int folder) const = 0;
    virtual int SetFolderExpandState(int folder, bool expanded) const = 0;
    virtual int SetFolderTreeItemId(int folder, int treeItemId) const = 0;
    virtual ~ILibrarySetSingleThreadedModifier();
};

// Everything else. No other thread may be inside the catalogue: Enumerate replaces the store, and
// a reader would be left holding dangling records. A library list is applied to a set through
// this interface, so the list need not know the set's class.
class LM_EXPORT ILibrarySetModifier {
public:
    virtual int ResetActiveLibraries() const = 0;
    virtual int AddActiveLibrary(const KL::UniString& url, LibraryMode mode, VitalMode vital) const = 0;
    virtual int AddActiveLibrary(KL::ProcessControl& process, const IO::Location& location, LibraryMode mode,
                                 VitalMode vital, const KL::Guid& guid, const KL::UniString& langCode,
                                 bool collapseLongBranches) const = 0;
    virtual int AddServerActiveLibrary(const IO::Location& location, const IO::Location& serverId,
                                       const IO::RelativeLocation& relLocation,
                                       const KL::UniString& srcLocation, std::int64_t version,
                                       int vital) const = 0;
    virtual int RemoveActiveLibrary(int index) const = 0;
    virtual void AddStorableFileType(FTM::GeneralID type) const = 0;
    virtual int ReloadQdlBinCodes() const = 0;
    virtual void StartBatchLibPartAdd() const = 0;
    virtual void EndBatchLibPartAdd(KL::ProcessControl& process) const = 0;
    virtual void RebuildTypeHierarchy(KL::ProcessControl& process, bool conformAll) const = 0;
    virtual int SetActiveLibraryVersion(int index, std::int64_t version) const = 0;
    virtual const LibPart* GetSymbolAnyhow(const LibPartId& id, bool* isDummy, bool* ambiguous,
                                           bool* migrated, bool doNotRemember,
                                           KL::Array<const LibPart*>* migrationParts) const = 0;
    virtual const LibPart* StoreLibPart(KL::ProcessControl& process, const IO::Location& location,
                                        int folderIndex, const LibPart* oldPart, bool* folderAdded,
                                        bool preferNew, const LibPart** duplicate) const = 0;
    virtual const LibPart* StoreDummyLibPart(KL::ProcessControl& process, const KL::UniString& name,
                                             const KL::UnID& unId, const FTM::GeneralID& fileType,
                                             const AncestryInfo& ancestry, bool temporarilyMissing) const = 0;
    virtual void DeleteLibPart(KL::ProcessControl& process, const LibPart* part) const = 0;
    virtual void DeleteDuplicateLibPart(const IO::Location& location) const = 0;
    virtual void ResetIdToLibPartTable() const = 0;
    virtual int Enumerate(KL::ProcessControl& process) const = 0;
    virtual void Reset(KL::ProcessControl& process) const = 0;
    virtual void CleanUp() const = 0;
    virtual int ClearAllSymbolFlags(unsigned mask) const = 0;
    virtual void SetValid(const LibPartId& id, bool valid) const = 0;
    virtual void SetLibpartSearchCompatibility(LibpartSearchCompatibility compatibility) const = 0;
    virtual int ClearAllQdlBinCodes() const = 0;
    virtual FolderSet* GetFolderSet() const = 0;
    virtual void SetTempLocationForLibPart(const LibPart* part, const IO::Location& location) const = 0;
    virtual ~ILibrarySetModifier();
};

} // namespace LM
