#pragma once

#include "lists/FolderItem.hpp"

#include "KLRoot/Array.hpp"
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"

#include <cstdint>

namespace LM {

// The folders seen during enumeration as one flat array. Positions 0, 1 and 2 always hold the
// root, the missing and the temporarily missing folder; library folders start at 3, and a
// library's root folder is one whose parent is 0. Per-index access trusts the caller, who asks
// IsValidIndex first.
class LM_EXPORT FolderSet : public KL::Object {
public:
    static const KL::ClassInfo classInfo;
    static constexpr std::int32_t RootFolder = 0;
    static constexpr std::int32_t MissingFolder = 1;
    static constexpr std::int32_t TemporarilyMissingFolder = 2;
    static constexpr std::int32_t FirstLibraryFolder = 3;

    FolderSet();
    FolderSet(const FolderSet&) = default;
    FolderSet& operator=(const FolderSet&) = default;
    ~FolderSet() override;

    const KL::ClassInfo* GetClassInfo() const override;
    // Only the indexed stream forms are meaningful.
    using KL::Object::Read;
    using KL::Object::Write;

    // Appends the three fixed folders to an empty set.
    void Init();
    void Reset();

    int GetFolderCount() const { return static_cast<int>(items.GetSize()); }
    bool IsValidIndex(int index) const { return index >= 0 && index < GetFolderCount(); }
    const FolderItem& GetItem(int index) const { return items[static_cast<std::size_t>(index)]; }

    int GetParent(int index) const { return GetItem(index).GetParent(); }
    void SetParent(int index, int parent) { Item(index).SetParent(parent); }
    int GetActLibIndex(int index) const { return GetItem(index).GetActLibIndex(); }
    bool GetExpandState(int index) const { return GetItem(index).GetExpandState(); }
    void SetExpandState(int index, bool expanded) { Item(index).SetExpandState(expanded); }
    int GetNumChild(int index) const { return GetItem(index).GetNumChild(); }
    void GetName(int index, KL::UniString* name) const { *name = GetItem(index).GetName(); }
    void GetGuid(int index, KL::Guid* guid) const { *guid = GetItem(index).GetGuid(); }
    void GetLocation(int index, IO::Location* location) const { *location = GetItem(index).GetLocation(); }
    void GetRelLocation(int index, IO::RelativeLocation* relLocation) const {
        *relLocation = GetItem(index).GetRelLocation();
    }
    int GetTreeItemId(int index) const { return GetItem(index).GetTreeItemId(); }
    void SetTreeItemId(int index, int id) { Item(index).SetTreeItemId(id); }

    // Appends without looking for an equal folder; counts the child on its parent.
    int StoreFolder(const IO::Location& location, const KL::Guid& guid, const KL::UniString& name, int parent,
                    int actLibIndex);
    // The deepest library folder holding `location`. Without `created` only a direct parent is
    // accepted; with it, the missing folders in between are added and `*created` says so.
    int DetermineParentFolder(const IO::Location& location, bool* created);
    // The first library root folder that holds `location`, or -1.
    int DetermineParentRoot(const IO::Location& location) const;
    // Appends the folders of `other`, which was read with this set's count as its first index,
    // under library `actLibIndex`.
    void Merge(const FolderSet& other, int actLibIndex);
    // Sorts the library folders by library, then by location. Indices held elsewhere go stale:
    // LibrarySet::FinishFolderSet follows the sort through them.
    void FinishFolders();

    // The folders from `firstIndex` on, with parents relative to it.
    int Write(KL::OChannel& channel, int firstIndex) const;
    int Read(KL::IChannel& channel, int firstIndex);

private:
    FolderItem& Item(int index) { return items[static_cast<std::size_t>(index)]; }
    int BestContainingFolder(const IO::Location& location, IO::RelativeLocation* difference) const;

    KL::Array<FolderItem> items;
};

} // namespace LM
