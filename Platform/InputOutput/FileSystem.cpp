#include "InputOutput/FileSystem.hpp"

#include "InputOutput/FileEntry.hpp"
#include "InputOutput/FixedVFS.hpp"
#include "InputOutput/IOErrors.hpp"
#include "InputOutput/LocalEntries.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sys/stat.h>

namespace IO {

FileSystem fileSystem;

namespace {

// An absolute path from an environment variable; relative ones are ignored, as XDG asks.
Location FromVariable(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr || value[0] != '/')
        return {};
    return Location(value);
}

Location UnderHome(std::initializer_list<const char*> names) {
    Location location = FromVariable("HOME");
    for (const char* name : names) {
        if (location.Append(Name(name)) != KL::NoError)
            return {};
    }
    return location;
}

int StatLocal(const std::string& path, struct stat* info) {
    return stat(path.c_str(), info) == 0 ? KL::NoError : ErrnoToError(errno);
}

// Connects an entry of a mounted file system; a connection without an entry counts as none.
template <typename Entry>
int ConnectThrough(FixedVFS& vfs, const Location& location, Entry** entry, FixedVFS** owner) {
    Location connected = location;
    const int status = vfs.Connect(&connected, entry);
    if (status != FixedVFS::Connected || *entry == nullptr) {
        *entry = nullptr;
        return EntryStatus::ToError(status == FixedVFS::Connected ? FixedVFS::NoSuchEntry : status,
                                    NotFoundError, NotFoundError);
    }
    *owner = &vfs;
    return KL::NoError;
}

// Entries of the local disk belong to the caller; those of a mount go back to their file system.
template <typename Entry>
void GiveBack(FixedVFS* owner, Entry* entry) {
    if (entry == nullptr)
        return;
    if (owner != nullptr)
        owner->Disconnect(entry);
    else
        delete entry;
}

} // namespace

FileSystem::FileSystem() = default;

FileSystem::~FileSystem() = default;

int FileSystem::GetSpecialLocation(SpecLocId id, Location* location) const {
    if (location == nullptr)
        return KL::ErrParam;
    Location result;
    switch (id) {
    case HomeFolder:
        result = FromVariable("HOME");
        break;
    case ConfigurationFolder:
        result = FromVariable("XDG_CONFIG_HOME");
        if (result.IsEmpty())
            result = UnderHome({".config"});
        result.Append(Name("libmgr"));
        break;
    case UserDataFolder:
        result = FromVariable("XDG_DATA_HOME");
        if (result.IsEmpty())
            result = UnderHome({".local", "share"});
        break;
    case UserCacheFolder:
        result = FromVariable("XDG_CACHE_HOME");
        if (result.IsEmpty())
            result = UnderHome({".cache"});
        break;
    case TemporaryFolder:
        result = FromVariable("TMPDIR");
        if (result.IsEmpty())
            result = Location("/tmp");
        break;
    default:
        return KL::ErrParam;
    }
    if (result.IsEmpty())
        return NotFoundError;
    *location = std::move(result);
    return KL::NoError;
}

FixedVFS* FileSystem::GetServingVFS(const Location& location, bool includeSelf) const {
    std::shared_lock guard(mountLock);
    return FindServingLocked(location, includeSelf);
}

FixedVFS* FileSystem::FindServingLocked(const Location& location, bool includeSelf) const {
    if (mounts.empty() || location.IsEmpty())
        return nullptr;
    Location candidate = location;
    if (!includeSelf)
        candidate.DeleteLastLocalName();
    for (;;) {
        if (const auto found = mounts.find(candidate); found != mounts.end())
            return found->second;
        if (candidate.DeleteLastLocalName() != KL::NoError)
            return nullptr;
    }
}

template <typename Entry>
int FileSystem::ConnectMounted(const Location& location, bool includeSelf, Entry** entry,
                               FixedVFS** owner) const {
    FixedVFS* vfs = nullptr;
    {
        std::shared_lock guard(mountLock);
        vfs = FindServingLocked(location, includeSelf);
        if (vfs == nullptr)
            return NotMounted;
        const std::lock_guard count(inFlightLock);
        ++inFlight;
    }
    const int result = ConnectThrough(*vfs, location, entry, owner);
    {
        const std::lock_guard count(inFlightLock);
        --inFlight;
    }
    inFlightDone.notify_all();
    return result;
}

int FileSystem::ConnectFile(const Location& location, FileEntry** entry, FixedVFS** owner,
                            bool lookUpNow) const {
    if (entry == nullptr || owner == nullptr)
        return KL::ErrParam;
    *entry = nullptr;
    *owner = nullptr;
    if (location.IsEmpty() || location.GetLength() == 0)
        return InvalidLocationError;
    if (const int mounted = ConnectMounted(location, false, entry, owner); mounted != NotMounted)
        return mounted;
    std::string path = location.ToString();
    if (lookUpNow) {
        struct stat info {};
        if (const int err = StatLocal(path, &info); err != KL::NoError)
            return err;
        if (S_ISDIR(info.st_mode))
            return WrongKindError;
    }
    *entry = new LocalFileEntry(std::move(path));
    return KL::NoError;
}

int FileSystem::ConnectFolder(const Location& location, FolderEntry** entry, FixedVFS** owner) const {
    if (entry == nullptr || owner == nullptr)
        return KL::ErrParam;
    *entry = nullptr;
    *owner = nullptr;
    if (location.IsEmpty())
        return InvalidLocationError;
    if (const int mounted = ConnectMounted(location, true, entry, owner); mounted != NotMounted)
        return mounted;
    std::string path = location.ToString();
    struct stat info {};
    if (const int err = StatLocal(path, &info); err != KL::NoError)
        return err;
    if (!S_ISDIR(info.st_mode))
        return WrongKindError;
    *entry = new LocalFolderEntry(std::move(path));
    return KL::NoError;
}

