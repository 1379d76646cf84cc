#include "lists/FolderItem.hpp"

#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace LM {

namespace {

// Below this index stand the root, missing and temporarily missing folders.
constexpr std::int32_t FirstLibraryFolder = 3;
// From 2.0 on parents are stored relative; from 2.1 on the guid follows the name.
constexpr KL::ClassVersion RelativeParentVersion{2, 0};
constexpr KL::ClassVersion GuidVersion{2, 1};

} // namespace

const KL::ClassInfo FolderItem::classInfo("LM::FolderItem", KL::Guid("003E6D08-AC5F-4196-9109-F6703BE0027F"),
                                          2, 1);

FolderItem::~FolderItem() = default;

const KL::ClassInfo* FolderItem::GetClassInfo() const {
    return &classInfo;
}

void FolderItem::Set(const IO::Location& newLocation, const KL::Guid& newGuid, const KL::UniString& newName,
                     std::int32_t newParent, std::int32_t newActLibIndex) {
    location = newLocation;
    guid = newGuid;
    name = newName;
    parent = newParent;
    actLibIndex = newActLibIndex;
}

int FolderItem::Write(KL::OChannel& channel, std::int32_t firstIndex) const {
    KL::OutputFrame frame(channel, classInfo);
    if (frame.GetStatus() != 0)
        return frame.GetStatus();
    const std::int32_t storedParent =
        ShiftFolderIndex(parent, parent < FirstLibraryFolder ? -FirstLibraryFolder : -firstIndex);
    int error = channel.Write(storedParent);
    if (error == 0)
        error = channel.Write(actLibIndex);
    if (error == 0)
        error = channel.Write(treeItemId);
    if (error == 0)
        error = channel.Write(expandState);
    if (error == 0)
        error = location.Write(channel);
    if (error == 0)
        error = relLocation.Write(channel);
    if (error == 0)
        error = name.Write(channel);
    if (error == 0)
        error = guid.Write(channel);
    if (error != 0)
        return error;
    return frame.Close();
}

int FolderItem::Read(KL::IChannel& channel, std::int32_t firstIndex) {
    KL::InputFrame frame(channel, classInfo);
    if (frame.GetStatus() != 0)
        return frame.GetStatus();
    const KL::ClassVersion version = frame.GetVersion();
    int error = channel.Read(parent);
    if (error == 0 && version >= RelativeParentVersion)
        parent = ShiftFolderIndex(parent, parent < 0 ? FirstLibraryFolder : firstIndex);
    if (error == 0)
        error = channel.Read(actLibIndex);
    if (error == 0)
        error = channel.Read(treeItemId);
    if (error == 0)
        error = channel.Read(expandState);
    if (error == 0)
        error = location.Read(channel);
    if (error == 0)
        error = relLocation.Read(channel);
    if (error == 0)
        error = name.Read(channel);
    if (error == 0 && version >= GuidVersion)
        error = guid.Read(channel);
    if (error != 0)
        return error;
    return frame.Close();
}

} // namespace LM
