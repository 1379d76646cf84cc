#include "InputOutput/LocalEntries.hpp"

#include "InputOutput/IOErrors.hpp"
#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace IO {

namespace {

std::atomic<std::uint64_t> passedOverNames{0};

// Type and creator codes live in an extended attribute, big-endian, type first.
constexpr const char* TypeInfoAttribute = "user.kl.typeinfo";

int LastError() {
    return ErrnoToError(errno);
}

template <typename Call>
auto RetryOnInterrupt(Call call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

// Without a birth time the oldest time the system keeps is the best answer.
TITime CreationSeconds(const struct statx& info) {
    return TIFromUnixTime((info.stx_mask & STATX_BTIME) != 0 ? info.stx_btime.tv_sec : info.stx_mtime.tv_sec);
}

int GetTimes(const std::string& path, int descriptor, TITime* creation, TITime* modification) {
    struct statx info {};
    const int result = descriptor >= 0
                           ? statx(descriptor, "", AT_EMPTY_PATH, STATX_MTIME | STATX_BTIME, &info)
                           : statx(AT_FDCWD, path.c_str(), 0, STATX_MTIME | STATX_BTIME, &info);
    if (result != 0)
        return LastError();
    if (modification != nullptr)
        *modification = TIFromUnixTime(info.stx_mtime.tv_sec);
    if (creation != nullptr)
        *creation = CreationSeconds(info);
    return KL::NoError;
}

// Through the opening when there is one: no look-up of the path.
int SetModification(const std::string& path, int descriptor, TITime time) {
    const struct timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(TIToUnixTime(time)), 0}};
    const int result =
        descriptor >= 0 ? futimens(descriptor, times) : utimensat(AT_FDCWD, path.c_str(), times, 0);
    return result == 0 ? KL::NoError : LastError();
}

// The kind of an entry; a link to a file counts as a file, any other link as a link.
int KindOf(const std::string& path, EntryType* type) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0)
        return LastError();
    if (S_ISDIR(info.st_mode)) {
        *type = FolderEntryType;
    } else if (S_ISLNK(info.st_mode)) {
        struct stat target {};
        *type = stat(path.c_str(), &target) == 0 && S_ISREG(target.st_mode) ? FileEntryType : LinkEntryType;
    } else {
        *type = FileEntryType;
    }
    return KL::NoError;
}

bool IsRemoteFileSystemType(long type) {
    constexpr long NfsMagic = 0x6969;
    constexpr long SmbMagic = 0x517B;
    constexpr long CifsMagic = 0xFF534D42;
    constexpr long Smb2Magic = 0xFE534D42;
    constexpr long AfsMagic = 0x5346414F;
    constexpr long CodaMagic = 0x73757245;
    constexpr long NcpMagic = 0x564C;
    for (const long remote : {NfsMagic, SmbMagic, CifsMagic, Smb2Magic, AfsMagic, CodaMagic, NcpMagic}) {
        if (type == remote)
            return true;
    }
    return false;
}

bool ReadsOne(const std::string& path) {
    std::ifstream stream(path);
    char value = '0';
    return stream >> value && value == '1';
}

} // namespace

int ErrnoToError(int error) {
    switch (error) {
    case 0:
        return KL::NoError;
    case ENOENT:
        return NotFoundError;
    case EACCES:
    case EPERM:
        return AccessDeniedError;
    case EEXIST:
        return AlreadyExistsError;
    case ENOTDIR:
    case EISDIR:
        return WrongKindError;
    case ENAMETOOLONG:
    case ELOOP:
        return NameTooLongError;
    case ENOTEMPTY:
        return NotEmptyError;
    case EROFS:
        return ReadOnlyError;
    case ENOMEM:
        return KL::ErrNotEnoughMemory;
    case EINVAL:
        return OutOfRangeError;
    default:
        return MediumError;
    }
}

LocalFileEntry::~LocalFileEntry() {
    if (descriptor >= 0)
        close(descriptor);
}

int LocalFileEntry::SetCreationTime(TITime) {
    return KL::ErrNotSupported; // the system keeps birth times itself
}

int LocalFileEntry::GetCreationTime(TITime* time) const {
    if (time != nullptr && hasOpenFacts) {
        *time = openCreationTime;
        return KL::NoError;
    }
    return time == nullptr ? KL::ErrParam : GetTimes(path, descriptor, time, nullptr);
}

int LocalFileEntry::SetModificationTime(TITime time) {
    const int result = SetModification(path, descriptor, time);
    if (result == KL::NoError)
        openModificationTime = time;
    return result;
}

