#pragma once

// A tree of database objects served as a read-only file system. Mounting walks the folder
// objects and enters every folder's and file's location in a table of references; nothing of a
// file's bytes is read then. Entries read through their file object when asked, so the bytes come
// from the database on demand and its memory limit bounds what stays loaded.
//
// Folder objects give GetNameIO, GetConnectedFolderObjects and GetConnectedFileObjects; file
// objects give GetNameIO, GetDataSize, GetBinData, the two times as DateTime, GetMacType and
// GetMacCreator. The top folder adds no level: its children are the first level under the mount
// point. States are those of every mounted file system (mounted, unmount pending while entries are
// connected, cleaned up); on top, a mount that was stopped or a read that failed poisons the file
// system, and every entry fails from then on. Database faults while mounting make the mount fail;
// faults while reading fail the read.
#include "VBUtils/DateTime.hpp"
#include "VBUtils/ProcessControl.hpp"

#include "ObjectDatabase/Ref.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileEntry.hpp"
#include "InputOutput/FixedVFS.hpp"
#include "InputOutput/FolderEntry.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/ProcessControl.hpp"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_set>

namespace OVFS {

// What the entries may do; 0, the only type in use, makes every entry read-only.
using ObjectVFSType = int;

template <class FileObject, class FolderObject, class RootObject>
class ObjectVFS;

// Runs a step that touches database objects; a database fault poisons the file system and
// becomes `failure`.
template <class VFS, class Step>
int ObjectStep(VFS* fileSystem, int failure, Step&& step) {
    try {
        return step();
    } catch (const KL::KLException&) {
        fileSystem->SetErrorOccured(true);
        return failure;
    }
}

template <class FileObject, class FolderObject, class RootObject>
class ObjectFolderEntry : public IO::ReadOnlyFolderEntry {
public:
    using VFS = ObjectVFS<FileObject, FolderObject, RootObject>;

    ObjectFolderEntry(VFS* fileSystem, const IO::Location& location, ODB::Ref<FolderObject> folder,
                      bool readOnly)
        : fileSystem(fileSystem), location(location), folder(std::move(folder)), readOnly(readOnly) {}

    int GetCreationTime(TITime* time) const override {
        if (!fileSystem->IsUsable())
            return IO::EntryStatus::NotAvailable;
        *time = fileSystem->GetCreationTime();
        return IO::EntryStatus::Ok;
    }
    int GetModificationTime(TITime* time) const override {
        if (!fileSystem->IsUsable())
            return IO::EntryStatus::NotAvailable;
        *time = fileSystem->GetModificationTime();
        return IO::EntryStatus::Ok;
    }
    int GetEntryType(const IO::Name& name, IO::EntryType* type) const override {
        if (!fileSystem->IsUsable())
            return IO::EntryStatus::TransferFailed;
        const IO::Location child = location + name;
        if (fileSystem->IsFolderLocation(child))
            *type = IO::FolderEntryType;
        else if (fileSystem->IsFileLocation(child))
            *type = IO::FileEntryType;
        else
            return IO::EntryStatus::TransferFailed;
        return IO::EntryStatus::Ok;
    }
    // Files, then folders, as the mount walks them.
    int EnumerateContents(IO::EntryCallback callback, void* data) const override {
        if (!fileSystem->IsUsable() || !folder.IsLive())
            return IO::EntryStatus::TransferFailed;
        return ObjectStep(fileSystem, IO::EntryStatus::TransferFailed, [&] {
            KL::Array<ODB::Ref<FileObject>> files;
            folder->GetConnectedFileObjects(&files);
            for (const ODB::Ref<FileObject>& file : files) {
                if (!callback(file->GetNameIO(), IO::FileEntryType, data))
                    return IO::EntryStatus::Ok;
            }
            KL::Array<ODB::Ref<FolderObject>> folders;
            folder->GetConnectedFolderObjects(&folders);
            for (const ODB::Ref<FolderObject>& subfolder : folders) {
                if (!callback(subfolder->GetNameIO(), IO::FolderEntryType, data))
                    return IO::EntryStatus::Ok;
            }
            return IO::EntryStatus::Ok;
        });
    }
    bool IsValid() const override { return fileSystem->IsUsable(); }
    bool IsWriteable() const override { return !readOnly; }
    bool IsOnLocalVolume() const override { return fileSystem->IsOnLocalVolume(); }
    bool IsOnFixedVolume() const override { return fileSystem->IsOnFixedVolume(); }

private:
    VFS* fileSystem;
    IO::Location location;
    ODB::Ref<FolderObject> folder;
    bool readOnly;
};

template <class FileObject, class FolderObject, class RootObject>
class ObjectFileEntry : public IO::ReadOnlyFileEntry {
public:
    using VFS = ObjectVFS<FileObject, FolderObject, RootObject>;

