#include "lists/LibraryList.hpp"

#include "catalogue/LibrarySet.hpp"

#include <utility>

namespace LM {

namespace {

// The first predicate that holds decides; a library that is none of the others is local.
LibraryMode ModeOfActiveLibrary(const LibrarySet& librarySet, int index) {
    if (librarySet.IsUrlActiveLibrary(index))
        return UrlLibrary;
    if (librarySet.IsBuiltInActiveLibrary(index))
        return BuiltInLibrary;
    if (librarySet.IsEmbeddedActiveLibrary(index))
        return EmbeddedLibrary;
    if (librarySet.IsServerActiveLibrary(index))
        return ServerLibrary;
    return LocalLibrary;
}

void ReadCommonFields(const LibrarySet& librarySet, int index, LibraryItem& item) {
    IO::Location location;
    KL::UniString name;
    librarySet.GetActiveLibraryLocation(index, &location);
    librarySet.GetActiveLibraryName(index, &name);
    item.SetType(ModeOfActiveLibrary(librarySet, index));
    item.SetLocation(location);
    item.SetName(name);
    item.SetVital(librarySet.IsVitalActiveLibrary(index) ? Vital : NotVital);
    item.SetVersion(librarySet.GetActiveLibraryVersion(index));
}

void ReadUrlFields(const LibrarySet& librarySet, int index, LibraryItem& item) {
    KL::UniString url;
    librarySet.GetActiveLibraryUrl(index, &url);
    item.SetUrl(url);
}

void ReadLocalFields(const LibrarySet& librarySet, int index, LibraryItem& item) {
    KL::Guid guid;
    KL::UniString langCode;
    bool collapseLongBranches = false;
    librarySet.GetActiveLibraryGuid(index, &guid);
    librarySet.GetActiveLibraryKLLangCode(index, &langCode);
    librarySet.GetActiveLibraryCollapseLongBranches(index, &collapseLongBranches);
    item.SetGuid(guid);
    item.SetLangCode(langCode);
    item.SetCollapseLongBranches(collapseLongBranches);
}

void ReadServerFields(const LibrarySet& librarySet, int index, LibraryItem& item) {
    IO::RelativeLocation relLocation;
    KL::UniString sourceLocation;
    librarySet.GetActiveLibraryRelLocation(index, &relLocation);
    librarySet.GetActiveLibrarySrcLocation(index, &sourceLocation);
    item.SetRelLocation(relLocation);
    item.SetSourceLocation(sourceLocation);
}

} // namespace

// Kept apart from the rest of the list, which does not need the set's class.
LibraryList::LibraryList(const LibrarySet& librarySet) {
    for (int index = 0; index < librarySet.GetActiveLibraryNum(); ++index) {
        LibraryItem item;
        ReadCommonFields(librarySet, index, item);
        switch (item.GetType()) {
        case UrlLibrary:
            ReadUrlFields(librarySet, index, item);
            break;
        case LocalLibrary:
            ReadLocalFields(librarySet, index, item);
            break;
        case ServerLibrary: {
            IO::Location serverId;
            librarySet.GetActiveLibraryTWServerId(index, &serverId);
            item.SetTWServerUrl(ServerUrlOf(serverId));
            ReadServerFields(librarySet, index, item);
            break;
        }
        default:
            break;
        }
        items.Push(std::move(item));
    }
}

} // namespace LM
