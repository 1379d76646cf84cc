#pragma once

#include "InputOutput/FileEntry.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLRoot/Time.hpp"

#include <memory>

namespace IO {

class FixedVFS;

// A file at a location, on the local disk or on a mounted file system alike. The file is its own
// input channel (typed reads, buffered) and offers an output channel for writing; both share one
// position. As with C streams, switching from reading to writing needs a Seek in between.
//
// GetStatus tells whether the file could be reached; after that it carries the first failure of
// a read or write until the next Seek, Open or Close.
class LM_EXPORT File : public KL::IChannel {
public:
    using OpenMode = FileEntry::OpenMode;
    using SeekOrigin = FileEntry::SeekOrigin;
    using LockMode = FileEntry::LockMode;
    static constexpr OpenMode ReadMode = FileEntry::ReadMode;
    static constexpr OpenMode WriteMode = FileEntry::WriteMode; // empties the file
    static constexpr OpenMode ReadWriteMode = FileEntry::ReadWriteMode;
    static constexpr OpenMode NewMode = FileEntry::NewMode; // makes the file, which must not be there
    static constexpr SeekOrigin FromStart = FileEntry::FromStart;
    static constexpr SeekOrigin FromCurrent = FileEntry::FromCurrent;
    static constexpr SeekOrigin FromEnd = FileEntry::FromEnd;

    enum NotFoundMode { Fail = 0, New = 1, FailAtOpen = 2 };

    File();
    // With New, a missing file is created empty. With FailAtOpen the file is first looked up by
    // Open, so a missing file fails Open and not the connection: one look-up less for a reader
    // that opens at once.
    explicit File(const Location& location, NotFoundMode mode = Fail);
    ~File() override;

    int GetLocation(Location* result) const;
    const Location& GetLocation() const { return location; }
    // The mounted file system that serves this file, or null for the local disk.
    FixedVFS* GetOwnerFileSystem() const { return owner; }

    int Open(OpenMode mode = ReadMode);
    // Closing lets the lock go.
    int Close();
    // An advisory lock on the open file (FileEntry::LockMode); LockedError when another opening
    // holds one that conflicts.
    int Lock(LockMode mode);
    bool IsOpen() const { return open; }

    int Write(const void* data, std::uint64_t size);
    KL::OChannel& GetOutputChannel();
    // Hands buffered output to the file and asks the file system to keep it.
    int Flush();

    int Seek(SeekOrigin origin, std::int64_t offset);
    int SetPosition(std::uint64_t position) { return Seek(FromStart, static_cast<std::int64_t>(position)); }
    int GetPosition(std::uint64_t* position) const;
    // Reads from the medium ask for no more than `bytes` (at least 1) until the next Open: for
    // readers that visit known places of a large file and should not pull in what lies between.
    void SetReadAhead(std::uint64_t bytes) { readAhead = bytes > 0 ? bytes : 1; }

    // Copies `size` bytes from this file's read position to the end of what `target` has written,
    // and reads on behind them. Between two files of the local disk copies of KernelCopyThreshold
    // bytes and more go through the kernel, never through this process. ErrEndOfData when this
    // file holds fewer.
    int CopyTo(File& target, std::uint64_t size);
    static constexpr std::uint64_t KernelCopyThreshold = 256 * 1024;
    using KL::IChannel::CopyTo;

    int GetDataLength(std::uint64_t* length) const;
    int SetDataLength(std::uint64_t length);
    int GetCreationTime(TITime* time) const;
    int GetModificationTime(TITime* time) const;
    int SetCreationTime(TITime time);
    int SetModificationTime(TITime time);
    int GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const;
    int SetTypeInfo(std::uint32_t type, std::uint32_t creator);
    bool IsWriteProtected() const;

protected:
    int Underflow() override;
    std::int64_t GetAvailableBeyondWindow() const override;
    int SkipBeyondWindow(std::uint64_t size) override;

    // Points this object at another location, closing what was open; for subclasses that choose
    // their file late.
    int Connect(const Location& target, NotFoundMode mode);
    // Leaves this object on no file, with `error` as its status.
    int ConnectFailed(int error);

private:
    class Output;
    friend class Output;

    void Disconnect();
    int EntryResult(int status) const { return EntryStatus::ToError(status); }
    int WriteThrough(const char* data, std::uint64_t size);
    int CopyThroughMemory(KL::OChannel& out, std::uint64_t size);
    // After bytes were taken from the entry around the read buffer: reading goes on behind them.
    void ReadPastBuffer(std::uint64_t size);
    // After bytes reached the entry around the output channel: later output follows them.
    void OutputMovedBy(std::uint64_t size);
    int PatchThrough(std::uint64_t offset, const void* data, std::uint64_t size);
    int MoveEntryTo(std::uint64_t position);
    // Back to a clean stream state after a seek or close: only a connection failure stays.
    void RestoreStatus();

    Location location;
    FileEntry* entry = nullptr;
    FixedVFS* owner = nullptr;
    int connectStatus = KL::NoError;
    bool open = false;
    OpenMode mode = ReadMode;
    bool wrote = false;
    std::uint64_t entryPosition = 0;  // where the entry stands
    std::uint64_t bufferPosition = 0; // file position of the read buffer's first byte while reading
    std::uint64_t knownLength = 0;    // data length, kept up to date while open
    std::unique_ptr<char[]> readBuffer;
    std::uint64_t readBufferSize = 0;
    std::uint64_t readAhead = 0; // 0: no limit
    bool reading = false;        // the entry was read since the last seek, so it stands ahead of the reader
    std::unique_ptr<Output> output;
    std::uint64_t outputBase = 0;      // file position of the output channel's offset 0
    std::uint64_t outputSeekCount = 0; // output offset at the last seek: no patching before it
};

} // namespace IO