    ObjectFileEntry(VFS* fileSystem, ODB::Ref<FileObject> header, bool readOnly)
        : fileSystem(fileSystem), header(std::move(header)), readOnly(readOnly) {}

    int GetCreationTime(TITime* time) const override {
        return HeaderStep(IO::EntryStatus::NotAvailable, [&] {
            *time = header->GetCreationTime().ConvertToKLTime();
            return IO::EntryStatus::Ok;
        });
    }
    int GetModificationTime(TITime* time) const override {
        return HeaderStep(IO::EntryStatus::NotAvailable, [&] {
            *time = header->GetModificationTime().ConvertToKLTime();
            return IO::EntryStatus::Ok;
        });
    }
    int GetPosition(std::uint64_t* result) const override {
        *result = position;
        return IO::EntryStatus::Ok;
    }
    int Open(OpenMode mode) override {
        return HeaderStep(IO::EntryStatus::NotAvailable, [&] {
            // A connected object is there already: nothing is made by opening it.
            if ((readOnly && mode != ReadMode) || mode == NewMode)
                return IO::EntryStatus::TransferFailed;
            position = 0;
            return IO::EntryStatus::Ok;
        });
    }
    // Clipped at the end with EndOfData; a failed read poisons the whole file system.
    int Read(void* buffer, std::uint64_t size, std::uint64_t* read) override {
        *read = 0;
        return HeaderStep(IO::EntryStatus::TransferFailed, [&] {
            const std::uint64_t total = Length();
            const std::uint64_t wanted = std::min(size, total - std::min(position, total));
            std::uint32_t got = 0;
            if (wanted > 0 && header->GetBinData(static_cast<char*>(buffer), position,
                                                 static_cast<std::uint32_t>(wanted), &got) != KL::NoError) {
                fileSystem->SetErrorOccured(true);
                return IO::EntryStatus::TransferFailed;
            }
            position += wanted;
            highWater = std::max(highWater, position);
            *read = wanted;
            return wanted < size ? IO::EntryStatus::EndOfData : IO::EntryStatus::Ok;
        });
    }
    int Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* result) override {
        if (origin < FromStart || origin > FromEnd)
            return IO::EntryStatus::TransferFailed;
        return HeaderStep(IO::EntryStatus::TransferFailed, [&] {
            std::uint64_t target = 0;
            if (!IO::FindSeekTarget(origin, offset, position, Length(), &target))
                return IO::EntryStatus::EndOfData;
            position = target;
            if (result != nullptr)
                *result = position;
            return IO::EntryStatus::Ok;
        });
    }
    int Close() override {
        return HeaderStep(IO::EntryStatus::CloseFailed, [&] {
            position = 0;
            return IO::EntryStatus::Ok;
        });
    }
    int GetDataLength(std::uint64_t* length) const override {
        if (fileSystem->IsUsable() && !header.IsLive())
            return IO::EntryStatus::EndOfData;
        return HeaderStep(IO::EntryStatus::NotAvailable, [&] {
            *length = Length();
            return IO::EntryStatus::Ok;
        });
    }
    int SetDataLength(std::uint64_t) override {
        return readOnly ? IO::EntryStatus::TransferFailed : KL::ErrNotSupported;
    }
    int GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const override {
        return HeaderStep(IO::EntryStatus::CloseFailed, [&] {
            *type = static_cast<std::uint32_t>(header->GetMacType());
            *creator = static_cast<std::uint32_t>(header->GetMacCreator());
            return IO::EntryStatus::Ok;
        });
    }
    bool IsWriteProtected() const override { return readOnly; }
    int SetWriteProtection(bool protect) override {
        readOnly = protect;
        return IO::EntryStatus::Ok;
    }
    // The furthest any read of this entry reached.
    std::uint64_t GetHighWater() const { return highWater; }

private:
    // A file's length asks the database for its content; a container never changes, so once is
    // enough.
    std::uint64_t Length() const {
        if (!knownLength)
            knownLength = header->GetDataSize();
        return *knownLength;
    }

    // Every operation needs a usable file system and a live header.
    template <class Step>
    int HeaderStep(int failure, Step&& step) const {
        if (!fileSystem->IsUsable() || !header.IsLive())
            return failure;
        return ObjectStep(fileSystem, failure, std::forward<Step>(step));
    }

    VFS* fileSystem;
    ODB::Ref<FileObject> header;
    bool readOnly;
    std::uint64_t position = 0;
    std::uint64_t highWater = 0;
    mutable std::optional<std::uint64_t> knownLength;
};

template <class FileObject, class FolderObject, class RootObject>
class ObjectVFS : public IO::FixedVFS {
public:
    using FolderRef = ODB::Ref<FolderObject>;
    using FileRef = ODB::Ref<FileObject>;
    using FolderEntry = ObjectFolderEntry<FileObject, FolderObject, RootObject>;
    using FileEntry = ObjectFileEntry<FileObject, FolderObject, RootObject>;

