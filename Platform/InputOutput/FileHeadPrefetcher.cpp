#include "InputOutput/FileHeadPrefetcher.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace IO {

namespace {

thread_local FileHeadPrefetcher* current = nullptr;

// Waking a sleeping thread takes longer than a head takes to read, and the walk announces a new
// folder every few dozen files: both sides spin a while before they sleep.
constexpr auto TakerSpin = std::chrono::milliseconds(2);
constexpr auto HelperSpin = std::chrono::microseconds(300);

// Tells the core that this is a spin, so that it spends less on it.
inline void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#else
    std::this_thread::yield();
#endif
}

// Waits for `ready` without holding the lock: the lock is taken again only when `changes` moved,
// so a spinning side never makes the other one wait for the lock. True once `ready` holds, false
// after `limit`, with the lock held either way.
template <typename Ready>
bool SpinUntil(std::unique_lock<std::mutex>& guard, const std::atomic<std::uint64_t>& changes, Ready ready,
               std::chrono::steady_clock::duration limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!ready()) {
        const std::uint64_t seen = changes.load(std::memory_order_relaxed);
        guard.unlock();
        while (changes.load(std::memory_order_relaxed) == seen) {
            if (std::chrono::steady_clock::now() >= end) {
                guard.lock();
                return ready();
            }
            for (int i = 0; i < 16; ++i)
                CpuRelax();
        }
        guard.lock();
    }
    return true;
}

