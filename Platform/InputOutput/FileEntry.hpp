#pragma once

#include "InputOutput/IOErrors.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Time.hpp"

#include <cstdint>

namespace IO {

// Status numbers that file systems give from entry operations. IO::File and IO::Folder turn
// them into error codes of IOErrors.hpp; an entry may also return such a code directly.
namespace EntryStatus {
inline constexpr int Ok = 0;
inline constexpr int EndOfData = 1;      // a read clipped at the end, or a seek out of range
inline constexpr int TransferFailed = 2; // a read, seek or lookup failed
inline constexpr int CloseFailed = 3;    // closing or a type query failed
inline constexpr int NotAvailable = 4;   // the file system cannot serve the entry now
inline constexpr int NoSuchEntry = 5;    // nothing at that location

// The error code for an entry status; codes of IOErrors.hpp pass unchanged. What 1 and 2 mean
// depends on the operation, so the caller names their codes.
inline constexpr int ToError(int status, int whenEndOfData = EndOfFileError,
                             int whenTransferFailed = MediumError) {
    switch (status) {
    case Ok:
        return 0;
    case EndOfData:
        return whenEndOfData;
    case TransferFailed:
        return whenTransferFailed;
    case CloseFailed:
        return MediumError;
    case NotAvailable:
        return NotAvailableError;
    case NoSuchEntry:
        return NotFoundError;
    default:
        return status;
    }
}
} // namespace EntryStatus

// One open file as a file system serves it. Each entry has its own position, so several entries
// on the same file never disturb each other.
class LM_EXPORT FileEntry {
public:
    // NewMode writes a file that the opening itself makes, and fails with AlreadyExistsError
    // where an entry of that name is.
    enum OpenMode { ReadMode = 0, WriteMode = 1, ReadWriteMode = 2, NewMode = 3 };
    enum SeekOrigin { FromStart = 0, FromCurrent = 1, FromEnd = 2 };
    // Advisory locks between openings of one file, in this program or another. They never wait:
    // a conflicting lock gives LockedError. A shared lock becomes exclusive in place.
    enum LockMode { Unlock = 0, SharedLock = 1, ExclusiveLock = 2 };

    FileEntry() = default;
    virtual ~FileEntry();
    FileEntry(const FileEntry&) = delete;
    FileEntry& operator=(const FileEntry&) = delete;

    virtual int SetCreationTime(TITime time) = 0;
    virtual int GetCreationTime(TITime* time) const = 0;
    virtual int SetModificationTime(TITime time) = 0;
    virtual int GetModificationTime(TITime* time) const = 0;
    virtual int GetPosition(std::uint64_t* position) const = 0;
    // WriteMode empties the file; ReadWriteMode keeps its content.
    virtual int Open(OpenMode mode) = 0;
    // Reads up to `size` bytes; EntryStatus::EndOfData when fewer were left.
    virtual int Read(void* buffer, std::uint64_t size, std::uint64_t* read) = 0;
    virtual int Write(const void* buffer, std::uint64_t size) = 0;
    virtual int Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* position) = 0;
    virtual int Flush() = 0;
    virtual int Close() = 0;
    virtual int SetDataLength(std::uint64_t length) = 0;
    virtual int GetDataLength(std::uint64_t* length) const = 0;
    virtual int SetTypeInfo(std::uint32_t type, std::uint32_t creator) = 0;
    virtual int GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const = 0;
    virtual bool IsWriteProtected() const = 0;
    virtual int SetWriteProtection(bool protect) = 0;
    // File systems without locks refuse with KL::ErrNotSupported.
    virtual int Lock(LockMode mode);
    // Moves up to `size` bytes from this entry's position to `target`'s, both advancing, without
    // the bytes passing through the caller; `moved` tells how many went, fewer only at the end of
    // this entry. KL::ErrNotSupported, with nothing moved, when the two entries cannot do that
    // between them: the caller then reads and writes itself.
    virtual int TransferTo(FileEntry& target, std::uint64_t size, std::uint64_t* moved);
};

// The place a seek asks for in data of `length` bytes read up to `position`; false when it lies
// outside the data. For file systems that keep their files' lengths below 2^32.
LM_EXPORT bool FindSeekTarget(FileEntry::SeekOrigin origin, std::int64_t offset, std::uint64_t position,
                              std::uint64_t length, std::uint64_t* target);

// Base of the entries of read-only file systems: every changing operation refuses.
class LM_EXPORT ReadOnlyFileEntry : public FileEntry {
public:
    int SetCreationTime(TITime time) override;
    int SetModificationTime(TITime time) override;
    int Write(const void* buffer, std::uint64_t size) override;
    int Flush() override;
    int SetDataLength(std::uint64_t length) override;
    int SetTypeInfo(std::uint32_t type, std::uint32_t creator) override;
    bool IsWriteProtected() const override { return true; }
    int SetWriteProtection(bool protect) override;
};

} // namespace IO