    // An empty backing location: the objects live in a host's database and no file is tested.
    explicit ObjectVFS(const IO::Location& backingFileLocation, ObjectVFSType type = 0)
        : backingFileLocation(backingFileLocation), vfsType(type) {}
    ~ObjectVFS() override { CleanUp(); }

    int Connect(IO::Location* location, IO::FolderEntry** entry) override {
        if (location == nullptr)
            return NoSuchEntry;
        *entry = nullptr;
        std::lock_guard guard(connectLock);
        FolderRef folder;
        if (*location == ownLocation)
            folder = rootFolder;
        else if (const FolderRef* found = folderTable.GetPtr(*location))
            folder = *found;
        if (!folder.IsLive())
            return ConnectFailed;
        *entry = new FolderEntry(this, *location, folder, vfsType == 0);
        ++connectedCount;
        return Connected;
    }
    int Connect(IO::Location* location, IO::FileEntry** entry) override {
        if (location == nullptr)
            return NoSuchEntry;
        *entry = nullptr;
        std::lock_guard guard(connectLock);
        const FileRef* found = fileTable.GetPtr(*location);
        if (found == nullptr || !found->IsLive())
            return ConnectFailed;
        *entry = new FileEntry(this, *found, vfsType == 0);
        ++connectedCount;
        return Connected;
    }
    void Disconnect(IO::FileEntry* entry) override { EntryGone(entry); }
    void Disconnect(IO::FolderEntry* entry) override { EntryGone(entry); }
    bool SubmountingEnabled() const override { return false; }

    void Mounted(const IO::Location& location) override {
        if (mounted)
            return;
        OpenBackingFile();
        KL::NonInterruptibleProcessControl ownProcess;
        int result = KL::ErrStreamFormat;
        try {
            result = ProcessObjects(klProcessControl != nullptr ? *klProcessControl : ownProcess, location);
        } catch (const KL::KLException&) {
            errorOccured = true;
        }
        if (result == KL::NoError)
            ownLocation = location;
        mounted = result == KL::NoError;
    }
    void Unmounted() override {
        std::lock_guard guard(connectLock);
        if (mounted) {
            if (connectedCount < 1)
                mounted = false;
            else
                unmountPending = true;
        }
        if (!mounted)
            CleanUp();
        backingFile.reset();
    }

    TITime GetCreationTime() const { return creationTime; }
    TITime GetModificationTime() const { return modificationTime; }
    bool IsOnLocalVolume() const { return onLocalVolume; }
    bool IsOnFixedVolume() const { return onFixedVolume; }
    bool IsMounted() const { return mounted; }
    // Mounted and not poisoned: what every entry asks first.
    bool IsUsable() const { return mounted && !errorOccured; }
    bool ErrorOccured() const { return errorOccured; }
    void SetErrorOccured(bool value) { errorOccured = value; }
    const IO::Location& GetOwnLocation() const { return ownLocation; }
    int GetConnectedCount() const { return connectedCount; }
    ObjectVFSType GetObjectVFSType() const { return vfsType; }
    ProcessControl* GetProcessControl() const { return processControl; }
    // The foundation's control that shows the next mount; not owned.
    void SetProcessControl(KL::ProcessControl* process) { klProcessControl = process; }
    void SetProcessControl(ProcessControl* process, bool owned) {
        ownedProcessControl.reset(owned ? process : nullptr);
        processControl = process;
    }
    void SetEstimatedFileCount(std::uint32_t count) { estimatedFileCount = count; }

    bool IsFolderLocation(const IO::Location& location) const { return folderTable.ContainsKey(location); }
    bool IsFileLocation(const IO::Location& location) const { return fileTable.ContainsKey(location); }
    FolderRef GetFolderObject(const IO::Location& location) const {
        const FolderRef* found = folderTable.GetPtr(location);
        return found == nullptr ? FolderRef() : *found;
    }
    FileRef GetFileObject(const IO::Location& location) const {
        const FileRef* found = fileTable.GetPtr(location);
        return found == nullptr ? FileRef() : *found;
    }
    bool IsFolderSubContainer(const IO::Location& location) const {
        const FolderRef folder = GetFolderObject(location);
        return folder.IsLive() && folder->IsSubContainer();
    }

