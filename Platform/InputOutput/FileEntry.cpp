#include "InputOutput/FileEntry.hpp"

#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

namespace IO {

FileEntry::~FileEntry() = default;

int FileEntry::Lock(LockMode) {
    return KL::ErrNotSupported;
}

int FileEntry::TransferTo(FileEntry&, std::uint64_t, std::uint64_t* moved) {
    if (moved != nullptr)
        *moved = 0;
    return KL::ErrNotSupported;
}

int ReadOnlyFileEntry::SetCreationTime(TITime) {
    return ReadOnlyError;
}

int ReadOnlyFileEntry::SetModificationTime(TITime) {
    return ReadOnlyError;
}

int ReadOnlyFileEntry::Write(const void*, std::uint64_t) {
    return ReadOnlyError;
}

int ReadOnlyFileEntry::Flush() {
    return ReadOnlyError;
}

int ReadOnlyFileEntry::SetDataLength(std::uint64_t) {
    return ReadOnlyError;
}

int ReadOnlyFileEntry::SetTypeInfo(std::uint32_t, std::uint32_t) {
    return ReadOnlyError;
}

int ReadOnlyFileEntry::SetWriteProtection(bool) {
    return ReadOnlyError;
}

bool FindSeekTarget(FileEntry::SeekOrigin origin, std::int64_t offset, std::uint64_t position,
                    std::uint64_t length, std::uint64_t* target) {
    // Lengths are 32-bit, so no base plus an offset inside [-length, length] leaves int64.
    const auto size = static_cast<std::int64_t>(length);
    if (offset < -size || offset > size)
        return false;
    std::int64_t base = 0;
    if (origin == FileEntry::FromCurrent)
        base = static_cast<std::int64_t>(position);
    else if (origin == FileEntry::FromEnd)
        base = size;
    const std::int64_t wanted = base + offset;
    if (wanted < 0 || wanted > size)
        return false;
    *target = static_cast<std::uint64_t>(wanted);
    return true;
}

} // namespace IO
