#include "lists/FolderSet.hpp"

#include "services/LibraryManagerGlobals.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <algorithm>

namespace LM {

const KL::ClassInfo FolderSet::classInfo("LM::FolderSet", KL::Guid("61CBC5E7-5A65-4EC0-8124-7AC46EB8D1CC"), 1,
                                         0);

FolderSet::FolderSet() {
    Init();
}

FolderSet::~FolderSet() = default;

const KL::ClassInfo* FolderSet::GetClassInfo() const {
    return &classInfo;
}

void FolderSet::Init() {
    const LibraryManagerStrings& strings = GetLibraryManagerStrings();
    for (const KL::UniString* name :
         {&strings.rootFolderName, &strings.missingFolderName, &strings.temporarilyMissingFolderName}) {
        FolderItem& item = items.PushNew();
        item.Set(IO::Location(), KL::Guid(), *name, items.GetSize() == 1 ? -1 : RootFolder, -1);
    }
}

void FolderSet::Reset() {
    items.Clear();
    Init();
}

int FolderSet::StoreFolder(const IO::Location& location, const KL::Guid& guid, const KL::UniString& name,
                           int parent, int actLibIndex) {
    FolderItem& item = items.PushNew();
    item.Set(location, guid, name, parent, actLibIndex);
    if (IsValidIndex(parent))
        Item(parent).IncNumChild();
    return GetFolderCount() - 1;
}

// The folder with the shortest way down to `location`; the first found wins a tie.
int FolderSet::BestContainingFolder(const IO::Location& location, IO::RelativeLocation* difference) const {
    int best = -1;
    for (int i = FirstLibraryFolder; i < GetFolderCount(); ++i) {
        const IO::Location& folder = GetItem(i).GetLocation();
        if (!folder.IsAncestorOf(location))
            continue;
        IO::RelativeLocation candidate;
        location.GetDifference(folder, &candidate);
        if (best == -1 || candidate.GetLength() < difference->GetLength()) {
            best = i;
            *difference = candidate;
        }
    }
    return best;
}

int FolderSet::DetermineParentFolder(const IO::Location& location, bool* created) {
    if (created != nullptr)
        *created = false;
    IO::RelativeLocation difference;
    const int best = BestContainingFolder(location, &difference);
    if (best == -1)
        return -1;
    if (created == nullptr)
        return difference.GetLength() == 1 ? best : -1;
    // Folders between the best one and the file's own folder, named after their local names.
    int parent = best;
    IO::Location folderLocation = GetItem(best).GetLocation();
    const int library = GetItem(best).GetActLibIndex();
    for (std::size_t i = 0; i + 1 < difference.GetLength(); ++i) {
        IO::Name name;
        difference.GetLocalName(i, &name);
        folderLocation.Append(name);
        FolderItem& item = items.PushNew();
        item.Set(folderLocation, KL::Guid(), name.GetText(), parent, library);
        parent = GetFolderCount() - 1;
        *created = true;
    }
    return parent;
}

int FolderSet::DetermineParentRoot(const IO::Location& location) const {
    for (int i = FirstLibraryFolder; i < GetFolderCount(); ++i) {
        const FolderItem& item = GetItem(i);
        if (item.GetParent() == RootFolder && item.GetLocation().IsAncestorOf(location))
            return i;
    }
    return -1;
}

void FolderSet::Merge(const FolderSet& other, int actLibIndex) {
    items.SetCapacity(items.GetSize() + other.items.GetSize());
    for (const FolderItem& folder : other.items) {
        FolderItem& item = items.PushNew(folder);
        item.SetActLibIndex(actLibIndex);
        item.SetTreeItemId(0);
        item.SetExpandState(false);
    }
}

void FolderSet::FinishFolders() {
    if (GetFolderCount() <= FirstLibraryFolder)
        return;
    std::stable_sort(items.begin() + FirstLibraryFolder, items.end(),
                     [](const FolderItem& a, const FolderItem& b) {
                         if (a.GetActLibIndex() != b.GetActLibIndex())
                             return a.GetActLibIndex() < b.GetActLibIndex();
                         return a.GetLocation() < b.GetLocation();
                     });
}

int FolderSet::Write(KL::OChannel& channel, int firstIndex) const {
    KL::OutputFrame frame(channel, classInfo);
    if (frame.GetStatus() != 0)
        return frame.GetStatus();
    const int first = std::clamp(firstIndex, 0, GetFolderCount());
    if (int error = channel.Write(static_cast<std::uint32_t>(GetFolderCount() - first)); error != 0)
        return error;
    for (int i = first; i < GetFolderCount(); ++i)
        if (int error = GetItem(i).Write(channel, firstIndex); error != 0)
            return error;
    return frame.Close();
}

int FolderSet::Read(KL::IChannel& channel, int firstIndex) {
    KL::InputFrame frame(channel, classInfo);
    if (frame.GetStatus() != 0)
        return frame.GetStatus();
    items.Clear();
    std::uint32_t count = 0;
    if (int error = channel.Read(count); error != 0)
        return error;
    // Every item carries at least its own frame header: a count the frame cannot hold is a lie,
    // refused before anything is allocated for it.
    if (count > frame.GetRemaining() / KL::OutputFrame::HeaderSize)
        return KL::ErrStreamFormat;
    items.SetSize(count);
    for (FolderItem& item : items)
        if (int error = item.Read(channel, firstIndex); error != 0)
            return error;
    return frame.Close();
}

} // namespace LM
