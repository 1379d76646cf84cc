#pragma once

#include "InputOutput/Folder.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/HelperThread.hpp"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <unordered_map>
#include <vector>

namespace IO {

// Lists the folders of a tree walk on a second thread as well as on the walking one. A walk that
// compares the times of files spends nearly all its time in the system calls of the listings, a
// `stat` per file; two threads listing different folders take about half as long.
//
// The prefetcher knows the root and every folder that a listing it made names, down to a depth,
// and lists them in the walk's order: depth first, each folder's entries in name order. The walk
// takes each listing by location. While the helper lists the folder asked for, the walking thread
// lists the next one itself. A walk goes through the tree in that same order, so a folder it
// takes tells that every earlier one it did not take was passed over: those are dropped. At most
// Window listings wait to be taken.
class FolderListingPrefetcher {
public:
    static constexpr std::size_t Window = 256;

    FolderListingPrefetcher(const Location& root, bool withTimes, int maxDepth);
    ~FolderListingPrefetcher();
    FolderListingPrefetcher(const FolderListingPrefetcher&) = delete;
    FolderListingPrefetcher& operator=(const FolderListingPrefetcher&) = delete;

    // The listing of `folder` as Folder::List gives it, and that call's result in `status`. False
    // for a folder the prefetcher does not list (not named by its listings, or on a mounted file
    // system): the caller lists it.
    bool Take(const Location& folder, Folder::TimedListing* listing, int* status);

private:
    // Where a folder comes in the walk: the indices of the entries that lead to it.
    using Position = std::vector<std::uint32_t>;
    enum class State { Waiting, Listing, Listed };
    struct Slot {
        Location location;
        int depth = 0;
        State state = State::Waiting;
        // Passed over by the walk while it was being listed: it goes once listed.
        bool dropped = false;
        bool listedHere = false;
        int status = 0;
        Folder::TimedListing listing;
    };
    using Slots = std::map<Position, Slot>;

    void Run();
    void Add(Position position, const Location& location, int depth);
    bool AddChildren(Slots::iterator slot, const Folder::TimedListing& listing);
    // Lists a waiting slot on whichever thread calls, with the lock held on entry and on return
    // but not while listing.
    void List(std::unique_lock<std::mutex>& guard, Slots::iterator slot);
    // The first waiting slot in walk order, when the window has room.
    Slots::iterator NextToList();
    void DropBefore(Slots::iterator slot);
    void Erase(Slots::iterator slot);
    // Lists `location` as Folder::List would; false for a folder this one does not list.
    bool ListFolder(const Location& location, Folder::TimedListing* listing, int* status) const;

    const bool withTimes;
    const int maxDepth;
    std::mutex lock;
    std::condition_variable changed;
    Slots slots;
    std::set<Position> waiting;
    std::unordered_map<Location, Position> positions;
    std::size_t listed = 0;
    bool stopping = false;
    KL::HelperThread helper;
};

} // namespace IO
