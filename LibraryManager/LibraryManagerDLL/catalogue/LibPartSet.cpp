#include "catalogue/LibPartSet.hpp"

#include "catalogue/LibraryErrorHandler.hpp"
#include "catalogue/LibrarySet.hpp"
#include "lists/FolderSet.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/Name.hpp"
#include "KLMSections/MigrationTable.hpp"
#include "LibPartFile/SymbolFile.hpp"

#include <algorithm>
#include <memory>
#include <numeric>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

namespace LM {

namespace {

// "MGRT", read as a big-endian number.
constexpr LPF::SectionTag MigrationSectionTag = LPF::Tags::MigrationTable;

// Scripts sort among symbols: a script and a symbol of one name are neighbours.
std::int32_t SortableType(const LibPart& part) {
    const FTM::GeneralID& type = part.GetGeneralFileType();
    return (type == GetScriptFileType() ? GetSymbolFileGroup() : type).GetValue();
}

KL::UniString FileNameOf(const LibPart& part) {
    return part.GetFileName();
}

const KL::UniString& DocumentNameOf(const LibPart& part) {
    return part.GetDocumentName();
}

KL::UnID UnIdOf(const LibPart& part) {
    return part.GetOwnUnID();
}

KL::Guid GuidOf(const LibPart& part) {
    return part.GetGuid();
}

// A part's own id as the id table keys it. The name counts only with a null id, so a part with an
// id is keyed without a copy of its name.
LibPartId OwnIdOf(const LibPart& part) {
    const KL::UnID unId = part.GetOwnUnID();
    return unId.IsNull() ? LibPartId(&part) : LibPartId(unId, KL::UniString());
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

// A record outside the part table, such as one of the duplicate store, has no index of its own.
int LibPartSet::GetIndex(const LibPart* part) const {
    if (part == nullptr)
        return -1;
    const std::int32_t index = part->storeIndex;
    const bool held = index >= 0 && static_cast<std::size_t>(index) < parts.GetSize() &&
                      &parts[static_cast<std::size_t>(index)] == part;
    return held ? index : -1;
}

int LibPartSet::FindValidIndex(const IO::Location& location) const {
    for (std::size_t i = 0; i < parts.GetSize(); ++i)
        if (parts[i].IsValid() && parts[i].GetLocation() == location)
            return static_cast<int>(i);
    return -1;
}

// A non-null KL::UnID is the whole identity, whatever the name.
const LibPartCache* LibPartSet::FindId(const LibPartId& id) const {
    return id.GetUnId().IsNull() ? nameIdToPart.GetPtr(id) : unIdToPart.GetPtr(id.GetUnId());
}

void LibPartSet::PutId(const LibPartId& id, const LibPartCache& entry) {
    if (id.GetUnId().IsNull())
        nameIdToPart.Put(id, entry);
    else
        unIdToPart.Put(id.GetUnId(), entry);
}

const LibPart* LibPartSet::FindPart(const LibPartId& id) const {
    const LibPartCache* entry = FindId(id);
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

LibPart* LibPartSet::Register(std::size_t index, RegisterMode mode, bool preferNew,
                              const MigrationTable* migration, LibPart** duplicateSlot) {
    if (duplicateSlot != nullptr)
        *duplicateSlot = nullptr;
    LibPart& record = parts[index];
    const LibPartId id = OwnIdOf(record);
    const KL::UnID& unId = id.GetUnId();
    // The record's chain is found or made now, so that one search serves the check and the link;
    // a duplicate leaves it to its winner.
    ChainStart* chain = unId.mainGuid.IsNull() ? nullptr : &mainGuidChains[unId.mainGuid];
    if (chain != nullptr) {
        // Parts without a full id record nothing, so the search goes on past them; one record
        // per newcomer is enough, since the conflict table holds every revision.
        for (std::int32_t at = chain->first; at >= 0;
             at = parts[static_cast<std::size_t>(at)].nextSameMainGuid) {
            const LibPart& other = parts[static_cast<std::size_t>(at)];
            if (other.GetOwnUnID() != unId && AddRevisionConflict(other, record))
                break;
        }
    }

    const LibPartCache* existing = FindId(id);
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
        if (chain != nullptr && chain->first < 0)
            mainGuidChains.Delete(unId.mainGuid);
        return winner;
    }

    EnterIndex(&record, static_cast<std::uint32_t>(index));
    AddOwnIds(&record, false, true);
    if (chain != nullptr)
        AppendToChain(*chain, static_cast<std::uint32_t>(index));
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

// Chains are short, a guid's revisions: appending and unlinking walk them. A record already in
// the chain stays where it is.
void LibPartSet::AppendToChain(ChainStart& chain, std::uint32_t index) {
    std::int32_t* link = &chain.first;
    while (*link >= 0) {
        if (*link == static_cast<std::int32_t>(index))
            return;
        link = &parts[static_cast<std::size_t>(*link)].nextSameMainGuid;
    }
    *link = static_cast<std::int32_t>(index);
    parts[index].nextSameMainGuid = -1;
}

// A record is unlinked under the main guid it has, or else under the one it was registered with,
// should its id have changed meanwhile.
void LibPartSet::UnlinkMainGuid(std::uint32_t index) {
    LibPart& record = parts[index];
    const KL::Guid own = record.GetOwnUnID().mainGuid;
    for (const KL::Guid& mainGuid : {own, record.registeredUnId.mainGuid}) {
        ChainStart* chain = mainGuid.IsNull() ? nullptr : mainGuidChains.GetPtr(mainGuid);
        if (chain == nullptr)
            continue;
        std::int32_t* link = &chain->first;
        while (*link >= 0 && *link != static_cast<std::int32_t>(index))
            link = &parts[static_cast<std::size_t>(*link)].nextSameMainGuid;
        if (*link < 0)
            continue;
        *link = std::exchange(record.nextSameMainGuid, -1);
        if (chain->first < 0)
            mainGuidChains.Delete(mainGuid);
        return;
    }
}

LibPart* LibPartSet::FindDuplicateOf(const LibPartId& id, const LibPart& record) {
    for (LibPart& candidate : duplicates) {
        if (candidate.GetState() == LibPartStateDeleted || OwnIdOf(candidate) != id)
            continue;
        if (id.GetUnId().IsNull() && candidate.GetFileName() != record.GetFileName())
            continue;
        return &candidate;
    }
    return nullptr;
}

bool LibPartSet::Unregister(std::size_t index) {
    LibPart& record = parts[index];
    const LibPartId id = OwnIdOf(record);
    RemoveRevisionConflict(record);

    LibPart* promoted = nullptr;
    const LibPartCache* entry = FindId(id);
    if (entry != nullptr && entry->part == &record && IsDuplicateOf(entry, id, record)) {
        nameDuplicates.Delete(&record);
        idDuplicates.Delete(&record);
        if (LibPart* duplicate = FindDuplicateOf(id, record)) {
            promoted = &parts.PushNew();
            duplicate->MoveAssignment(promoted);
        }
    }

    UnlinkMainGuid(static_cast<std::uint32_t>(index));
    RemoveIds(&record);
    record.storeIndex = -1;
    RemoveMigrations(&record);
    if (promoted == nullptr)
        return false;
    const auto newIndex = static_cast<std::uint32_t>(parts.GetSize() - 1);
    EnterIndex(promoted, newIndex);
    AddOwnIds(promoted, false, true);
    if (const KL::Guid mainGuid = promoted->GetOwnUnID().mainGuid; !mainGuid.IsNull())
        AppendToChain(mainGuidChains[mainGuid], newIndex);
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
    PutId(LibPartId(), entry);
}

void LibPartSet::AddId(const LibPartId& id, const LibPart* part, bool resultFlagFirst,
                       bool resultFlagSecond) {
    if (part == nullptr)
        return;
    LibPartCache entry;
    entry.part = part;
    entry.resultFlagFirst = resultFlagFirst;
    entry.resultFlagSecond = resultFlagSecond;
    entry.isOwnId = id == LibPartId(part);
    PutId(id, entry);
    partToIds[part].Add(id);
}

void LibPartSet::AddOwnIds(LibPart* part, bool resultFlagFirst, bool withFileName) {
    const LibPartId own = OwnIdOf(*part);
    PutId(own, OwnEntry(part, resultFlagFirst));
    if (!own.GetUnId().IsNull()) {
        part->registeredUnId = own.GetUnId();
        return;
    }
    KL::HashSet<LibPartId>& ids = partToIds[part];
    ids.Add(own);
    if (!withFileName)
        return;
    const LibPartId byFileName(KL::NULLUnID, part->GetFileName());
    PutId(byFileName, OwnEntry(part, resultFlagFirst));
    ids.Add(byFileName);
}

void LibPartSet::ForgetId(const LibPartId& id, const LibPart* part) {
    const LibPartCache* entry = FindId(id);
    if (entry == nullptr || entry->part != part)
        return;
    if (id.GetUnId().IsNull())
        nameIdToPart.Delete(id);
    else
        unIdToPart.Delete(id.GetUnId());
}

void LibPartSet::RemoveIds(LibPart* part) {
    if (!part->registeredUnId.IsNull())
        ForgetId(LibPartId(std::exchange(part->registeredUnId, KL::NULLUnID), KL::UniString()), part);
    const KL::HashSet<LibPartId>* ids = partToIds.GetPtr(part);
    if (ids == nullptr)
        return;
    for (const LibPartId& id : *ids)
        ForgetId(id, part);
    partToIds.Delete(part);
}

void LibPartSet::ResetIdTable() {
    unIdToPart.Clear();
    nameIdToPart.Clear();
    partToIds.Clear();
    for (LibPart& part : parts) {
        part.registeredUnId = KL::NULLUnID;
        if (part.IsValid())
            AddOwnIds(&part, false, true);
    }
}

LibPart& LibPartSet::AppendPartToFill() {
    return parts.PushReused([](LibPart& spare) { spare.Recycle(); });
}

void LibPartSet::TakeSpares(LibPartSet& retired) {
    if (!parts.IsEmpty())
        return;
    parts.Swap(retired.parts);
    parts.Retire();
}

void LibPartSet::DropSpares() {
    parts.DropRetired();
}

void LibPartSet::Reserve(std::size_t more) {
    const std::size_t count = parts.GetSize() + more;
    unIdToPart.Reserve(count);
    mainGuidChains.Reserve(count);
}

void LibPartSet::BuildSortedIndices() {
    // Both kinds of index take every record that is not a hole, in record order.
    const auto build = [this](auto* index, auto addTo) {
        typename std::remove_pointer_t<decltype(index)>::Builder builder(parts.GetSize());
        for (std::uint32_t i = 0; i < parts.GetSize(); ++i)
            if (parts[i].GetState() != LibPartStateDeleted)
                addTo(builder, parts[i], i);
        index->Build(std::move(builder));
    };
    const auto byName = [](auto nameOf) {
        return [nameOf](NameIndex::Builder& builder, const LibPart& part, std::uint32_t record) {
            builder.Add(nameOf(part), SortableType(part), record);
        };
    };
    const auto byId = [](auto idOf) {
        return [idOf](auto& builder, const LibPart& part, std::uint32_t record) {
            builder.Add(part.IsSymbol(), idOf(part), part.GetDocumentName(), record);
        };
    };
    // The four indices share nothing but the records they read, and are built two by two on two
    // threads. An index by name, whose keys are folded and compared as text, takes about twice as
    // long as one by id, so each thread builds one of each.
    const auto buildHalf = [&, this] {
        build(&indexByName, byName(DocumentNameOf));
        build(&indexByGuid, byId(GuidOf));
    };
    std::jthread half; // joined however this ends
    try {
        half = std::jthread(buildHalf);
    } catch (const std::system_error&) {
        buildHalf(); // no thread to be had: one after the other
    }
    build(&indexByFileName, byName(FileNameOf));
    build(&indexByUnId, byId(UnIdOf));
}

void LibPartSet::InsertInSortedIndices(std::uint32_t index) {
    const LibPart& part = parts[index];
    indexByName.Insert(part.GetDocumentName(), SortableType(part), index);
    indexByFileName.Insert(part.GetFileName(), SortableType(part), index);
    indexByUnId.Insert(part.IsSymbol(), part.GetOwnUnID(), part.GetDocumentName(), index);
    indexByGuid.Insert(part.IsSymbol(), part.GetGuid(), part.GetDocumentName(), index);
}

void LibPartSet::RemoveFromSortedIndices(std::uint32_t index) {
    indexByName.Remove(index);
    indexByFileName.Remove(index);
    indexByUnId.Remove(index);
    indexByGuid.Remove(index);
}

namespace {

int FirstRecordOf(const LibPartSet::IndexRange& range) {
    return range.first == range.second ? -1 : static_cast<int>(*range.first);
}

} // namespace

int LibPartSet::FindIndexByUnId(const KL::UnID& unId) const {
    return FirstRecordOf(indexByUnId.SymbolRange(unId, [](const KL::UnID& id) { return id; }));
}

int LibPartSet::FindIndexByGuid(const KL::Guid& guid) const {
    return FirstRecordOf(indexByGuid.SymbolRange(guid, [](const KL::Guid& id) { return id; }));
}

LibPartSet::IndexRange LibPartSet::MainGuidRange(const KL::Guid& mainGuid) const {
    return indexByUnId.SymbolRange(mainGuid, [](const KL::UnID& id) { return id.mainGuid; });
}

LibPartSet::IndexRange LibPartSet::NameRange(const KL::UniString& name) const {
    return indexByName.EqualRange(NameQuery(name));
}

LibPartSet::IndexRange LibPartSet::FileNameRange(const KL::UniString& fileName) const {
    const NameQuery query(fileName);
    if (!IO::Name::IsValidText(query.GetText()))
        return {indexByFileName.GetRecords().end(), indexByFileName.GetRecords().end()};
    return indexByFileName.EqualRange(query);
}

void LibPartSet::RemapFolderIndices(const std::vector<std::int32_t>& newIndex) {
    for (LibPart& part : parts) {
        const std::int32_t folder = part.GetFolderIndex();
        if (folder >= 0 && static_cast<std::size_t>(folder) < newIndex.size())
            part.SetFolderIndex(newIndex[static_cast<std::size_t>(folder)]);
    }
}

// Nothing is recorded against a part that has no full id of its own.
bool LibPartSet::AddRevisionConflict(const LibPart& existing, const LibPart& newcomer) {
    const KL::UnID existingId = existing.GetOwnUnID();
    if (existingId.mainGuid.IsNull() || existingId.revGuid.IsNull())
        return false;
    const KL::Guid newRevision = newcomer.GetOwnUnID().revGuid;
    auto* revisions = revisionConflicts.GetPtr(existingId.mainGuid);
    if (revisions == nullptr) {
        KL::HashTable<KL::Guid, KL::Array<DuplicateLibpartData>> fresh;
        fresh[existingId.revGuid].Push(MakeDuplicateData(existing));
        fresh[newRevision].Push(MakeDuplicateData(newcomer));
        revisionConflicts.Put(existingId.mainGuid, std::move(fresh));
        return true;
    }
    (*revisions)[newRevision].Push(MakeDuplicateData(newcomer));
    return true;
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
DuplicateReport AcceptedMembers(ILibraryErrorHandler& handler,
                                const KL::Array<DuplicateLibpartData>& members) {
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

// The groups of a table in the catalogue order of their winners: the table is keyed by address,
// and reports must not change with where the allocator put the records.
std::vector<LibPartSet::DuplicateTable::const_iterator>
LibPartSet::InCatalogueOrder(const DuplicateTable& table) const {
    std::vector<DuplicateTable::const_iterator> groups;
    groups.reserve(table.GetSize());
    for (auto group = table.begin(); group != table.end(); ++group)
        groups.push_back(group);
    std::sort(groups.begin(), groups.end(), [this](const auto& a, const auto& b) {
        return static_cast<std::uint32_t>(GetIndex(a->first)) <
               static_cast<std::uint32_t>(GetIndex(b->first));
    });
    return groups;
}

void LibPartSet::UpdateDuplicateCounters() const {
    if (errorHandler == nullptr)
        return;
    errorHandler->Reset();
    for (const auto& group : InCatalogueOrder(nameDuplicates)) {
        const DuplicateReport report = AcceptedMembers(*errorHandler, group->second);
        if (report.count > 1)
            errorHandler->ReportNameDuplicate(report);
    }
    for (const auto& group : InCatalogueOrder(idDuplicates)) {
        DuplicateReport report = AcceptedMembers(*errorHandler, group->second);
        report.unId = group->first->GetOwnUnID();
        if (report.count > 1)
            errorHandler->ReportIdDuplicate(report);
    }
    ReportRevisionConflicts();
    ReportSameNameDifferentContents();
}

// One report per main guid, its members revision by revision; a conflict needs two revisions
// with a member the handler accepts.
void LibPartSet::ReportRevisionConflicts() const {
    for (const auto& [mainGuid, revisions] : revisionConflicts) {
        DuplicateReport conflict;
        conflict.unId = KL::UnID(mainGuid, KL::NULLGuid);
        int revisionCount = 0;
        for (const auto& [revision, members] : revisions) {
            const DuplicateReport accepted = AcceptedMembers(*errorHandler, members);
            if (accepted.count <= 0)
                continue;
            if (revisionCount++ == 0)
                conflict.name = accepted.name;
            conflict.count += accepted.count;
            for (std::size_t i = 0; i < accepted.locations.GetSize(); ++i) {
                conflict.locations.Push(accepted.locations[i]);
                conflict.actLibIndices.Push(accepted.actLibIndices[i]);
                conflict.names.Push(accepted.names[i]);
                conflict.revisions.Push(revision);
            }
        }
        if (revisionCount > 1)
            errorHandler->ReportRevisionConflict(conflict);
    }
}

// Symbols of one name and type whose ids differ: the host may load the wrong one by name.
void LibPartSet::ReportSameNameDifferentContents() const {
    const FolderSet* folders = librarySet != nullptr ? librarySet->GetFolderSet() : nullptr;
    const IndexArray& byName = indexByName.GetRecords();
    std::size_t runStart = 0;
    while (runStart < byName.size()) {
        const LibPart& first = parts[byName[runStart]];
        std::size_t runEnd = runStart + 1;
        while (runEnd < byName.size() && indexByName.HaveEqualKeys(runStart, runEnd))
            ++runEnd;
        const bool isSymbolRun = SortableType(first) == GetSymbolFileGroup().GetValue();
        const auto differs = [&](std::uint32_t i) { return parts[i].GetOwnUnID() != first.GetOwnUnID(); };
        if (runEnd - runStart > 1 && isSymbolRun &&
            std::any_of(byName.begin() + static_cast<std::ptrdiff_t>(runStart),
                        byName.begin() + static_cast<std::ptrdiff_t>(runEnd), differs)) {
            DuplicateReport report;
            report.name = first.GetDocumentName();
            report.count = static_cast<std::int32_t>(runEnd - runStart);
            for (std::size_t k = runStart; k < runEnd; ++k) {
                const LibPart& member = parts[byName[k]];
                const int folder = member.GetFolderIndex();
                report.locations.Push(member.GetLocation());
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
