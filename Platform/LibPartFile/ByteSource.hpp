#pragma once

#include "InputOutput/File.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Time.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace LPF {

// Where the bytes of a part file come from. A part keeps no file open between reads, so that a
// catalogue of many thousand parts holds no descriptors; each visit opens, reads and closes.
class LM_EXPORT ByteSource {
public:
    virtual ~ByteSource() = default;
    // Opens for a series of reads; the length and time are those of this opening.
    virtual int Open() = 0;
    virtual void Close() = 0;
    virtual int ReadAt(std::uint64_t offset, void* dest, std::uint64_t size) = 0;
    virtual std::uint64_t GetLength() const = 0;
    virtual TITime GetModificationTime() const = 0;
    // How many bytes from the start this visit holds in memory already; reads within them are free.
    virtual std::uint64_t GetBufferedLength() const = 0;
};

class LM_EXPORT FileByteSource final : public ByteSource {
public:
    explicit FileByteSource(const IO::Location& location) : location(location) {}
    int Open() override;
    void Close() override;
    int ReadAt(std::uint64_t offset, void* dest, std::uint64_t size) override;
    std::uint64_t GetLength() const override { return length; }
    TITime GetModificationTime() const override { return modificationTime; }
    std::uint64_t GetBufferedLength() const override { return prefix.size(); }

private:
    // A visit that starts at the file's beginning takes this much in one read, so that header,
    // name and directory usually cost one call together.
    static constexpr std::uint64_t PrefixSize = 4096;

    // A walk may have read the start already (IO::FileHeadPrefetcher); the file itself is then
    // opened only for a read past it.
    int OpenFile(std::uint64_t* fileLength, TITime* fileTime);
    int OpenFileAfterHead();

    IO::Location location;
    bool isOpen = false;
    std::unique_ptr<IO::File> file;
    std::vector<char> prefix;
    std::uint64_t length = 0;
    TITime modificationTime = 0;
};

class MemoryByteSource final : public ByteSource {
public:
    explicit MemoryByteSource(std::vector<char> bytes) : bytes(std::move(bytes)) {}
    int Open() override { return 0; }
    void Close() override {}
    int ReadAt(std::uint64_t offset, void* dest, std::uint64_t size) override;
    std::uint64_t GetLength() const override { return bytes.size(); }
    TITime GetModificationTime() const override { return 0; }
    std::uint64_t GetBufferedLength() const override { return bytes.size(); }

private:
    std::vector<char> bytes;
};

// Closes the source when a visit ends, whichever way it ends.
class SourceVisit {
public:
    explicit SourceVisit(ByteSource& source) : source(source), status(source.Open()) {}
    ~SourceVisit() { source.Close(); }
    SourceVisit(const SourceVisit&) = delete;
    SourceVisit& operator=(const SourceVisit&) = delete;
    int GetStatus() const { return status; }

private:
    ByteSource& source;
    int status;
};

} // namespace LPF
