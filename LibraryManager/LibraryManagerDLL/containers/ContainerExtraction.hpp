#pragma once

// Turning a container back into files, and the test of whether a file is a container at all.
//
// Extraction writes only below its destination: the walk hands it names that are never empty,
// ".", ".." or separator-bearing, and a link that stands where a folder or file is to go is
// removed instead of followed, so nothing that the destination already holds can lead outside.
// Paths that would pass the system's length limit go to numbered side folders of the destination.
#include "containers/ExtractionPaths.hpp"
#include "containers/ILibraryContainerProcessor.hpp"

#include "ObjectDatabase/Ref.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Channel.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <memory>

namespace KL {
class ProcessControl;
}

namespace LM {

class ContainerReader;

// A processor that takes nothing: for walks that only read the header or check a file.
class LM_EXPORT DummyProcessor : public ILibraryContainerProcessor {
public:
    int ProcessFolder(KL::IChannel&, IO::File*, const FolderEntry&, const IO::Location&,
                      const IO::RelativeLocation&, bool, const KL::Array<InfoData*>*) override {
        return 0;
    }
    void FolderEntered(const FolderEntry&, const IO::Location&, const IO::RelativeLocation&, bool) override {}
    void FolderExited(const FolderEntry&, const IO::Location&, const IO::RelativeLocation&, bool) override {}
    int ProcessFile(KL::IChannel&, IO::File*, const FileEntry&, const IO::Location&,
                    const IO::RelativeLocation&, const KL::Array<InfoData*>*) override {
        return 0;
    }
    ~DummyProcessor() override;
};

// Writes every folder and file a walk delivers below the walk's base.
class LM_EXPORT LibraryContainerExtractor : public ILibraryContainerProcessor {
public:
    explicit LibraryContainerExtractor(KL::PlatformSign platform = KL::LittleEndianSign);
    ~LibraryContainerExtractor() override;

    // Makes `destination` if missing and walks the container of `channel` into it: the result of
    // ExtractContainer below.
    int Extract(KL::ProcessControl& process, KL::IChannel& channel, const IO::Location& destination,
                bool callerFlag, bool skipTopFolder, bool flattenFolders);

    int ProcessFolder(KL::IChannel& channel, IO::File* file, const FolderEntry& folder,
                      const IO::Location& base, const IO::RelativeLocation& relative, bool subContainer,
                      const KL::Array<InfoData*>* infos) override;
    void FolderEntered(const FolderEntry& folder, const IO::Location& base,
                       const IO::RelativeLocation& relative, bool subContainer) override;
    void FolderExited(const FolderEntry& folder, const IO::Location& base,
                      const IO::RelativeLocation& relative, bool subContainer) override;
    int ProcessFile(KL::IChannel& channel, IO::File* file, const FileEntry& entry, const IO::Location& base,
                    const IO::RelativeLocation& relative, const KL::Array<InfoData*>* infos) override;

    int GetExtractedFileCount() const { return extractedFileCount; }
    // Files whose content could not be read whole: made, then removed again.
    int GetDroppedFileCount() const { return droppedFileCount; }

private:
    int CopyContent(KL::IChannel& channel, IO::File* container, const FileEntry& entry, IO::File& target);

    KL::PlatformSign platform;
    ExtractionPaths paths;
    int extractedFileCount = 0;
    int droppedFileCount = 0;
};

// Writes the container read from `channel` below `destination`, made if missing. `callerFlag`
// goes to the reader unread. A null platform means 0x5757. 0, -36 when some files could not be
// made for want of permission, -7003 on failure.
LM_EXPORT int ExtractContainer(KL::ProcessControl& process, KL::IChannel& channel,
                               const IO::Location& destination, bool callerFlag, bool skipTopFolder,
                               KL::PlatformSign* platform, bool flattenFolders);
// The same from a container file of either kind; a source that cannot be opened gives 0, and
// nothing is made. A database container is written out while the format is enabled, and the
// three flags do not apply to it.
LM_EXPORT int ExtractContainer(KL::ProcessControl& process, const IO::Location& source,
                               const IO::Location& destination, bool callerFlag, bool skipTopFolder,
                               KL::PlatformSign* platform, bool flattenFolders);
// The database container under `owner` in a host's database, into the existing folder
// `destination`: 0, or -7003 when there is no container or no such folder.
LM_EXPORT int ExtractContainer(KL::ProcessControl& process, ODB::ConstRef<ODB::Object> owner,
                               const IO::Location& destination, KL::PlatformSign* platform);

// The header of the container file at `location`, read with its INFO block and nothing else.
class ContainerHeaderProbe {
public:
    explicit ContainerHeaderProbe(const IO::Location& location);
    ContainerHeaderProbe(const ContainerHeaderProbe&) = delete;
    ContainerHeaderProbe& operator=(const ContainerHeaderProbe&) = delete;

    // Whether the file begins with a header of a version this reader knows; the header and its
    // items are there only then.
    bool IsContainer() const { return isContainer; }
    const ContainerHeader& GetHeader() const;
    const KL::Array<InfoData*>& GetHeaderInfos() const;

private:
    DummyProcessor nothing;
    std::unique_ptr<ContainerReader> reader;
    bool isContainer = false;
};

// True when the file at `location` begins with a container header of a version this reader
// knows. Only the header and its INFO block are read; a file that cannot be opened is no container.
LM_EXPORT bool CheckIfContainer(const IO::Location& location);

} // namespace LM