int LocalFileEntry::GetModificationTime(TITime* time) const {
    if (time != nullptr && hasOpenFacts) {
        *time = openModificationTime;
        return KL::NoError;
    }
    return time == nullptr ? KL::ErrParam : GetTimes(path, descriptor, nullptr, time);
}

int LocalFileEntry::GetPosition(std::uint64_t* result) const {
    if (result == nullptr)
        return KL::ErrParam;
    *result = position;
    return KL::NoError;
}

int LocalFileEntry::Open(OpenMode mode) {
    if (descriptor >= 0)
        Close();
    int flags = O_CLOEXEC;
    switch (mode) {
    case ReadMode:
        flags |= O_RDONLY;
        break;
    case WriteMode:
        flags |= O_WRONLY | O_TRUNC;
        break;
    case ReadWriteMode:
        flags |= O_RDWR;
        break;
    case NewMode:
        flags |= O_WRONLY | O_CREAT | O_EXCL;
        break;
    default:
        return KL::ErrParam;
    }
    descriptor = RetryOnInterrupt([&] { return open(path.c_str(), flags, 0666); });
    if (descriptor < 0)
        return LastError();
    writable = mode != ReadMode;
    position = 0;
    hasOpenFacts = false;
    struct statx info {};
    if (!writable && statx(descriptor, "", AT_EMPTY_PATH, STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_BTIME,
                           &info) == 0) {
        // Reading opens folders too; an entry connected without a look-up learns its kind here.
        if (S_ISDIR(info.stx_mode)) {
            Close();
            return WrongKindError;
        }
        hasOpenFacts = true;
        openLength = static_cast<std::uint64_t>(info.stx_size);
        openModificationTime = TIFromUnixTime(info.stx_mtime.tv_sec);
        openCreationTime = CreationSeconds(info);
    }
    return KL::NoError;
}

// flock locks belong to the opening, so two openings in one program exclude each other as two
// programs do.
int LocalFileEntry::Lock(LockMode mode) {
    if (descriptor < 0)
        return NotOpenError;
    int operation = LOCK_UN;
    if (mode == SharedLock)
        operation = LOCK_SH | LOCK_NB;
    else if (mode == ExclusiveLock)
        operation = LOCK_EX | LOCK_NB;
    else if (mode != Unlock)
        return KL::ErrParam;
    if (RetryOnInterrupt([&] { return flock(descriptor, operation); }) == 0)
        return KL::NoError;
    return errno == EWOULDBLOCK ? LockedError : LastError();
}

int LocalFileEntry::TransferTo(FileEntry& target, std::uint64_t size, std::uint64_t* moved) {
    if (moved == nullptr)
        return KL::ErrParam;
    *moved = 0;
    auto* local = dynamic_cast<LocalFileEntry*>(&target);
    if (local == nullptr)
        return KL::ErrNotSupported;
    if (descriptor < 0 || local->descriptor < 0 || !local->writable)
        return NotOpenError;
    while (*moved < size) {
        const ssize_t put = RetryOnInterrupt([&] {
            return copy_file_range(descriptor, nullptr, local->descriptor, nullptr, size - *moved, 0);
        });
        if (put < 0) {
            // Kernels and file systems that cannot copy between these two refuse before moving
            // anything; the caller copies the bytes itself then.
            const bool refused = errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP;
            return refused && *moved == 0 ? KL::ErrNotSupported : LastError();
        }
        if (put == 0)
            break;
        *moved += static_cast<std::uint64_t>(put);
        position += static_cast<std::uint64_t>(put);
        local->position += static_cast<std::uint64_t>(put);
    }
    return KL::NoError;
}

int LocalFileEntry::Read(void* buffer, std::uint64_t size, std::uint64_t* read) {
    if (read == nullptr || (buffer == nullptr && size > 0))
        return KL::ErrParam;
    *read = 0;
    if (descriptor < 0)
        return NotOpenError;
    char* out = static_cast<char*>(buffer);
    while (*read < size) {
        const ssize_t got = RetryOnInterrupt([&] { return ::read(descriptor, out + *read, size - *read); });
        if (got < 0)
            return LastError();
        if (got == 0)
            break;
        *read += static_cast<std::uint64_t>(got);
    }
    position += *read;
    return *read < size ? EntryStatus::EndOfData : KL::NoError;
}

int LocalFileEntry::Write(const void* buffer, std::uint64_t size) {
    if (buffer == nullptr && size > 0)
        return KL::ErrParam;
    if (descriptor < 0 || !writable)
        return NotOpenError;
    const char* in = static_cast<const char*>(buffer);
    for (std::uint64_t done = 0; done < size;) {
        const ssize_t put = RetryOnInterrupt([&] { return ::write(descriptor, in + done, size - done); });
        if (put < 0)
            return LastError();
        done += static_cast<std::uint64_t>(put);
        position += static_cast<std::uint64_t>(put);
    }
    return KL::NoError;
}

