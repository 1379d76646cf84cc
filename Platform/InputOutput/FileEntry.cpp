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

} // namespace IO
