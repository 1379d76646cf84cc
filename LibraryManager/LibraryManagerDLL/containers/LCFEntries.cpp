#include "containers/LCFEntries.hpp"

#include "LibraryContainerVFS.hpp"

#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

namespace LM {

namespace {

using IO::EntryStatus::CloseFailed;
using IO::EntryStatus::EndOfData;
using IO::EntryStatus::NotAvailable;
using IO::EntryStatus::Ok;
using IO::EntryStatus::TransferFailed;

} // namespace

LCFFileEntry::LCFFileEntry(LibraryContainerVFS* owner, FileData* data, const IO::Location& source)
    : owner(owner), data(data), file(source) {}

LCFFileEntry::~LCFFileEntry() = default;

bool LCFFileEntry::IsMounted() const {
    return owner->IsMounted();
}

int LCFFileEntry::GetCreationTime(TITime* time) const {
    if (!IsMounted())
        return NotAvailable;
    *time = data->creationTime;
    return Ok;
}

int LCFFileEntry::GetModificationTime(TITime* time) const {
    if (!IsMounted())
        return NotAvailable;
    *time = data->modificationTime;
    return Ok;
}

int LCFFileEntry::GetPosition(std::uint64_t* result) const {
    *result = position;
    return Ok;
}

int LCFFileEntry::Open(OpenMode mode) {
    if (!IsMounted())
        return NotAvailable;
    if (mode != ReadMode)
        return TransferFailed;
    position = 0;
    if (file.Open(IO::File::ReadMode) != KL::NoError)
        return NotAvailable;
    // The container's reads stop at this file's end: a reader of one part pulls in no other.
    file.SetReadAhead(data->dataLength);
    if (file.SetPosition(data->contentPosition) != KL::NoError) {
        file.Close();
        return NotAvailable;
    }
    return Ok;
}

int LCFFileEntry::Read(void* buffer, std::uint64_t size, std::uint64_t* read) {
    *read = 0;
    if (!IsMounted())
        return TransferFailed;
    const std::uint64_t left = data->dataLength - std::min<std::uint64_t>(position, data->dataLength);
    const std::uint64_t wanted = std::min(size, left);
    if (file.ReadUpTo(buffer, wanted, read) != KL::NoError)
        return TransferFailed;
    position += *read;
    return *read < size ? EndOfData : Ok;
}

int LCFFileEntry::Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* result) {
    if (!IsMounted() || origin < FromStart || origin > FromEnd)
        return TransferFailed;
    std::uint64_t target = 0;
    if (!IO::FindSeekTarget(origin, offset, position, data->dataLength, &target))
        return EndOfData;
    if (file.SetPosition(data->contentPosition + target) != KL::NoError) {
        position = 0;
        return TransferFailed;
    }
    position = target;
    if (result != nullptr)
        *result = position;
    return Ok;
}

int LCFFileEntry::Close() {
    if (!IsMounted())
        return CloseFailed;
    position = 0;
    return file.Close() == KL::NoError ? Ok : CloseFailed;
}

int LCFFileEntry::GetDataLength(std::uint64_t* length) const {
    if (!IsMounted())
        return NotAvailable;
    *length = data->dataLength;
    return Ok;
}

int LCFFileEntry::GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const {
    if (!IsMounted())
        return CloseFailed;
    *type = data->macType;
    *creator = data->macCreator;
    return Ok;
}

LCFUnzippedFileEntry::LCFUnzippedFileEntry(LibraryContainerVFS* owner, FileData* data,
                                           const IO::Location& unzipped)
    : LCFFileEntry(owner, data, unzipped) {}

LCFUnzippedFileEntry::~LCFUnzippedFileEntry() = default;

int LCFUnzippedFileEntry::Open(OpenMode mode) {
    if (!IsMounted())
        return NotAvailable;
    if (mode != ReadMode)
        return TransferFailed;
    position = 0;
    return file.Open(IO::File::ReadMode) == KL::NoError ? Ok : NotAvailable;
}

int LCFUnzippedFileEntry::Read(void* buffer, std::uint64_t size, std::uint64_t* read) {
    *read = 0;
    if (!IsMounted())
        return TransferFailed;
    const int err = file.ReadUpTo(buffer, size, read);
    position += *read;
    if (err == IO::EndOfFileError || (err == KL::NoError && *read < size))
        return EndOfData;
    return err == KL::NoError ? Ok : TransferFailed;
}

int LCFUnzippedFileEntry::Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* result) {
    if (!IsMounted())
        return TransferFailed;
    const int err = file.Seek(origin, offset);
    if (err == IO::OutOfRangeError)
        return EndOfData;
    if (err != KL::NoError)
        return TransferFailed;
    file.GetPosition(&position);
    if (result != nullptr)
        *result = position;
    return Ok;
}

LCFFolderEntry::LCFFolderEntry(const LibraryContainerVFS* owner, const FolderData* data)
    : owner(owner), folder(data) {}

LCFFolderEntry::~LCFFolderEntry() = default;

int LCFFolderEntry::GetCreationTime(TITime* time) const {
    if (!owner->IsMounted())
        return NotAvailable;
    *time = owner->GetCreationTime();
    return Ok;
}

int LCFFolderEntry::GetModificationTime(TITime* time) const {
    if (!owner->IsMounted())
        return NotAvailable;
    *time = owner->GetModificationTime();
    return Ok;
}

int LCFFolderEntry::GetEntryType(const IO::Name& name, IO::EntryType* type) const {
    if (!owner->IsMounted())
        return TransferFailed;
    if (folder->subfolders.ContainsKey(name)) {
        *type = IO::FolderEntryType;
        return Ok;
    }
    if (folder->files.ContainsKey(name)) {
        *type = IO::FileEntryType;
        return Ok;
    }
    return TransferFailed;
}

int LCFFolderEntry::EnumerateContents(IO::EntryCallback callback, void* context) const {
    if (!owner->IsMounted())
        return TransferFailed;
    for (const auto& [name, subfolder] : folder->subfolders) {
        if (!callback(name, IO::FolderEntryType, context))
            return Ok;
    }
    for (const auto& [name, file] : folder->files) {
        if (!callback(name, IO::FileEntryType, context))
            return Ok;
    }
    return Ok;
}

bool LCFFolderEntry::IsValid() const {
    return owner->IsMounted();
}

bool LCFFolderEntry::IsOnLocalVolume() const {
    return owner->IsOnLocalVolume();
}

bool LCFFolderEntry::IsOnFixedVolume() const {
    return owner->IsOnFixedVolume();
}

} // namespace LM
