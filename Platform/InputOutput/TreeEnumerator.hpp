#pragma once

#include "InputOutput/Folder.hpp"
#include "InputOutput/Name.hpp"
#include "KLRoot/KLExport.hpp"

#include <memory>

namespace IO {

class FolderListingPrefetcher;

// Walks a folder tree depth first, entries of each folder in name order, so two walks of the
// same tree report the same sequence. Mounted file systems are walked like folders.
//
// For each entry EntryFound comes first; if it returns true, FileFound, FolderFound or LinkFound
// follows by the entry's kind. A true FolderFound (or LinkFound, for a link to a folder) leads
// into the folder between FolderEntered and FolderExited. A file for which EntryFound returned
// false and at which a file system is now mounted is entered as a folder. During every report,
// GetParent is the folder that holds the entry.
class LM_EXPORT TreeEnumerator {
public:
    explicit TreeEnumerator(const Folder& root);
    virtual ~TreeEnumerator();
    TreeEnumerator(const TreeEnumerator&) = delete;
    TreeEnumerator& operator=(const TreeEnumerator&) = delete;

    virtual bool EntryFound(const Name& name, bool isFolder);
    virtual bool FileFound(const Name& name);
    virtual bool FolderFound(const Name& name);
    // A link to a folder or a broken link; false by default, so link cycles cannot trap a walk.
    virtual bool LinkFound(const Name& name);
    // The entries of `folder`, before any of them is reported.
    virtual void FolderListed(const Folder& folder, const Folder::TimedListing& listing);
    virtual void FolderEntered(const Name& name, const Folder& folder);
    virtual void FolderExited(const Name& name, const Folder& folder);
    // Walks the tree below the root. A folder that cannot be read is passed over and the walk goes
    // on; the result is the first such failure (FolderAccessDeniedError when permissions refused
    // it), or 0.
    virtual int Do();

    // Deepest nesting a walk enters; deeper folders are passed over as unreadable.
    static constexpr int MaxDepth = 256;

protected:
    const Folder& GetParent() const { return *parent; }
    // Asks the listings for the modification times of files, which the file systems that have
    // them at hand give without a lookup of each file's path; for the constructor of a walk that
    // compares times.
    void ListModificationTimes() { listTimes = true; }
    // Has the folders of the local disk listed on a second thread as well, for a walk that spends
    // its time in the listings (one that compares times). For the constructor, after
    // ListModificationTimes: the listing begins at once, while the walk readies itself.
    void ListAhead();
    // During a report of a file: its modification time when the listing gave it, else null.
    const TITime* GetFoundModificationTime() const { return foundTime; }
    // Ends the walk: nothing more is reported.
    void Stop() { stopped = true; }
    bool IsStopped() const { return stopped; }

private:
    // `listedAhead`: the folder is one the prefetcher lists.
    void WalkFolder(const Folder& folder, int depth, bool listedAhead);
    void Descend(const Folder& folder, const Name& name, int depth, bool listedAhead);
    int List(const Folder& folder, bool listedAhead, Folder::TimedListing* listing);
    bool IsListedAhead() const;
    void NoteFailure(int error);

    const Folder& root;
    const Folder* parent;
    bool stopped = false;
    int firstFailure = 0;
    bool listTimes = false;
    bool listAhead = false;
    std::unique_ptr<FolderListingPrefetcher> prefetcher;
    const TITime* foundTime = nullptr;
};

} // namespace IO
