#include "catalogue/LibPartSet.hpp"

#include "services/LibraryManagerGlobals.hpp"

#include <algorithm>
#include <numeric>

namespace LM {

namespace {

// Scripts sort among symbols: a script and a symbol of one name are neighbours.
std::int32_t SortableType(const LibPart& part) {
    const FTM::GeneralID& type = part.GetGeneralFileType();
    return (type == GetScriptFileType() ? GetSymbolFileGroup() : type).GetValue();
}

int CompareText(const KL::UniString& a, const KL::UniString& b) { return a.Compare(b, KL::CaseInsensitive); }

int CompareByNameThenType(const LibPart& a, const LibPart& b, const KL::UniString& nameA, const KL::UniString& nameB) {
    if (const int byName = CompareText(nameA, nameB); byName != 0)
        return byName;
    const std::int32_t typeA = SortableType(a);
    const std::int32_t typeB = SortableType(b);
    return typeA < typeB ? -1 : typeA > typeB ? 1 : 0;
}

// Records without a symbol come first, among themselves by document name.
int CompareSymbolsLast(const LibPart& a, const LibPart& b) {
    if (a.IsSymbol() != b.IsSymbol())
        return a.IsSymbol() ? 1 : -1;
    return a.IsSymbol() ? 0 : CompareText(a.GetDocumentName(), b.GetDocumentName());
}

} // namespace

LibPartSet::LibPartSet(ILibraryErrorHandler* errorHandler, LibrarySet* librarySet)
    : errorHandler(errorHandler), librarySet(librarySet) {}

LibPartSet::~LibPartSet() = default;

void LibPartSet::AddNullIdEntry() {
    LibPartCache entry;
    entry.resultFlagFirst = true;
    entry.isOwnId = true;
    idToPart.Put(LibPartId(), entry);
}

void LibPartSet::BuildSortedIndices() {
    IndexArray all(parts.GetSize());
    std::iota(all.begin(), all.end(), 0U);
    const auto sortBy = [&all](IndexArray* index, auto compare) {
        *index = all;
        std::stable_sort(index->begin(), index->end(), [&](std::uint32_t a, std::uint32_t b) { return compare(a, b) < 0; });
    };
    // File names are cut from locations once, not in every comparison.
    std::vector<KL::UniString> fileNames;
    fileNames.reserve(parts.GetSize());
    for (const LibPart& part : parts)
        fileNames.push_back(part.GetFileName());

    sortBy(&indexByName, [this](std::uint32_t a, std::uint32_t b) {
        return CompareByNameThenType(parts[a], parts[b], parts[a].GetDocumentName(), parts[b].GetDocumentName());
    });
    sortBy(&indexByFileName, [this, &fileNames](std::uint32_t a, std::uint32_t b) {
        return CompareByNameThenType(parts[a], parts[b], fileNames[a], fileNames[b]);
    });
    sortBy(&indexByUnId, [this](std::uint32_t a, std::uint32_t b) {
        const int symbolsLast = CompareSymbolsLast(parts[a], parts[b]);
        return symbolsLast != 0 || !parts[a].IsSymbol() ? symbolsLast
                                                         : parts[a].GetOwnUnID().Compare(parts[b].GetOwnUnID());
    });
    sortBy(&indexByGuid, [this](std::uint32_t a, std::uint32_t b) {
        const int symbolsLast = CompareSymbolsLast(parts[a], parts[b]);
        return symbolsLast != 0 || !parts[a].IsSymbol() ? symbolsLast : parts[a].GetGuid().Compare(parts[b].GetGuid());
    });
}

void LibPartSet::RemapFolderIndices(const std::vector<std::int32_t>& newIndex) {
    for (LibPart& part : parts) {
        const std::int32_t folder = part.GetFolderIndex();
        if (folder >= 0 && static_cast<std::size_t>(folder) < newIndex.size())
            part.SetFolderIndex(newIndex[static_cast<std::size_t>(folder)]);
    }
}

} // namespace LM
