#include "catalogue/LibPartSet.hpp"

#include "catalogue/LibraryErrorHandler.hpp"
#include "catalogue/LibrarySet.hpp"
#include "lists/FolderSet.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "KLMSections/MigrationTable.hpp"
#include "LibPartFile/SymbolFile.hpp"

#include <algorithm>
#include <memory>
#include <numeric>

namespace LM {

namespace {

// "MGRT", read as a big-endian number.
constexpr LPF::SectionTag MigrationSectionTag = LPF::Tags::MigrationTable;

// Scripts sort among symbols: a script and a symbol of one name are neighbours.
std::int32_t SortableType(const LibPart& part) {
    const FTM::GeneralID& type = part.GetGeneralFileType();
    return (type == GetScriptFileType() ? GetSymbolFileGroup() : type).GetValue();
}

int CompareText(const KL::UniString& a, const KL::UniString& b) { return a.Compare(b, KL::CaseInsensitive); }

int CompareTypes(const LibPart& a, const LibPart& b) {
    const std::int32_t typeA = SortableType(a);
    const std::int32_t typeB = SortableType(b);
    return typeA < typeB ? -1 : typeA > typeB ? 1 : 0;
}

int CompareByName(const LibPart& a, const LibPart& b) {
    const int byName = CompareText(a.GetDocumentName(), b.GetDocumentName());
    return byName != 0 ? byName : CompareTypes(a, b);
}

// Records without a symbol come first, among themselves by document name; symbols by `key`.
template <typename Key>
int CompareSymbolsLast(const LibPart& a, const LibPart& b, Key key) {
    if (a.IsSymbol() != b.IsSymbol())
        return a.IsSymbol() ? 1 : -1;
    return a.IsSymbol() ? key(a).Compare(key(b)) : CompareText(a.GetDocumentName(), b.GetDocumentName());
}

int CompareByUnId(const LibPart& a, const LibPart& b) {
    return CompareSymbolsLast(a, b, [](const LibPart& part) { return part.GetOwnUnID(); });
}

int CompareByGuid(const LibPart& a, const LibPart& b) {
    return CompareSymbolsLast(a, b, [](const LibPart& part) { return part.GetGuid(); });
}

LibPartCache OwnEntry(const LibPart* part, bool resultFlagFirst) {
    LibPartCache entry;
    entry.part = part;
    entry.resultFlagFirst = resultFlagFirst;
    entry.isOwnId = true;
    return entry;
}

template <typename Table, typename Key>
void EraseFromArray(Table& table, const Key& key, const LibPart* part) {
    auto* entries = table.GetPtr(key);
    if (entries == nullptr)
        return;
    for (std::size_t i = entries->GetSize(); i > 0; --i)
        if ((*entries)[i - 1].part == part)
            entries->Delete(i - 1);
    if (entries->IsEmpty())
        table.Delete(key);
}

// The migration table of a symbol file, or null.
std::unique_ptr<MigrationTableObject> ReadMigrationSection(const LibPart& part) {
    const LPF::SymbolFile* file = part.GetSymbolFile();
    if (file == nullptr)
        return nullptr;
    int error = 0;
    std::unique_ptr<KL::Object> content(file->GetSectionContent(MigrationSectionTag, 0, &error));
    if (error != 0 || dynamic_cast<MigrationTableObject*>(content.get()) == nullptr)
        return nullptr;
    return std::unique_ptr<MigrationTableObject>(static_cast<MigrationTableObject*>(content.release()));
}

} // namespace

LibPartSet::LibPartSet(ILibraryErrorHandler* errorHandler, LibrarySet* librarySet)
    : errorHandler(errorHandler), librarySet(librarySet) {}

LibPartSet::~LibPartSet() = default;

int LibPartSet::GetIndex(const LibPart* part) const {
    const std::uint32_t* index = partToIndex.GetPtr(part);
    return index != nullptr ? static_cast<int>(*index) : -1;
}

int LibPartSet::FindValidIndex(const IO::Location& location) const {
    for (std::size_t i = 0; i < parts.GetSize(); ++i)
        if (parts[i].IsValid() && parts[i].GetLocation() == location)
            return static_cast<int>(i);
    return -1;
}

const LibPart* LibPartSet::FindPart(const LibPartId& id) const {
    const LibPartCache* entry = idToPart.GetPtr(id);
    return entry != nullptr ? entry->part : nullptr;
}

DuplicateLibpartData LibPartSet::MakeDuplicateData(const LibPart& part) const {
    DuplicateLibpartData data;
    data.location = part.GetOrigLocation();
    data.name = part.GetDocumentName();
    data.revisionGuid = part.GetOwnUnID().revGuid;
    const FolderSet* folders = librarySet != nullptr ? librarySet->GetFolderSet() : nullptr;
    if (folders != nullptr && folders->IsValidIndex(part.GetFolderIndex()))
        data.actLibIndex = folders->GetActLibIndex(part.GetFolderIndex());
    return data;
}

// Parts without an id are duplicates only when their file names agree too.
bool LibPartSet::IsDuplicateOf(const LibPartCache* entry, const LibPartId& id, const LibPart& record) const {
    if (entry == nullptr || entry->part == nullptr || !entry->isOwnId)
        return false;
    return !id.GetUnId().IsNull() || entry->part->GetFileName() == record.GetFileName();
}

LibPart* LibPartSet::Register(std::size_t index, RegisterMode mode, bool preferNew, const MigrationTable* migration,
                              LibPart** duplicateSlot) {
    if (duplicateSlot != nullptr)
        *duplicateSlot = nullptr;
    LibPart& record = parts[index];
    const LibPartId id(&record);
    const KL::UnID& unId = id.GetUnId();
    if (!unId.mainGuid.IsNull()) {
        if (const KL::Array<LibPartCache>* sameMain = mainGuidToParts.GetPtr(unId.mainGuid)) {
            for (const LibPartCache& entry : *sameMain) {
                if (entry.part->GetOwnUnID() != unId) {
                    AddRevisionConflict(*entry.part, record);
                    break;
                }
            }
        }
    }

    const LibPartCache* existing = idToPart.GetPtr(id);
    if (IsDuplicateOf(existing, id, record)) {
        auto* winner = const_cast<LibPart*>(existing->part);
        DuplicateTable& table = unId.IsNull() ? nameDuplicates : idDuplicates;
        KL::Array<DuplicateLibpartData>& members = table[winner];
        if (members.IsEmpty())
            members.Push(MakeDuplicateData(*winner));
        members.Push(MakeDuplicateData(record));
        LibPart& loser = duplicates.PushNew();
        loser.Swap(&record);
        if (mode == AppendedRecord)
            parts.DeleteLast();
        else
            MakeHole(index);
        if (!errorHandler->AcceptDuplicateLocation(winner->GetLocation()) || preferNew)
            loser.Swap(winner);
        if (duplicateSlot != nullptr)
            *duplicateSlot = &loser;
        return winner;
    }

    partToIndex.Put(&record, static_cast<std::uint32_t>(index));
    AddOwnIds(&record, false, true);
    if (!unId.mainGuid.IsNull())
        mainGuidToParts[unId.mainGuid].Push(OwnEntry(&record, false));
    AddMigrations(&record, migration);
    return &record;
}

void LibPartSet::AddMigrations(const LibPart* part, const MigrationTable* migration) {
    std::unique_ptr<MigrationTableObject> fromFile;
    if (migration == nullptr && part->IsSymbol() && part->GetGeneralFileType() == GetSymbolFileGroup()) {
        fromFile = ReadMigrationSection(*part);
        if (fromFile != nullptr)
            migration = &fromFile->GetTable();
    }
    if (migration == nullptr)
        return;
    for (auto pair = migration->BeginPairs(); pair != migration->EndPairs(); ++pair) {
        LibPartCache entry = OwnEntry(part, false);
        entry.migrationFlag = pair->second.flag;
        entry.migrationRank = pair->second.version;
        migrationGuidToParts[pair->first].Push(entry);
    }
}

// Migration tables are few; a scan spares every record a list of the guids it declared.
void LibPartSet::RemoveMigrations(const LibPart* part) {
    KL::Array<KL::Guid> keys;
    for (const auto& [guid, entries] : migrationGuidToParts)
        keys.Push(guid);
    for (const KL::Guid& guid : keys)
        EraseFromArray(migrationGuidToParts, guid, part);
}

void LibPartSet::RemoveFromMainGuidTable(const LibPart* part) {
    const KL::Guid& mainGuid = part->GetOwnUnID().mainGuid;
    if (!mainGuid.IsNull())
        EraseFromArray(mainGuidToParts, mainGuid, part);
}

LibPart* LibPartSet::FindDuplicateOf(const LibPartId& id, const LibPart& record) {
    for (LibPart& candidate : duplicates) {
        if (candidate.GetState() == LibPartStateDeleted || LibPartId(&candidate) != id)
            continue;
        if (id.GetUnId().IsNull() && candidate.GetFileName() != record.GetFileName())
            continue;
        return &candidate;
    }
    return nullptr;
}

bool LibPartSet::Unregister(std::size_t index) {
    LibPart& record = parts[index];
    const LibPartId id(&record);
    RemoveRevisionConflict(record);

    LibPart* promoted = nullptr;
    const LibPartCache* entry = idToPart.GetPtr(id);
    if (entry != nullptr && entry->part == &record && IsDuplicateOf(entry, id, record)) {
        nameDuplicates.Delete(&record);
        idDuplicates.Delete(&record);
        if (LibPart* duplicate = FindDuplicateOf(id, record)) {
            promoted = &parts.PushNew();
            duplicate->MoveAssignment(promoted);
        }
    }

    RemoveIds(&record);
    partToIndex.Delete(&record);
    RemoveFromMainGuidTable(&record);
    RemoveMigrations(&record);
    if (promoted == nullptr)
        return false;
    const auto newIndex = static_cast<std::uint32_t>(parts.GetSize() - 1);
    partToIndex.Put(promoted, newIndex);
    AddOwnIds(promoted, false, true);
    if (!promoted->GetOwnUnID().mainGuid.IsNull())
        mainGuidToParts[promoted->GetOwnUnID().mainGuid].Push(OwnEntry(promoted, false));
    AddMigrations(promoted, nullptr);
    return true;
}

void LibPartSet::MakeHole(std::size_t index) {
    LibPart& slot = parts[index];
    slot.~LibPart();
    ::new (static_cast<void*>(&slot)) LibPart();
    slot.SetState(LibPartStateDeleted);
}

void LibPartSet::AddNullIdEntry() {
    LibPartCache entry;
    entry.resultFlagFirst = true;
    entry.isOwnId = true;
    idToPart.Put(LibPartId(), entry);
}

void LibPartSet::AddId(const LibPartId& id, const LibPart* part, bool resultFlagFirst, bool resultFlagSecond) {
    if (part == nullptr)
        return;
    LibPartCache entry;
    entry.part = part;
    entry.resultFlagFirst = resultFlagFirst;
    entry.resultFlagSecond = resultFlagSecond;
    entry.isOwnId = id == LibPartId(part);
    idToPart.Put(id, entry);
    partToIds[part].Add(id);
}

void LibPartSet::AddOwnIds(const LibPart* part, bool resultFlagFirst, bool withFileName) {
    const LibPartId own(part);
    idToPart.Put(own, OwnEntry(part, resultFlagFirst));
    KL::HashSet<LibPartId>& ids = partToIds[part];
    ids.Add(own);
    if (!withFileName || !own.GetUnId().IsNull())
        return;
    const LibPartId byFileName(KL::NULLUnID, part->GetFileName());
    idToPart.Put(byFileName, OwnEntry(part, resultFlagFirst));
    ids.Add(byFileName);
}

void LibPartSet::RemoveIds(const LibPart* part) {
    const KL::HashSet<LibPartId>* ids = partToIds.GetPtr(part);
    if (ids == nullptr)
        return;
    for (const LibPartId& id : *ids) {
        const LibPartCache* entry = idToPart.GetPtr(id);
        if (entry != nullptr && entry->part == part)
            idToPart.Delete(id);
    }
    partToIds.Delete(part);
}

void LibPartSet::ResetIdTable() {
    idToPart.Clear();
    partToIds.Clear();
    for (const LibPart& part : parts)
        if (part.IsValid())
            AddOwnIds(&part, false, true);
}

void LibPartSet::BuildSortedIndices() {
    IndexArray live;
    live.reserve(parts.GetSize());
    for (std::uint32_t i = 0; i < parts.GetSize(); ++i)
        if (parts[i].GetState() != LibPartStateDeleted)
            live.push_back(i);
    // File names are cut from locations once, not in every comparison.
    std::vector<KL::UniString> fileNames(parts.GetSize());
    for (std::uint32_t i : live)
        fileNames[i] = parts[i].GetFileName();
    const auto sortBy = [&live](IndexArray* index, auto compare) {
        *index = live;
        std::stable_sort(index->begin(), index->end(),
                         [&](std::uint32_t a, std::uint32_t b) { return compare(a, b) < 0; });
    };
    sortBy(&indexByName, [this](std::uint32_t a, std::uint32_t b) { return CompareByName(parts[a], parts[b]); });
    sortBy(&indexByFileName, [this, &fileNames](std::uint32_t a, std::uint32_t b) {
        const int byName = CompareText(fileNames[a], fileNames[b]);
        return byName != 0 ? byName : CompareTypes(parts[a], parts[b]);
    });
    sortBy(&indexByUnId, [this](std::uint32_t a, std::uint32_t b) { return CompareByUnId(parts[a], parts[b]); });
    sortBy(&indexByGuid, [this](std::uint32_t a, std::uint32_t b) { return CompareByGuid(parts[a], parts[b]); });
}

void LibPartSet::InsertInSortedIndices(std::uint32_t index) {
    const LibPart& part = parts[index];
    const auto insert = [&](IndexArray& sorted, auto compare) {
        const auto at = std::upper_bound(sorted.begin(), sorted.end(), index, [&](std::uint32_t, std::uint32_t other) {
            return compare(part, parts[other]) < 0;
        });
        sorted.insert(at, index);
    };
    const KL::UniString fileName = part.GetFileName();
    insert(indexByName, CompareByName);
    insert(indexByFileName, [&fileName](const LibPart& a, const LibPart& b) {
        const int byName = CompareText(fileName, b.GetFileName());
        return byName != 0 ? byName : CompareTypes(a, b);
    });
    insert(indexByUnId, CompareByUnId);
    insert(indexByGuid, CompareByGuid);
}

void LibPartSet::RemoveFromSortedIndices(std::uint32_t index) {
    for (IndexArray* sorted : {&indexByName, &indexByFileName, &indexByUnId, &indexByGuid}) {
        const auto at = std::find(sorted->begin(), sorted->end(), index);
        if (at != sorted->end())
            sorted->erase(at);
    }
}

namespace {

// Records without a symbol sort first in the id and guid indices; symbols follow in key order.
template <typename Key, typename KeyOf>
LibPartSet::IndexRange SymbolKeyRange(const LibPartSet::IndexArray& index, const LibPartSet::PartTable& parts,
                                      const Key& key, KeyOf keyOf) {
    const auto firstSymbol =
        std::partition_point(index.begin(), index.end(), [&](std::uint32_t i) { return !parts[i].IsSymbol(); });
    const auto below = std::lower_bound(firstSymbol, index.end(), key, [&](std::uint32_t i, const Key& wanted) {
        return keyOf(parts[i]).Compare(wanted) < 0;
    });
    const auto above = std::upper_bound(below, index.end(), key, [&](const Key& wanted, std::uint32_t i) {
        return wanted.Compare(keyOf(parts[i])) < 0;
    });
    return {below, above};
}

template <typename NameOf>
LibPartSet::IndexRange TextRange(const LibPartSet::IndexArray& index, const LibPartSet::PartTable& parts,
                                 const KL::UniString& text, NameOf nameOf) {
    const auto below = std::lower_bound(index.begin(), index.end(), text, [&](std::uint32_t i, const KL::UniString& key) {
        return CompareText(nameOf(parts[i]), key) < 0;
    });
    const auto above = std::upper_bound(below, index.end(), text, [&](const KL::UniString& key, std::uint32_t i) {
        return CompareText(key, nameOf(parts[i])) < 0;
    });
    return {below, above};
}

} // namespace

int LibPartSet::FindIndexByUnId(const KL::UnID& unId) const {
    const IndexRange range =
        SymbolKeyRange(indexByUnId, parts, unId, [](const LibPart& part) { return part.GetOwnUnID(); });
    return range.first == range.second ? -1 : static_cast<int>(*range.first);
}

int LibPartSet::FindIndexByGuid(const KL::Guid& guid) const {
    const IndexRange range = SymbolKeyRange(indexByGuid, parts, guid, [](const LibPart& part) { return part.GetGuid(); });
    return range.first == range.second ? -1 : static_cast<int>(*range.first);
}

LibPartSet::IndexRange LibPartSet::MainGuidRange(const KL::Guid& mainGuid) const {
    return SymbolKeyRange(indexByUnId, parts, mainGuid, [](const LibPart& part) { return part.GetOwnUnID().mainGuid; });
}

LibPartSet::IndexRange LibPartSet::NameRange(const KL::UniString& name) const {
    return TextRange(indexByName, parts, name, [](const LibPart& part) -> const KL::UniString& {
        return part.GetDocumentName();
    });
}

LibPartSet::IndexRange LibPartSet::FileNameRange(const KL::UniString& fileName) const {
    return TextRange(indexByFileName, parts, fileName, [](const LibPart& part) { return part.GetFileName(); });
}

void LibPartSet::RemapFolderIndices(const std::vector<std::int32_t>& newIndex) {
    for (LibPart& part : parts) {
        const std::int32_t folder = part.GetFolderIndex();
        if (folder >= 0 && static_cast<std::size_t>(folder) < newIndex.size())
            part.SetFolderIndex(newIndex[static_cast<std::size_t>(folder)]);
    }
}

// Nothing is recorded against a part that has no full id of its own.
void LibPartSet::AddRevisionConflict(const LibPart& existing, const LibPart& newcomer) {
    const KL::UnID existingId = existing.GetOwnUnID();
    if (existingId.mainGuid.IsNull() || existingId.revGuid.IsNull())
        return;
    const KL::Guid newRevision = newcomer.GetOwnUnID().revGuid;
    auto* revisions = revisionConflicts.GetPtr(existingId.mainGuid);
    if (revisions == nullptr) {
        KL::HashTable<KL::Guid, KL::Array<DuplicateLibpartData>> fresh;
        fresh[existingId.revGuid].Push(MakeDuplicateData(existing));
        fresh[newRevision].Push(MakeDuplicateData(newcomer));
        revisionConflicts.Put(existingId.mainGuid, std::move(fresh));
        return;
    }
    (*revisions)[newRevision].Push(MakeDuplicateData(newcomer));
}

void LibPartSet::RemoveRevisionConflict(const LibPart& record) {
    const KL::UnID unId = record.GetOwnUnID();
    auto* revisions = revisionConflicts.GetPtr(unId.mainGuid);
    if (revisions == nullptr)
        return;
    if (auto* members = revisions->GetPtr(unId.revGuid)) {
        const IO::Location& location = record.GetOrigLocation();
        for (std::size_t i = 0; i < members->GetSize(); ++i) {
            if ((*members)[i].location == location) {
                members->Delete(i);
                break;
            }
        }
        if (members->IsEmpty())
            revisions->Delete(unId.revGuid);
    }
    if (revisions->GetSize() <= 1)
        revisionConflicts.Delete(unId.mainGuid);
}

bool LibPartSet::DeleteDuplicate(const IO::Location& location) {
    for (LibPart& candidate : duplicates) {
        if (candidate.GetState() == LibPartStateDeleted || candidate.GetLocation() != location)
            continue;
        RemoveRevisionConflict(candidate);
        if (const LibPart* winner = FindPart(LibPartId(&candidate))) {
            nameDuplicates.Delete(winner);
            idDuplicates.Delete(winner);
        }
        candidate.~LibPart();
        ::new (static_cast<void*>(&candidate)) LibPart();
        candidate.SetState(LibPartStateDeleted);
        return true;
    }
    return false;
}

namespace {

// The members the handler accepts; the count starts at all and drops with each refusal.
DuplicateReport AcceptedMembers(ILibraryErrorHandler& handler, const KL::Array<DuplicateLibpartData>& members) {
    DuplicateReport report;
    report.count = static_cast<std::int32_t>(members.GetSize());
    for (const DuplicateLibpartData& member : members) {
        if (!handler.AcceptDuplicateLocation(member.location)) {
            --report.count;
            continue;
        }
        report.locations.Push(member.location);
        report.actLibIndices.Push(member.actLibIndex);
        report.names.Push(member.name);
    }
    if (!report.names.IsEmpty())
        report.name = report.names[0];
    return report;
}

} // namespace

void LibPartSet::UpdateDuplicateCounters() const {
    if (errorHandler == nullptr)
        return;
    errorHandler->Reset();
    for (const auto& [winner, members] : nameDuplicates) {
        const DuplicateReport report = AcceptedMembers(*errorHandler, members);
        if (report.count > 1)
            errorHandler->ReportNameDuplicate(report);
    }
    for (const auto& [winner, members] : idDuplicates) {
        DuplicateReport report = AcceptedMembers(*errorHandler, members);
        report.unId = winner->GetOwnUnID();
        if (report.count > 1)
            errorHandler->ReportIdDuplicate(report);
    }
    ReportRevisionConflicts();
    ReportSameNameDifferentContents();
}

void LibPartSet::ReportRevisionConflicts() const {
    for (const auto& [mainGuid, revisions] : revisionConflicts) {
        KL::Array<DuplicateReport> reports;
        for (const auto& [revision, members] : revisions) {
            DuplicateReport report = AcceptedMembers(*errorHandler, members);
            report.unId = KL::UnID(mainGuid, revision);
            if (report.count > 0)
                reports.Push(std::move(report));
        }
        if (reports.GetSize() > 1)
            errorHandler->ReportRevisionConflict(reports);
    }
}

// Symbols of one name and type whose ids differ: the host may load the wrong one by name.
void LibPartSet::ReportSameNameDifferentContents() const {
    const FolderSet* folders = librarySet != nullptr ? librarySet->GetFolderSet() : nullptr;
    std::size_t runStart = 0;
    while (runStart < indexByName.size()) {
        const LibPart& first = parts[indexByName[runStart]];
        std::size_t runEnd = runStart + 1;
        while (runEnd < indexByName.size() && CompareByName(first, parts[indexByName[runEnd]]) == 0)
            ++runEnd;
        const bool isSymbolRun = SortableType(first) == GetSymbolFileGroup().GetValue();
        const auto differs = [&](std::uint32_t i) { return parts[i].GetOwnUnID() != first.GetOwnUnID(); };
        if (runEnd - runStart > 1 && isSymbolRun &&
            std::any_of(indexByName.begin() + static_cast<std::ptrdiff_t>(runStart),
                        indexByName.begin() + static_cast<std::ptrdiff_t>(runEnd), differs)) {
            DuplicateReport report;
            report.name = first.GetDocumentName();
            report.count = static_cast<std::int32_t>(runEnd - runStart);
            for (std::size_t k = runStart; k < runEnd; ++k) {
                const LibPart& member = parts[indexByName[k]];
                const int folder = member.GetFolderIndex();
                report.locations.Push(member.GetOrigLocation());
                report.actLibIndices.Push(folders != nullptr && folders->IsValidIndex(folder)
                                              ? folders->GetActLibIndex(folder)
                                              : -1);
                report.names.Push(member.GetDocumentName());
            }
            errorHandler->ReportSameNameDifferentContent(report);
        }
        runStart = runEnd;
    }
}

} // namespace LM
