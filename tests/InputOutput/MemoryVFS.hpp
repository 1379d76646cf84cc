#pragma once

// A small read-only file system held in memory, for mounting in tests.
#include <LibraryManager.hpp>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace testsupport {

class MemoryVFS : public IO::FixedVFS {
public:
    void AddFile(const std::string& relative, std::string content) {
        files[relative] = std::make_shared<const std::string>(std::move(content));
        for (std::size_t slash = relative.find('/'); slash != std::string::npos;
             slash = relative.find('/', slash + 1))
            folders.insert(relative.substr(0, slash));
    }

    // A folder that exists but whose contents cannot be listed, as an unreadable folder on disk.
    void Lock(const std::string& relative) { locked.insert(relative); }

    int Connect(IO::Location* location, IO::FolderEntry** entry) override {
        std::string relative;
        if (!Relative(*location, relative) || (!relative.empty() && !folders.contains(relative)))
            return NoSuchEntry;
        *entry = new FolderEntry(*this, relative);
        ++connected;
        return Connected;
    }
    int Connect(IO::Location* location, IO::FileEntry** entry) override {
        std::string relative;
        if (!Relative(*location, relative) || !files.contains(relative))
            return NoSuchEntry;
        *entry = new FileEntry(files.at(relative), &bytesRead);
        ++connected;
        return Connected;
    }
    void Disconnect(IO::FileEntry* entry) override {
        delete entry;
        --connected;
    }
    void Disconnect(IO::FolderEntry* entry) override {
        delete entry;
        --connected;
    }
    void Mounted(const IO::Location& location) override {
        mountPoint = location;
        mounted = true;
    }
    void Unmounted() override { mounted = false; }

    bool IsMounted() const { return mounted; }
    int GetConnectedCount() const { return connected; }
    // What all reads of all files have handed out, for tests of how much a reader pulls in.
    std::uint64_t GetBytesRead() const { return bytesRead; }

private:
    class FileEntry : public IO::ReadOnlyFileEntry {
    public:
        FileEntry(std::shared_ptr<const std::string> data, std::uint64_t* counter)
            : content(std::move(data)), bytesRead(counter) {}
        int GetCreationTime(TITime* time) const override { return *time = 100, 0; }
        int GetModificationTime(TITime* time) const override { return *time = 200, 0; }
        int GetPosition(std::uint64_t* result) const override { return *result = position, 0; }
        int Open(OpenMode mode) override {
            position = 0;
            return mode == ReadMode ? 0 : IO::EntryStatus::TransferFailed;
        }
        int Read(void* buffer, std::uint64_t size, std::uint64_t* read) override {
            *read = std::min<std::uint64_t>(size, content->size() - position);
            std::memcpy(buffer, content->data() + position, *read);
            position += *read;
            *bytesRead += *read;
            return *read < size ? IO::EntryStatus::EndOfData : 0;
        }
        int Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* result) override {
            const std::int64_t base = origin == FromStart     ? 0
                                      : origin == FromCurrent ? static_cast<std::int64_t>(position)
                                                              : static_cast<std::int64_t>(content->size());
            if (base + offset < 0 || base + offset > static_cast<std::int64_t>(content->size()))
                return IO::EntryStatus::EndOfData;
            position = static_cast<std::uint64_t>(base + offset);
            *result = position;
            return 0;
        }
        int Close() override { return 0; }
        int GetDataLength(std::uint64_t* length) const override { return *length = content->size(), 0; }
        int GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const override {
            *type = FTM::MakeCode("TEXT");
            *creator = FTM::MakeCode("KLTX");
            return 0;
        }

    private:
        std::shared_ptr<const std::string> content; // shared, so an entry outlives an unmount
        std::uint64_t* bytesRead;                   // the file system's, which outlives its entries
        std::uint64_t position = 0;
    };

    class FolderEntry : public IO::ReadOnlyFolderEntry {
    public:
        FolderEntry(const MemoryVFS& vfs, std::string path) : owner(vfs), relative(std::move(path)) {}
        int GetCreationTime(TITime* time) const override { return *time = 100, 0; }
        int GetModificationTime(TITime* time) const override { return *time = 200, 0; }
        int GetEntryType(const IO::Name& name, IO::EntryType* type) const override {
            const std::string path = Child(name.ToUTF8());
            if (owner.folders.contains(path))
                return *type = IO::FolderEntryType, 0;
            if (owner.files.contains(path))
                return *type = IO::FileEntryType, 0;
            return IO::EntryStatus::TransferFailed;
        }
        int EnumerateContents(IO::EntryCallback callback, void* data) const override {
            if (owner.locked.contains(relative))
                return IO::FolderAccessDeniedError;
            // Reverse order on purpose: the walk must not depend on the file system's order.
            std::set<std::pair<std::string, IO::EntryType>, std::greater<>> children;
            for (const std::string& folder : owner.folders)
                AddIfChild(folder, IO::FolderEntryType, children);
            for (const auto& [file, content] : owner.files)
                AddIfChild(file, IO::FileEntryType, children);
            for (const auto& [name, type] : children) {
                if (!callback(IO::Name(name), type, data))
                    break;
            }
            return 0;
        }
        bool IsValid() const override { return owner.mounted; }
        bool IsOnLocalVolume() const override { return true; }
        bool IsOnFixedVolume() const override { return true; }

    private:
        std::string Child(const std::string& name) const {
            return relative.empty() ? name : relative + "/" + name;
        }
        template <typename Set>
        void AddIfChild(const std::string& path, IO::EntryType type, Set& children) const {
            const std::string prefix = relative.empty() ? "" : relative + "/";
            if (path.starts_with(prefix) && path.size() > prefix.size() &&
                path.find('/', prefix.size()) == std::string::npos)
                children.emplace(path.substr(prefix.size()), type);
        }

        const MemoryVFS& owner;
        std::string relative;
    };

    bool Relative(const IO::Location& location, std::string& relative) const {
        IO::RelativeLocation difference;
        if (location.GetDifference(mountPoint, &difference) != KL::NoError)
            return false;
        relative = difference.ToString();
        return true;
    }

    IO::Location mountPoint;
    std::map<std::string, std::shared_ptr<const std::string>> files;
    std::set<std::string> folders;
    std::set<std::string> locked;
    bool mounted = false;
    int connected = 0;
    std::uint64_t bytesRead = 0;
};

// Mounts for the length of a scope, so a failing test leaves the process's mount table clean.
class ScopedMount {
public:
    ScopedMount(IO::FixedVFS& vfs, const IO::Location& at)
        : location(at), status(IO::fileSystem.Mount(&vfs, at)) {}
    ~ScopedMount() {
        if (status == 0)
            IO::fileSystem.Unmount(location);
    }
    int GetStatus() const { return status; }
    void Release() { status = -1; }

private:
    IO::Location location;
    int status;
};

} // namespace testsupport