void FileSystem::Disconnect(FixedVFS* owner, FileEntry* entry) {
    GiveBack(owner, entry);
}

void FileSystem::Disconnect(FixedVFS* owner, FolderEntry* entry) {
    GiveBack(owner, entry);
}

namespace {

// Runs `action` on the folder entry that holds `location`'s last name.
template <typename Action>
int WithParentFolder(const FileSystem& system, const Location& location, Action action) {
    Name name;
    if (location.GetLastLocalName(&name) != KL::NoError)
        return InvalidLocationError;
    Location parent = location;
    parent.DeleteLastLocalName();
    FolderEntry* entry = nullptr;
    FixedVFS* owner = nullptr;
    if (const int err = system.ConnectFolder(parent, &entry, &owner); err != KL::NoError)
        return err;
    const int result = action(*entry, name);
    FileSystem::Disconnect(owner, entry);
    return result;
}

} // namespace

int FileSystem::GetType(const Location& location, EntryType* type) const {
    if (type == nullptr)
        return KL::ErrParam;
    if (location.IsEmpty())
        return InvalidLocationError;
    if (location.GetLength() == 0 || IsMountPoint(location)) {
        *type = FolderEntryType;
        return KL::NoError;
    }
    return WithParentFolder(*this, location, [type](FolderEntry& folder, const Name& name) {
        return EntryStatus::ToError(folder.GetEntryType(name, type), NotFoundError, NotFoundError);
    });
}

int FileSystem::GetFileModificationTime(const Location& location, TITime* time) const {
    if (time == nullptr)
        return KL::ErrParam;
    if (location.IsEmpty() || location.GetLength() == 0)
        return InvalidLocationError;
    if (GetServingVFS(location, false) != nullptr) {
        FileEntry* entry = nullptr;
        FixedVFS* owner = nullptr;
        if (const int err = ConnectFile(location, &entry, &owner); err != KL::NoError)
            return err;
        const int result = EntryStatus::ToError(entry->GetModificationTime(time));
        Disconnect(owner, entry);
        return result;
    }
    struct stat info {};
    if (const int err = StatLocal(location.ToString(), &info); err != KL::NoError)
        return err;
    if (S_ISDIR(info.st_mode))
        return WrongKindError;
    *time = TIFromUnixTime(info.st_mtim.tv_sec);
    return KL::NoError;
}

int FileSystem::CreateFolderTree(const Location& location) {
    EntryType type = FileEntryType;
    const int status = GetType(location, &type);
    if (status == KL::NoError)
        return type == FolderEntryType ? KL::NoError : WrongKindError;
    if (status != NotFoundError)
        return status;
    Location parent = location;
    parent.DeleteLastLocalName();
    if (const int err = CreateFolderTree(parent); err != KL::NoError)
        return err;
    return WithParentFolder(*this, location, [](FolderEntry& folder, const Name& name) {
        const int err = EntryStatus::ToError(folder.CreateFolder(name));
        return err == AlreadyExistsError ? KL::NoError : err; // made meanwhile by someone else
    });
}

int FileSystem::Delete(const Location& location) {
    if (IsMountPoint(location))
        return MountError;
    return WithParentFolder(*this, location, [](FolderEntry& folder, const Name& name) {
        return EntryStatus::ToError(folder.Delete(name), NotFoundError, NotFoundError);
    });
}

int FileSystem::Move(const Location& from, const Location& to) {
    if (from.IsEmpty() || to.IsEmpty())
        return InvalidLocationError;
    if (GetServingVFS(from, false) != nullptr || GetServingVFS(to, false) != nullptr)
        return ReadOnlyError;
    if (std::rename(from.ToString().c_str(), to.ToString().c_str()) != 0)
        return ErrnoToError(errno);
    return KL::NoError;
}

int FileSystem::Mount(FixedVFS* vfs, const Location& location) {
    if (vfs == nullptr || location.IsEmpty())
        return KL::ErrParam;
    // A file may take a mount on whatever file system serves it: a container inside a container.
    EntryType type = FolderEntryType;
    const bool onFile = GetType(location, &type) == KL::NoError && type == FileEntryType;
    {
        std::unique_lock guard(mountLock);
        if (mounts.contains(location))
            return MountError;
        for (const auto& [mountPoint, mounted] : mounts) {
            if (mounted == vfs)
                return MountError;
            if (mountPoint.IsAncestorOf(location) && !onFile && !mounted->SubmountingEnabled())
                return MountError;
        }
        mounts.emplace(location, vfs);
    }
    // Outside the lock: the file system may open files of its own while it mounts.
    vfs->Mounted(location);
    return KL::NoError;
}

int FileSystem::Unmount(const Location& location) {
    FixedVFS* vfs = nullptr;
    {
        std::unique_lock guard(mountLock);
        const auto found = mounts.find(location);
        if (found == mounts.end())
            return NotFoundError;
        vfs = found->second;
        mounts.erase(found);
    }
    {
        std::unique_lock count(inFlightLock);
        inFlightDone.wait(count, [this] { return inFlight == 0; });
    }
    vfs->Unmounted();
    return KL::NoError;
}

bool FileSystem::IsMountPoint(const Location& location) const {
    return GetMountedVFS(location) != nullptr;
}

FixedVFS* FileSystem::GetMountedVFS(const Location& location) const {
    std::shared_lock guard(mountLock);
    const auto found = mounts.find(location);
    return found == mounts.end() ? nullptr : found->second;
}

} // namespace IO
