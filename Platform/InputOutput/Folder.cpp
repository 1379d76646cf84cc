#include "InputOutput/Folder.hpp"

#include "InputOutput/FileEntry.hpp"
#include "InputOutput/FileSystem.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace IO {

Folder::Folder() : status(InvalidLocationError) {}

Folder::Folder(const Location& target, NotFoundMode mode) : location(target), status(KL::NoError) {
    Connect(mode);
}

Folder::Folder(const Folder& other) : location(other.location), status(KL::NoError) {
    Connect(Fail);
}

Folder& Folder::operator=(const Folder& other) {
    if (this != &other) {
        Disconnect();
        location = other.location;
        Connect(Fail);
    }
    return *this;
}

Folder::~Folder() {
    Disconnect();
}

void Folder::Connect(NotFoundMode mode) {
    status = fileSystem.ConnectFolder(location, &entry, &owner);
    if (status == NotFoundError && mode == Create) {
        status = fileSystem.CreateFolderTree(location);
        if (status == KL::NoError)
            status = fileSystem.ConnectFolder(location, &entry, &owner);
    }
}

void Folder::Disconnect() {
    FileSystem::Disconnect(owner, entry);
    entry = nullptr;
    owner = nullptr;
    status = InvalidLocationError;
}

int Folder::GetLocation(Location* result) const {
    if (result == nullptr)
        return KL::ErrParam;
    *result = location;
    return KL::NoError;
}

namespace {

// Fills a listing from the file system and sorts it by name: file systems list in their own order,
// and sorting makes every walk the same.
template <typename Entries, typename Fill, typename NameOf>
int ListSorted(Entries* entries, Fill fill, NameOf nameOf) {
    if (entries == nullptr)
        return KL::ErrParam;
    entries->clear();
    if (const int err = EntryStatus::ToError(fill(), EndOfFileError, FolderAccessDeniedError);
        err != KL::NoError)
        return err;
    std::sort(entries->begin(), entries->end(),
              [&nameOf](const auto& a, const auto& b) { return nameOf(a) < nameOf(b); });
    return KL::NoError;
}

} // namespace

int Folder::List(Listing* entries) const {
    if (status != KL::NoError)
        return status;
    return ListSorted(
        entries,
        [this, entries] {
            return entry->EnumerateContents(
                [](const Name& name, EntryType type, void* data) {
                    static_cast<Listing*>(data)->emplace_back(name, type);
                    return true;
                },
                entries);
        },
        [](const auto& item) -> const Name& { return item.first; });
}

int Folder::List(TimedListing* entries, bool withTimes) const {
    if (status != KL::NoError)
        return status;
    const auto collect = [](const Name& name, EntryType type, const TITime* time, void* data) {
        static_cast<TimedListing*>(data)->push_back(
            {name, type, time != nullptr ? std::optional<TITime>(*time) : std::nullopt});
        return true;
    };
    return ListSorted(
        entries,
        [this, entries, withTimes, collect] {
            if (withTimes)
                return entry->EnumerateContentsWithTimes(collect, entries);
            return entry->EnumerateContents(
                [](const Name& name, EntryType type, void* data) {
                    static_cast<TimedListing*>(data)->push_back({name, type, std::nullopt});
                    return true;
                },
                entries);
        },
        [](const auto& item) -> const Name& { return item.name; });
}

int Folder::EnumerateEntries(EntryCallback callback, void* data) const {
    if (callback == nullptr)
        return KL::ErrParam;
    Listing listing;
    if (const int err = List(&listing); err != KL::NoError)
        return err;
    for (const auto& [name, type] : listing) {
        if (!callback(name, type, data))
            break;
    }
    return KL::NoError;
}

int Folder::Enumerate(EnumCallback callback, void* data) const {
    if (callback == nullptr)
        return KL::ErrParam;
    struct Forward {
        const Folder& folder;
        EnumCallback callback;
        void* data;
    } forward{*this, callback, data};
    return EnumerateEntries(
        [](const Name& name, EntryType type, void* context) {
            const auto& target = *static_cast<Forward*>(context);
            return target.callback(target.folder, name, type == FolderEntryType, target.data);
        },
        &forward);
}

bool Folder::Contains(const Name& name) const {
    EntryType type = FileEntryType;
    return GetEntryType(name, &type) == KL::NoError;
}

int Folder::GetEntryType(const Name& name, EntryType* type) const {
    if (status != KL::NoError)
        return status;
    return EntryStatus::ToError(entry->GetEntryType(name, type), NotFoundError, NotFoundError);
}

int Folder::CreateFile(const Name& name) {
    return status != KL::NoError ? status : EntryStatus::ToError(entry->CreateFile(name));
}

int Folder::CreateFolder(const Name& name) {
    return status != KL::NoError ? status : EntryStatus::ToError(entry->CreateFolder(name));
}

int Folder::Delete(const Name& name) {
    if (status != KL::NoError)
        return status;
    if (fileSystem.IsMountPoint(location + name))
        return MountError;
    return EntryStatus::ToError(entry->Delete(name), NotFoundError, NotFoundError);
}

int Folder::DeleteAll() {
    Listing listing;
    if (const int err = List(&listing); err != KL::NoError)
        return err;
    int result = KL::NoError;
    for (const auto& [name, type] : listing) {
        int err = KL::NoError;
        if (type == FolderEntryType) {
            Folder child(location + name);
            err = child.DeleteAll();
        }
        if (err == KL::NoError)
            err = Delete(name);
        // Go on with the rest: as much as possible goes, and the first failure is told.
        if (result == KL::NoError)
            result = err;
    }
    return result;
}

int Folder::GenerateUnusedName(const Name& base, Name* result, const KL::UniString& suffix) const {
    return status != KL::NoError ? status
                                 : EntryStatus::ToError(entry->GenerateUnusedName(base, result, suffix));
}

int Folder::GenerateUnusedNameFromString(const KL::UniString& text, Name* result,
                                         const KL::UniString& suffix) const {
    return status != KL::NoError
               ? status
               : EntryStatus::ToError(entry->GenerateUnusedNameFromString(text, result, suffix));
}

int Folder::GetCreationTime(TITime* time) const {
    return status != KL::NoError ? status : EntryStatus::ToError(entry->GetCreationTime(time));
}

int Folder::GetModificationTime(TITime* time) const {
    return status != KL::NoError ? status : EntryStatus::ToError(entry->GetModificationTime(time));
}

bool Folder::IsValid() const {
    return status == KL::NoError && entry->IsValid();
}

bool Folder::IsWriteable() const {
    return status == KL::NoError && entry->IsWriteable();
}

bool Folder::IsOnLocalVolume() const {
    return status == KL::NoError && entry->IsOnLocalVolume();
}

bool Folder::IsOnFixedVolume() const {
    return status == KL::NoError && entry->IsOnFixedVolume();
}

} // namespace IO
