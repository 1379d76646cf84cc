// Each modifier forwards to the set; what it may forward is the whole point of its class.
#include "catalogue/LibrarySet.hpp"

namespace LM {

ILibrarySetThreadSafeModifier::~ILibrarySetThreadSafeModifier() = default;
ILibrarySetSingleThreadedModifier::~ILibrarySetSingleThreadedModifier() = default;
ILibrarySetModifier::~ILibrarySetModifier() = default;

namespace {
bool accessCheckEnabled = false;
}

void LibrarySet::EnableAccessCheck(bool enable) {
    accessCheckEnabled = enable;
}

// ---- ThreadSafeModifier

void LibrarySet::ThreadSafeModifier::SetUserData(const LibPart* part, const KL::Guid& client,
                                                 const KL::ConstSharedPtr<SymbolUserData>& data) const {
    librarySet->SetUserData(part, client, data);
}

void LibrarySet::ThreadSafeModifier::SetUserData(const LibPartId& id, const KL::Guid& client,
                                                 const KL::ConstSharedPtr<SymbolUserData>& data) const {
    librarySet->SetUserData(id, client, data);
}

void LibrarySet::ThreadSafeModifier::ClearUserData(const LibPartId& id) const {
    librarySet->ClearUserData(id);
}

int LibrarySet::ThreadSafeModifier::SetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                                                        const KL::ConstSharedPtr<BinCode>& code) const {
    return librarySet->SetSymbolQdlBinCode(part, type, code);
}

int LibrarySet::ThreadSafeModifier::GetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                                                        KL::ConstSharedPtr<BinCode>* code) const {
    return librarySet->GetSymbolQdlBinCode(part, type, code);
}

void LibrarySet::ThreadSafeModifier::AddFlags(const LibPart* part, unsigned bits) const {
    librarySet->AddFlags(part, bits);
}

void LibrarySet::ThreadSafeModifier::Attach(LibrarySetObserver& observer) {
    librarySet->Attach(observer);
}

void LibrarySet::ThreadSafeModifier::Detach(LibrarySetObserver& observer) {
    librarySet->Detach(observer);
}

// ---- SingleThreadedModifier

int LibrarySet::SingleThreadedModifier::GetFolderTreeItemId(int folder) const {
    return singleThreadedSet->GetFolderTreeItemId(folder);
}

bool LibrarySet::SingleThreadedModifier::GetFolderExpandState(int folder) const {
    return singleThreadedSet->GetFolderExpandState(folder);
}

int LibrarySet::SingleThreadedModifier::SetFolderExpandState(int folder, bool expanded) const {
    return singleThreadedSet->SetFolderExpandState(folder, expanded);
}

int LibrarySet::SingleThreadedModifier::SetFolderTreeItemId(int folder, int treeItemId) const {
    return singleThreadedSet->SetFolderTreeItemId(folder, treeItemId);
}

// ---- Modifier

int LibrarySet::Modifier::ResetActiveLibraries() const {
    return librarySet->ResetActiveLibraries();
}

int LibrarySet::Modifier::AddActiveLibrary(const KL::UniString& url, LibraryMode mode,
                                           VitalMode vital) const {
    return librarySet->AddActiveLibrary(url, mode, vital);
}

int LibrarySet::Modifier::AddActiveLibrary(KL::ProcessControl& process, const IO::Location& location,
                                           LibraryMode mode, VitalMode vital, const KL::Guid& guid,
                                           const KL::UniString& langCode, bool collapseLongBranches) const {
    return librarySet->AddActiveLibrary(process, location, mode, vital, guid, langCode, collapseLongBranches);
}

int LibrarySet::Modifier::AddServerActiveLibrary(const IO::Location& location, const IO::Location& serverId,
                                                 const IO::RelativeLocation& relLocation,
                                                 const KL::UniString& srcLocation, std::int64_t version,
                                                 int vital) const {
    return librarySet->AddServerActiveLibrary(location, serverId, relLocation, srcLocation, version, vital);
}

