#pragma once

// The comparing walk of the library cache: it walks a library's folders as the walker did, reads
// only the file system's entries, and compares each file the walker would have listed, by place
// and by time, with the validity list, in order. Containers are compared as files and not
// entered. A valid library gets its containers mounted when the walk is destroyed, so that its
// replayed parts can be opened.
#include "walking/LibraryCacheEntry.hpp"

#include "InputOutput/Location.hpp"
#include "InputOutput/TreeEnumerator.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace KL {
class ProcessControl;
}

namespace LM {

class LibrarySet;

class LM_EXPORT LibraryCacheEnumerator : public IO::TreeEnumerator {
public:
    LibraryCacheEnumerator(KL::ProcessControl& processControl, const IO::Folder& folder,
                           LibrarySet* librarySet, const KL::Array<LibraryCacheEntry>* entries);
    ~LibraryCacheEnumerator() override;

    bool EntryFound(const IO::Name& name, bool isFolder) override;
    bool FileFound(const IO::Name& name) override;
    bool FolderFound(const IO::Name& name) override;
    void FolderEntered(const IO::Name& name, const IO::Folder& folder) override;
    void FolderExited(const IO::Name& name, const IO::Folder& folder) override;
    int Do() override;

    bool IsValid() const { return isValid; }

private:
    bool IsNextEntry(const IO::Name& name) const;
    void CompareWithNextEntry(const IO::Name& name);
    // The file is the one the list names next: its time decides.
    void CompareTimeOfNextEntry(const IO::Name& name);
    void Invalidate();

    // The folder being walked, relative to the library.
    IO::RelativeLocation folderPlace;
    bool isValid = true;
    const KL::Array<LibraryCacheEntry>* entries;
    std::uint32_t nextEntry = 0;
    LibrarySet* librarySet;
    KL::Array<IO::Location> containers;
    KL::ProcessControl& processControl;
};

} // namespace LM
