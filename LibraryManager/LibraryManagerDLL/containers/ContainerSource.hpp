#pragma once

// The files a container writer packs, read the way the writer needs them: the facts that go into
// a file record, and the content, copied as it stands or compressed. ContentReader reads and
// compresses on worker threads ahead of the writer, which then only writes; the writer takes the
// results strictly in file order, and at most a bounded number wait in memory.
#include "InputOutput/Location.hpp"
#include "InputOutput/ZipChannel.hpp"
#include "KLRoot/Time.hpp"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace IO {
class File;
}

namespace LM {

// What a file record says of its source.
struct SourceFacts {
    std::uint64_t dataLength = 0;
    TITime creationTime = 0;
    TITime modificationTime = 0;
};

// Opens `source` for reading and reads its facts; the file stands at its start after. Times a file
// system does not keep are 0.
int OpenSource(IO::File& source, SourceFacts* facts);

// One file's content, compressed or as it stands, or the failure to read it.
struct SourceContent {
    int status = 0;
    SourceFacts facts;
    std::vector<char> bytes;
    // Too large to hold as it stands: the writer copies it from the file, which the system does
    // without passing it through memory.
    bool left = false;
};

class ContentReader {
public:
    // How many results, and how many of their bytes, may wait ahead of the writer.
    static constexpr std::size_t MaxAhead = 32;
    static constexpr std::size_t MaxWaitingBytes = 64 * 1024 * 1024;

    // Compresses with `zipOptions`, or without them holds each file as it stands.
    ContentReader(std::vector<IO::Location> sources, std::optional<IO::ZipOChannelOptions> zipOptions);
    // Stops the workers: results not taken are dropped.
    ~ContentReader();
    ContentReader(const ContentReader&) = delete;
    ContentReader& operator=(const ContentReader&) = delete;

    // The next source's result, in the order given; waits until it is ready.
    SourceContent TakeNext();

private:
    struct Slot {
        bool ready = false;
        SourceContent content;
    };

    void Stop();
    void Work();
    SourceContent Read(const IO::Location& source) const;
    SourceContent ReadFile(const IO::Location& source) const;

    std::vector<IO::Location> sources;
    std::optional<IO::ZipOChannelOptions> options;
    std::vector<Slot> slots;
    std::size_t nextToStart = 0;
    std::size_t nextToTake = 0;
    std::size_t waitingBytes = 0;
    bool stopping = false;
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::thread> workers;
};

} // namespace LM
