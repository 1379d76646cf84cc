#pragma once

#include "KLRoot/Array.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <vector>

namespace KL {
class OChannel;
}

namespace LM {

class AncestryInfo;
class LibPart;
class LibrarySet;

// The part types a host handles itself. For any part it answers which registered type is the
// nearest above it, and for any folder whether a registered subtype lies in it. A blocking type
// hides what stands above it from the parts below it. Answers are cached per part and per folder
// for the catalogue as it was at the last refresh; the host refreshes through a Modifier after each
// Enumerate.
class LM_EXPORT LibPartHandlerRegistry {
public:
    enum Visibility : std::int32_t { Blocking = 0, Transparent = 1 };
    static constexpr unsigned NotFound = static_cast<unsigned>(-1);

    class IModifier;
    class Modifier;

    explicit LibPartHandlerRegistry(const LibrarySet* librarySet);
    LibPartHandlerRegistry(const LibPartHandlerRegistry&) = default;
    LibPartHandlerRegistry& operator=(const LibPartHandlerRegistry&) = default;

    // A type registered before keeps its first visibility. 0.
    int Register(const KL::UnID& id, Visibility visibility);
    // -7003 for an id that is not registered.
    int UnRegister(const KL::UnID& id);
    void Clear();

    unsigned SearchByUnID(const KL::UnID& id) const;
    const KL::UnID& GetUnIDAt(unsigned index) const { return entries[index].id; }
    bool IsBlockingRegisteredAncestor(unsigned index) const { return entries[index].visibility == Blocking; }

    int RefreshCache();
    // Null rebuilds every folder's bits; a part adds its own.
    int RefreshFolderCache(const LibPart* part);
    void RefreshFolderCacheForLibPart(const LibPart* part);

    // The nearest registered type above the part (or the part's own): -50 for a null part, -7003
    // when none is registered above it.
    int GetImmediateRegisteredAncestor(const LibPart* part, KL::UnID* id, Visibility* visibility) const;
    // Whether `id` is registered and the part reaches it with no blocking type in between.
    bool IsRegisteredAncestor(const LibPart* part, const KL::UnID& id) const;
    // Both under the same registered class, with nothing blocking between.
    bool IsSymbolTypeOf_InSameClass(const LibPart* part, const LibPart* other) const;
    bool IsSymbolTypeOf_InSameClass(const LibPart* part, const KL::UnID& other) const;
    // For a part file outside the catalogue, known by its own id and its ancestry.
    bool IsSymbolTypeOf_InSameClass(const KL::UnID& own, const AncestryInfo& ancestry,
                                    const KL::UnID& id) const;
    bool IsLibraryManagerFolderContainsRegisteredSubType(int folder, const KL::UnID& id, bool directly) const;
    void Print(KL::OChannel& channel) const;

private:
    struct RegistryEntry {
        KL::UnID id;
        mutable const LibPart* part = nullptr;
        Visibility visibility = Blocking;
    };
    static constexpr std::uint8_t Directly = 2;
    static constexpr std::uint8_t InOrBelow = 1;

    const LibPart* PartOf(const RegistryEntry& entry) const;
    void MarkFolders(int folder, std::size_t entry);

    KL::Array<RegistryEntry> entries;
    mutable KL::HashTable<const LibPart*, std::int32_t> partCache;
    std::vector<std::vector<std::uint8_t>> folderCache;
    const LibrarySet* librarySet;
};

// The right to change what is registered and to refresh the caches.
class LM_EXPORT LibPartHandlerRegistry::IModifier {
public:
    virtual LibPartHandlerRegistry& GetRegistry() const = 0;
    virtual int Register(const KL::UnID& id, Visibility visibility) const = 0;
    virtual int UnRegister(const KL::UnID& id) const = 0;
    virtual void Clear() const = 0;
    virtual int RefreshCache() const = 0;
    virtual int RefreshFolderCache(const LibPart* part) const = 0;
    virtual ~IModifier();
};

class LM_EXPORT LibPartHandlerRegistry::Modifier : public IModifier {
public:
    explicit Modifier(LibPartHandlerRegistry* registry) : registry(registry) {}

    LibPartHandlerRegistry& GetRegistry() const override { return *registry; }
    int Register(const KL::UnID& id, Visibility visibility) const override;
    int UnRegister(const KL::UnID& id) const override;
    void Clear() const override;
    int RefreshCache() const override;
    int RefreshFolderCache(const LibPart* part) const override;

private:
    LibPartHandlerRegistry* registry;
};

} // namespace LM

using LM::LibPartHandlerRegistry;
