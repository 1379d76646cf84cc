#include "InputOutput/File.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/FolderEntry.hpp"
#include "InputOutput/IOErrors.hpp"

#include <algorithm>

namespace IO {

namespace {

constexpr std::uint64_t ReadBufferSize = 64 * 1024;
constexpr std::uint64_t MinReadBufferSize = 512;

bool IsWriteOnly(File::OpenMode mode) {
    return mode == File::WriteMode || mode == File::NewMode;
}

} // namespace

// The output side: buffered by the channel base, written through to the entry.
class File::Output final : public KL::OChannel {
public:
    explicit Output(File& file) : file(file) {}
    ~Output() override { Flush(); }

protected:
    int WriteToSink(const char* data, std::uint64_t size) override { return file.WriteThrough(data, size); }
    bool CanPatchSink() const override { return true; }
    int PatchSink(std::uint64_t offset, const void* data, std::uint64_t size) override {
        return file.PatchThrough(offset, data, size);
    }

private:
    File& file;
};

File::File() : connectStatus(InvalidLocationError) {
    SetStatus(connectStatus);
}

File::File(const Location& target, NotFoundMode notFoundMode) {
    Connect(target, notFoundMode);
}

File::~File() {
    Close();
    Disconnect();
}

int File::Connect(const Location& target, NotFoundMode notFoundMode) {
    Close();
    Disconnect();
    location = target;
    connectStatus = fileSystem.ConnectFile(target, &entry, &owner, notFoundMode != FailAtOpen);
    if (connectStatus == NotFoundError && notFoundMode == New) {
        Name name;
        target.GetLastLocalName(&name);
        Location parent = target;
        parent.DeleteLastLocalName();
        FolderEntry* folder = nullptr;
        FixedVFS* folderOwner = nullptr;
        connectStatus = fileSystem.ConnectFolder(parent, &folder, &folderOwner);
        if (connectStatus == KL::NoError) {
            connectStatus = EntryStatus::ToError(folder->CreateFile(name));
            FileSystem::Disconnect(folderOwner, folder);
        }
        if (connectStatus == KL::NoError || connectStatus == AlreadyExistsError)
            connectStatus = fileSystem.ConnectFile(target, &entry, &owner);
    }
    RestoreStatus();
    return connectStatus;
}

int File::ConnectFailed(int error) {
    Close();
    Disconnect();
    location.Clear();
    connectStatus = error;
    RestoreStatus();
    return connectStatus;
}

void File::Disconnect() {
    FileSystem::Disconnect(owner, entry);
    entry = nullptr;
    owner = nullptr;
}

void File::RestoreStatus() {
    ResetStatus();
    if (connectStatus != KL::NoError)
        SetStatus(connectStatus);
    if (output != nullptr)
        output->ResetStatus();
}

int File::GetLocation(Location* result) const {
    if (result == nullptr)
        return KL::ErrParam;
    *result = location;
    return KL::NoError;
}

int File::Open(OpenMode openMode) {
    if (connectStatus != KL::NoError)
        return connectStatus;
    Close();
    if (const int err = EntryResult(entry->Open(openMode)); err != KL::NoError)
        return err;
    open = true;
    mode = openMode;
    wrote = reading = false;
    entryPosition = outputBase = outputSeekCount = 0;
    knownLength = 0;
    readAhead = 0;
    if (!IsWriteOnly(openMode)) {
        if (const int err = EntryResult(entry->GetDataLength(&knownLength)); err != KL::NoError) {
            Close();
            return err;
        }
    }
    // The read buffer is made by the first read, when the read-ahead limit is known.
    SetWindowAt(readBuffer.get(), readBuffer.get(), 0);
    RestoreStatus();
    return KL::NoError;
}

int File::Close() {
    if (!open)
        return KL::NoError;
    int result = KL::NoError;
    if (output != nullptr) {
        // A read-only file's output only holds the refusal already returned to the writer.
        if (mode != ReadMode)
            result = output->Flush();
        output.reset();
    }
    if (const int err = EntryResult(entry->Close()); result == KL::NoError)
        result = err;
    open = false;
    SetWindowAt(readBuffer.get(), readBuffer.get(), 0);
    RestoreStatus();
    return result;
}

KL::OChannel& File::GetOutputChannel() {
    if (output == nullptr)
        output = std::make_unique<Output>(*this);
    if (reading && open && mode != ReadMode) {
        // Take up writing where reading stopped, not where the read-ahead left the entry.
        if (const int err = Seek(FromCurrent, 0); err != KL::NoError)
            output->SetStatus(err);
    }
    if (!open || mode == ReadMode)
        output->SetStatus(NotOpenError);
    return *output;
}

int File::Write(const void* data, std::uint64_t size) {
    return GetOutputChannel().WriteBin(data, size);
}

int File::Lock(LockMode lockMode) {
    if (!open)
        return NotOpenError;
    return EntryResult(entry->Lock(lockMode));
}

int File::Flush() {
    if (!open)
        return NotOpenError;
    if (output != nullptr) {
        if (const int err = output->Flush(); err != KL::NoError)
            return err;
    }
    return wrote ? EntryResult(entry->Flush()) : KL::NoError;
}

int File::WriteThrough(const char* data, std::uint64_t size) {
    if (!open || mode == ReadMode)
        return NotOpenError;
    if (reading)
        return KL::ErrParam; // reading resumed after this channel was taken: a Seek must come between
    if (const int err = EntryResult(entry->Write(data, size)); err != KL::NoError)
        return err;
    wrote = true;
    entryPosition += size;
    knownLength = std::max(knownLength, entryPosition);
    return KL::NoError;
}

int File::CopyTo(File& target, std::uint64_t size) {
    if (!open)
        return NotOpenError;
    if (GetStatus() != KL::NoError)
        return GetStatus();
    KL::OChannel& out = target.GetOutputChannel();
    if (out.GetStatus() != KL::NoError)
        return out.GetStatus();
    // What the read buffer already holds goes first, then the rest from the entry itself.
    const std::uint64_t at = GetReadCount();
    const std::uint64_t buffered = std::min(size, entryPosition > at ? entryPosition - at : 0);
    if (const int err = CopyTo(out, buffered); err != KL::NoError)
        return err;
    const std::uint64_t rest = size - buffered;
    if (rest == 0)
        return KL::NoError;
    // A small rest costs fewer calls through memory: one read, and its share of a large write.
    if (rest < KernelCopyThreshold)
        return CopyThroughMemory(out, rest);
    if (const int err = out.Flush(); err != KL::NoError)
        return err;
    std::uint64_t moved = 0;
    const int status = entry->TransferTo(*target.entry, rest, &moved);
    if (status == KL::ErrNotSupported)
        return CopyThroughMemory(out, rest);
    ReadPastBuffer(moved);
    target.OutputMovedBy(moved);
    if (status != KL::NoError)
        return SetStatus(EntryResult(status));
    return moved < rest ? SetStatus(KL::ErrEndOfData) : KL::NoError;
}

// Reads the whole rest in one call, whatever read-ahead limit the file has.
int File::CopyThroughMemory(KL::OChannel& out, std::uint64_t size) {
    const std::unique_ptr<char[]> bytes(new char[size]);
    std::uint64_t count = 0;
    const int status = entry->Read(bytes.get(), size, &count);
    ReadPastBuffer(count);
    if (status != EntryStatus::Ok && status != EntryStatus::EndOfData)
        return SetStatus(EntryResult(status));
    if (count < size)
        return SetStatus(KL::ErrEndOfData);
    return out.WriteBin(bytes.get(), count);
}

void File::ReadPastBuffer(std::uint64_t size) {
    entryPosition += size;
    reading = false;
    bufferPosition = entryPosition;
    SetWindowAt(readBuffer.get(), readBuffer.get(), entryPosition);
}

void File::OutputMovedBy(std::uint64_t size) {
    entryPosition += size;
    knownLength = std::max(knownLength, entryPosition);
    wrote = true;
    // As after a seek: what the channel wrote before no longer sits at a known distance.
    outputSeekCount = output->GetWrittenCount();
    outputBase = entryPosition - outputSeekCount;
}

int File::PatchThrough(std::uint64_t offset, const void* data, std::uint64_t size) {
    if (offset < outputSeekCount)
        return KL::ErrParam; // written before a seek: its place in the file is no longer known
    const std::uint64_t back = entryPosition;
    if (const int err = MoveEntryTo(outputBase + offset); err != KL::NoError)
        return err;
    const int err = EntryResult(entry->Write(data, size));
    const int moved = MoveEntryTo(back);
    return err != KL::NoError ? err : moved;
}

int File::MoveEntryTo(std::uint64_t position) {
    std::uint64_t reached = 0;
    const int err = EntryStatus::ToError(
        entry->Seek(FileEntry::FromStart, static_cast<std::int64_t>(position), &reached), OutOfRangeError);
    if (err == KL::NoError)
        entryPosition = reached;
    return err;
}

int File::GetPosition(std::uint64_t* position) const {
    if (position == nullptr)
        return KL::ErrParam;
    if (!open)
        return connectStatus != KL::NoError ? connectStatus : NotOpenError;
    *position = !reading && output != nullptr ? outputBase + output->GetWrittenCount() : GetReadCount();
    return KL::NoError;
}

int File::Seek(SeekOrigin origin, std::int64_t offset) {
    if (connectStatus != KL::NoError)
        return connectStatus;
    if (!open)
        return NotOpenError;
    if (output != nullptr) {
        if (const int err = output->Flush(); err != KL::NoError)
            return err;
    }
    std::uint64_t current = 0;
    GetPosition(&current);
    std::int64_t base = 0;
    if (origin == FromCurrent)
        base = static_cast<std::int64_t>(current);
    else if (origin == FromEnd)
        base = static_cast<std::int64_t>(knownLength);
    else if (origin != FromStart)
        return KL::ErrParam;
    const std::int64_t target = base + offset;
    if (target < 0 || (mode == ReadMode && static_cast<std::uint64_t>(target) > knownLength))
        return OutOfRangeError;
    // A read-only file keeps what it has buffered: readers that hop from record to record through
    // a file read each block once.
    const auto position = static_cast<std::uint64_t>(target);
    if (mode == ReadMode && reading && position >= bufferPosition && position <= entryPosition) {
        RestoreStatus();
        SetWindowAt(readBuffer.get() + (position - bufferPosition),
                    readBuffer.get() + (entryPosition - bufferPosition), position);
        return KL::NoError;
    }
    if (const int err = MoveEntryTo(static_cast<std::uint64_t>(target)); err != KL::NoError)
        return err;
    reading = false;
    RestoreStatus();
    SetWindowAt(readBuffer.get(), readBuffer.get(), entryPosition);
    if (output != nullptr) {
        outputSeekCount = output->GetWrittenCount();
        outputBase = entryPosition - outputSeekCount;
    } else {
        outputBase = entryPosition;
    }
    return KL::NoError;
}

int File::Underflow() {
    if (!open || IsWriteOnly(mode))
        return NotOpenError;
    if (output != nullptr && !reading) {
        if (const int err = output->Flush(); err != KL::NoError)
            return err;
    }
    reading = true;
    const std::uint64_t at = entryPosition;
    // A small file gets a buffer of its own size: reading it whole then takes one call. A reader
    // that limits its read-ahead gets no more than that.
    std::uint64_t wanted =
        std::max(readBufferSize,
                 mode == ReadMode ? std::clamp<std::uint64_t>(knownLength, MinReadBufferSize, ReadBufferSize)
                                  : ReadBufferSize);
    if (readAhead > 0)
        wanted = std::min(wanted, readAhead);
    if (wanted > readBufferSize) {
        readBuffer.reset(new char[wanted]);
        readBufferSize = wanted;
    }
    // Asking for no more than the known rest spares the call that would only find the end.
    if (mode == ReadMode)
        wanted = std::min(wanted, knownLength > at ? knownLength - at : 0);
    std::uint64_t count = 0;
    const int status = wanted > 0 ? entry->Read(readBuffer.get(), wanted, &count) : EntryStatus::EndOfData;
    if (status != EntryStatus::Ok && status != EntryStatus::EndOfData)
        return EntryResult(status);
    entryPosition += count;
    bufferPosition = at;
    SetWindowAt(readBuffer.get(), readBuffer.get() + count, at);
    return KL::NoError;
}

std::int64_t File::GetAvailableBeyondWindow() const {
    if (!open)
        return 0;
    return knownLength > entryPosition ? static_cast<std::int64_t>(knownLength - entryPosition) : 0;
}

int File::SkipBeyondWindow(std::uint64_t size) {
    if (!open)
        return NotOpenError;
    const std::uint64_t target = entryPosition + size;
    if (target > knownLength)
        return KL::ErrEndOfData;
    if (const int err = MoveEntryTo(target); err != KL::NoError)
        return err;
    SetWindowAt(readBuffer.get(), readBuffer.get(), target);
    return KL::NoError;
}

int File::GetDataLength(std::uint64_t* length) const {
    if (length == nullptr)
        return KL::ErrParam;
    if (connectStatus != KL::NoError)
        return connectStatus;
    if (!open)
        return EntryResult(entry->GetDataLength(length));
    *length = knownLength;
    if (output != nullptr)
        *length = std::max(*length, outputBase + output->GetWrittenCount());
    return KL::NoError;
}

int File::SetDataLength(std::uint64_t length) {
    if (connectStatus != KL::NoError)
        return connectStatus;
    if (output != nullptr) {
        if (const int err = output->Flush(); err != KL::NoError)
            return err;
    }
    if (const int err = EntryResult(entry->SetDataLength(length)); err != KL::NoError)
        return err;
    if (open)
        knownLength = length;
    return KL::NoError;
}

int File::GetCreationTime(TITime* time) const {
    return connectStatus != KL::NoError ? connectStatus : EntryResult(entry->GetCreationTime(time));
}

int File::GetModificationTime(TITime* time) const {
    return connectStatus != KL::NoError ? connectStatus : EntryResult(entry->GetModificationTime(time));
}

int File::SetCreationTime(TITime time) {
    return connectStatus != KL::NoError ? connectStatus : EntryResult(entry->SetCreationTime(time));
}

int File::SetModificationTime(TITime time) {
    return connectStatus != KL::NoError ? connectStatus : EntryResult(entry->SetModificationTime(time));
}

int File::GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const {
    return connectStatus != KL::NoError ? connectStatus : EntryResult(entry->GetTypeInfo(type, creator));
}

int File::SetTypeInfo(std::uint32_t type, std::uint32_t creator) {
    return connectStatus != KL::NoError ? connectStatus : EntryResult(entry->SetTypeInfo(type, creator));
}

bool File::IsWriteProtected() const {
    return connectStatus != KL::NoError || entry->IsWriteProtected();
}

} // namespace IO
