#include "walking/CachedPartReader.hpp"

#include "KLRoot/ErrorCodes.hpp"

namespace LM {

CachedPartReader::CachedPartReader(KL::IChannel& channel, std::uint32_t count, int firstFolderIndex,
                                   Prepare prepare)
    : channel(channel), firstFolderIndex(firstFolderIndex), prepare(std::move(prepare)), unread(count),
      undelivered(count) {
    // Without a helper the storing thread reads each batch itself when it needs it.
    helper.Start([this] { Run(); });
}

CachedPartReader::~CachedPartReader() {
    helper.Stop(lock, stopping, changed);
}

void CachedPartReader::Run() {
    for (std::size_t next = 0;; next ^= 1) {
        Batch& batch = batches[next];
        {
            std::unique_lock guard(lock);
            changed.wait(guard, [&] { return stopping || !batch.full; });
            if (stopping)
                return;
        }
        const bool more = Fill(batch);
        {
            const std::lock_guard guard(lock);
            batch.full = true;
        }
        changed.notify_all();
        if (!more)
            return;
    }
}

bool CachedPartReader::Fill(Batch& batch) {
    batch.count = 0;
    while (batch.count < BatchSize && unread > 0 && !failed) {
        Record& record = batch.records[batch.count++].emplace();
        --unread;
        ReadRecord(record);
        failed = record.result != KL::NoError;
    }
    return unread > 0 && !failed;
}

// May run on the helper, which nothing may leave as an exception: a record that runs out of
// memory fails the load, and the library is walked.
void CachedPartReader::ReadRecord(Record& record) const {
    try {
        char** ancestry = nullptr;
        record.result = record.part.Read(channel, firstFolderIndex, &ancestry, &record.migration);
        record.ancestry.Reset(ancestry);
        if (record.result == KL::NoError)
            prepare(record);
    } catch (...) {
        record.result = KL::ErrNotEnoughMemory;
    }
}

CachedPartReader::Record* CachedPartReader::Next() {
    if (undelivered == 0 || failureDelivered)
        return nullptr;
    if (held && nextInBatch == batches[current].count) {
        {
            const std::lock_guard guard(lock);
            batches[current].full = false;
        }
        changed.notify_all();
        current ^= 1;
        held = false;
    }
    if (!held) {
        if (helper.IsRunning()) {
            std::unique_lock guard(lock);
            changed.wait(guard, [this] { return batches[current].full; });
        } else {
            Fill(batches[current]);
        }
        held = true;
        nextInBatch = 0;
    }
    Record& record = *batches[current].records[nextInBatch++];
    --undelivered;
    failureDelivered = record.result != KL::NoError;
    return &record;
}

} // namespace LM
