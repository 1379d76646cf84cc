#pragma once

#include "KLRoot/KLExport.hpp"
#include "KLRoot/Time.hpp"

namespace IO {

class File;
class FileEntry;
class FolderEntry;
class Location;

// What a file system mounted over a file tells of itself: the file's times, and the volume of the
// folder that holds it. A time the file does not give stays 0.
struct BackingFileFacts {
    TITime creationTime = 0;
    TITime modificationTime = 0;
    bool onLocalVolume = false;
    bool onFixedVolume = false;
};
LM_EXPORT BackingFileFacts ReadBackingFileFacts(const File& file);

// A file system that can be mounted at a location of the process-wide IO::fileSystem. Below the
// mount point, every file and folder is served by Connect; the caller gives each entry back with
// Disconnect. The mount table does not own the file system: it must outlive its mount and every
// entry it handed out.
class LM_EXPORT FixedVFS {
public:
    // Results of Connect besides the entry statuses; 0 means connected.
    enum ConnectStatus { Connected = 0, ConnectFailed = 4, NoSuchEntry = 5 };

    FixedVFS() = default;
    virtual ~FixedVFS();
    FixedVFS(const FixedVFS&) = delete;
    FixedVFS& operator=(const FixedVFS&) = delete;

    // The location is absolute; the mount point itself is the file system's root folder.
    virtual int Connect(Location* location, FolderEntry** entry) = 0;
    virtual int Connect(Location* location, FileEntry** entry) = 0;
    virtual void Disconnect(FileEntry* entry) = 0;
    virtual void Disconnect(FolderEntry* entry) = 0;
    // True when folders of this file system may become mount points of others. A file it serves
    // may always take a mount, as a container file is mounted over itself.
    virtual bool SubmountingEnabled() const { return false; }
    // Called by the mount table after it took the file system on, and when it lets it go.
    virtual void Mounted(const Location& mountPoint);
    virtual void Unmounted();
};

} // namespace IO
