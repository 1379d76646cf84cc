#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/HelperThread.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Time.hpp"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace IO {

// What the opening of a file tells and its first bytes, as a reader that opens, reads the start
// and closes would have found them.
struct FileHead {
    std::uint64_t length = 0;
    TITime modificationTime = 0;
    // The first min(length, HeadSize) bytes.
    std::vector<char> bytes;
};

// Reads the heads of the files of a walk on a thread of its own, ahead of the walking thread. A
// walk of a library opens every file and reads its start; in the system calls for that it spends
// about as long as in all its other work, which can go on meanwhile.
//
// The walking thread announces the files of each folder of the local disk as it lists it, and
// withdraws them when it leaves the folder. A walk goes depth first, so the folder announced last
// is the one it works in: its files are read first, in their order. A reader on the walking
// thread takes a file's head instead of opening the file (see GetCurrent). Whatever the helper
// cannot read as a regular file yields no head; its reader then opens the file as it always
// does, and meets the same error or kind. At most Window heads wait in the folder being walked,
// and Window more in the folders above it.
class LM_EXPORT FileHeadPrefetcher {
public:
    static constexpr std::size_t HeadSize = 4096;
    static constexpr std::size_t Window = 256;

    FileHeadPrefetcher();
    ~FileHeadPrefetcher();
    FileHeadPrefetcher(const FileHeadPrefetcher&) = delete;
    FileHeadPrefetcher& operator=(const FileHeadPrefetcher&) = delete;

    // Files of `folder` (a folder of the local disk), in the order the walk will open them.
    void Announce(const Location& folder, std::vector<Location> files);
    // Drops what is left of the files announced for `folder`.
    void Withdraw(const Location& folder);
    // The head of `location` when it is among the files of the folder announced last. While the
    // helper reads it, the caller reads the next files nobody has begun, then waits. False when
    // it has no head: the caller opens the file itself.
    bool Take(const Location& location, FileHead* head);

    // The prefetcher a Scope made current on this thread, or null: readers deep below a walk find
    // it here, since the walk's calls do not carry it.
    static FileHeadPrefetcher* GetCurrent();
    // Take on the prefetcher current on this thread; false without one.
    static bool TakeOnThisThread(const Location& location, FileHead* head);

    class LM_EXPORT Scope {
    public:
        explicit Scope(FileHeadPrefetcher& prefetcher);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        FileHeadPrefetcher* previous;
    };

private:
    struct Item {
        Location location;
        bool read = false;
        bool usable = false;
        FileHead head;
    };
    struct Batch {
        Batch() = default;
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;
        ~Batch();

        Location folder;
        std::vector<Item> items;
        std::size_t nextToRead = 0;
        std::size_t nextToTake = 0;
        bool withdrawn = false;
        // Set before the batch is shared, then only read: files are opened relative to their
        // folder, which spares the walk of the whole path per file.
        std::string folderPath;
        int folderDescriptor = -1;
    };
    using BatchPointer = std::shared_ptr<Batch>;

    void Run();
    // The next item to read, searching from the folder announced last; false when none is left.
    bool NextToRead(BatchPointer* batch, std::size_t* index);
    // Reads an item NextToRead gave, on whichever thread calls, with the lock held on entry and
    // on return but not while reading.
    void ReadItem(std::unique_lock<std::mutex>& guard, const BatchPointer& batch, std::size_t index);
    static bool ReadHead(const Batch& batch, const Location& location, FileHead* head);
    // Lets go of a head that waits.
    void Release(Item& item);

    std::mutex lock;
    std::condition_variable workChanged;
    std::condition_variable headRead;
    // A stack: the last batch is the folder being walked.
    std::vector<BatchPointer> batches;
    std::size_t waitingHeads = 0;
    // The item the walking thread waits for, if any; the helper wakes it for this one alone.
    const Item* awaited = nullptr;
    // Who sleeps needs a notification; who spins sees the change by itself.
    bool takerSleeping = false;
    bool helperSleeping = false;
    // Moves with every change of the state above, so that a spinning side can watch it without
    // the lock.
    std::atomic<std::uint64_t> changes{0};
    bool stopping = false;
    // No helper thread could be made.
    bool unavailable = false;
    KL::HelperThread helper;
};

} // namespace IO
