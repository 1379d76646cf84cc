#pragma once

#include "walking/LibraryCacheEntry.hpp"

#include "InputOutput/Location.hpp"
#include "InputOutput/TreeEnumerator.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace IO {
class FileHeadPrefetcher;
}
namespace IOUtil {
class ScratchFile;
}
namespace KL {
class ProcessControl;
}

namespace LM {

class IServerLibraryCollection;
class LibrarySet;

// Walks one active library and turns what it finds into catalogue content: every folder into the
// folder set, every file through StoreLibPart, which alone decides what is a part, and every
// container file into a mount that the walk goes on through. With the library cache on it also
// records what was stored, so that the next start can skip the walk.
class LM_EXPORT LibraryEnumerator : public IO::TreeEnumerator {
public:
    // The cancel question is asked once per this many stored parts.
    static constexpr std::int32_t CancelTestInterval = 50;

    LibraryEnumerator(KL::ProcessControl& processControl, const IO::Folder& root, LibrarySet* librarySet,
                      int libraryIndex, IOUtil::ScratchFile* cacheStream,
                      KL::Array<LibraryCacheEntry>* cacheEntries, int firstPartIndex, int firstFolderIndex,
                      IServerLibraryCollection* serverCollection);
    ~LibraryEnumerator() override;

    // Walks with the heads of the files of each folder read ahead on a second thread.
    int Do() override;
    bool EntryFound(const IO::Name& name, bool isFolder) override;
    bool FileFound(const IO::Name& name) override;
    void FolderListed(const IO::Folder& folder, const IO::Folder::TimedListing& listing) override;
    void FolderEntered(const IO::Name& name, const IO::Folder& folder) override;
    void FolderExited(const IO::Name& name, const IO::Folder& folder) override;

    std::int32_t GetFirstPartIndex() const { return firstPartIndex; }
    std::int32_t GetStoredPartCount() const { return storedPartCount; }
    // The user stopped the walk of a library that was not vital.
    bool WasInterrupted() const { return interrupted; }

private:
    void RecordCacheEntry(const IO::Location& location, TITime modTime);
    KL::Guid FolderGuid(const IO::Location& location) const;

    LibrarySet* librarySet;
    std::int32_t libraryIndex;
    IOUtil::ScratchFile* cacheStream;
    KL::Array<LibraryCacheEntry>* cacheEntries;
    std::int32_t firstPartIndex;
    std::int32_t firstFolderIndex;
    std::int32_t storedPartCount = 0;
    bool interrupted = false;
    bool insideContainer = false;
    KL::ProcessControl& processControl;
    IO::Location rootLocation;
    // Folder set index of each open folder, the library root first. It grows with the walk, so no
    // depth of nesting can run past its end.
    std::vector<std::int32_t> folderStack;
    IServerLibraryCollection* serverCollection;
    // Present while Do runs.
    std::unique_ptr<IO::FileHeadPrefetcher> prefetcher;
};

// Run after a failed walk, to tell whether an over-long path was the cause.
class LM_EXPORT LongFilenameEnumerator : public IO::TreeEnumerator {
public:
    // Names and their separators may add up to this many characters.
    static constexpr std::size_t MaxPathLength = 260;

    explicit LongFilenameEnumerator(const IO::Folder& root);
    ~LongFilenameEnumerator() override;

    // What a path counts against the limit: each name and one separator.
    static std::size_t PathLength(const IO::Location& location);

    bool EntryFound(const IO::Name& name, bool isFolder) override;
    bool IsLongFilenameFound() const { return longFilenameFound; }

private:
    bool longFilenameFound = false;
};

} // namespace LM
