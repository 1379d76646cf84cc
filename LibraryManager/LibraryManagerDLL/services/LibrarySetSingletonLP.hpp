#pragma once

#include "catalogue/LibrarySet.hpp"
#include "services/FileTypeIDs.hpp"

#include "InputOutput/FileType.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"
#include "QDL/FileInterfaces.hpp"

namespace FTM {
class FileTypeManager;
}
namespace KL {
class ProcessControl;
}

namespace LM {

class DefLibraryErrorHandler;
class FileServices;
class IFileTypeInitializer;
class LibraryContainerVFSOptions;
class QdlBinCodesContainer;

using ::BinaryCachingInMemory;
using ::BinaryCachingMode;
using ::BinaryCachingOnDisk;

// The owner through which a host brings the library manager up and down: it registers the file
// types, fills the process-wide records and owns the one catalogue with everything around it.
class LM_EXPORT LibrarySetSingletonLP {
public:
    static constexpr int LibraryPartTypeCount = 9;

    LibrarySetSingletonLP();
    ~LibrarySetSingletonLP();
    // An owner is not copied: two copies would free the same catalogue twice.
    LibrarySetSingletonLP(const LibrarySetSingletonLP&) = delete;
    LibrarySetSingletonLP& operator=(const LibrarySetSingletonLP&) = delete;

    // `dataFolder` and `initializer` may be null; the initializer becomes this object's. Returns 0,
    // or -7003 when anything failed on the way; ExitLibraryManager frees what was made.
    int InitLibraryManager(BinaryCachingMode mode, FileServices** outFileServices, IO::Location* dataFolder,
                           IFileTypeInitializer* initializer);
    void ExitLibraryManager();

    // Convenience changes of the active libraries, each followed by an enumeration.
    short AddLibrary(KL::ProcessControl& process, const IO::Location& location, bool enumerate);
    short AddLibraries(KL::ProcessControl& process, const KL::Array<IO::Location>& locations);
    short RemoveLibrary(KL::ProcessControl& process, const IO::Location& location);
    short RemoveAllLibraries(KL::ProcessControl& process);

    LibrarySet::Modifier GetModifier() { return LibrarySet::Modifier(librarySet); }
    // Null outside InitLibraryManager ... ExitLibraryManager.
    const LibrarySet* GetLibrarySet() const { return librarySet; }
    LibrarySet* GetLibrarySet() { return librarySet; }
    FileServices* GetFileServices() const { return fileServices; }
    DefLibraryErrorHandler* GetLibraryErrorHandler() { return errorHandler; }
    const PublicIDs& GetPublicIDs() const { return publicIDs; }
    FTM::FileTypeManager* GetFileTypeManager() const { return fileTypeManager; }
    int SetLibraryContainerVFSOptions(const LibraryContainerVFSOptions& options);

private:
    void RegisterLibraryPartTypes();
    void RegisterListTypes();
    FTM::TypeID AddType(const char* name, const char* extensions, const char (&creator)[5],
                        const char (&type)[5], int resourceId = -1);
    static IO::Location CompiledScriptCacheFolder(BinaryCachingMode mode);
    static IO::Location DefaultDataFolder();

    LibrarySet* librarySet = nullptr;
    FileServices* fileServices = nullptr;
    DefLibraryErrorHandler* errorHandler = nullptr;
    QdlBinCodesContainer* binCodes = nullptr;
    FTM::FileTypeManager* fileTypeManager = nullptr;
    IFileTypeInitializer* fileTypeInitializer = nullptr;
    FTM::TypeID symbolTypes[LibraryPartTypeCount];
    FTM::TypeID extraPackageType;
    PublicIDs publicIDs;
};

} // namespace LM

// Hosts name it without a namespace.
using LM::LibrarySetSingletonLP;
