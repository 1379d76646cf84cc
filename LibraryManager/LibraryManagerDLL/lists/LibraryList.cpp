#include "lists/LibraryList.hpp"

#include "LibraryManagerErrors.hpp"
#include "catalogue/LibrarySetModifier.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/Folder.hpp"

#include <algorithm>
#include <utility>

namespace LM {

const KL::ClassInfo LibraryList::classInfo("LM::LibraryList",
                                           KL::Guid("D3ED85C8-9798-46A1-BEEF-88702AE4E710"), 2, 0);

namespace {

// Same mode and the same target. Empty locations and source locations name nothing, so they
// never make a match.
bool PointsToSame(const LibraryItem& existing, const LibraryItem& item) {
    if (existing.GetType() != item.GetType())
        return false;
    if (item.IsUrl() && existing.GetUrl().IsEqual(item.GetUrl(), KL::CaseInsensitive))
        return true;
    if (!item.GetLocation().IsEmpty() && existing.GetLocation() == item.GetLocation())
        return true;
    return !item.GetSourceLocation().IsEmpty() && existing.GetSourceLocation() == item.GetSourceLocation();
}

KL::UniString LastLocalName(const IO::NameSequence& names) {
    IO::Name last;
    names.GetLastLocalName(&last);
    return last.GetText();
}

// A library kept in a folder called "rfs" is named after the folder that holds it.
KL::UniString LibraryNameOf(const IO::Location& location) {
    IO::Location named = location;
    if (LastLocalName(named).IsEqual("rfs", KL::CaseInsensitive))
        named.DeleteLastLocalName();
    return LastLocalName(named);
}

KL::UniString TextAfterLastSlash(const KL::UniString& url) {
    const std::size_t slash = url.FindLast(u'/');
    return slash == KL::UniString::NotFound ? KL::UniString() : url.GetSubstring(slash + 1);
}

// The mode of the item handed to Add decides whether the URL names it, even when an item of
// another mode stands for it.
KL::UniString MadeName(const LibraryItem& stored, LibraryMode addedMode) {
    if (LibraryItem::IsUrlMode(addedMode))
        return TextAfterLastSlash(stored.GetUrl());
    if (stored.GetType() == ServerLibrary)
        return LastLocalName(stored.GetRelLocation());
    return LibraryNameOf(stored.GetLocation());
}

LibraryItem ItemAt(LibraryMode mode, const IO::Location& location) {
    LibraryItem item;
    item.SetType(mode);
    item.SetLocation(location);
    return item;
}

LibraryItem ItemWithUrl(LibraryMode mode, const KL::UniString& url) {
    LibraryItem item;
    item.SetType(mode);
    item.SetUrl(url);
    return item;
}

// Walks the items the way the scanning deletions always have: the position moves on after a
// deletion too, so the item that took the deleted one's place is not looked at.
template <typename Matches>
void DeleteScanning(KL::Array<LibraryItem>& items, Matches matches) {
    for (std::size_t i = 0; i < items.GetSize(); ++i) {
        if (matches(items[i]))
            items.Delete(i);
    }
}

int SortGroup(LibraryMode mode) {
    switch (mode) {
    case BuiltInLibrary:
        return 0;
    case EmbeddedLibrary:
        return 1;
    case LocalLibrary:
        return 2;
    default:
        return 3;
    }
}

KL::UniString SortName(const LibraryItem& item) {
    return item.GetName().IsEmpty() ? LibraryNameOf(item.GetLocation()) : item.GetName();
}

bool SortsBefore(const LibraryItem& a, const LibraryItem& b) {
    const int groupA = SortGroup(a.GetType());
    const int groupB = SortGroup(b.GetType());
    if (groupA != groupB)
        return groupA < groupB;
    return SortName(a).Compare(SortName(b), KL::CaseInsensitive) < 0;
}

// Server libraries are only noted: the host confirms them afterwards. Returns true for one.
bool AddActiveLibrary(KL::ProcessControl& process, const ILibrarySetModifier& modifier,
                      const LibraryItem& item) {
    switch (item.GetType()) {
    case LocalLibrary:
        modifier.AddActiveLibrary(process, item.GetLocation(), LocalLibrary, item.GetVitalMode(),
                                  item.GetGuid(), item.GetLangCode(), item.GetCollapseLongBranches());
        return false;
    case UrlLibrary:
        // The set tells a URL library by its URL, so it goes in as a local one.
        modifier.AddActiveLibrary(item.GetUrl(), LocalLibrary, item.GetVitalMode());
        return false;
    case BuiltInLibrary:
    case EmbeddedLibrary:
        modifier.AddActiveLibrary(process, item.GetLocation(), item.GetType(), item.GetVitalMode(),
                                  KL::Guid(), KL::UniString(), false);
        return false;
    case ServerLibrary:
        return true;
    default:
        return false;
    }
}

} // namespace

LibraryList::~LibraryList() = default;

const KL::ClassInfo* LibraryList::GetClassInfo() const {
    return &classInfo;
}

int LibraryList::GetLibraryNum(LibraryMode mode) const {
    if (mode == AllLibraryModes)
        return static_cast<int>(items.GetSize());
    return static_cast<int>(std::count_if(
        items.begin(), items.end(), [mode](const LibraryItem& item) { return item.GetType() == mode; }));
}

int LibraryList::GetIndex(const IO::Location& location) const {
    if (location.IsEmpty())
        return -1;
    for (std::size_t i = 0; i < items.GetSize(); ++i) {
        if (items[i].GetLocation() == location)
            return static_cast<int>(i);
    }
    return -1;
}

int LibraryList::GetFirstWritableLibrary(IO::Location* location) const {
    for (const LibraryItem& item : items) {
        if (item.GetType() != LocalLibrary || !IO::Folder(item.GetLocation()).IsWriteable())
            continue;
        if (location != nullptr)
            *location = item.GetLocation();
        return 0;
    }
    return LibPartFileError;
}

bool LibraryList::LibrarySupersedesOther(int superseding, int superseded) const {
    const int count = static_cast<int>(items.GetSize());
    if (superseding < 0 || superseding >= count || superseded < 0 || superseded >= count)
        return false;
    const LibraryItem& other = items[static_cast<std::size_t>(superseded)];
    return items[static_cast<std::size_t>(superseding)].Supersedes(other.GetName(), other.GetGuid());
}

int LibraryList::Add(const LibraryItem& item, FilterByName filter) {
    return Push(item, filter);
}

int LibraryList::AddLibrary(const IO::Location& location, LibraryMode mode, VitalMode vital,
                            const KL::Guid& guid, const KL::UniString& langCode, bool collapseLongBranches) {
    LibraryItem item = ItemAt(mode, location);
    item.SetVital(vital);
    item.SetGuid(guid);
    item.SetLangCode(langCode);
    item.SetCollapseLongBranches(collapseLongBranches);
    return Push(std::move(item), NoFilter);
}

int LibraryList::AddLibrary(const KL::UniString& url) {
    return Push(ItemWithUrl(UrlLibrary, url), NoFilter);
}

int LibraryList::AddServerLibrary(const IO::Location& serverId, const IO::RelativeLocation& relLocation,
                                  const KL::UniString& sourceLocation, const IO::Location& location,
                                  std::int64_t version) {
    LibraryItem item;
    item.SetTWServerUrl(ServerUrlOf(serverId));
    item.SetType(ServerLibrary);
    item.SetRelLocation(relLocation);
    item.SetSourceLocation(sourceLocation);
    item.SetLocation(location);
    item.SetVersion(version);
    return Push(std::move(item), NoFilter);
}

int LibraryList::AddOtherObject(const IO::Location& location) {
    return Push(ItemAt(OtherObjectByLocation, location), NoFilter);
}

int LibraryList::AddOtherObject(const KL::UniString& url) {
    return Push(ItemWithUrl(OtherObjectByUrl, url), NoFilter);
}

int LibraryList::Merge(const LibraryList& other) {
    // A copy, since `other` may be this list.
    const KL::Array<LibraryItem> incoming = other.items;
    for (const LibraryItem& item : incoming)
        Push(item, NoFilter);
    return 0;
}

void LibraryList::Delete(const IO::Location& location) {
    DeleteScanning(items, [&location](const LibraryItem& item) { return item.GetLocation() == location; });
}

void LibraryList::Delete(const KL::UniString& url) {
    DeleteScanning(items, [&url](const LibraryItem& item) { return item.GetUrl() == url; });
}

int LibraryList::Delete(unsigned int index) {
    if (index >= items.GetSize())
        return LibPartFileError;
    items.Delete(index);
    return 0;
}

int LibraryList::Delete(const LibraryItem& item) {
    const std::size_t found = items.FindFirst(item);
    if (found == KL::Array<LibraryItem>::NotFound)
        return LibPartFileError;
    items.Delete(found);
    return 0;
}

void LibraryList::DeleteAll(DeleteEmbeddedLibraries mode) {
    if (mode == DeleteEmbedded) {
        items.Clear();
        return;
    }
    KL::Array<LibraryItem> embedded;
    for (LibraryItem& item : items) {
        if (item.GetType() == EmbeddedLibrary)
            embedded.Push(std::move(item));
    }
    items = std::move(embedded);
}

void LibraryList::SortByTypeAndName() {
    std::stable_sort(items.begin(), items.end(), SortsBefore);
}

bool LibraryList::IsEqual(const LibraryList& other, bool, bool withBuiltIn, bool withEmbedded,
                          bool withVersions) const {
    // Embedded libraries are not compared without the built-in ones: one on either side makes
    // the lists differ.
    if (!withBuiltIn && withEmbedded &&
        (GetLibraryNum(EmbeddedLibrary) > 0 || other.GetLibraryNum(EmbeddedLibrary) > 0))
        return false;
    if (CountStored(withBuiltIn) != other.CountStored(withBuiltIn))
        return false;
    return std::all_of(items.begin(), items.end(), [&](const LibraryItem& item) {
        if ((item.GetType() == EmbeddedLibrary && !withEmbedded) ||
            (item.GetType() == BuiltInLibrary && !withBuiltIn))
            return true;
        return other.HasEqualItem(item, withVersions);
    });
}

bool LibraryList::operator==(const LibraryList& other) const {
    if (CountStored(true) != other.CountStored(true))
        return false;
    return std::all_of(items.begin(), items.end(),
                       [&other](const LibraryItem& item) { return other.HasEqualItem(item, false); });
}

bool LibraryList::SetActiveLibraries(KL::ProcessControl& process, const ILibrarySetModifier& modifier,
                                     bool confirm, void* hostData) const {
    modifier.ResetActiveLibraries();
    LibraryList sorted(*this);
    sorted.SortByTypeAndName();
    bool serverLibrarySeen = false;
    for (const LibraryItem& item : sorted.items) {
        if (AddActiveLibrary(process, modifier, item))
            serverLibrarySeen = true;
    }
    const auto confirmLibraryList = GetLibraryManagerCallBacks().confirmLibraryList;
    if (serverLibrarySeen && confirmLibraryList != nullptr)
        confirmLibraryList(sorted, modifier, hostData);
    return confirm && serverLibrarySeen;
}

int LibraryList::Push(LibraryItem item, FilterByName filter) {
    const LibraryMode addedMode = item.GetType();
    const int position = Place(std::move(item), filter);
    LibraryItem& stored = items[static_cast<std::size_t>(position)];
    if (stored.GetName().IsEmpty())
        stored.SetName(MadeName(stored, addedMode));
    return position;
}

int LibraryList::Place(LibraryItem&& item, FilterByName filter) {
    for (std::size_t i = 0; i < items.GetSize(); ++i) {
        const LibraryItem& existing = items[i];
        if (filter != NoFilter && existing.GetName() == item.GetName()) {
            if (filter == KeepExistingName && !existing.IsMissing())
                return static_cast<int>(i);
            items.Delete(i);
            return Append(std::move(item));
        }
        if (PointsToSame(existing, item))
            return static_cast<int>(i);
    }
    return Append(std::move(item));
}

int LibraryList::Append(LibraryItem&& item) {
    items.Push(std::move(item));
    return static_cast<int>(items.GetSize()) - 1;
}

bool LibraryList::IsStored(const LibraryItem& item, bool withBuiltIn) {
    return item.GetType() != EmbeddedLibrary && (withBuiltIn || item.GetType() != BuiltInLibrary);
}

int LibraryList::CountStored(bool withBuiltIn) const {
    return static_cast<int>(std::count_if(items.begin(), items.end(), [withBuiltIn](const LibraryItem& item) {
        return IsStored(item, withBuiltIn);
    }));
}

bool LibraryList::HasEqualItem(const LibraryItem& item, bool withVersions) const {
    return std::any_of(items.begin(), items.end(), [&](const LibraryItem& candidate) {
        return withVersions ? candidate.IsEqualWithVersions(item) : candidate == item;
    });
}

KL::UniString LibraryList::ServerUrlOf(const IO::Location& serverId) {
    const LibraryManagerCallBacks& callBacks = GetLibraryManagerCallBacks();
    if (callBacks.isServerIdValid == nullptr || !callBacks.isServerIdValid(serverId) ||
        callBacks.serverIdDisplayName == nullptr)
        return {};
    return callBacks.serverIdDisplayName(serverId);
}

} // namespace LM