    // A database that changes keeps the tables in step: a new entry replaces nothing, and the
    // removal of an absent one is no fault.
    void FileObjectCreated(const FileRef& file, const IO::Location& location) {
        fileTable.Add(location, file);
    }
    void FolderObjectCreated(const FolderRef& folder, const IO::Location& location) {
        folderTable.Add(location, folder);
    }
    void FileObjectDeleted(const IO::Location& location) { fileTable.Delete(location); }
    void FolderObjectDeleted(const IO::Location& location) { folderTable.Delete(location); }

protected:
    void SetRootFolder(const FolderRef& folder) { rootFolder = folder; }
    // Lets go of every reference to database objects, before the database goes.
    void DropObjects() {
        CleanUp();
        rootFolder.Clear();
        ownedProcessControl.reset();
        processControl = nullptr;
    }

private:
    void OpenBackingFile() {
        if (backingFileLocation.IsEmpty())
            return;
        auto file = std::make_unique<IO::File>(backingFileLocation);
        if (file->GetStatus() != KL::NoError)
            return;
        backingFile = std::move(file);
        const IO::BackingFileFacts facts = IO::ReadBackingFileFacts(*backingFile);
        creationTime = facts.creationTime;
        modificationTime = facts.modificationTime;
        onLocalVolume = facts.onLocalVolume;
        onFixedVolume = facts.onFixedVolume;
        backingFile->Open(IO::File::ReadMode);
    }

    int ProcessObjects(KL::ProcessControl& process, const IO::Location& location) {
        fileTable.Clear();
        folderTable.Clear();
        if (!rootFolder.IsLive())
            return KL::ErrStreamFormat;
        stopRequested = false;
        walkedFolders.clear();
        walkedFolders.insert(rootFolder.GetId());
        if (processControl != nullptr)
            processControl->Start(process, static_cast<int>(estimatedFileCount));
        const int result = ProcessChildren(process, rootFolder, location, 0);
        walkedFolders.clear();
        if (stopRequested || result != KL::NoError)
            errorOccured = true;
        if (processControl != nullptr)
            processControl->Finish(process);
        return result;
    }

    // Files before subfolders; the top folder itself is no level.
    int ProcessChildren(KL::ProcessControl& process, const FolderRef& folder, const IO::Location& location,
                        int depth) {
        KL::Array<FileRef> files;
        folder->GetConnectedFileObjects(&files);
        for (const FileRef& file : files) {
            if (stopRequested)
                return KL::NoError;
            ProcessFileObject(process, file, location);
        }
        KL::Array<FolderRef> folders;
        folder->GetConnectedFolderObjects(&folders);
        for (const FolderRef& subfolder : folders) {
            if (stopRequested)
                return KL::NoError;
            if (const int result = ProcessFolderObject(process, subfolder, location, depth + 1);
                result != KL::NoError)
                return result;
        }
        return KL::NoError;
    }

    // A folder met twice, or a tree deeper than any path can be, is a damaged database: a walk on
    // would never end.
    int ProcessFolderObject(KL::ProcessControl& process, const FolderRef& folder, const IO::Location& parent,
                            int depth) {
        if (depth > MaxFolderDepth || !walkedFolders.insert(folder.GetId()).second)
            return KL::ErrStreamFormat;
        const IO::Location location = parent + folder->GetNameIO();
        folderTable.Put(location, folder);
        return ProcessChildren(process, folder, location, depth);
    }

    void ProcessFileObject(KL::ProcessControl& process, const FileRef& file, const IO::Location& parent) {
        if (processControl != nullptr)
            processControl->Step(process);
        fileTable.Put(parent + file->GetNameIO(), file);
        stopRequested = processControl != nullptr && processControl->IsCancelled();
    }

    template <class Entry>
    void EntryGone(Entry* entry) {
        delete entry;
        std::lock_guard guard(connectLock);
        if (--connectedCount == 0 && unmountPending) {
            mounted = false;
            unmountPending = false;
        }
        if (!mounted)
            CleanUp();
    }

    void CleanUp() {
        fileTable.Clear();
        folderTable.Clear();
        backingFile.reset();
    }

    static constexpr int MaxFolderDepth = 512;

    KL::HashTable<IO::Location, FolderRef> folderTable;
    KL::HashTable<IO::Location, FileRef> fileTable;
    // Entries of script threads ask it while the owner's thread mounts and unmounts.
    std::atomic<bool> mounted = false;
    IO::Location ownLocation;
    bool unmountPending = false;
    IO::Location backingFileLocation;
    std::unique_ptr<IO::File> backingFile;
    int connectedCount = 0;
    TITime creationTime = 0;
    TITime modificationTime = 0;
    bool onLocalVolume = false;
    bool onFixedVolume = false;
    std::atomic<bool> errorOccured = false;
    bool stopRequested = false;
    FolderRef rootFolder;
    ObjectVFSType vfsType;
    std::unique_ptr<ProcessControl> ownedProcessControl;
    ProcessControl* processControl = nullptr;
    KL::ProcessControl* klProcessControl = nullptr;
    std::uint32_t estimatedFileCount = 0;
    std::unordered_set<ODB::Id> walkedFolders;
    // Script threads connect and give back entries while the owner's thread works.
    std::mutex connectLock;
};

} // namespace OVFS
