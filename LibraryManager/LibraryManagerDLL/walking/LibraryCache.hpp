#pragma once

// The library cache: for each library, what its walk stored (the part stream), the folders it
// added (the folder stream), and every file it used with its time (the validity stream), so that
// a library that did not change is replayed without opening a part file. Formats:
// docs/formats/library-cache.md. The cache lives beside the compiled scripts and is on exactly
// when they have a folder. A crash while writing leaves no validity stream that could pair with
// new or half-written streams: the validity stream goes first and comes back last.
#include "walking/LibraryCacheEntry.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

namespace IO {
class Folder;
}
namespace KL {
class IChannel;
class OChannel;
class ProcessControl;
} // namespace KL

namespace LM {

class LibrarySet;

class LM_EXPORT LibraryCachePaths {
public:
    // Creates the cache's folders below `binCodeFolder`; an empty folder turns the cache off.
    explicit LibraryCachePaths(const IO::Location& binCodeFolder);

    bool IsEnabled() const { return enabled; }
    // The three streams of the library named `name`; empty when the cache is off or the name
    // makes no file name.
    IO::Location PartStream(const KL::UniString& name) const { return In(rootFolder, name); }
    IO::Location ValidityStream(const KL::UniString& name) const { return In(dataFolder, name); }
    IO::Location FolderStream(const KL::UniString& name) const { return In(folderSetFolder, name); }

    // True when the library in `folder` is as its validity stream describes it; mounts the
    // containers it holds when it is.
    bool CheckValidity(KL::ProcessControl& process, const IO::Folder& folder, LibrarySet* librarySet,
                       const IO::Location& partStream) const;
    int WriteValidity(const KL::UniString& name, const IO::Location& libraryLocation,
                      const IO::Folder& folder, const KL::Array<LibraryCacheEntry>& entries) const;
    // Removes the validity stream before a walk rewrites the others.
    void DropValidity(const KL::UniString& name) const;

    // The validity stream's body; Read refuses what the bytes cannot hold before allocating.
    static int WriteValidityStream(KL::OChannel& channel, const IO::Location& libraryLocation,
                                   TITime folderTime, const KL::Array<LibraryCacheEntry>& entries);
    static int ReadValidityStream(KL::IChannel& channel, IO::Location* libraryLocation, TITime* folderTime,
                                  KL::Array<LibraryCacheEntry>* entries);

private:
    static IO::Location In(const IO::Location& folder, const KL::UniString& name);

    bool enabled = false;
    IO::Location rootFolder;
    IO::Location dataFolder;
    IO::Location folderSetFolder;
};

} // namespace LM
