#include "containers/ContainerSource.hpp"

#include "InputOutput/File.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/MemoryChannel.hpp"

#include <algorithm>

namespace LM {

int OpenSource(IO::File& source, SourceFacts* facts) {
    if (const int err = source.Open(IO::File::ReadMode); err != KL::NoError)
        return err;
    if (const int err = source.GetDataLength(&facts->dataLength); err != KL::NoError)
        return err;
    if (const int err = source.GetCreationTime(&facts->creationTime); err != KL::NoError)
        return err;
    return source.GetModificationTime(&facts->modificationTime);
}

ContentCompressor::ContentCompressor(std::vector<IO::Location> sourceList, const IO::ZipOChannelOptions& zipOptions)
    : sources(std::move(sourceList)), options(zipOptions), slots(sources.size()) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t count = std::min<std::size_t>({cores, 8, sources.size()});
    for (std::size_t i = 0; i < count; ++i)
        workers.emplace_back([this] { Work(); });
}

ContentCompressor::~ContentCompressor() {
    {
        std::lock_guard guard(lock);
        stopping = true;
    }
    changed.notify_all();
    for (std::thread& worker : workers)
        worker.join();
}

CompressedContent ContentCompressor::TakeNext() {
    std::unique_lock guard(lock);
    if (nextToTake >= slots.size()) {
        CompressedContent none;
        none.status = KL::ErrParam;
        return none;
    }
    Slot& slot = slots[nextToTake];
    changed.wait(guard, [&] { return slot.ready; });
    CompressedContent content = std::move(slot.content);
    slot.content = {};
    ++nextToTake;
    guard.unlock();
    changed.notify_all();
    return content;
}

void ContentCompressor::Work() {
    std::unique_lock guard(lock);
    for (;;) {
        changed.wait(guard, [&] {
            return stopping || nextToStart >= slots.size() || nextToStart < nextToTake + MaxAhead;
        });
        if (stopping || nextToStart >= slots.size())
            return;
        const std::size_t index = nextToStart++;
        guard.unlock();
        CompressedContent content = Compress(sources[index]);
        guard.lock();
        slots[index].content = std::move(content);
        slots[index].ready = true;
        changed.notify_all();
    }
}

CompressedContent ContentCompressor::Compress(const IO::Location& location) const {
    CompressedContent result;
    IO::File source(location);
    if ((result.status = OpenSource(source, &result.facts)) != KL::NoError)
        return result;
    KL::MemoryOChannel memory;
    {
        IO::ZipOChannel zip(memory, options);
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
