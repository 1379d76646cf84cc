#include "LibPartFile/ByteSource.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <cstring>

namespace LPF {

int FileByteSource::Open() {
    file = std::make_unique<IO::File>(location);
    int err = file->Open(IO::File::ReadMode);
    if (err == KL::NoError)
        err = file->GetDataLength(&length);
    if (err == KL::NoError)
        err = file->GetModificationTime(&modificationTime);
    if (err != KL::NoError)
        file.reset();
    return err;
}

void FileByteSource::Close() {
    file.reset();
}

int FileByteSource::ReadAt(std::uint64_t offset, void* dest, std::uint64_t size) {
    if (file == nullptr)
        return KL::ErrParam;
    if (offset > length || size > length - offset)
        return KL::ErrEndOfData;
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
