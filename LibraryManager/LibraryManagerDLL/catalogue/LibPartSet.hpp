#pragma once

#include "catalogue/LibPart.hpp"
#include "catalogue/LibPartId.hpp"
#include "catalogue/NameIndex.hpp"
#include "catalogue/SortedIndex.hpp"
#include "catalogue/SymbolIndex.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/FlatHashTable.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/PagedArray.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <utility>
#include <vector>

class MigrationTable;

namespace LM {

class ILibraryErrorHandler;
class LibrarySet;

// What an id leads to, with what a search by it hands back to its caller.
struct LibPartCache {
    static constexpr std::int32_t NoRank = 0x7fffffff;

    const LibPart* part = nullptr;
    bool resultFlagFirst = false;
    bool resultFlagSecond = false;
    bool isOwnId = false;
    bool migrationFlag = false;
    std::int32_t migrationRank = NoRank;
};

// One member of a group of parts that claim the same identity.
struct DuplicateLibpartData {
    IO::Location location;
    KL::UniString name;
    KL::Guid revisionGuid;
    std::int32_t actLibIndex = -1;
    std::int32_t rank = LibPartCache::NoRank;
};

// The part store of one enumeration. A record's place in `parts` is its catalogue index; slots are
// never reused, so indices stay stable until the next Enumerate throws the store away. The store
// keeps its tables; the decisions of when to store, rebuild and report are the LibrarySet's.
class LM_EXPORT LibPartSet {
public:
    using PartTable = KL::PagedArray<LibPart, 256>;
    using IndexArray = std::vector<std::uint32_t>;
    using DuplicateTable = KL::HashTable<const LibPart*, KL::Array<DuplicateLibpartData>>;
    using RevisionTable = KL::HashTable<KL::Guid, KL::HashTable<KL::Guid, KL::Array<DuplicateLibpartData>>>;

    // Which records a collecting search keeps.
    enum SearchType { ValidRecords = 0, NotValidRecords = 1 };
    // How a record comes to be registered: just appended, or reloaded in its own slot.
    enum RegisterMode { AppendedRecord = 0, ReloadedRecord = 1 };

    LibPartSet(ILibraryErrorHandler* errorHandler, LibrarySet* librarySet);
    ~LibPartSet();
    LibPartSet(const LibPartSet&) = delete;
    LibPartSet& operator=(const LibPartSet&) = delete;

    std::size_t GetCount() const { return parts.GetSize(); }
    LibPart& GetLibPart(std::size_t index) { return parts[index]; }
    const LibPart& GetLibPart(std::size_t index) const { return parts[index]; }
    std::size_t GetDuplicateCount() const { return duplicates.GetSize(); }
    const LibPart& GetDuplicate(std::size_t index) const { return duplicates[index]; }
    LibPart& AppendPart() { return parts.PushNew(); }
    // A record for LibPart::FillValid: the next spare made over when one is left.
    LibPart& AppendPartToFill();
    // Into an empty set: the records of `retired`, a catalogue let go, stay where they are as
    // spares, which the records appended to fill are made of in turn. A pass over the same
    // libraries stores much the same files in the same order, so that their texts fit, and it
    // frees and allocates next to nothing for them.
    void TakeSpares(LibPartSet& retired);
    // The spares no record took, at the end of a pass.
    void DropSpares();
    // Registers where a record is, for records that skip registering (dummies).
    void EnterIndex(LibPart* part, std::uint32_t index) {
        part->storeIndex = static_cast<std::int32_t>(index);
    }
    // The catalogue index of a registered record, or -1.
    int GetIndex(const LibPart* part) const;
    // The first valid record at `location`, or -1; a scan, for single stores after enumeration.
    int FindValidIndex(const IO::Location& location) const;

    // Settles duplicates at once: the first record of an id stays, unless the handler refuses its
    // place or `preferNew`. Returns the record that holds the id; `*duplicateSlot` gets the
    // loser's slot in the duplicate store, or null.
    LibPart* Register(std::size_t index, RegisterMode mode, bool preferNew, const MigrationTable* migration,
                      LibPart** duplicateSlot);
    // The inverse; true when a duplicate of the record was promoted to a new slot at the end.
    bool Unregister(std::size_t index);
    // Turns a slot into a deleted hole that keeps its index.
    void MakeHole(std::size_t index);

    // A query with the null id finds a null part instead of failing.
    void AddNullIdEntry();
    // Valid until the next change of the ids.
    const LibPartCache* FindId(const LibPartId& id) const;
    const LibPart* FindPart(const LibPartId& id) const;
    // Remembers `part` under `id`; `isOwnId` is worked out here.
    void AddId(const LibPartId& id, const LibPart* part, bool resultFlagFirst, bool resultFlagSecond);
    // The record's own id, and for a record without a KL::UnID also its file name.
    void AddOwnIds(LibPart* part, bool resultFlagFirst, bool withFileName);
    // Forgets every id that still leads to `part`.
    void RemoveIds(LibPart* part);
    void ResetIdTable();

