// The part store of LibrarySet: how files become records, how records are replaced and deleted,
// and what a single change owes the indices, the type tree and the duplicate reports.
#include "catalogue/IServerLibraryCollection.hpp"
#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"
#include "hierarchy/AncestryHierarchy.hpp"
#include "hierarchy/AncestryInfo.hpp"
#include "lists/FolderSet.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/FileTypeManager.hpp"
#include "KLProfiler/ProfilerStep.hpp"
#include "KLRoot/Exceptions.hpp"
#include "LibPartFile/SymbolFile.hpp"
#include "LibraryManagerErrors.hpp"
#include "QDL/ParamSection.hpp"

#include <span>
#include <vector>

namespace LM {

namespace {

bool MatchesAnyType(const KL::Array<FTM::GeneralID>& types, const IO::Location& location,
                    FTM::GeneralID* id) {
    const int first = FTM::FileTypeManager::GetCurrent().MatchFirst(
        location, std::span<const FTM::GeneralID>(types.GetContent(), types.GetSize()));
    if (first < 0)
        return false;
    if (id != nullptr)
        *id = types[static_cast<std::size_t>(first)];
    return true;
}

} // namespace

int LibrarySet::DetermineStoreFolder(const IO::Location& location, int folderIndex,
                                     const IO::Location& previous, bool* folderAdded) {
    *folderAdded = false;
    if (folderIndex != -1)
        return folderIndex;
    int folder = folderSet->DetermineParentFolder(location, folderAdded);
    if (folder == -1 && !previous.IsEmpty())
        folder = folderSet->DetermineParentFolder(previous, folderAdded);
    return folder;
}

// The part's id on its library server, for catalogues that have one.
KL::Guid LibrarySet::ServerGuidOf(const IO::Location& location, int folderIndex) const {
    if (serverCollection == nullptr || !folderSet->IsValidIndex(folderIndex))
        return KL::NULLGuid;
    const int library = folderSet->GetActLibIndex(folderIndex);
    KL::UniString libraryName;
    IO::Location libraryLocation;
    IO::RelativeLocation relative;
    if (GetActiveLibraryName(library, &libraryName) != 0 ||
        GetActiveLibraryLocation(library, &libraryLocation) != 0 ||
        location.GetDifference(libraryLocation, &relative) != 0)
        return KL::NULLGuid;
    return serverCollection->GetGuid(libraryName, relative);
}

// What a record held about its old file that must not outlive it: its node in the type tree and
// its user data. Its compiled code is checked against its ancestry again at the next read.
void LibrarySet::ForgetSymbolState(LibPart& part) {
    if (!part.IsSymbol())
        return;
    if (Paths::TreeEntry* node = part.GetAncestryId()) {
        hierarchy->DeletePath(node);
        part.SetAncestryId(nullptr);
    }
    DeleteAncestryUpToDate(&part);
    part.ClearUserData();
}

void LibrarySet::FinishSingleChange(KL::ProcessControl& process, bool folderAdded, bool hierarchyChanged) {
    if (!isEnumerated)
        return;
    if (inBatch) {
        batchFolderSetDirty = batchFolderSetDirty || folderAdded;
        batchHierarchyDirty = batchHierarchyDirty || hierarchyChanged;
        batchDuplicatesDirty = true;
        return;
    }
    if (folderAdded)
        FinishFolderSet();
    if (hierarchyChanged)
        RebuildTypeHierarchy(process, false);
    UpdateDuplicateCounters();
}

// A duplicate that took the place of a removed record lands at the end of the store.
bool LibrarySet::AdoptPromotedPart() {
    LibPart& promoted = libParts->GetLibPart(libParts->GetCount() - 1);
    bool folderAdded = false;
    promoted.SetFolderIndex(folderSet->DetermineParentFolder(promoted.GetLocation(), &folderAdded));
    if (promoted.GetGeneralFileType() == GetSymbolFileGroup())
        AddLibPartToAncestryHierarchy(&promoted, nullptr);
    if (isEnumerated)
        libParts->InsertInSortedIndices(static_cast<std::uint32_t>(libParts->GetCount() - 1));
    return folderAdded;
}

const LibPart* LibrarySet::StoreLibPart(KL::ProcessControl& process, const IO::Location& location,
                                        int folderIndex, const LibPart* oldPart, bool* folderAdded,
                                        bool preferNew, const LibPart** duplicate) {
    if (duplicate != nullptr)
        *duplicate = nullptr;
    if (libParts == nullptr || folderSet == nullptr)
        return nullptr;
    RecycleRetiredCatalogue();
    IO::Name fileName;
    if (location.GetLastLocalName(&fileName) != 0 ||
        (fileName.HasExtension() && fileName.GetBase().IsEmpty()))
        return nullptr;
    int index = -1;
    IO::Location previous;
    if (isEnumerated) {
        if (oldPart != nullptr) {
            index = libParts->GetIndex(oldPart);
            previous = oldPart->GetOrigLocation();
        } else {
            index = libParts->FindValidIndex(location);
        }
    }
    FTM::GeneralID type;
    std::uint32_t flags = 0;
    if (!IsLocationStorableFileType(location, &type)) {
        if (!IsLocationUnsupportedFileType(location, &type))
            return nullptr;
        flags = LibPart::UnsupportedTypeFlag;
    }
    bool added = false;
    const int folder = DetermineStoreFolder(location, folderIndex, previous, &added);
    if (folderAdded != nullptr)
        *folderAdded = added;
    if (folder == -1)
        return nullptr;
    const bool isSymbolFile = type == GetSymbolFileGroup();

    LibPart* loser = nullptr;
    LibPart* stored = nullptr;
    if (index == -1) {
        const std::size_t newIndex = libParts->GetCount();
        libParts->AppendPartToFill().FillValid(location, ServerGuidOf(location, folder), folder, type, flags);
        stored = libParts->Register(newIndex, LibPartSet::AppendedRecord, preferNew, nullptr, &loser);
        if (loser == nullptr && isEnumerated)
            libParts->InsertInSortedIndices(static_cast<std::uint32_t>(newIndex));
    } else {
        LibPart& part = libParts->GetLibPart(static_cast<std::size_t>(index));
        part.SetFolderIndex(folder);
        ForgetSymbolState(part);
        part.SetLocation(location);
        part.SetOrigLocation(previous);
        if (libParts->Unregister(static_cast<std::size_t>(index)))
            added = AdoptPromotedPart() || added;
        part.Reload();
        stored = libParts->Register(static_cast<std::size_t>(index), LibPartSet::ReloadedRecord, preferNew,
                                    nullptr, &loser);
        libParts->RemoveFromSortedIndices(static_cast<std::uint32_t>(index));
        if (stored != &part)
            ForgetSymbolState(*stored);
        const int storedIndex = libParts->GetIndex(stored);
        if (isEnumerated && storedIndex != -1) {
            libParts->RemoveFromSortedIndices(static_cast<std::uint32_t>(storedIndex));
            libParts->InsertInSortedIndices(static_cast<std::uint32_t>(storedIndex));
        }
    }
    if (loser != nullptr) {
        // The loser may be a former winner that carried a node of its own.
        if (Paths::TreeEntry* node = loser->GetAncestryId()) {
            hierarchy->DeletePath(node);
            loser->SetAncestryId(nullptr);
        }
        if (duplicate != nullptr)
            *duplicate = loser;
    }
    if (isSymbolFile)
        AddLibPartToAncestryHierarchy(stored, nullptr);
    FinishSingleChange(process, added, true);
    return stored;
}

const LibPart* LibrarySet::StoreDummyLibPart(KL::ProcessControl& process, const KL::UniString& name,
                                             const KL::UnID& unId, const FTM::GeneralID& fileType,
                                             const AncestryInfo& ancestry, bool temporarilyMissing) {
    if (libParts == nullptr || folderSet == nullptr)
        return nullptr;
    int index = -1;
    if (isEnumerated) {
        const LibPart* existing = libParts->FindPart(LibPartId(unId, name));
        if (existing != nullptr && existing->GetState() == LibPartStateDummy)
            index = libParts->GetIndex(existing);
    }
    if (!storableFileTypes.Contains(fileType))
        return nullptr;
    const int folder = temporarilyMissing ? FolderSet::TemporarilyMissingFolder : FolderSet::MissingFolder;
    LibPart* dummy = nullptr;
    if (index != -1) {
        dummy = &libParts->GetLibPart(static_cast<std::size_t>(index));
        ForgetSymbolState(*dummy);
        libParts->RemoveIds(dummy);
        libParts->RemoveFromSortedIndices(static_cast<std::uint32_t>(index));
    } else {
        index = static_cast<int>(libParts->GetCount());
        dummy = &libParts->AppendPart();
        libParts->EnterIndex(dummy, static_cast<std::uint32_t>(index));
    }
    dummy->FillDummy(name, unId, folder, fileType, 0);
    libParts->AddOwnIds(dummy, true, false);
    if (fileType == GetSymbolFileGroup() && dummy->IsSymbol()) {
        const KL::Array<KL::UnID>& ancestors = ancestry.GetAncestors();
        dummy->SetAncestryId(
            hierarchy->AddPath(ancestors.GetContent(), static_cast<unsigned>(ancestors.GetSize()), unId));
        dummy->SetAsTemplate(ancestry.IsTemplate());
    }
    if (isEnumerated)
        libParts->InsertInSortedIndices(static_cast<std::uint32_t>(index));
    FinishSingleChange(process, false, true);
    return dummy;
}

void LibrarySet::DeleteLibPart(KL::ProcessControl& process, const LibPart* part) {
    if (libParts == nullptr)
        return;
    const int index = libParts->GetIndex(part);
    if (index < 0)
        return;
    Paths::TreeEntry* node = part->IsSymbol() ? part->GetAncestryId() : nullptr;
    const bool promoted = libParts->Unregister(static_cast<std::size_t>(index));
    libParts->MakeHole(static_cast<std::size_t>(index));
    if (node != nullptr)
        hierarchy->DeletePath(node);
    if (isEnumerated)
        libParts->RemoveFromSortedIndices(static_cast<std::uint32_t>(index));
    const bool folderAdded = promoted && AdoptPromotedPart();
    FinishSingleChange(process, folderAdded, promoted);
}

void LibrarySet::DeleteDuplicateLibPart(const IO::Location& location) {
    if (libParts == nullptr || !libParts->DeleteDuplicate(location) || !isEnumerated)
        return;
    if (inBatch)
        batchDuplicatesDirty = true;
    else
        UpdateDuplicateCounters();
}

void LibrarySet::AddIdToLibPartTable(const LibPartId& id, const LibPart* part, const bool* resultFlagFirst,
                                     const bool* resultFlagSecond) {
    if (part == nullptr || libParts == nullptr)
        return;
    libParts->AddId(id, part, resultFlagFirst != nullptr && *resultFlagFirst,
                    resultFlagSecond != nullptr && *resultFlagSecond);
}

bool LibrarySet::AlreadyQueriedLibPartId(const LibPartId& id) const {
    return libParts != nullptr && libParts->FindId(id) != nullptr;
}

void LibrarySet::ResetIdToLibPartTable() {
    if (libParts != nullptr)
        libParts->ResetIdTable();
}

void LibrarySet::UpdateDuplicateCounters() const {
    if (libParts != nullptr)
        libParts->UpdateDuplicateCounters();
}

void LibrarySet::RebuildTypeHierarchy(KL::ProcessControl&, bool conformAll) {
    const KL::ProfilerStep step("RebuildTypeHierarchy");
    hierarchy->Build(conformAll);
    for (int i = 0; i < GetLibPartNumber(); ++i)
        DetermineProxy(i);
}

// A missing part is represented by its nearest present ancestor.
void LibrarySet::DetermineProxy(int index) {
    if (libParts == nullptr || index < 0 || index >= GetLibPartNumber())
        return;
    LibPart& part = libParts->GetLibPart(static_cast<std::size_t>(index));
    if (part.GetGeneralFileType() != GetSymbolFileGroup() && part.GetGeneralFileType() != GetScriptFileType())
        return;
    int proxy = index;
    if (const Paths::TreeEntry* node = part.GetAncestryId(); !part.IsValid() && node != nullptr)
        if (const LibPart* present = hierarchy->GetNearestPresentAncestor(node))
            proxy = GetIndexByLibPart(present);
    part.SetProxy(proxy);
}

const LibPart* LibrarySet::GetProxy(const LibPartId& id) const {
    return GetSymbolProxy(GetLibPart(id));
}

const LibPart* LibrarySet::GetSymbolProxy(const LibPart* part) const {
    return part != nullptr && part->IsSymbol() ? GetLibPartByIndex(part->GetProxy()) : nullptr;
}

int LibrarySet::SetSymbolAncestor(LibPart* part, int parentIndex) {
    const LibPart* parent = GetLibPartByIndex(parentIndex);
    if (libParts == nullptr || part == nullptr || parent == nullptr || parent->GetAncestryId() == nullptr)
        return LibPartFileError;
    const KL::UnID own = part->GetOwnUnID();
    part->SetAncestryId(hierarchy->AppendPathNode(parent->GetAncestryId(), &own));
    return 0;
}

void LibrarySet::AddLibPartToAncestryHierarchy(LibPart* part, const char* const* ancestryHandle) {
    if (part == nullptr || !part->IsSymbol())
        return;
    const char* const* section = ancestryHandle;
    if (section == nullptr) {
        const LPF::SymbolFile* file = part->GetSymbolFile();
        GSHandle own = nullptr;
        if (file != nullptr && file->GetSectionDataRef(LPF::Tags::Ancestry, 0, &own) == 0)
            section = own;
    }
    AncestryInfo info;
    AddLibPartChain(part, ReadPartChain(*part, section, &info) ? &info : nullptr);
}

bool LibrarySet::ReadPartChain(const LibPart& part, const char* const* section, AncestryInfo* chain) {
    if (section == nullptr)
        return false;
    try {
        if (chain->SetAncestrySection(&section) != 0)
            return false;
    } catch (const KL::IllegalArgumentException&) {
        // A chain that claims more than its section holds is read as no chain: one damaged part
        // must not cost the whole catalogue.
        return false;
    }
    chain->CheckAndFix(part.GetOwnUnID());
    return true;
}

void LibrarySet::AddLibPartChain(LibPart* part, const AncestryInfo* chain) {
    if (part == nullptr || !part->IsSymbol())
        return;
    if (Paths::TreeEntry* old = part->GetAncestryId()) {
        hierarchy->DeletePath(old);
        part->SetAncestryId(nullptr);
    }
    if (chain == nullptr) {
        part->SetAsTemplate(false);
        return;
    }
    const KL::Array<KL::UnID>& ancestors = chain->GetAncestors();
    part->SetAncestryId(hierarchy->AddPath(ancestors.GetContent(), static_cast<unsigned>(ancestors.GetSize()),
                                           part->GetOwnUnID()));
    part->SetAsTemplate(chain->IsTemplate());
}

bool LibrarySet::IsLocationStorableFileType(const IO::Location& location, FTM::GeneralID* id) const {
    return MatchesAnyType(storableFileTypes, location, id);
}

bool LibrarySet::IsLocationUnsupportedFileType(const IO::Location& location, FTM::GeneralID* id) const {
    return MatchesAnyType(unsupportedFileTypes, location, id);
}

int LibrarySet::UpdateSymbolParameters(const LibPart* target, const LibPart* source) {
    if (libParts == nullptr)
        return LibPartFileError;
    if (!IsLibPartValid(target) || !IsLibPartValid(source))
        return InvalidPartError;
    LPF::SymbolFile* targetFile = target->GetSymbolFileNotConst();
    const LPF::SymbolFile* sourceFile = source->GetSymbolFile();
    GSHandle sourceParameters = nullptr;
    if (targetFile == nullptr || sourceFile == nullptr ||
        sourceFile->GetSectionDataRef(LPF::Tags::Parameters, 0, &sourceParameters) != 0)
        return InvalidPartError;
    GSHandle targetParameters = nullptr;
    targetFile->GetSectionDataRef(LPF::Tags::Parameters, 0, &targetParameters);
    GSHandle merged = NewSyParHdlFromRef(sourceParameters, targetParameters, nullptr, 0);
    if (merged != nullptr && targetFile->SetSectionDataRef(LPF::Tags::Parameters, 0, merged, true, -1) != 0)
        BMKillHandle(&merged);
    const_cast<LibPart*>(target)->AddFlags(LibPart::ParametersOverwrittenFlag);
    return 0;
}

} // namespace LM