int LibrarySet::Modifier::RemoveActiveLibrary(int index) const {
    return librarySet->RemoveActiveLibrary(index);
}

void LibrarySet::Modifier::AddStorableFileType(FTM::GeneralID type) const {
    librarySet->AddStorableFileType(type);
}

int LibrarySet::Modifier::ReloadQdlBinCodes() const {
    return librarySet->ReloadQdlBinCodes();
}

// Writes the field alone: a batch already open keeps the finishing work it owes.
void LibrarySet::Modifier::StartBatchLibPartAdd() const {
    librarySet->inBatch = true;
}

void LibrarySet::Modifier::EndBatchLibPartAdd(KL::ProcessControl& process) const {
    librarySet->EndBatchLibPartAdd(process);
}

void LibrarySet::Modifier::RebuildTypeHierarchy(KL::ProcessControl& process, bool conformAll) const {
    librarySet->RebuildTypeHierarchy(process, conformAll);
}

int LibrarySet::Modifier::SetActiveLibraryVersion(int index, std::int64_t version) const {
    return librarySet->SetActiveLibraryVersion(index, version);
}

const LibPart* LibrarySet::Modifier::GetSymbolAnyhow(const LibPartId& id, bool* isDummy, bool* ambiguous,
                                                     bool* migrated, bool doNotRemember,
                                                     KL::Array<const LibPart*>* migrationParts) const {
    return librarySet->GetSymbolAnyhow(id, isDummy, ambiguous, migrated, doNotRemember, migrationParts);
}

const LibPart* LibrarySet::Modifier::StoreLibPart(KL::ProcessControl& process, const IO::Location& location,
                                                  int folderIndex, const LibPart* oldPart, bool* folderAdded,
                                                  bool preferNew, const LibPart** duplicate) const {
    return librarySet->StoreLibPart(process, location, folderIndex, oldPart, folderAdded, preferNew,
                                    duplicate);
}

const LibPart* LibrarySet::Modifier::StoreDummyLibPart(KL::ProcessControl& process, const KL::UniString& name,
                                                       const KL::UnID& unId, const FTM::GeneralID& fileType,
                                                       const AncestryInfo& ancestry,
                                                       bool temporarilyMissing) const {
    return librarySet->StoreDummyLibPart(process, name, unId, fileType, ancestry, temporarilyMissing);
}

void LibrarySet::Modifier::DeleteLibPart(KL::ProcessControl& process, const LibPart* part) const {
    librarySet->DeleteLibPart(process, part);
}

void LibrarySet::Modifier::DeleteDuplicateLibPart(const IO::Location& location) const {
    librarySet->DeleteDuplicateLibPart(location);
}

void LibrarySet::Modifier::ResetIdToLibPartTable() const {
    librarySet->ResetIdToLibPartTable();
}

int LibrarySet::Modifier::Enumerate(KL::ProcessControl& process) const {
    return librarySet->Enumerate(process);
}

void LibrarySet::Modifier::Reset(KL::ProcessControl& process) const {
    librarySet->Reset(process);
}

void LibrarySet::Modifier::CleanUp() const {
    librarySet->CleanUp();
}

int LibrarySet::Modifier::ClearAllSymbolFlags(unsigned mask) const {
    return librarySet->ClearAllSymbolFlags(mask);
}

void LibrarySet::Modifier::SetValid(const LibPartId& id, bool valid) const {
    librarySet->SetValid(id, valid);
}

void LibrarySet::Modifier::SetLibpartSearchCompatibility(LibpartSearchCompatibility compatibility) const {
    librarySet->searchCompatibility = compatibility;
}

int LibrarySet::Modifier::ClearAllQdlBinCodes() const {
    return librarySet->ClearAllQdlBinCodes();
}

FolderSet* LibrarySet::Modifier::GetFolderSet() const {
    return librarySet->folderSet;
}

void LibrarySet::Modifier::SetTempLocationForLibPart(const LibPart* part,
                                                     const IO::Location& location) const {
    librarySet->SetTempLocationForLibPart(part, location);
}

} // namespace LM
