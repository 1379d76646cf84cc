#include "InputOutput/TreeEnumerator.hpp"

#include "InputOutput/FileSystem.hpp"
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

int TreeEnumerator::Do() {
    stopped = false;
    firstFailure = KL::NoError;
    parent = &root;
    if (root.GetStatus() != KL::NoError)
        return root.GetStatus();
    WalkFolder(root, 0);
    parent = &root;
    return firstFailure;
}

void TreeEnumerator::NoteFailure(int error) {
    if (firstFailure == KL::NoError)
        firstFailure = error;
}

void TreeEnumerator::WalkFolder(const Folder& folder, int depth) {
    // The listing is taken whole first, so reports may change the folder (mount a container)
    // without disturbing the walk.
    Folder::TimedListing listing;
    if (const int err = folder.List(&listing, listTimes); err != KL::NoError) {
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
        if (enter && !stopped)
            Descend(folder, name, depth + 1);
    }
}

void TreeEnumerator::Descend(const Folder& folder, const Name& name, int depth) {
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
    WalkFolder(child, depth);
    foundTime = nullptr; // the child's listing is gone
    if (stopped)
        return;
    parent = &folder;
    FolderExited(name, child);
}

} // namespace IO
