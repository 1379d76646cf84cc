#pragma once

// The receiver of a walk over a container file: the mounted file system builds its tables from
// it, extraction writes files, checks only look. Locations: `base` is the walk's base, `relative`
// the path inside the container with the entry's own name.
#include "containers/ContainerFormat.hpp"

#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"

namespace IO {
class File;
class Location;
class RelativeLocation;
} // namespace IO
namespace KL {
class IChannel;
}

namespace LM {

class LM_EXPORT ILibraryContainerProcessor {
public:
    // Results of the two Process calls: 0, SoftFailure for an entry that could not be taken (the
    // walk goes on and ends with it), anything else ends the walk.
    static constexpr int SoftFailure = -36;

    virtual int ProcessFolder(KL::IChannel& channel, IO::File* file, const FolderEntry& folder,
                              const IO::Location& base, const IO::RelativeLocation& relative,
                              bool subContainer, const KL::Array<InfoData*>* infos) = 0;
    virtual void FolderEntered(const FolderEntry& folder, const IO::Location& base,
                               const IO::RelativeLocation& relative, bool subContainer) = 0;
    virtual void FolderExited(const FolderEntry& folder, const IO::Location& base,
                              const IO::RelativeLocation& relative, bool subContainer) = 0;
    // The channel stands at the start of the content; a processor may read it or leave it.
    virtual int ProcessFile(KL::IChannel& channel, IO::File* file, const FileEntry& entry,
                            const IO::Location& base, const IO::RelativeLocation& relative,
                            const KL::Array<InfoData*>* infos) = 0;
    virtual ~ILibraryContainerProcessor();

    // Read after each folder: true visits no children of folders.
    bool skipContents = false;
    bool failed = false;
};

} // namespace LM
