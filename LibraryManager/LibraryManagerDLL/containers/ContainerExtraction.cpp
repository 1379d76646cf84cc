#include "containers/ContainerExtraction.hpp"

#include "LibraryManagerErrors.hpp"
#include "containers/ContainerReader.hpp"
#include "database/DatabaseContainerChecks.hpp"
#include "database/DatabaseContainerPreferences.hpp"
#include "database/DatabaseLibraryContainerExtractor.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileSystem.hpp"
#include "InputOutput/IOErrors.hpp"
#include "InputOutput/Name.hpp"
#include "InputOutput/ZipChannel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/ProcessControl.hpp"

namespace LM {

namespace {

IO::Name LastNameOf(const IO::NameSequence& names) {
    IO::Name name;
    names.GetLastLocalName(&name);
    return name;
}

} // namespace

DummyProcessor::~DummyProcessor() = default;

LibraryContainerExtractor::LibraryContainerExtractor(KL::PlatformSign sign) : platform(sign) {}

LibraryContainerExtractor::~LibraryContainerExtractor() = default;

int LibraryContainerExtractor::Extract(KL::ProcessControl& process, KL::IChannel& channel,
                                       const IO::Location& destination, bool callerFlag, bool skipTopFolder,
                                       bool flattenFolders) {
    ContainerReader reader(this, callerFlag, skipTopFolder, &platform, flattenFolders);
    if (IO::fileSystem.CreateFolderTree(destination) != KL::NoError)
        return LibPartFileError;
    return reader.Read(process, channel, destination);
}

void LibraryContainerExtractor::FolderEntered(const FolderEntry&, const IO::Location& base,
                                              const IO::RelativeLocation& relative, bool) {
    paths.MeasureBase(base);
    paths.EnterFolder(LastNameOf(relative));
}

void LibraryContainerExtractor::FolderExited(const FolderEntry&, const IO::Location&,
                                             const IO::RelativeLocation& relative, bool) {
    paths.ExitFolder(LastNameOf(relative));
}

int LibraryContainerExtractor::ProcessFolder(KL::IChannel&, IO::File*, const FolderEntry&,
                                             const IO::Location& base, const IO::RelativeLocation& relative,
                                             bool, const KL::Array<InfoData*>*) {
    IO::Location target = base;
    target.Append(relative);
    return paths.MakeFolder(target) == KL::NoError ? 0 : LibPartFileError;
}

int LibraryContainerExtractor::ProcessFile(KL::IChannel& channel, IO::File* file, const FileEntry& entry,
                                           const IO::Location& base, const IO::RelativeLocation& relative,
                                           const KL::Array<InfoData*>*) {
    paths.MeasureBase(base);
    IO::Location regular = base;
    regular.Append(relative);
    IO::Location target;
    if (paths.FileTarget(base, regular, &target) != KL::NoError)
        failed = true;
    const ExtractionPaths::Written written = paths.WriteTarget(
        target, {entry.macType, entry.macCreator, entry.creationTime, entry.modificationTime},
        [&](IO::File& out) { return CopyContent(channel, file, entry, out); });
    if (written.dropped) {
        ++droppedFileCount;
    } else if (written.status != KL::NoError) {
        // A file that cannot be made is passed over; for want of permission the walk ends with -36.
        if (!failed && written.status == IO::AccessDeniedError)
            return SoftFailure;
    } else {
        ++extractedFileCount;
        ConvertExtractedText(target, entry.macType, platform);
    }
    return failed ? LibPartFileError : 0;
}

// Exactly the data length is written: a compressed stream that would inflate to more is cut
// there, so a hostile container cannot make a file larger than its record says.
int LibraryContainerExtractor::CopyContent(KL::IChannel& channel, IO::File* container, const FileEntry& entry,
                                           IO::File& target) {
    if ((entry.flags & CompressedFileFlag) != 0) {
        IO::ZipIChannel inflated(channel);
        return inflated.CopyTo(target.GetOutputChannel(), entry.dataLength);
    }
    if (container != nullptr && container == &channel)
        return container->CopyTo(target, entry.dataLength);
    return channel.CopyTo(target.GetOutputChannel(), entry.dataLength);
}

int ExtractContainer(KL::ProcessControl& process, KL::IChannel& channel, const IO::Location& destination,
                     bool callerFlag, bool skipTopFolder, KL::PlatformSign* platform, bool flattenFolders) {
    if (destination.IsEmpty())
        return LibPartFileError;
    LibraryContainerExtractor extractor(platform != nullptr ? *platform : KL::LittleEndianSign);
    return extractor.Extract(process, channel, destination, callerFlag, skipTopFolder, flattenFolders);
}

int ExtractContainer(KL::ProcessControl& process, const IO::Location& source, const IO::Location& destination,
                     bool callerFlag, bool skipTopFolder, KL::PlatformSign* platform, bool flattenFolders) {
    if (source.IsEmpty() || destination.IsEmpty())
        return LibPartFileError;
    if (ODB::FileDatabase::IsOwnFile(source) && IsDatabaseLibraryContainerFormatEnabled() &&
        CheckIfFileDatabaseContainer(source)) {
        DatabaseLibraryContainerExtractor extractor(source,
                                                    platform != nullptr ? *platform : KL::LittleEndianSign);
        return extractor.Extract(process, destination);
    }
    IO::File file(source);
    if (file.Open(IO::File::ReadMode) != KL::NoError)
        return 0; // kept as it always was: a source that cannot be opened is no error
    return ExtractContainer(process, file, destination, callerFlag, skipTopFolder, platform, flattenFolders);
}

int ExtractContainer(KL::ProcessControl& process, ODB::ConstRef<ODB::Object> owner,
                     const IO::Location& destination, KL::PlatformSign* platform) {
    DatabaseLibraryContainerExtractor extractor(std::move(owner),
                                                platform != nullptr ? *platform : KL::LittleEndianSign);
    return extractor.Extract(process, destination);
}

// A probe must not create what it looks for: a missing file is simply no container. Most
// locations probed are folders, so a reader is made only for a file that opens.
ContainerHeaderProbe::ContainerHeaderProbe(const IO::Location& location) {
    IO::File file(location);
    if (file.Open(IO::File::ReadMode) != KL::NoError)
        return;
    // The header is all a probe needs from what may be a large file.
    file.SetReadAhead(ContainerReader::RecordReadAhead);
    reader = std::make_unique<ContainerReader>(&nothing, false, false, nullptr, false);
    isContainer = reader->ReadHeader(file);
}

const ContainerHeader& ContainerHeaderProbe::GetHeader() const {
    return reader->GetHeader();
}

const KL::Array<InfoData*>& ContainerHeaderProbe::GetHeaderInfos() const {
    return reader->GetHeaderInfos();
}

bool CheckIfContainer(const IO::Location& location) {
    return ContainerHeaderProbe(location).IsContainer();
}

} // namespace LM