int LocalFileEntry::Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* result) {
    if (descriptor < 0)
        return NotOpenError;
    std::uint64_t length = 0;
    if (const int err = GetDataLength(&length); err != KL::NoError)
        return err;
    std::int64_t base = 0;
    if (origin == FromCurrent)
        base = static_cast<std::int64_t>(position);
    else if (origin == FromEnd)
        base = static_cast<std::int64_t>(length);
    else if (origin != FromStart)
        return KL::ErrParam;
    const std::int64_t target = base + offset;
    // Beyond the end is a place to write to, never to read from.
    if (target < 0 || (!writable && static_cast<std::uint64_t>(target) > length))
        return EntryStatus::EndOfData;
    if (lseek(descriptor, target, SEEK_SET) < 0)
        return LastError();
    position = static_cast<std::uint64_t>(target);
    if (result != nullptr)
        *result = position;
    return KL::NoError;
}

int LocalFileEntry::Flush() {
    if (descriptor < 0)
        return NotOpenError;
    return fdatasync(descriptor) == 0 ? KL::NoError : LastError();
}

int LocalFileEntry::Close() {
    if (descriptor < 0)
        return KL::NoError;
    const int result = close(descriptor);
    descriptor = -1;
    position = 0;
    hasOpenFacts = false;
    return result == 0 ? KL::NoError : LastError();
}

int LocalFileEntry::SetDataLength(std::uint64_t length) {
    const auto size = static_cast<off_t>(length);
    const int result = descriptor >= 0 ? ftruncate(descriptor, size) : truncate(path.c_str(), size);
    return result == 0 ? KL::NoError : LastError();
}

int LocalFileEntry::GetDataLength(std::uint64_t* length) const {
    if (length == nullptr)
        return KL::ErrParam;
    if (hasOpenFacts) {
        *length = openLength;
        return KL::NoError;
    }
    struct stat info {};
    const int result = descriptor >= 0 ? fstat(descriptor, &info) : stat(path.c_str(), &info);
    if (result != 0)
        return LastError();
    *length = static_cast<std::uint64_t>(info.st_size);
    return KL::NoError;
}

int LocalFileEntry::SetTypeInfo(std::uint32_t type, std::uint32_t creator) {
    char value[8];
    KL::StoreInOrder(value, type, KL::BigEndianSign);
    KL::StoreInOrder(value + 4, creator, KL::BigEndianSign);
    const int result = descriptor >= 0 ? fsetxattr(descriptor, TypeInfoAttribute, value, sizeof value, 0)
                                       : setxattr(path.c_str(), TypeInfoAttribute, value, sizeof value, 0);
    if (result == 0)
        return KL::NoError;
    return errno == ENOTSUP ? KL::ErrNotSupported : LastError();
}

int LocalFileEntry::GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const {
    if (type == nullptr || creator == nullptr)
        return KL::ErrParam;
    *type = *creator = 0;
    char value[8];
    const ssize_t size = getxattr(path.c_str(), TypeInfoAttribute, value, sizeof value);
    if (size == static_cast<ssize_t>(sizeof value)) {
        *type = KL::LoadInOrder<std::uint32_t>(value, KL::BigEndianSign);
        *creator = KL::LoadInOrder<std::uint32_t>(value + 4, KL::BigEndianSign);
        return KL::NoError;
    }
    // A file that never had codes, or a system without attributes, has none: no failure.
    if (size >= 0 || errno == ENODATA || errno == ENOTSUP || errno == ERANGE)
        return KL::NoError;
    return LastError();
}

bool LocalFileEntry::IsWriteProtected() const {
    return access(path.c_str(), W_OK) != 0;
}

int LocalFileEntry::SetWriteProtection(bool protect) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0)
        return LastError();
    const mode_t writeBits = S_IWUSR | S_IWGRP | S_IWOTH;
    const mode_t mode = protect ? (info.st_mode & ~writeBits) : (info.st_mode | S_IWUSR);
    return chmod(path.c_str(), mode & 07777) == 0 ? KL::NoError : LastError();
}

std::string LocalFolderEntry::PathOf(const Name& name) const {
    std::string result = path;
    if (result.back() != '/')
        result += '/';
    return result + name.ToUTF8();
}

int LocalFolderEntry::SetCreationTime(TITime) {
    return KL::ErrNotSupported;
}

int LocalFolderEntry::GetCreationTime(TITime* time) const {
    return time == nullptr ? KL::ErrParam : GetTimes(path, -1, time, nullptr);
}

int LocalFolderEntry::SetModificationTime(TITime time) {
    return SetModification(path, -1, time);
}