bool ReadFully(int descriptor, char* bytes, std::size_t size) {
    for (std::size_t done = 0; done < size;) {
        const ssize_t count = read(descriptor, bytes + done, size - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace

FileHeadPrefetcher::FileHeadPrefetcher() = default;

FileHeadPrefetcher::~FileHeadPrefetcher() {
    helper.Stop(lock, stopping, workChanged);
}

FileHeadPrefetcher* FileHeadPrefetcher::GetCurrent() {
    return current;
}

bool FileHeadPrefetcher::TakeOnThisThread(const Location& location, FileHead* head) {
    return current != nullptr && current->Take(location, head);
}

FileHeadPrefetcher::Scope::Scope(FileHeadPrefetcher& prefetcher)
    : previous(std::exchange(current, &prefetcher)) {}

FileHeadPrefetcher::Scope::~Scope() {
    current = previous;
}

void FileHeadPrefetcher::Announce(const Location& folder, std::vector<Location> files) {
    if (files.empty())
        return;
    auto batch = std::make_shared<Batch>();
    batch->folder = folder;
    batch->folderPath = folder.ToString();
    batch->folderDescriptor = open(batch->folderPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    batch->items.resize(files.size());
    for (std::size_t i = 0; i < files.size(); ++i)
        batch->items[i].location = std::move(files[i]);
    bool wake = false;
    {
        const std::lock_guard guard(lock);
        if (unavailable)
            return;
        // No thread to be had: every reader opens its file itself, as without a prefetcher.
        if (!helper.IsRunning() && !helper.Start([this] { Run(); })) {
            unavailable = true;
            return;
        }
        batches.push_back(std::move(batch));
        changes.fetch_add(1, std::memory_order_relaxed);
        wake = helperSleeping;
    }
    if (wake)
        workChanged.notify_one();
}

void FileHeadPrefetcher::Withdraw(const Location& folder) {
    bool wake = false;
    {
        const std::lock_guard guard(lock);
        const auto found = std::find_if(batches.rbegin(), batches.rend(),
                                        [&](const BatchPointer& batch) { return batch->folder == folder; });
        if (found == batches.rend())
            return;
        Batch& batch = **found;
        batch.withdrawn = true;
        for (Item& item : batch.items)
            Release(item);
        batches.erase(std::next(found).base());
        changes.fetch_add(1, std::memory_order_relaxed);
        wake = helperSleeping;
    }
    if (wake)
        workChanged.notify_one();
}

bool FileHeadPrefetcher::Take(const Location& location, FileHead* head) {
    std::unique_lock guard(lock);
    if (batches.empty())
        return false;
    // The batch stays alive while we wait, even if the walk withdrew it meanwhile.
    const BatchPointer batch = batches.back();
    const auto first = batch->items.begin() + static_cast<std::ptrdiff_t>(batch->nextToTake);
    const auto found =
        std::find_if(first, batch->items.end(), [&](const Item& item) { return item.location == location; });
    if (found == batch->items.end())
        return false;
    // Files the walk passed over will not be asked for.
    for (auto skipped = first; skipped != found; ++skipped)
        Release(*skipped);
    const auto index = static_cast<std::size_t>(found - batch->items.begin());
    batch->nextToTake = index;
    Item& item = *found;
    if (!item.read) {
        awaited = &item;
        changes.fetch_add(1, std::memory_order_relaxed);
        if (helperSleeping)
            workChanged.notify_one();
        // While the helper reads this one, this thread reads the next file nobody has begun
        // instead of waiting idle: when the helper falls behind, both threads open files.
        BatchPointer other;
        std::size_t next = 0;
        while (!item.read && NextToRead(&other, &next))
            ReadItem(guard, other, next);
        const auto arrived = [&] { return item.read; };
        if (!SpinUntil(guard, changes, arrived, TakerSpin)) {
            takerSleeping = true;
            headRead.wait(guard, arrived);
            takerSleeping = false;
        }
        awaited = nullptr;
    }
    batch->nextToTake = index + 1;
    const bool usable = item.usable;
    if (usable)
        *head = std::move(item.head);
    Release(item);
    changes.fetch_add(1, std::memory_order_relaxed);
    // The window moved on.
    const bool wake = helperSleeping;
    guard.unlock();
    if (wake)
        workChanged.notify_one();
    return usable;
}

void FileHeadPrefetcher::Release(Item& item) {
    if (!item.usable)
        return;
    item.usable = false;
    item.head = FileHead();
    --waitingHeads;
}

// The folder being walked is read up to Window files past the one last taken, whatever waits
// elsewhere; the folders above it, whose files come after it, only while fewer than Window heads
// wait in all.
bool FileHeadPrefetcher::NextToRead(BatchPointer* batch, std::size_t* index) {
    for (auto candidate = batches.rbegin(); candidate != batches.rend(); ++candidate) {
        Batch& next = **candidate;
        const std::size_t first = std::max(next.nextToRead, next.nextToTake);
        if (first >= next.items.size())
            continue;
        const bool walked = candidate == batches.rbegin();
        if (walked ? first >= next.nextToTake + Window : waitingHeads >= Window)
            return false;
        *batch = *candidate;
        *index = first;
        return true;
    }
    return false;
}

void FileHeadPrefetcher::Run() {
    std::unique_lock guard(lock);
    for (;;) {
        BatchPointer batch;
        std::size_t index = 0;
        const auto ready = [&] { return stopping || NextToRead(&batch, &index); };
        if (!SpinUntil(guard, changes, ready, HelperSpin)) {
            helperSleeping = true;
            workChanged.wait(guard, ready);
            helperSleeping = false;
        }
        if (stopping)
            return;
        ReadItem(guard, batch, index);
    }
}

void FileHeadPrefetcher::ReadItem(std::unique_lock<std::mutex>& guard, const BatchPointer& batch,
                                  std::size_t index) {
    batch->nextToRead = index + 1;
    FileHead head;
    bool usable = false;
    // An item's location is fixed once announced, and its batch is held by the caller. A failure
    // to allocate leaves the file to its reader.
    try {
        const Location& location = batch->items[index].location;
        guard.unlock();
        usable = ReadHead(*batch, location, &head);
    } catch (const std::bad_alloc&) {
        usable = false;
    }
    if (!guard.owns_lock())
        guard.lock();
    Item& item = batch->items[index];
    item.read = true;
    changes.fetch_add(1, std::memory_order_relaxed);
    if (usable && !batch->withdrawn && index >= batch->nextToTake) {
        item.usable = true;
        item.head = std::move(head);
        ++waitingHeads;
    }
    if (&item == awaited && takerSleeping)
        headRead.notify_one();
}

FileHeadPrefetcher::Batch::~Batch() {
    if (folderDescriptor >= 0)
        close(folderDescriptor);
}

// Opened as the local file system opens for reading; O_NONBLOCK keeps a fifo from holding the
// helper, and anything but a regular file is left to its reader.
bool FileHeadPrefetcher::ReadHead(const Batch& batch, const Location& location, FileHead* head) {
    const std::string path = location.ToString();
    const std::size_t folderLength = batch.folderPath.size();
    const bool inFolder = batch.folderDescriptor >= 0 && path.size() > folderLength + 1 &&
                          path.compare(0, folderLength, batch.folderPath) == 0 && path[folderLength] == '/' &&
                          path.find('/', folderLength + 1) == std::string::npos;
    const char* name = inFolder ? path.c_str() + folderLength + 1 : path.c_str();
    int descriptor;
    do {
        descriptor =
            openat(inFolder ? batch.folderDescriptor : AT_FDCWD, name, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0)
        return false;
    struct statx info {};
    bool usable = statx(descriptor, "", AT_EMPTY_PATH, STATX_TYPE | STATX_SIZE | STATX_MTIME, &info) == 0 &&
                  S_ISREG(info.stx_mode);
    if (usable) {
        head->length = info.stx_size;
        head->modificationTime = TIFromUnixTime(info.stx_mtime.tv_sec);
        head->bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(head->length, HeadSize)));
        usable = ReadFully(descriptor, head->bytes.data(), head->bytes.size());
    }
    close(descriptor);
    return usable;
}

} // namespace IO
