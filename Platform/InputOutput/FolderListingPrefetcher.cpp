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

void FolderListingPrefetcher::Add(Position position, const Location& location, int depth) {
    positions.emplace(location, position);
    waiting.insert(position);
    Slot& slot = slots[std::move(position)];
    slot.location = location;
    slot.depth = depth;
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
    const Folder folder(location);
    const bool local = folder.GetOwnerFileSystem() == nullptr;
    const int status =
        folder.GetStatus() != KL::NoError ? folder.GetStatus() : folder.List(&listing, withTimes);
    guard.lock();
    Slot& done = slot->second;
    done.state = State::Listed;
    ++listed;
    if (done.dropped) {
        Erase(slot);
    } else {
        done.listedHere = local;
        done.status = status;
        if (local && done.depth < maxDepth) {
            for (std::uint32_t i = 0; i < listing.size(); ++i) {
                if (listing[i].type != FolderEntryType)
                    continue;
                Position child = slot->first;
                child.push_back(i);
                Add(std::move(child), location + listing[i].name, done.depth + 1);
            }
        }
        done.listing = std::move(listing);
    }
    changed.notify_all();
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
