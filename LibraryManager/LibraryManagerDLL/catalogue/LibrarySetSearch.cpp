// The read side of the catalogue: ids, guids, names, file names, locations, types, ancestors and
// the fall-back chains that turn a stale reference into a usable part.
#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/FileTypeManager.hpp"
#include "InputOutput/Name.hpp"

namespace LM {

namespace {

// Names with "/" are stored with ":", which a path can hold.
KL::UniString NormalisedName(const KL::UniString& name) {
    KL::UniString normalised(name);
    normalised.ReplaceAll(u'/', u':');
    return normalised;
}

bool IsTypeIn(const FTM::GeneralID& inner, const FTM::GeneralID& outer) {
    return FTM::FileTypeManager::GetCurrent().IsTypeOrGroupInTypeOrGroup(inner, outer);
}

bool KeptBy(LibPartSet::SearchType type, const LibPart& part) {
    return type == LibPartSet::ValidRecords ? part.IsValid() : !part.IsValid();
}

// The first record of a range that `keep` accepts, or -1.
template <typename Keep>
int FirstIn(const LibPartSet& store, const LibPartSet::IndexRange& range, Keep keep) {
    for (auto at = range.first; at != range.second; ++at)
        if (keep(store.GetLibPart(*at)))
            return static_cast<int>(*at);
    return -1;
}

LibpartSearchCompatibility CompatibilityOf(LibrarySet::LibPartSearchMode mode,
                                           LibpartSearchCompatibility stored) {
    if (mode == 0)
        return stored;
    return mode == 1 ? 1 : 0;
}

constexpr unsigned NoCount = static_cast<unsigned>(-1);

} // namespace

const LibPart* LibrarySet::SearchLibPart(const IO::Location& location, SearchMode mode) const {
    IO::Name last;
    if (libParts == nullptr || location.IsEmpty() || location.GetLastLocalName(&last) != 0)
        return nullptr;
    const int index = FirstIn(*libParts, libParts->FileNameRange(last.GetText()), [&](const LibPart& part) {
        return part.IsValid() && (part.GetLocation() == location ||
                                  (mode == OrigLocationToo && part.GetOrigLocation() == location));
    });
    return GetLibPartByIndex(index);
}

int LibrarySet::SearchLibPartDocuNameIndex(const KL::UniString& name) const {
    if (libParts == nullptr)
        return -1;
    return FirstIn(*libParts, libParts->NameRange(name), [](const LibPart& part) { return part.IsValid(); });
}

int LibrarySet::SearchLibPartFileNameIndex(const KL::UniString& fileName) const {
    if (libParts == nullptr)
        return -1;
    return FirstIn(*libParts, libParts->FileNameRange(fileName),
                   [](const LibPart& part) { return part.IsValid(); });
}

const LibPart* LibrarySet::SearchLibPartDocuName(const KL::UniString& name) const {
    return GetLibPartByIndex(SearchLibPartDocuNameIndex(name));
}

const LibPart* LibrarySet::SearchLibPartFileName(const KL::UniString& fileName) const {
    return GetLibPartByIndex(SearchLibPartFileNameIndex(fileName));
}

const LibPart* LibrarySet::SearchLibPartDocuName(const KL::UniString& name,
                                                 const FTM::GeneralID& type) const {
    return SearchByNameAndType(false, name, type);
}

const LibPart* LibrarySet::SearchLibPartFileName(const KL::UniString& fileName,
                                                 const FTM::GeneralID& type) const {
    return SearchByNameAndType(true, fileName, type);
}

// Plain-text parts are found whichever member of the text group was asked for.
FTM::GeneralID LibrarySet::AdjustedSearchType(const FTM::GeneralID& requested) const {
    if (textTypeGroupOverride != FTM::UnknownGroup && IsTypeIn(requested, textTypeGroupOverride))
        return textTypeGroupOverride;
    return requested;
}

const LibPart* LibrarySet::SearchByNameAndType(bool fileNames, const KL::UniString& name,
                                               const FTM::GeneralID& type) const {
    if (libParts == nullptr)
        return nullptr;
    const LibPartSet::IndexRange range =
        fileNames ? libParts->FileNameRange(name) : libParts->NameRange(name);
    if (range.first == range.second)
        return nullptr;
    const FTM::GeneralID wanted = AdjustedSearchType(type);
    return GetLibPartByIndex(FirstIn(*libParts, range, [&](const LibPart& part) {
        return part.IsValid() && IsTypeIn(part.GetGeneralFileType(), wanted);
    }));
}

const LibPart* LibrarySet::SearchDocuNameByAncestor(const KL::UniString& name,
                                                    const KL::UnID& ancestor) const {
    if (libParts == nullptr)
        return nullptr;
    return GetLibPartByIndex(FirstIn(*libParts, libParts->NameRange(name), [&](const LibPart& part) {
        return part.IsValid() && HasAncestor(part, ancestor);
    }));
}

const LibPart* LibrarySet::GiveIndexAndPart(int found, int* index) const {
    if (index != nullptr)
        *index = found;
    return GetLibPartByIndex(found);
}

int LibrarySet::ValidOrNone(int index) const {
    return IsLibPartValid(GetLibPartByIndex(index)) ? index : -1;
}

const LibPart* LibrarySet::SearchSymbolByGuid(const KL::Guid& guid, int* index) const {
    return GiveIndexAndPart(libParts != nullptr ? ValidOrNone(libParts->FindIndexByGuid(guid)) : -1, index);
}

int LibrarySet::SearchSymbolByUnIDIndex(const KL::UnID& unId) const {
    if (libParts == nullptr || unId.IsNull())
        return -1;
    return ValidOrNone(libParts->FindIndexByUnId(unId));
}

const LibPart* LibrarySet::SearchSymbolByUnID(const KL::UnID& unId, int* index) const {
    return GiveIndexAndPart(SearchSymbolByUnIDIndex(unId), index);
}

int LibrarySet::SearchLibPartAnyhowIndex(const KL::UnID& unId, const KL::UniString& name,
                                         bool* ambiguous) const {
    if (ambiguous != nullptr)
        *ambiguous = false;
    if (libParts == nullptr)
        return -1;
    const KL::UniString key = NormalisedName(name);
    if (!unId.IsNull()) {
        if (const int exact = ValidOrNone(libParts->FindIndexByUnId(unId)); exact != -1)
            return exact;
        if (const int byMainGuid = SearchByMainGuidPreferringName(unId.mainGuid, key, ambiguous);
            byMainGuid != -1)
            return byMainGuid;
    } else if (!key.IsEmpty()) {
        // An old part without an id of its own, known by its name alone.
        const int oldPart = FirstIn(*libParts, libParts->NameRange(key), [](const LibPart& part) {
            return part.IsValid() && part.IsSymbol() && part.GetOwnUnID().IsNull();
        });
        if (oldPart != -1)
            return oldPart;
    }
    if (key.IsEmpty())
        return -1;
    // Both name searches give valid records only.
    const int byName = SearchLibPartDocuNameIndex(name);
    return byName != -1 ? byName : SearchLibPartFileNameIndex(name);
}

// Of several revisions of one type, the second found is the settled default; a matching document
// name outranks it.
int LibrarySet::SearchByMainGuidPreferringName(const KL::Guid& mainGuid, const KL::UniString& name,
                                               bool* ambiguous) const {
    KL::Array<int> found;
    const LibPartSet::IndexRange range = libParts->MainGuidRange(mainGuid);
    for (auto at = range.first; at != range.second; ++at)
        if (libParts->GetLibPart(*at).IsValid())
            found.Push(static_cast<int>(*at));
    if (found.GetSize() <= 1)
        return found.IsEmpty() ? -1 : found[0];
    if (ambiguous != nullptr)
        *ambiguous = true;
    if (!name.IsEmpty())
        for (int index : found)
            if (libParts->GetLibPart(static_cast<std::size_t>(index))
                    .GetDocumentName()
                    .Compare(name, KL::CaseInsensitive) == 0)
                return index;
    return found[1];
}

const LibPart* LibrarySet::SearchLibPartAnyhow(const KL::UnID& unId, const KL::UniString& name,
                                               bool* ambiguous) const {
    return GetLibPartByIndex(SearchLibPartAnyhowIndex(unId, name, ambiguous));
}

const LibPart* LibrarySet::SearchAnySymbolByMainID(const KL::UnID& unId, bool* ambiguous) const {
    return SearchLibPartAnyhow(unId, KL::UniString(), ambiguous);
}

int LibrarySet::SearchDummySymbolIndex(const KL::UnID& unId, const KL::UniString* name) const {
    if (libParts == nullptr)
        return -1;
    if (unId.IsNull()) {
        if (name == nullptr || name->IsEmpty())
            return -1;
        return FirstIn(*libParts, libParts->NameRange(*name),
                       [](const LibPart& part) { return KeptBy(LibPartSet::NotValidRecords, part); });
    }
    const int found = libParts->FindIndexByUnId(unId);
    return found != -1 &&
                   libParts->GetLibPart(static_cast<std::size_t>(found)).GetState() == LibPartStateDummy
               ? found
               : -1;
}

const LibPart* LibrarySet::SearchDummySymbol(const KL::UnID& unId, const KL::UniString* name,
                                             int* index) const {
    return GiveIndexAndPart(SearchDummySymbolIndex(unId, name), index);
}

int LibrarySet::SearchSymbolsByAncestor(const KL::UnID& ancestor, KL::Array<const LibPart*>& parts,
                                        bool placeableOnly) const {
    parts.Clear();
    for (int i = 0; i < GetLibPartNumber(); ++i) {
        const LibPart& part = libParts->GetLibPart(static_cast<std::size_t>(i));
        if (part.GetGeneralFileType() != GetSymbolFileGroup() || !part.IsValid())
            continue;
        if (placeableOnly && !(part.IsSymbol() && part.IsPlaceable()))
            continue;
        if (HasAncestor(part, ancestor))
            parts.Push(&part);
    }
    return static_cast<int>(parts.GetSize());
}

template <typename Append>
unsigned LibrarySet::CollectByMainGuid(const KL::Guid& mainGuid, int searchType, Append append) const {
    unsigned count = 0;
    const LibPartSet::IndexRange range = libParts->MainGuidRange(mainGuid);
    for (auto at = range.first; at != range.second; ++at) {
        if (!KeptBy(static_cast<LibPartSet::SearchType>(searchType), libParts->GetLibPart(*at)))
            continue;
        append(*at);
        ++count;
    }
    return count;
}

unsigned LibrarySet::SearchSymbolsByMainIDIdx(const KL::UnID& unId, KL::PagedArray<int, 8>* indices) const {
    if (libParts == nullptr || indices == nullptr)
        return NoCount;
    return CollectByMainGuid(unId.mainGuid, LibPartSet::ValidRecords,
                             [&](std::uint32_t index) { indices->Push(static_cast<int>(index)); });
}

unsigned LibrarySet::SearchSymbolsByMainID(const KL::UnID& unId, KL::PagedArray<const LibPart*, 8>* parts,
                                           int searchType) const {
    if (libParts == nullptr || parts == nullptr)
        return NoCount;
    return CollectByMainGuid(unId.mainGuid, searchType,
                             [&](std::uint32_t index) { parts->Push(&libParts->GetLibPart(index)); });
}

unsigned LibrarySet::SearchDuplicateSymbolsByMainID(const KL::Guid& mainGuid,
                                                    KL::PagedArray<const LibPart*, 8>* parts) const {
    if (libParts == nullptr || parts == nullptr)
        return NoCount;
    unsigned count = 0;
    for (std::size_t i = 0; i < libParts->GetDuplicateCount(); ++i) {
        const LibPart& duplicate = libParts->GetDuplicate(i);
        if (duplicate.GetState() != LibPartStateDeleted && duplicate.GetOwnUnID().mainGuid == mainGuid) {
            parts->Push(&duplicate);
            ++count;
        }
    }
    return count;
}

void LibrarySet::SearchSymbolFileType(const FTM::GeneralID& type,
                                      KL::PagedArray<const LibPart*, 8>& parts) const {
    if (libParts == nullptr)
        return;
    const FTM::GeneralID wanted = AdjustedSearchType(type);
    for (std::uint32_t index : libParts->GetIndexByFileName()) {
        const LibPart& part = libParts->GetLibPart(index);
        if (part.IsValid() && IsTypeIn(part.GetGeneralFileType(), wanted))
            parts.Push(&part);
    }
}

const LibPart* LibrarySet::SearchSymbolFromMigrationTable(const KL::UnID& unId,
                                                          KL::Array<MigrationLibPart>* parts) const {
    const KL::Array<LibPartCache>* entry =
        libParts != nullptr ? libParts->FindMigrations(unId.mainGuid) : nullptr;
    if (entry == nullptr || entry->IsEmpty())
        return nullptr;
    KL::Array<MigrationLibPart> local;
    KL::Array<MigrationLibPart>& out = parts != nullptr ? *parts : local;
    out.Clear();
    // Parts still in use come before those that are themselves on their way out.
    for (const bool inUse : {true, false})
        for (const LibPartCache& replacement : *entry)
            if ((replacement.part->GetMigrationValue() == 0) == inUse)
                out.Push(
                    MigrationLibPart{replacement.part, replacement.migrationFlag, replacement.migrationRank});
    return out[0].libPart;
}

const LibPart* LibrarySet::GetLibPartArrayFromMigrationGuidTable(const LibPartId& id,
                                                                 KL::Array<const LibPart*>* parts) const {
    KL::Array<MigrationLibPart> replacements;
    const LibPart* first = SearchSymbolFromMigrationTable(id.GetUnId(), &replacements);
    if (parts != nullptr)
        for (const MigrationLibPart& replacement : replacements)
            parts->Push(replacement.libPart);
    return first;
}

const LibPart* LibrarySet::SearchComplex(const KL::UnID& unId, const KL::UniString& name,
                                         LibpartSearchCompatibility compatibility, bool* ambiguous,
                                         KL::Array<const LibPart*>* migrationParts, bool* migrated) const {
    // Only `ambiguous` starts afresh: `migrated` is only ever set, so a caller's value stands
    // when no migration answers.
    *ambiguous = false;
    const LibPart* found = nullptr;
    if (unId.IsNull()) {
        found = SearchLibPartDocuName(name);
        if (found == nullptr)
            found = SearchLibPartFileName(name);
    } else {
        found = SearchAnySymbolByMainID(unId, ambiguous);
    }
    if (compatibility == 0 && !IsLibPartValid(found)) {
        found = SearchDummySymbol(unId, &name, nullptr);
        if (const LibPart* replacement =
                GetLibPartArrayFromMigrationGuidTable(LibPartId(unId, name), migrationParts)) {
            found = replacement;
            *migrated = true;
        }
        if (!IsLibPartValid(found))
            if (const LibPart* anyhow = SearchLibPartAnyhow(unId, name, ambiguous))
                found = anyhow;
    }
    if (!IsLibPartValid(found) || *migrated)
        return found;
    // A part so marked is given out only by way of a migration, never by its own id.
    if (found->GetMigrationValue() == 4) {
        *ambiguous = false;
        return nullptr;
    }
    return found;
}

const LibPart* LibrarySet::SearchLibPartComplex(const KL::UnID& unId, const KL::UniString& name,
                                                LibPartSearchMode mode, bool* ambiguous,
                                                KL::Array<const LibPart*>* migrationParts,
                                                bool* migrated) const {
    bool localAmbiguous = false;
    bool localMigrated = false;
    KL::Array<const LibPart*> localParts;
    return SearchComplex(unId, name, CompatibilityOf(mode, searchCompatibility),
                         ambiguous != nullptr ? ambiguous : &localAmbiguous,
                         migrationParts != nullptr ? migrationParts : &localParts,
                         migrated != nullptr ? migrated : &localMigrated);
}

const LibPart* LibrarySet::SearchSymbolComplex(const KL::UnID& unId, const KL::UniString& name,
                                               LibPartSearchMode mode, bool* ambiguous,
                                               KL::Array<const LibPart*>* migrationParts,
                                               bool* migrated) const {
    const LibPart* found = SearchLibPartComplex(unId, name, mode, ambiguous, migrationParts, migrated);
    return found != nullptr && found->IsSymbol() ? found : nullptr;
}

const LibPart* LibrarySet::GetSymbolAnyhow(const LibPartId& id, bool* isDummy, bool* ambiguous,
                                           bool* migrated, bool doNotRemember,
                                           KL::Array<const LibPart*>* migrationParts) {
    bool localDummy = false;
    bool localAmbiguous = false;
    bool localMigrated = false;
    isDummy = isDummy != nullptr ? isDummy : &localDummy;
    ambiguous = ambiguous != nullptr ? ambiguous : &localAmbiguous;
    migrated = migrated != nullptr ? migrated : &localMigrated;
    *isDummy = *ambiguous = *migrated = false;
    if (migrationParts != nullptr)
        migrationParts->Clear();
    if (libParts == nullptr)
        return nullptr;

    if (const LibPartCache* remembered = libParts->FindId(id)) {
        if (remembered->part == nullptr || !remembered->part->IsSymbol())
            return nullptr;
        *isDummy = remembered->resultFlagFirst;
        *ambiguous = remembered->resultFlagSecond;
        const LibPart* found = remembered->part;
        if (*isDummy)
            if (const LibPart* replacement = GetLibPartArrayFromMigrationGuidTable(id, migrationParts)) {
                found = replacement;
                *migrated = true;
            }
        return found;
    }

    const LibPart* found =
        SearchSymbolComplex(id.GetUnId(), id.GetName(), 0, ambiguous, migrationParts, migrated);
    if (found == nullptr) {
        found = SearchDummySymbol(id.GetUnId(), &id.GetName(), nullptr);
        *isDummy = found != nullptr;
        if (const LibPart* replacement = GetLibPartArrayFromMigrationGuidTable(id, migrationParts)) {
            found = replacement;
            *migrated = true;
        }
    }
    if (!doNotRemember && !*migrated)
        AddIdToLibPartTable(id, found, isDummy, ambiguous);
    return found;
}

bool LibrarySet::IsSameLibPartByUnId(const KL::UnID& a, const KL::UnID& b) const {
    if (a == b)
        return true;
    return SearchLibPartAnyhow(a, KL::UniString(), nullptr) ==
           SearchLibPartAnyhow(b, KL::UniString(), nullptr);
}

} // namespace LM
