#pragma once

#include "catalogue/LibrarySet.hpp"
#include "services/FileTypeIDs.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"

namespace LM {

// What the script engine asks of the catalogue: macros, pictures, parameters and compiled code
// by name. Start-up creates one per catalogue and hands it to the host; it holds the catalogue,
// the folder for data files that scripts write, the file type ids it tells files apart by, and
// the variable handle scripts start from. The engine's calls are answered through it once the
// file references land.
class LM_EXPORT FileServices {
public:
    // Takes over `variables`.
    FileServices(LibrarySet* librarySet, const IO::Location& dataFolder, const FileTypeIDS& fileTypes,
                 GSHandle variables);
    ~FileServices();
    FileServices(const FileServices&) = delete;
    FileServices& operator=(const FileServices&) = delete;

    LibrarySet* GetLibrarySet() const { return librarySet; }
    // Script threads get no more than this from the catalogue.
    LibrarySet::ThreadSafeModifier GetLibSetThreadSafeModifier() const {
        return LibrarySet::ThreadSafeModifier(librarySet);
    }
    const IO::Location& GetDataFolder() const { return dataFolder; }
    const FileTypeIDS& GetFileTypeIDs() const { return fileTypes; }
    GSHandle GetVariables() const { return variables.Get(); }

private:
    LibrarySet* librarySet;
    IO::Location dataFolder;
    FileTypeIDS fileTypes;
    KL::ScopedHandle variables;
};

} // namespace LM

// Hosts name it without a namespace.
using LM::FileServices;
