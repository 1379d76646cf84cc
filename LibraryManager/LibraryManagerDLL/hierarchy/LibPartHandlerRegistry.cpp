#include "hierarchy/LibPartHandlerRegistry.hpp"

#include "LibraryManagerErrors.hpp"
#include "Paths.hpp"
#include "catalogue/LibrarySet.hpp"
#include "hierarchy/AncestryInfo.hpp"
#include "lists/FolderSet.hpp"
#include "lists/LibItemIterator.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "KLRoot/OChannel.hpp"

namespace LM {

namespace {

// Libraries' own folders: parts there count whatever their flags.
bool IsLibraryRootFolder(int folder) {
    return folder == 1 || folder == 2;
}

bool IsPartFile(const LibPart& part) {
    return part.IsSymbol() && part.GetGeneralFileType() == GetSymbolFileGroup();
}

} // namespace

LibPartHandlerRegistry::IModifier::~IModifier() = default;

LibPartHandlerRegistry::LibPartHandlerRegistry(const LibrarySet* librarySet) : librarySet(librarySet) {}

unsigned LibPartHandlerRegistry::SearchByUnID(const KL::UnID& id) const {
    for (std::size_t i = 0; i < entries.GetSize(); ++i) {
        if (entries[i].id == id)
            return static_cast<unsigned>(i);
    }
    return NotFound;
}

int LibPartHandlerRegistry::Register(const KL::UnID& id, Visibility visibility) {
    if (SearchByUnID(id) != NotFound)
        return 0;
    entries.Push(RegistryEntry{id, librarySet->SearchSymbolByUnID(id, nullptr), visibility});
    return RefreshCache();
}

int LibPartHandlerRegistry::UnRegister(const KL::UnID& id) {
    const unsigned index = SearchByUnID(id);
    if (index == NotFound)
        return LibPartFileError;
    entries.Delete(index);
    return RefreshCache();
}

void LibPartHandlerRegistry::Clear() {
    entries.Clear();
    partCache.Clear();
    folderCache.clear();
}

int LibPartHandlerRegistry::RefreshCache() {
    for (LibItemIterator item(*librarySet, false); item != nullptr; ++item)
        partCache.Put(item.Get(), -1);
    folderCache.resize(static_cast<std::size_t>(std::max(librarySet->GetFolderNumber(), 0)));
    for (const RegistryEntry& entry : entries)
        entry.part = nullptr;
    return 0;
}

int LibPartHandlerRegistry::RefreshFolderCache(const LibPart* part) {
    if (part != nullptr) {
        RefreshFolderCacheForLibPart(part);
        return 0;
    }
    folderCache.assign(static_cast<std::size_t>(std::max(librarySet->GetFolderNumber(), 0)),
                       std::vector<std::uint8_t>(entries.GetSize(), 0));
    for (LibItemIterator item(*librarySet, false); item != nullptr; ++item)
        RefreshFolderCacheForLibPart(item.Get());
    return 0;
}

void LibPartHandlerRegistry::RefreshFolderCacheForLibPart(const LibPart* part) {
    if (part == nullptr || !IsPartFile(*part))
        return;
    const int folder = part->GetFolderIndex();
    if (folder < 0 || static_cast<std::size_t>(folder) >= folderCache.size())
        return;
    if (!IsLibraryRootFolder(folder) && (!part->IsPlaceable() || part->GetMigrationValue() != 0))
        return;
    for (std::size_t entry = 0; entry < entries.GetSize(); ++entry) {
        if (IsRegisteredAncestor(part, entries[entry].id))
            MarkFolders(folder, entry);
    }
}

void LibPartHandlerRegistry::MarkFolders(int folder, std::size_t entry) {
    const auto mark = [&](int index, std::uint8_t bits) {
        std::vector<std::uint8_t>& bytes = folderCache[static_cast<std::size_t>(index)];
        if (bytes.size() < entries.GetSize())
            bytes.resize(entries.GetSize(), 0);
        bytes[entry] |= bits;
    };
    mark(folder, Directly | InOrBelow);
    for (int parent = librarySet->GetFolderParent(folder);
         parent > 0 && static_cast<std::size_t>(parent) < folderCache.size();
         parent = librarySet->GetFolderParent(parent))
        mark(parent, InOrBelow);
}

const LibPart* LibPartHandlerRegistry::PartOf(const RegistryEntry& entry) const {
    if (entry.part == nullptr)
        entry.part = librarySet->SearchSymbolByUnID(entry.id, nullptr);
    return entry.part;
}

int LibPartHandlerRegistry::GetImmediateRegisteredAncestor(const LibPart* part, KL::UnID* id,
                                                           Visibility* visibility) const {
    if (part == nullptr) {
        *id = KL::UnID();
        return InvalidPartError;
    }
    std::int32_t* cached = partCache.GetPtr(part);
    if (cached != nullptr && *cached != -1) {
        *id = entries[static_cast<std::size_t>(*cached)].id;
        *visibility = entries[static_cast<std::size_t>(*cached)].visibility;
        return 0;
    }
    *id = KL::UnID();
    std::int32_t taken = -1;
    for (std::size_t i = 0; i < entries.GetSize(); ++i) {
        if (!librarySet->IsSymbolTypeOf(part, entries[i].id))
            continue;
        // A more special type replaces a more general one; of unrelated types the first stays.
        const LibPart* entryPart = PartOf(entries[i]);
        if (taken == -1 || (entryPart != nullptr && librarySet->IsSymbolTypeOf(entryPart, *id))) {
            taken = static_cast<std::int32_t>(i);
            *id = entries[i].id;
        }
    }
    if (taken == -1)
        return LibPartFileError;
    if (cached != nullptr)
        *cached = taken;
    *visibility = entries[static_cast<std::size_t>(taken)].visibility;
    return 0;
}

bool LibPartHandlerRegistry::IsRegisteredAncestor(const LibPart* part, const KL::UnID& id) const {
    KL::UnID answer;
    Visibility visibility = Blocking;
    if (GetImmediateRegisteredAncestor(part, &answer, &visibility) != 0)
        return false;
    if (answer == id)
        return true;
    if (visibility == Blocking || SearchByUnID(id) == NotFound || !librarySet->IsSymbolTypeOf(part, id))
        return false;
    // Up from registered type to registered type, until the type is reached or something blocks.
    while (answer != id && visibility != Blocking) {
        const LibPart* registered = librarySet->SearchSymbolByUnID(answer, nullptr);
        AncestryInfo chain;
        if (registered == nullptr || librarySet->GetSymbolAncestryInfo(registered, &chain) != 0)
            return false;
        const LibPart* parent = librarySet->SearchSymbolByUnID(chain.GetParentID(), nullptr);
        if (GetImmediateRegisteredAncestor(parent, &answer, &visibility) != 0)
            return false;
    }
    return answer == id;
}

bool LibPartHandlerRegistry::IsSymbolTypeOf_InSameClass(const LibPart* part, const LibPart* other) const {
    if (other == nullptr)
        return true;
    if (!librarySet->IsSymbolTypeOf(part, other->GetOwnUnID()))
        return false;
    KL::UnID answer;
    Visibility visibility = Blocking;
    return GetImmediateRegisteredAncestor(other, &answer, &visibility) == 0 &&
           IsRegisteredAncestor(part, answer);
}

bool LibPartHandlerRegistry::IsSymbolTypeOf_InSameClass(const LibPart* part, const KL::UnID& other) const {
    const LibPart* otherPart = librarySet->SearchSymbolByUnID(other, nullptr);
    return otherPart != nullptr && IsSymbolTypeOf_InSameClass(part, otherPart);
}

bool LibPartHandlerRegistry::IsSymbolTypeOf_InSameClass(const KL::UnID& own, const AncestryInfo& ancestry,
                                                        const KL::UnID& id) const {
    const auto catalogued = [this](const KL::UnID& candidate) -> const LibPart* {
        if (const LibPart* exact = librarySet->SearchSymbolByUnID(candidate, nullptr))
            return exact;
        KL::PagedArray<const LibPart*, 8> revisions;
        return librarySet->SearchSymbolsByMainID(candidate, &revisions, 0) == 1 ? revisions[0] : nullptr;
    };
    std::vector<KL::UnID> candidates;
    if (!own.IsNull())
        candidates.push_back(own);
    for (unsigned i = ancestry.GetAncestorsCount(); i >= 1; --i)
        candidates.push_back(ancestry.GetAncestorRef(i));
    for (const KL::UnID& candidate : candidates) {
        if (const LibPart* part = catalogued(candidate))
            return IsSymbolTypeOf_InSameClass(part, id);
    }
    return false;
}

bool LibPartHandlerRegistry::IsLibraryManagerFolderContainsRegisteredSubType(int folder, const KL::UnID& id,
                                                                             bool directly) const {
    const unsigned entry = SearchByUnID(id);
    if (folder < 0 || static_cast<std::size_t>(folder) >= folderCache.size() || entry == NotFound)
        return false;
    const std::vector<std::uint8_t>& bytes = folderCache[static_cast<std::size_t>(folder)];
    return entry < bytes.size() && (bytes[entry] & (directly ? Directly : InOrBelow)) != 0;
}

void LibPartHandlerRegistry::Print(KL::OChannel& channel) const {
    channel << "\n\nThe registered UnIds of the LibPartHandlerRegistry:\n"
            << "===================================================\n\n";
    for (const RegistryEntry& entry : entries) {
        channel << Paths::IdText(entry.id) << "    ";
        if (entry.part != nullptr) {
            channel << entry.part->GetDocumentName().ToUTF8();
        } else if (const LibPart* found = librarySet->SearchSymbolByUnID(entry.id, nullptr)) {
            channel << found->GetDocumentName().ToUTF8() << " *";
        } else {
            channel << "[broken entry]";
        }
        channel << "\n";
    }
    channel << "* = Not accessed yet.\n\n";
}

// ---- Modifier

int LibPartHandlerRegistry::Modifier::Register(const KL::UnID& id, Visibility visibility) const {
    return registry->Register(id, visibility);
}

int LibPartHandlerRegistry::Modifier::UnRegister(const KL::UnID& id) const {
    return registry->UnRegister(id);
}

void LibPartHandlerRegistry::Modifier::Clear() const {
    registry->Clear();
}

int LibPartHandlerRegistry::Modifier::RefreshCache() const {
    return registry->RefreshCache();
}

int LibPartHandlerRegistry::Modifier::RefreshFolderCache(const LibPart* part) const {
    return registry->RefreshFolderCache(part);
}

} // namespace LM
