#include "containers/ContainerExtraction.hpp"

#include "LibraryManagerErrors.hpp"
#include "containers/ContainerReader.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileSystem.hpp"
#include "InputOutput/FileType.hpp"
#include "InputOutput/IOErrors.hpp"
#include "InputOutput/Name.hpp"
#include "InputOutput/ZipChannel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/ProcessControl.hpp"

#include <cstdio>

namespace LM {

namespace {

IO::Location ParentOf(const IO::Location& location) {
    IO::Location parent = location;
    parent.DeleteLastLocalName();
    return parent;
}

IO::Name LastNameOf(const IO::NameSequence& names) {
    IO::Name name;
    names.GetLastLocalName(&name);
    return name;
}

// Makes the folder `name` in `parent`. A link standing there is removed, never followed: it may
// lead outside the destination.
int MakeOwnFolder(IO::Folder& parent, const IO::Name& name) {
    const int made = parent.CreateFolder(name);
    if (made != IO::AlreadyExistsError)
        return made;
    IO::EntryType type = IO::FileEntryType;
    if (const int err = parent.GetEntryType(name, &type); err != KL::NoError)
        return err;
    if (type == IO::FolderEntryType)
        return KL::NoError;
    if (type != IO::LinkEntryType)
        return IO::WrongKindError;
    if (const int err = parent.Delete(name); err != KL::NoError)
        return err;
    return parent.CreateFolder(name);
}

int MakeOwnFolder(const IO::Location& location) {
    IO::Folder parent(ParentOf(location));
    if (parent.GetStatus() != KL::NoError)
        return parent.GetStatus();
    return MakeOwnFolder(parent, LastNameOf(location));
}

// "a.txt" as "a-2.txt", "a" as "a-2".
IO::Name NumberedName(const IO::Name& name, int number) {
    const std::string suffix = "-" + std::to_string(number);
    if (!name.HasExtension())
        return IO::Name(name.ToUTF8() + suffix);
    return IO::Name(name.GetBase().ToUTF8() + suffix + "." + name.GetExtension().ToUTF8());
}

bool IsConvertibleText(const FileEntry& entry, const IO::Name& name) {
    const auto type = static_cast<std::uint32_t>(entry.macType);
    if (type == FTM::MakeCode("TEXT"))
        return true;
    if (type == FTM::MakeCode("CRIT"))
        return false;
    return HasExtensionAmong(name, {"txt", "lis"});
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

void LibraryContainerExtractor::MeasureBase(const IO::Location& base) {
    if (basePathLength != 0)
        return;
    for (std::size_t i = 0; i < base.GetLength(); ++i) {
        IO::Name name;
        base.GetLocalName(i, &name);
        basePathLength += static_cast<int>(name.GetLength()) + 1;
    }
}

int LibraryContainerExtractor::FolderNameLength(const IO::RelativeLocation& relative) const {
    return static_cast<int>(LastNameOf(relative).GetLength()) + 1;
}

void LibraryContainerExtractor::FolderEntered(const FolderEntry&, const IO::Location& base,
                                              const IO::RelativeLocation& relative, bool) {
    MeasureBase(base);
    folderPathLength += FolderNameLength(relative);
}

void LibraryContainerExtractor::FolderExited(const FolderEntry&, const IO::Location&,
                                             const IO::RelativeLocation& relative, bool) {
    folderPathLength -= FolderNameLength(relative);
}

int LibraryContainerExtractor::ProcessFolder(KL::IChannel&, IO::File*, const FolderEntry&,
                                             const IO::Location& base, const IO::RelativeLocation& relative,
                                             bool, const KL::Array<InfoData*>*) {
    if (basePathLength + folderPathLength >= MaxFolderPathLength) {
        inSpecFolder = true;
        return 0;
    }
    inSpecFolder = false;
    IO::Location target = base;
    target.Append(relative);
    return MakeOwnFolder(target) == KL::NoError ? 0 : LibPartFileError;
}

int LibraryContainerExtractor::ProcessFile(KL::IChannel& channel, IO::File* file, const FileEntry& entry,
                                           const IO::Location& base, const IO::RelativeLocation& relative,
                                           const KL::Array<InfoData*>*) {
    MeasureBase(base);
    const IO::Name name = LastNameOf(relative);
    const bool overflows =
        inSpecFolder ||
        basePathLength + folderPathLength + static_cast<int>(name.GetLength()) >= MaxFilePathLength;
    IO::Location target = base;
    if (!overflows)
        target.Append(relative);
    else if (SideFolderTarget(base, name, &target) != KL::NoError)
        failed = true;

    // A file that cannot be made is passed over; for want of permission the walk ends with -36.
    const auto refused = [this](int err) {
        if (failed)
            return LibPartFileError;
        return err == IO::AccessDeniedError ? SoftFailure : 0;
    };
    if (const int err = MakeTarget(target); err != KL::NoError)
        return refused(err);
    IO::File out(target);
    if (const int err = out.Open(IO::File::WriteMode); err != KL::NoError)
        return refused(err);
    const int copied = CopyContent(channel, file, entry, out);
    const int closed = out.Close();
    if (copied != KL::NoError || closed != KL::NoError) {
        targetFolder.Delete(LastNameOf(target));
        ++droppedFileCount;
    } else {
        if (entry.macType != 0 || entry.macCreator != 0)
            out.SetTypeInfo(static_cast<std::uint32_t>(entry.macType),
                            static_cast<std::uint32_t>(entry.macCreator));
        out.SetCreationTime(entry.creationTime.ConvertToKLTime());
        out.SetModificationTime(entry.modificationTime.ConvertToKLTime());
        ++extractedFileCount;
        ConvertText(target, entry);
    }
    return failed ? LibPartFileError : 0;
}

int LibraryContainerExtractor::SideFolderTarget(const IO::Location& base, const IO::Name& name,
                                                IO::Location* target) {
    int made = KL::NoError;
    if (specFileCount == 0 || ++specFileCount >= SideFolderCapacity) {
        specFileCount = 1;
        ++specFolderIndex;
        std::snprintf(specFolderName, sizeof specFolderName, "0000-%d", specFolderIndex);
        made = MakeOwnFolder(base + IO::Name(specFolderName));
    }
    *target = base + IO::Name(specFolderName);
    IO::Folder folder(*target);
    IO::Name unused = name;
    for (int number = 2; folder.Contains(unused); ++number)
        unused = NumberedName(name, number);
    const int appended = target->Append(unused);
    return made != KL::NoError ? made : appended;
}

// The target is made anew: whatever stood at its name is removed first, since writing through it
// could reach outside the destination (a link) or change a file elsewhere (a second hard link).
int LibraryContainerExtractor::MakeTarget(const IO::Location& target) {
    const IO::Location parent = ParentOf(target);
    if (targetFolder.GetLocation() != parent)
        targetFolder = IO::Folder(parent);
    const IO::Name name = LastNameOf(target);
    int made = targetFolder.CreateFile(name);
    if (made == IO::AlreadyExistsError && targetFolder.Delete(name) == KL::NoError)
        made = targetFolder.CreateFile(name);
    return made;
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

void LibraryContainerExtractor::ConvertText(IO::Location target, const FileEntry& entry) const {
    const auto convert = GetLibraryManagerCallBacks().convertExtractedFile;
    if (platform == KL::LittleEndianSign || convert == nullptr ||
        !IsConvertibleText(entry, LastNameOf(target)))
        return;
    convert(target, platform);
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
    // Database containers join here once they are served.
    IO::File file(source);
    if (file.Open(IO::File::ReadMode) != KL::NoError)
        return 0; // kept as it always was: a source that cannot be opened is no error
    return ExtractContainer(process, file, destination, callerFlag, skipTopFolder, platform, flattenFolders);
}

// A check must not create what it looks for: a missing file is simply no container.
bool CheckIfContainer(const IO::Location& location) {
    IO::File file(location);
    if (file.Open(IO::File::ReadMode) != KL::NoError)
        return false;
    // The header is all a check needs from what may be a large file.
    file.SetReadAhead(ContainerReader::RecordReadAhead);
    DummyProcessor nothing;
    ContainerReader reader(&nothing, false, false, nullptr, false);
    return reader.ReadHeader(file);
}

} // namespace LM
