#include "containers/ContainerSource.hpp"

#include "InputOutput/File.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/MemoryChannel.hpp"

#include <algorithm>
#include <new>

namespace LM {

// A file system that keeps no times gives 0: the content is what matters.
int OpenSource(IO::File& source, SourceFacts* facts) {
    if (const int err = source.Open(IO::File::ReadMode); err != KL::NoError)
        return err;
    if (source.GetCreationTime(&facts->creationTime) != KL::NoError)
        facts->creationTime = 0;
    if (source.GetModificationTime(&facts->modificationTime) != KL::NoError)
        facts->modificationTime = 0;
    return source.GetDataLength(&facts->dataLength);
}

ContentReader::ContentReader(std::vector<IO::Location> sourceList,
                             std::optional<IO::ZipOChannelOptions> zipOptions)
    : sources(std::move(sourceList)), options(std::move(zipOptions)), slots(sources.size()) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t count = std::min<std::size_t>({cores, 8, sources.size()});
    try {
        for (std::size_t i = 0; i < count; ++i)
            workers.emplace_back([this] { Work(); });
    } catch (...) {
        Stop();
        throw;
    }
}

ContentReader::~ContentReader() {
    Stop();
}

void ContentReader::Stop() {
    {
        std::lock_guard guard(lock);
        stopping = true;
    }
    changed.notify_all();
    for (std::thread& worker : workers)
        worker.join();
    workers.clear();
}

SourceContent ContentReader::TakeNext() {
    std::unique_lock guard(lock);
    if (nextToTake >= slots.size()) {
        SourceContent none;
        none.status = KL::ErrParam;
        return none;
    }
    Slot& slot = slots[nextToTake];
    changed.wait(guard, [&] { return slot.ready; });
    SourceContent content = std::move(slot.content);
    slot.content = {};
    waitingBytes -= content.bytes.size();
    ++nextToTake;
    guard.unlock();
    changed.notify_all();
    return content;
}

void ContentReader::Work() {
    std::unique_lock guard(lock);
    for (;;) {
        // The next result the writer wants is always made; others only within both bounds.
        changed.wait(guard, [&] {
            return stopping || nextToStart >= slots.size() || nextToStart == nextToTake ||
                   (nextToStart < nextToTake + MaxAhead && waitingBytes < MaxWaitingBytes);
        });
        if (stopping || nextToStart >= slots.size())
            return;
        const std::size_t index = nextToStart++;
        guard.unlock();
        SourceContent content = Read(sources[index]);
        guard.lock();
        waitingBytes += content.bytes.size();
        slots[index].content = std::move(content);
        slots[index].ready = true;
        changed.notify_all();
    }
}

// Runs on a worker: nothing may leave it as an exception. Running out of memory is reported to the
// writer, which raises it on its own thread.
SourceContent ContentReader::Read(const IO::Location& location) const {
    try {
        return ReadFile(location);
    } catch (const std::bad_alloc&) {
        SourceContent failed;
        failed.status = KL::ErrNotEnoughMemory;
        return failed;
    } catch (...) {
        SourceContent failed;
        failed.status = KL::ErrIO;
        return failed;
    }
}

SourceContent ContentReader::ReadFile(const IO::Location& location) const {
    SourceContent result;
    IO::File source(location, IO::File::FailAtOpen);
    if ((result.status = OpenSource(source, &result.facts)) != KL::NoError)
        return result;
    if (!options.has_value()) {
        if (result.facts.dataLength >= IO::File::KernelCopyThreshold) {
            result.left = true;
            return result;
        }
        result.bytes.resize(result.facts.dataLength);
        result.status = source.ReadBin(result.bytes.data(), result.facts.dataLength);
        return result;
    }
    KL::MemoryOChannel memory;
    {
        IO::ZipOChannel zip(memory, *options);
        const int copied = source.CopyTo(zip, result.facts.dataLength);
        const int closed = zip.Close();
        result.status = copied != KL::NoError ? copied : closed;
    }
    if (result.status == KL::NoError)
        result.status = memory.GetStatus();
    result.bytes = memory.TakeData();
    return result;
}

} // namespace LM