int LocalFolderEntry::GetModificationTime(TITime* time) const {
    return time == nullptr ? KL::ErrParam : GetTimes(path, -1, nullptr, time);
}

int LocalFolderEntry::CreateFile(const Name& name) {
    if (!name.IsValid())
        return InvalidLocationError;
    const int descriptor = RetryOnInterrupt(
        [&] { return open(PathOf(name).c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666); });
    if (descriptor < 0)
        return LastError();
    close(descriptor);
    return KL::NoError;
}

int LocalFolderEntry::CreateFolder(const Name& name) {
    if (!name.IsValid())
        return InvalidLocationError;
    return mkdir(PathOf(name).c_str(), 0777) == 0 ? KL::NoError : LastError();
}

int LocalFolderEntry::Delete(const Name& name) {
    if (!name.IsValid())
        return InvalidLocationError;
    const std::string target = PathOf(name);
    struct stat info {};
    if (lstat(target.c_str(), &info) != 0)
        return LastError();
    const int result = S_ISDIR(info.st_mode) ? rmdir(target.c_str()) : unlink(target.c_str());
    return result == 0 ? KL::NoError : LastError();
}

int LocalFolderEntry::GetEntryType(const Name& name, EntryType* type) const {
    if (type == nullptr)
        return KL::ErrParam;
    if (!name.IsValid())
        return InvalidLocationError;
    return KindOf(PathOf(name), type);
}

std::uint64_t GetPassedOverNameCount() {
    return passedOverNames.load(std::memory_order_relaxed);
}

int LocalFolderEntry::EnumerateContents(EntryCallback callback, void* data) const {
    if (callback == nullptr)
        return KL::ErrParam;
    struct Forward {
        EntryCallback callback;
        void* data;
    } forward{callback, data};
    return ListEntries(
        [](const Name& name, EntryType type, const TITime*, void* context) {
            const auto& target = *static_cast<Forward*>(context);
            return target.callback(name, type, target.data);
        },
        &forward, false);
}

int LocalFolderEntry::EnumerateContentsWithTimes(TimedEntryCallback callback, void* data) const {
    return callback == nullptr ? KL::ErrParam : ListEntries(callback, data, true);
}

int LocalFolderEntry::ListEntries(TimedEntryCallback callback, void* data, bool withTimes) const {
    DIR* directory = opendir(path.c_str());
    if (directory == nullptr)
        return errno == EACCES || errno == EPERM ? FolderAccessDeniedError : LastError();
    int result = KL::NoError;
    for (;;) {
        errno = 0;
        const dirent* item = readdir(directory);
        if (item == nullptr) {
            result = LastError();
            break;
        }
        const std::string_view text = item->d_name;
        if (text == "." || text == "..")
            continue;
        // A name that is no UTF-8 cannot be found again from its text: such an entry is passed over.
        const Name name(text);
        const bool ascii = std::all_of(text.begin(), text.end(),
                                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        if (!name.IsValid() || (!ascii && name.ToUTF8() != text)) {
            passedOverNames.fetch_add(1, std::memory_order_relaxed);
            continue;
        }
        // Most file systems tell the kind in the listing; the path is made only when they do not.
        EntryType type = item->d_type == DT_DIR ? FolderEntryType : FileEntryType;
        if (item->d_type != DT_REG && item->d_type != DT_DIR && KindOf(PathOf(name), &type) != KL::NoError)
            continue; // vanished while the folder was read
        // A time that cannot be had here is left to the caller, who asks by path and learns why.
        struct stat info {};
        const bool timed =
            withTimes && type == FileEntryType && fstatat(dirfd(directory), item->d_name, &info, 0) == 0;
        const TITime time = timed ? TIFromUnixTime(info.st_mtim.tv_sec) : 0;
        if (!callback(name, type, timed ? &time : nullptr, data))
            break;
    }
    closedir(directory);
    return result;
}

bool LocalFolderEntry::IsValid() const {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool LocalFolderEntry::IsWriteable() const {
    return access(path.c_str(), W_OK) == 0;
}

bool LocalFolderEntry::IsOnLocalVolume() const {
    struct statfs info {};
    return statfs(path.c_str(), &info) == 0 && !IsRemoteFileSystemType(static_cast<long>(info.f_type));
}

bool LocalFolderEntry::IsOnFixedVolume() const {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0)
        return false;
    // The block device says whether it is removable; a partition asks its disk.
    const std::string device =
        "/sys/dev/block/" + std::to_string(major(info.st_dev)) + ":" + std::to_string(minor(info.st_dev));
    return !ReadsOne(device + "/removable") && !ReadsOne(device + "/../removable");
}

} // namespace IO
