#include "InputOutput/FolderListingPrefetcher.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <utility>

namespace IO {

FolderListingPrefetcher::FolderListingPrefetcher(const Location& root, bool withTimes, int maxDepth)
    : withTimes(withTimes), maxDepth(maxDepth) {
    Add({}, root, 0);
    // Without a helper the walking thread lists every folder itself, as it would without one.
    helper.Start([this] { Run(); });
}

FolderListingPrefetcher::~FolderListingPrefetcher() {
    helper.Stop(lock, stopping, changed);
}

// The slot first and the name that finds it last, so that a failure on the way leaves no name
// without a slot: a slot nobody finds is only dropped.
void FolderListingPrefetcher::Add(Position position, const Location& location, int depth) {
    Slot& slot = slots[position];
    slot.location = location;
    slot.depth = depth;
    waiting.insert(position);
    positions.emplace(location, std::move(position));
}

void FolderListingPrefetcher::Run() {
    std::unique_lock guard(lock);
    while (!stopping) {
        if (const auto next = NextToList(); next != slots.end())
            List(guard, next);
        else
            changed.wait(guard);
    }
}

FolderListingPrefetcher::Slots::iterator FolderListingPrefetcher::NextToList() {
    return waiting.empty() || listed >= Window ? slots.end() : slots.find(*waiting.begin());
}

void FolderListingPrefetcher::List(std::unique_lock<std::mutex>& guard, Slots::iterator slot) {
    waiting.erase(slot->first);
    slot->second.state = State::Listing;
    const Location location = slot->second.location;
    guard.unlock();
    Folder::TimedListing listing;
    int status = KL::NoError;
    const bool local = ListFolder(location, &listing, &status);
    guard.lock();
    Slot& done = slot->second;
    done.state = State::Listed;
    ++listed;
    if (done.dropped) {
        Erase(slot);
    } else {
        done.listedHere = local && AddChildren(slot, listing);
        done.status = status;
        done.listing = std::move(listing);
    }
    changed.notify_all();
}

// The folders a listing names, known from now on. False when memory ran out on the way: the walk
// then lists the folder itself, and any of its folders that are not known.
bool FolderListingPrefetcher::AddChildren(Slots::iterator slot, const Folder::TimedListing& listing) {
    if (slot->second.depth >= maxDepth)
        return true;
    try {
        for (std::uint32_t i = 0; i < listing.size(); ++i) {
            if (listing[i].type != FolderEntryType)
                continue;
            Position child = slot->first;
            child.push_back(i);
            Add(std::move(child), slot->second.location + listing[i].name, slot->second.depth + 1);
        }
        return true;
    } catch (...) {
        return false;
    }
}

// May run on the helper, which nothing may leave as an exception: a folder that could not be
// listed here is listed by the walk, which meets the failure itself.
bool FolderListingPrefetcher::ListFolder(const Location& location, Folder::TimedListing* listing,
                                         int* status) const {
    try {
        const Folder folder(location);
        if (folder.GetOwnerFileSystem() != nullptr)
            return false;
        *status = folder.GetStatus() != KL::NoError ? folder.GetStatus() : folder.List(listing, withTimes);
        return true;
    } catch (...) {
        listing->clear();
        return false;
    }
}

void FolderListingPrefetcher::Erase(Slots::iterator slot) {
    if (slot->second.state == State::Listed)
        --listed;
    else
        waiting.erase(slot->first);
    positions.erase(slot->second.location);
    slots.erase(slot);
}

// Every slot before the one taken lies outside the taken folder's ancestry, whose listings were
// taken before it: the walk passed over those folders with all they hold.
void FolderListingPrefetcher::DropBefore(Slots::iterator slot) {
    for (auto earlier = slots.begin(); earlier != slot;) {
        const auto next = std::next(earlier);
        if (earlier->second.state == State::Listing)
            earlier->second.dropped = true;
        else
            Erase(earlier);
        earlier = next;
    }
}

bool FolderListingPrefetcher::Take(const Location& folder, Folder::TimedListing* listing, int* status) {
    std::unique_lock guard(lock);
    const auto known = positions.find(folder);
    if (known == positions.end())
        return false;
    const auto slot = slots.find(known->second);
    DropBefore(slot);
    while (slot->second.state != State::Listed) {
        if (slot->second.state == State::Waiting)
            List(guard, slot);
        else if (const auto next = NextToList(); next != slots.end())
            List(guard, next);
        else
            changed.wait(guard);
    }
    const bool listedHere = slot->second.listedHere;
    if (listedHere) {
        *listing = std::move(slot->second.listing);
        *status = slot->second.status;
    }
    Erase(slot);
    changed.notify_all();
    return listedHere;
}

} // namespace IO
