#include "LibPartFile/ByteSource.hpp"

#include "InputOutput/FileHeadPrefetcher.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <algorithm>
#include <cstring>

namespace LPF {

int FileByteSource::Open() {
    IO::FileHead head;
    if (IO::FileHeadPrefetcher::TakeOnThisThread(location, &head)) {
        length = head.length;
        modificationTime = head.modificationTime;
        prefix = std::move(head.bytes);
        isOpen = true;
        return KL::NoError;
    }
    const int err = OpenFile(&length, &modificationTime);
    isOpen = err == KL::NoError;
    return err;
}

int FileByteSource::OpenFile(std::uint64_t* fileLength, TITime* fileTime) {
    file = std::make_unique<IO::File>(location, IO::File::FailAtOpen);
    int err = file->Open(IO::File::ReadMode);
    if (err == KL::NoError)
        err = file->GetDataLength(fileLength);
    if (err == KL::NoError)
        err = file->GetModificationTime(fileTime);
    if (err != KL::NoError)
        file.reset();
    return err;
}

// The head was read ahead, maybe a while ago: a file replaced since must not lend its rest to the
// old file's start.
int FileByteSource::OpenFileAfterHead() {
    std::uint64_t nowLength = 0;
    TITime nowTime = 0;
    if (const int err = OpenFile(&nowLength, &nowTime); err != KL::NoError)
        return err;
    if (nowLength != length || nowTime != modificationTime) {
        file.reset();
        return IO::ChangedError;
    }
    return KL::NoError;
}

// The prefix goes with its capacity: a catalogue keeps one source per part for as long as it lives.
void FileByteSource::Close() {
    isOpen = false;
    file.reset();
    std::vector<char>().swap(prefix);
}

int FileByteSource::ReadAt(std::uint64_t offset, void* dest, std::uint64_t size) {
    if (!isOpen)
        return KL::ErrParam;
    if (offset > length || size > length - offset)
        return KL::ErrEndOfData;
    if (size == 0)
        return KL::NoError;
    if (offset == 0 && prefix.empty()) {
        prefix.resize(std::min(length, std::max(size, PrefixSize)));
        file->SetReadAhead(prefix.size());
        if (const int err = file->ReadBin(prefix.data(), prefix.size()); err != KL::NoError) {
            prefix.clear();
            return err;
        }
    }
    if (offset + size <= prefix.size()) {
        std::memcpy(dest, prefix.data() + offset, size);
        return KL::NoError;
    }
    if (file == nullptr)
        if (const int err = OpenFileAfterHead(); err != KL::NoError)
            return err;
    if (const int err = file->SetPosition(offset); err != KL::NoError)
        return err;
    file->SetReadAhead(size);
    return file->ReadBin(dest, size);
}

int MemoryByteSource::ReadAt(std::uint64_t offset, void* dest, std::uint64_t size) {
    if (offset > bytes.size() || size > bytes.size() - offset)
        return KL::ErrEndOfData;
    if (size > 0)
        std::memcpy(dest, bytes.data() + offset, size);
    return KL::NoError;
}

} // namespace LPF
