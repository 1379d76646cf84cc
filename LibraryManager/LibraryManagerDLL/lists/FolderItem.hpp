#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace LM {

// Moves a folder index stored relative to a block by the block's offset. Indices come from files:
// the sum wraps rather than overflows, and a wild index is caught by the index checks of whoever
// follows it.
inline std::int32_t ShiftFolderIndex(std::int32_t index, std::int32_t offset) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(index) + static_cast<std::uint32_t>(offset));
}

// One folder seen during enumeration. Its parent is an index into the same FolderSet, so an item
// means something only together with the set it stands in.
class LM_EXPORT FolderItem : public KL::Object {
public:
    static const KL::ClassInfo classInfo;

    FolderItem() = default;
    FolderItem(const FolderItem&) = default;
    FolderItem(FolderItem&&) = default;
    FolderItem& operator=(const FolderItem&) = default;
    FolderItem& operator=(FolderItem&&) = default;
    ~FolderItem() override;

    const KL::ClassInfo* GetClassInfo() const override;
    // Only the indexed stream forms are meaningful.
    using KL::Object::Read;
    using KL::Object::Write;

    void Set(const IO::Location& newLocation, const KL::Guid& newGuid, const KL::UniString& newName,
             std::int32_t newParent, std::int32_t newActLibIndex);

    std::int32_t GetParent() const { return parent; }
    void SetParent(std::int32_t newParent) { parent = newParent; }
    std::int32_t GetActLibIndex() const { return actLibIndex; }
    void SetActLibIndex(std::int32_t index) { actLibIndex = index; }
    std::int32_t GetTreeItemId() const { return treeItemId; }
    void SetTreeItemId(std::int32_t id) { treeItemId = id; }
    bool GetExpandState() const { return expandState; }
    void SetExpandState(bool expanded) { expandState = expanded; }
    std::int32_t GetNumChild() const { return numChild; }
    void IncNumChild() { ++numChild; }
    const IO::Location& GetLocation() const { return location; }
    const IO::RelativeLocation& GetRelLocation() const { return relLocation; }
    const KL::UniString& GetName() const { return name; }
    const KL::Guid& GetGuid() const { return guid; }

    // Parents are stored relative to `firstIndex`, except the three fixed folders, which keep
    // their places whatever block the item is read into.
    int Write(KL::OChannel& channel, std::int32_t firstIndex) const;
    int Read(KL::IChannel& channel, std::int32_t firstIndex);

private:
    std::int32_t parent = -1;
    std::int32_t actLibIndex = -1;
    std::int32_t treeItemId = 0;
    bool expandState = false;
    // Not streamed: counts only children added by StoreFolder in this run.
    std::int32_t numChild = 0;
    IO::Location location;
    IO::RelativeLocation relLocation;
    KL::UniString name;
    KL::Guid guid;
};

} // namespace LM
