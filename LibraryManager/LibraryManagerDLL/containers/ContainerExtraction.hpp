#pragma once

// Turning a container back into files, and the test of whether a file is a container at all.
#include "containers/ILibraryContainerProcessor.hpp"

#include "KLRoot/KLExport.hpp"

namespace IO {
class Location;
}

namespace LM {

// A processor that takes nothing: for walks that only read the header or check a file.
class LM_EXPORT DummyProcessor : public ILibraryContainerProcessor {
public:
    int ProcessFolder(KL::IChannel&, IO::File*, const FolderEntry&, const IO::Location&, const IO::RelativeLocation&,
                      bool, const KL::Array<InfoData*>*) override {
        return 0;
    }
    void FolderEntered(const FolderEntry&, const IO::Location&, const IO::RelativeLocation&, bool) override {}
    void FolderExited(const FolderEntry&, const IO::Location&, const IO::RelativeLocation&, bool) override {}
    int ProcessFile(KL::IChannel&, IO::File*, const FileEntry&, const IO::Location&, const IO::RelativeLocation&,
                    const KL::Array<InfoData*>*) override {
        return 0;
    }
    ~DummyProcessor() override;
};

// True when the file at `location` begins with a container header of a version this reader
// knows. Only the header and its INFO block are read; a file that cannot be opened is no container.
LM_EXPORT bool CheckIfContainer(const IO::Location& location);

} // namespace LM
