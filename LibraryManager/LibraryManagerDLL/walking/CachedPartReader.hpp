#pragma once

// Reads the records of a library cache's part stream on a second thread, a batch ahead of the
// thread that stores them. Reading a record (its names, place and symbol) and telling the type of
// its place cost about as much as storing it, and a replay does both for every part.
#include "catalogue/LibPart.hpp"
#include "hierarchy/AncestryInfo.hpp"

#include "InputOutput/FileType.hpp"
#include "KLMSections/MigrationTable.hpp"
#include "KLRoot/HelperThread.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace KL {
class IChannel;
}

namespace LM {

// One record as the stream gave it, with what came with it.
struct CachedPartRecord {
    LibPart part;
    int result = 0;
    KL::ScopedHandle ancestry;
    MigrationTableObject migration;
    // What the reading thread learnt besides, for the storing thread (see the Prepare callback).
    bool typed = false;
    FTM::GeneralID type;
    bool chainRead = false;
    bool hasChain = false;
    AncestryInfo chain;
};

class LM_EXPORT CachedPartReader {
public:
    using Record = CachedPartRecord;
    // Runs on the reading thread for each record read whole, and must touch nothing the storing
    // thread changes.
    using Prepare = std::function<void(Record& record)>;

    // Reads `count` records from `channel`, which nobody else reads meanwhile; folder indices are
    // shifted by `firstFolderIndex`.
    CachedPartReader(KL::IChannel& channel, std::uint32_t count, int firstFolderIndex, Prepare prepare);
    ~CachedPartReader();
    CachedPartReader(const CachedPartReader&) = delete;
    CachedPartReader& operator=(const CachedPartReader&) = delete;

    // The next record in the stream's order, or null after the last one. A record that could not
    // be read is the last one.
    Record* Next();

private:
    static constexpr std::size_t BatchSize = 256;
    struct Batch {
        std::unique_ptr<std::optional<Record>[]> records { new std::optional<Record>[ BatchSize ] };
        std::size_t count = 0;
        bool full = false;
    };

    void Run();
    // Fills `batch` from the stream; false once the stream has given its last record.
    bool Fill(Batch& batch);
    void ReadRecord(Record& record) const;

    KL::IChannel& channel;
    const int firstFolderIndex;
    const Prepare prepare;
    // The reading side's count, and whether it met a record it could not read.
    std::uint32_t unread;
    bool failed = false;
    // Two batches: the storing side holds one while the reading side fills the other.
    Batch batches[2];
    std::size_t current = 0;
    bool held = false;
    std::size_t nextInBatch = 0;
    // The storing side's count, and whether it handed over the record that could not be read.
    std::uint32_t undelivered;
    bool failureDelivered = false;
    std::mutex lock;
    std::condition_variable changed;
    bool stopping = false;
    KL::HelperThread helper;
};

} // namespace LM