    // Room in the id tables for `more` records beyond those held, so that a pass that knows its
    // count does not grow them step by step.
    void Reserve(std::size_t more);

    // The four sorted indices, built once when a pass has stored everything, then kept by single
    // binary-search insertions. Deleted holes are in none of them.
    void BuildSortedIndices();
    void InsertInSortedIndices(std::uint32_t index);
    void RemoveFromSortedIndices(std::uint32_t index);
    const IndexArray& GetIndexByName() const { return indexByName.GetRecords(); }
    const IndexArray& GetIndexByFileName() const { return indexByFileName.GetRecords(); }
    const IndexArray& GetIndexByUnId() const { return indexByUnId.GetRecords(); }
    const IndexArray& GetIndexByGuid() const { return indexByGuid.GetRecords(); }
    // A record of the symbol types with this own id, by binary search; -1 if none.
    int FindIndexByUnId(const KL::UnID& unId) const;
    int FindIndexByGuid(const KL::Guid& guid) const;
    // Equal ranges of the sorted indices, each found by binary search; names without case, a "/"
    // searched as ":". A file name that no file could hold has no records.
    using IndexRange = SortedRange;
    IndexRange NameRange(const KL::UniString& name) const;
    IndexRange FileNameRange(const KL::UniString& fileName) const;
    IndexRange MainGuidRange(const KL::Guid& mainGuid) const;

    // Follows a sort of the folder set: `newIndex[old]` for every folder. Records in the duplicate
    // store keep their stale index.
    void RemapFolderIndices(const std::vector<std::int32_t>& newIndex);

    // Removes the first duplicate-store record at `location`; false when there is none.
    bool DeleteDuplicate(const IO::Location& location);
    // Rebuilds the handler's whole picture of duplicates from the tables.
    void UpdateDuplicateCounters() const;
    const DuplicateTable& GetNameDuplicates() const { return nameDuplicates; }
    const DuplicateTable& GetIdDuplicates() const { return idDuplicates; }
    const RevisionTable& GetRevisionConflicts() const { return revisionConflicts; }
    // Parts that declare they replace `mainGuid`.
    const KL::Array<LibPartCache>* FindMigrations(const KL::Guid& mainGuid) const {
        return migrationGuidToParts.GetPtr(mainGuid);
    }

    ILibraryErrorHandler* GetErrorHandler() const { return errorHandler; }
    LibrarySet* GetLibrarySet() const { return librarySet; }

private:
    DuplicateLibpartData MakeDuplicateData(const LibPart& part) const;
    std::vector<DuplicateTable::const_iterator> InCatalogueOrder(const DuplicateTable& table) const;
    void PutId(const LibPartId& id, const LibPartCache& entry);
    // Removes the entry of `id` when it leads to `part`.
    void ForgetId(const LibPartId& id, const LibPart* part);
    bool IsDuplicateOf(const LibPartCache* entry, const LibPartId& id, const LibPart& record) const;
    bool AddRevisionConflict(const LibPart& existing, const LibPart& newcomer);
    void RemoveRevisionConflict(const LibPart& record);
    void AddMigrations(const LibPart* part, const MigrationTable* migration);
    void RemoveMigrations(const LibPart* part);
    struct ChainStart;
    // The chain of registered records with a main guid, in the order they were registered.
    void AppendToChain(ChainStart& chain, std::uint32_t index);
    void UnlinkMainGuid(std::uint32_t index);
    LibPart* FindDuplicateOf(const LibPartId& id, const LibPart& record);
    void ReportRevisionConflicts() const;
    void ReportSameNameDifferentContents() const;

    PartTable parts;
    PartTable duplicates;
    NameIndex indexByName;
    NameIndex indexByFileName;
    SymbolIndex<KL::UnID> indexByUnId;
    SymbolIndex<KL::Guid> indexByGuid;
    // Ids with a KL::UnID, which nearly every part has, in a flat table: an entry a part, without a
    // heap block of its own. Ids that only a name makes lie apart.
    KL::FlatHashTable<KL::UnID, LibPartCache> unIdToPart;
    KL::HashTable<LibPartId, LibPartCache> nameIdToPart;
    // The ids each slot was entered under, beyond a non-null own id (which the slot keeps itself).
    KL::HashTable<const LibPart*, KL::HashSet<LibPartId>> partToIds;
    // The first slot of each main guid's chain (see LibPart::nextSameMainGuid).
    struct ChainStart {
        std::int32_t first = -1;
    };
    KL::FlatHashTable<KL::Guid, ChainStart> mainGuidChains;
    KL::HashTable<KL::Guid, KL::Array<LibPartCache>> migrationGuidToParts;
    ILibraryErrorHandler* errorHandler;
    LibrarySet* librarySet;
    DuplicateTable nameDuplicates;
    DuplicateTable idDuplicates;
    RevisionTable revisionConflicts;
};

} // namespace LM
