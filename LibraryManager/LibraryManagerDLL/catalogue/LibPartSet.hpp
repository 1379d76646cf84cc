#pragma once

#include "catalogue/LibPart.hpp"
#include "catalogue/LibPartId.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/PagedArray.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <vector>

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
// never reused, so indices stay stable until the next Enumerate throws the store away.
class LM_EXPORT LibPartSet {
public:
    using PartTable = KL::PagedArray<LibPart, 8>;
    using IndexArray = std::vector<std::uint32_t>;
    using DuplicateTable = KL::HashTable<const LibPart*, KL::Array<DuplicateLibpartData>>;

    LibPartSet(ILibraryErrorHandler* errorHandler, LibrarySet* librarySet);
    ~LibPartSet();
    LibPartSet(const LibPartSet&) = delete;
    LibPartSet& operator=(const LibPartSet&) = delete;

    std::size_t GetCount() const { return parts.GetSize(); }
    LibPart& GetLibPart(std::size_t index) { return parts[index]; }
    const LibPart& GetLibPart(std::size_t index) const { return parts[index]; }
    std::size_t GetDuplicateCount() const { return duplicates.GetSize(); }
    const LibPart& GetDuplicate(std::size_t index) const { return duplicates[index]; }

    // A query with the null id finds a null part instead of failing.
    void AddNullIdEntry();
    const LibPartCache* FindId(const LibPartId& id) const { return idToPart.GetPtr(id); }

    // The four sorted indices, built once when a pass has stored everything.
    void BuildSortedIndices();
    const IndexArray& GetIndexByName() const { return indexByName; }
    const IndexArray& GetIndexByFileName() const { return indexByFileName; }
    const IndexArray& GetIndexByUnId() const { return indexByUnId; }
    const IndexArray& GetIndexByGuid() const { return indexByGuid; }

    // Follows a sort of the folder set: `newIndex[old]` for every folder. Records in the duplicate
    // store keep their stale index.
    void RemapFolderIndices(const std::vector<std::int32_t>& newIndex);

    ILibraryErrorHandler* GetErrorHandler() const { return errorHandler; }
    LibrarySet* GetLibrarySet() const { return librarySet; }

private:
    PartTable parts;
    PartTable duplicates;
    IndexArray indexByName;
    IndexArray indexByFileName;
    IndexArray indexByUnId;
    IndexArray indexByGuid;
    KL::HashTable<const LibPart*, std::uint32_t> partToIndex;
    KL::HashTable<LibPartId, LibPartCache> idToPart;
    KL::HashTable<const LibPart*, KL::HashSet<LibPartId>> partToIds;
    KL::HashTable<KL::Guid, KL::Array<LibPartCache>> mainGuidToParts;
    KL::HashTable<KL::Guid, KL::Array<LibPartCache>> migrationGuidToParts;
    ILibraryErrorHandler* errorHandler;
    LibrarySet* librarySet;
    DuplicateTable nameDuplicates;
    DuplicateTable idDuplicates;
    KL::HashTable<KL::Guid, KL::HashTable<KL::Guid, KL::Array<DuplicateLibpartData>>> revisionConflicts;
};

} // namespace LM
