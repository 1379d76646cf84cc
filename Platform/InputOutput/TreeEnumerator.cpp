#include "InputOutput/TreeEnumerator.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/FolderListingPrefetcher.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

namespace IO {

TreeEnumerator::TreeEnumerator(const Folder& rootFolder) : root(rootFolder), parent(&rootFolder) {}

TreeEnumerator::~TreeEnumerator() = default;

bool TreeEnumerator::EntryFound(const Name&, bool) {
    return true;
}

bool TreeEnumerator::FileFound(const Name&) {
    return true;
}

bool TreeEnumerator::FolderFound(const Name&) {
    return true;
}

bool TreeEnumerator::LinkFound(const Name&) {
    return false;
}

void TreeEnumerator::FolderListed(const Folder&, const Folder::TimedListing&) {}

void TreeEnumerator::FolderEntered(const Name&, const Folder&) {}

void TreeEnumerator::FolderExited(const Name&, const Folder&) {}

void TreeEnumerator::ListAhead() {
    listAhead = true;
    if (IsListedAhead())
        prefetcher = std::make_unique<FolderListingPrefetcher>(root.GetLocation(), listTimes, MaxDepth);
}

bool TreeEnumerator::IsListedAhead() const {
    return listAhead && root.GetStatus() == KL::NoError && root.GetOwnerFileSystem() == nullptr;
}

int TreeEnumerator::Do() {
    stopped = false;
    firstFailure = KL::NoError;
    parent = &root;
    if (root.GetStatus() != KL::NoError)
        return root.GetStatus();
    const bool listedAhead = IsListedAhead();
    if (listedAhead && prefetcher == nullptr)
        prefetcher = std::make_unique<FolderListingPrefetcher>(root.GetLocation(), listTimes, MaxDepth);
    WalkFolder(root, 0, listedAhead);
    prefetcher.reset();
    parent = &root;
    return firstFailure;
}

void TreeEnumerator::NoteFailure(int error) {
    if (firstFailure == KL::NoError)
        firstFailure = error;
}

int TreeEnumerator::List(const Folder& folder, bool listedAhead, Folder::TimedListing* listing) {
    int status = KL::NoError;
    if (listedAhead && prefetcher->Take(folder.GetLocation(), listing, &status))
        return status;
    return folder.List(listing, listTimes);
}

void TreeEnumerator::WalkFolder(const Folder& folder, int depth, bool listedAhead) {
    // The listing is taken whole first, so reports may change the folder (mount a container)
    // without disturbing the walk.
    Folder::TimedListing listing;
    if (const int err = List(folder, listedAhead, &listing); err != KL::NoError) {
        NoteFailure(err);
        return;
    }
    FolderListed(folder, listing);
    for (const auto& [name, type, time] : listing) {
        if (stopped)
            return;
        parent = &folder;
        foundTime = time ? &*time : nullptr;
        bool enter = false;
        if (EntryFound(name, type == FolderEntryType)) {
            if (stopped)
                return;
            switch (type) {
            case FileEntryType:
                FileFound(name);
                break;
            case FolderEntryType:
                enter = FolderFound(name);
                break;
            case LinkEntryType:
                enter = LinkFound(name);
                break;
            }
        } else {
            enter = type == FileEntryType && fileSystem.IsMountPoint(folder.GetLocation() + name);
        }
        // The prefetcher lists the folders its listings name, and no link or mount point.
        if (enter && !stopped)
            Descend(folder, name, depth + 1, listedAhead && type == FolderEntryType);
    }
}

void TreeEnumerator::Descend(const Folder& folder, const Name& name, int depth, bool listedAhead) {
    if (depth > MaxDepth) {
        NoteFailure(NameTooLongError);
        return;
    }
    const Folder child(folder.GetLocation() + name);
    if (child.GetStatus() != KL::NoError) {
        // A followed link that leads nowhere is no failure of the walk.
        if (child.GetStatus() != WrongKindError && child.GetStatus() != NotFoundError)
            NoteFailure(child.GetStatus());
        return;
    }
    parent = &folder;
    FolderEntered(name, child);
    if (stopped)
        return;
    WalkFolder(child, depth, listedAhead);
    foundTime = nullptr; // the child's listing is gone
    if (stopped)
        return;
    parent = &folder;
    FolderExited(name, child);
}

} // namespace IO
