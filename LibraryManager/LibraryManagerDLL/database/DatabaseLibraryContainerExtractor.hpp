#pragma once

// Writes the files of a database container out below a destination folder, by the path rules of
// every extraction (side folders for paths that are too long, numbered names). It walks the
// container's objects directly, without mounting it; a folder with no children is not made.
//
// Names come from the database and are not trusted: an entry whose name is not a plain name is
// passed over, and a folder met twice or a tree deeper than any path ends its branch, so that
// nothing is written outside the destination and a damaged tree cannot recurse forever.
#include "DatabaseLibraryContainerErrorHandler.hpp"
#include "containers/ExtractionPaths.hpp"
#include "database/DatabaseLibraryContainerEntries.hpp"

#include "ObjectDatabase/FileDatabase.hpp"
#include "ObjectDatabase/IdSpace.hpp"
#include "ObjectDatabase/Ref.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Channel.hpp"
#include "KLRoot/KLExport.hpp"

#include <memory>
#include <unordered_set>

namespace KL {
class ProcessControl;
}

namespace LM {

class LM_EXPORT DatabaseLibraryContainerExtractor {
public:
    // Opens the container's database file read-only; its faults pass out as the container
    // exceptions.
    DatabaseLibraryContainerExtractor(const IO::Location& location, KL::PlatformSign platform);
    // The container under `owner` in a host's database.
    DatabaseLibraryContainerExtractor(ODB::ConstRef<ODB::Object> owner, KL::PlatformSign platform);
    virtual ~DatabaseLibraryContainerExtractor();
    DatabaseLibraryContainerExtractor(const DatabaseLibraryContainerExtractor&) = delete;
    DatabaseLibraryContainerExtractor& operator=(const DatabaseLibraryContainerExtractor&) = delete;

    // 0 once the walk ran, whatever files failed (see HasFailed); -7003 when `destination` is no
    // folder or there is no container.
    int Extract(KL::ProcessControl& process, const IO::Location& destination);

    bool HasFailed() const { return failed; }
    bool WasAccessDenied() const { return accessDenied; }
    int GetExtractedFileCount() const { return extractedFileCount; }
    // Files whose content could not be written whole: made, then removed again.
    int GetDroppedFileCount() const { return droppedFileCount; }

private:
    int ProcessDatabaseLibraryContainer(KL::ProcessControl& process);
    int ProcessDLCEntry(const ODB::ConstRef<DatabaseLibraryContainerEntry>& entry,
                        const IO::Location& location, int depth);
    int ExtractFile(const IO::Location& location,
                    const ODB::ConstRef<DatabaseLibraryContainerLibPartHeader>& header);
    int ExtractFolder(const IO::Location& location);

    std::unique_ptr<ODB::IdSpace> idSpace;
    std::unique_ptr<DatabaseLibraryContainerErrorHandler> errorHandler;
    std::unique_ptr<ODB::FileDatabase> fileDatabase;
    IO::Location destination;
    bool failed = false;
    bool accessDenied = false;
    KL::PlatformSign platform;
    ODB::ConstRef<ODB::Object> owner;
    ExtractionPaths paths;
    std::unordered_set<ODB::Id> walkedFolders;
    int extractedFileCount = 0;
    int droppedFileCount = 0;
};

} // namespace LM
