#pragma once

#include "InputOutput/FolderEntry.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

#include <condition_variable>
#include <map>
#include <mutex>
#include <shared_mutex>

namespace IO {

class FileEntry;
class FixedVFS;

// The process's view of files: the local disk, with file systems mounted at locations of it.
// A mount serves every location strictly below its mount point, and the mount point itself as a
// folder; as a file the mount point stays what it is on the file system beneath (so a container
// file can still be read while its contents are mounted on it).
class LM_EXPORT FileSystem {
public:
    // Folders the system keeps its files in. Each follows the XDG variable named beside it, so a
    // test or a sandboxed host can move them all.
    enum SpecLocId {
        HomeFolder = 1,          // $HOME
        ConfigurationFolder = 2, // $XDG_CONFIG_HOME/libmgr, or ~/.config/libmgr
        UserDataFolder = 6,      // $XDG_DATA_HOME, or ~/.local/share
        UserCacheFolder = 7,     // $XDG_CACHE_HOME, or ~/.cache
        TemporaryFolder = 12     // $TMPDIR, or /tmp
    };

    FileSystem();
    ~FileSystem();
    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;

    int GetSpecialLocation(SpecLocId id, Location* location) const;

    // What stands at a location, following mounts.
    int GetType(const Location& location, EntryType* type) const;
    // The modification time of the file at a location, with one question to the local disk: for
    // walks that compare times of many files they do not open.
    int GetFileModificationTime(const Location& location, TITime* time) const;
    // Creates the folder and every missing folder above it.
    int CreateFolderTree(const Location& location);
    // Removes a file, a link or an empty folder; a mount point is refused.
    int Delete(const Location& location);
    // Renames a file of the local disk in one step, replacing what stood at `to`; files of mounted
    // file systems are refused with ReadOnlyError.
    int Move(const Location& from, const Location& to);

    // Takes a file system on at `location` and then calls its Mounted. Refused (MountError) when
    // something is mounted there already, or when `location` is no file and the file system below
    // does not allow mounts on its folders.
    int Mount(FixedVFS* vfs, const Location& location);
    // Lets the file system at `location` go and calls its Unmounted; NotFoundError if none.
    int Unmount(const Location& location);
    bool IsMountPoint(const Location& location) const;
    FixedVFS* GetMountedVFS(const Location& location) const;

    // Connects the entry at a location. `owner` receives the serving file system, null for the
    // local disk; give the entry back with Disconnect. With `lookUpNow` false a file of the local
    // disk is first looked up when it is opened, so that a reader pays one look-up, not two.
    int ConnectFile(const Location& location, FileEntry** entry, FixedVFS** owner,
                    bool lookUpNow = true) const;
    int ConnectFolder(const Location& location, FolderEntry** entry, FixedVFS** owner) const;
    static void Disconnect(FixedVFS* owner, FileEntry* entry);
    static void Disconnect(FixedVFS* owner, FolderEntry* entry);

    // The file system that serves the contents of a folder at `location`: the deepest mount at or
    // above it, or null for the local disk.
    FixedVFS* GetServingVFS(const Location& location, bool includeSelf) const;

private:
    FixedVFS* FindServingLocked(const Location& location, bool includeSelf) const;
    // NotMounted when no file system serves the location. Connects through a mounted file system
    // outside the mount lock; Unmount waits until those
    // under way are done, so a file system let go is never entered again.
    template <typename Entry>
    int ConnectMounted(const Location& location, bool includeSelf, Entry** entry, FixedVFS** owner) const;

    std::map<Location, FixedVFS*> mounts;
    static constexpr int NotMounted = 1;
    mutable std::shared_mutex mountLock;
    mutable std::mutex inFlightLock;
    mutable std::condition_variable inFlightDone;
    mutable int inFlight = 0;
};

// The one file system of the process.
LM_EXPORT extern FileSystem fileSystem;

} // namespace IO
