#include "LibraryContainerVFS.hpp"

#include "containers/ContainerReader.hpp"
#include "containers/LCFEntries.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileSystem.hpp"
#include "InputOutput/IOErrors.hpp"
#include "InputOutput/ZipChannel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/ProcessControl.hpp"
#include "KLUtils/ScratchFile.hpp"
#include "LibraryManagerErrors.hpp"

#include <algorithm>
#include <vector>

namespace LM {

namespace {

constexpr const char* UnzipFolderName = "LCFZIP";
constexpr std::size_t CopyBufferSize = 64 * 1024;

IO::Location ParentOf(const IO::Location& location) {
    IO::Location parent = location;
    parent.DeleteLastLocalName();
    return parent;
}

IO::Location Joined(const IO::Location& base, const IO::RelativeLocation& relative) {
    IO::Location location = base;
    location.Append(relative);
    return location;
}

IO::Name LastNameOf(const IO::Location& location) {
    IO::Name name;
    location.GetLastLocalName(&name);
    return name;
}

// Inflates at most `length` bytes: the record says how long the file is, and a stream that claims
// more is not allowed to fill the disk.
int Inflate(KL::IChannel& compressed, std::uint32_t length, KL::OChannel& out) {
    IO::ZipIChannel inflated(compressed);
    std::vector<char> buffer(CopyBufferSize);
    for (std::uint64_t left = length; left > 0;) {
        std::uint64_t got = 0;
        if (const int err =
                inflated.ReadUpTo(buffer.data(), std::min<std::uint64_t>(left, buffer.size()), &got);
            err != KL::NoError)
            return err;
        if (got == 0)
            break;
        out.WriteBin(buffer.data(), got);
        left -= got;
    }
    return out.GetStatus();
}

} // namespace

LibraryContainerVFS::LibraryContainerVFS(const LibraryContainerVFSOptions& options) : options(options) {}

LibraryContainerVFS::~LibraryContainerVFS() {
    Unmounted();
    CleanUp();
}

void LibraryContainerVFS::Mounted(const IO::Location& location) {
    if (mounted)
        return;
    IO::File file(location);
    if (file.Open(IO::File::ReadMode) != KL::NoError)
        return;
    KL::NonInterruptibleProcessControl ownProcess;
    Mounted(processControl != nullptr ? *processControl : ownProcess, location, file);
}

int LibraryContainerVFS::Mounted(KL::ProcessControl& process, const IO::Location& location, IO::File& file) {
    // A walk again after one that failed starts from clean tables.
    if (connectedCount == 0)
        CleanUp();
    containerFile = std::make_unique<IO::File>(location);
    const IO::BackingFileFacts facts = IO::ReadBackingFileFacts(*containerFile);
    if (facts.creationTime != 0)
        creationTime = facts.creationTime;
    if (facts.modificationTime != 0)
        modificationTime = facts.modificationTime;
    onLocalVolume = facts.onLocalVolume;
    onFixedVolume = facts.onFixedVolume;
    containerFile->Open(IO::File::ReadMode);

    ownLocation = location;
    auto root = std::make_unique<FolderData>();
    root->location = location;
    subContainerStack.Clear();
    subContainerStack.Push(root.get());
    folderTable.Put(location, std::move(root));

    ContainerReader reader(this, true, false, nullptr, false);
    const int result = reader.Read(process, file, location);
    subContainerStack.Clear();
    mounted = result == 0 || result == SoftFailure;
    return result;
}

// The first folder of a path wins: a later one of the same path is dropped with its infos.
int LibraryContainerVFS::ProcessFolder(KL::IChannel&, IO::File* file, const FolderEntry&,
                                       const IO::Location& base, const IO::RelativeLocation& relative,
                                       bool subContainer, const KL::Array<InfoData*>* infos) {
    if (file == nullptr)
        return LibPartFileError;
    const IO::Location location = Joined(base, relative);
    auto folder = std::make_unique<FolderData>();
    folder->location = location;
    folder->isSubContainer = subContainer;
    if (infos != nullptr)
        folder->infos.PushAll(*infos);
    FolderData* entered = folder.get();
    if (!folderTable.ContainsKey(location)) {
        const std::unique_ptr<FolderData>* parent = folderTable.GetPtr(ParentOf(location));
        if (parent == nullptr)
            return LibPartFileError;
        (*parent)->subfolders.Put(LastNameOf(location), entered);
        folderTable.Put(location, std::move(folder));
    }
    // The stack follows the walk even for a dropped duplicate, so that FolderExited pops evenly.
    if (subContainer)
        subContainerStack.Push(folderTable.GetPtr(location)->get());
    return 0;
}

void LibraryContainerVFS::FolderEntered(const FolderEntry&, const IO::Location&, const IO::RelativeLocation&,
                                        bool) {}

void LibraryContainerVFS::FolderExited(const FolderEntry&, const IO::Location&, const IO::RelativeLocation&,
                                       bool subContainer) {
    if (subContainer && subContainerStack.GetSize() > 1)
        subContainerStack.DeleteLast();
}

int LibraryContainerVFS::ProcessFile(KL::IChannel&, IO::File* file, const FileEntry& entry,
                                     const IO::Location& base, const IO::RelativeLocation& relative,
                                     const KL::Array<InfoData*>* infos) {
    if (file == nullptr)
        return LibPartFileError;
    const IO::Location location = Joined(base, relative);
    std::unique_ptr<FolderData>* parent = folderTable.GetPtr(ParentOf(location));
    if (parent == nullptr)
        return LibPartFileError;
    auto data = std::make_unique<FileData>();
    data->location = location;
    data->macType = static_cast<std::uint32_t>(entry.macType);
    data->macCreator = static_cast<std::uint32_t>(entry.macCreator);
    data->dataLength = entry.dataLength;
    data->creationTime = entry.creationTime.ConvertToKLTime();
    data->modificationTime = entry.modificationTime.ConvertToKLTime();
    data->isZipped = (entry.flags & CompressedFileFlag) != 0;
    if (infos != nullptr)
        data->infos.PushAll(*infos);
    if (const int err = file->GetPosition(&data->contentPosition); err != KL::NoError)
        return LibPartFileError;
    data->owner = subContainerStack.GetLast();
    // The first file of a path wins.
    FileData* entered = data.get();
    if (fileTable.Add(location, std::move(data)))
        (*parent)->files.Put(LastNameOf(location), entered);
    return 0;
}

int LibraryContainerVFS::Connect(IO::Location* location, IO::FolderEntry** entry) {
    *entry = nullptr;
    std::lock_guard guard(connectLock);
    const std::unique_ptr<FolderData>* folder = folderTable.GetPtr(*location);
    if (folder == nullptr)
        return NoSuchEntry;
    *entry = new LCFFolderEntry(this, folder->get());
    ++connectedCount;
    return Connected;
}

int LibraryContainerVFS::Connect(IO::Location* location, IO::FileEntry** entry) {
    *entry = nullptr;
    std::lock_guard guard(connectLock);
    const std::unique_ptr<FileData>* found = fileTable.GetPtr(*location);
    if (found == nullptr)
        return NoSuchEntry;
    FileData* data = found->get();
    if (data->isZipped) {
        if (data->unzippedLocation.IsEmpty() &&
            ExtractZippedFile(data, &data->unzippedLocation) != KL::NoError) {
            data->unzippedLocation.Clear();
            return NoSuchEntry;
        }
        *entry = new LCFUnzippedFileEntry(this, data, data->unzippedLocation);
    } else {
        *entry = new LCFFileEntry(this, data, ownLocation);
    }
    ++connectedCount;
    return Connected;
}

void LibraryContainerVFS::Disconnect(IO::FileEntry* entry) {
    delete entry;
    EntryGone();
}

void LibraryContainerVFS::Disconnect(IO::FolderEntry* entry) {
    delete entry;
    EntryGone();
}

void LibraryContainerVFS::EntryGone() {
    std::lock_guard guard(connectLock);
    if (--connectedCount == 0 && unmountPending)
        mounted = false;
    // Tables stay while any entry still points into them.
    if (!mounted && connectedCount == 0)
        CleanUp();
}

// With entries still connected the tables stay for them; the container file is let go at once.
void LibraryContainerVFS::Unmounted() {
    std::lock_guard guard(connectLock);
    if (connectedCount > 0) {
        unmountPending = true;
        containerFile.reset();
    } else {
        mounted = false;
    }
}

bool LibraryContainerVFS::IsFolderSubContainer(const IO::Location& location) const {
    const std::unique_ptr<FolderData>* folder = folderTable.GetPtr(location);
    return folder != nullptr && (*folder)->isSubContainer;
}

const KL::Array<InfoData*>* LibraryContainerVFS::GetInfoForLocation(const IO::Location& location) const {
    if (const std::unique_ptr<FolderData>* folder = folderTable.GetPtr(location))
        return &(*folder)->infos.Get();
    if (const std::unique_ptr<FileData>* file = fileTable.GetPtr(location))
        return &(*file)->infos.Get();
    return nullptr;
}

// Each container gets a folder of its own under "LCFZIP" in the options' folder; it goes with the
// mount.
IO::Folder* LibraryContainerVFS::GetUnzipTempFolder() {
    if (unzipTempFolder != nullptr)
        return unzipTempFolder.get();
    const IO::Folder optionsFolder(options.GetUnzipTempFolderLoc(), IO::Folder::Create);
    IO::Folder zipFolder(options.GetUnzipTempFolderLoc() + IO::Name(UnzipFolderName), IO::Folder::Create);
    IO::Name name;
    if (optionsFolder.GetStatus() != KL::NoError || zipFolder.GetStatus() != KL::NoError ||
        zipFolder.GenerateUnusedNameFromString(LastNameOf(ownLocation).GetBase(), &name) != KL::NoError ||
        zipFolder.CreateFolder(name) != KL::NoError)
        return nullptr;
    unzipTempFolder = std::make_unique<IO::Folder>(zipFolder.GetLocation() + name);
    return unzipTempFolder->GetStatus() == KL::NoError ? unzipTempFolder.get() : nullptr;
}

int LibraryContainerVFS::ExtractZippedFile(const FileData* data, IO::Location* out) {
    IO::Folder* folder = GetUnzipTempFolder();
    if (folder == nullptr || containerFile == nullptr)
        return IO::NotAvailableError;
    IO::Name name;
    if (const int err = folder->GenerateUnusedNameFromString(LastNameOf(data->location).GetBase(), &name);
        err != KL::NoError)
        return err;
    IOUtil::ScratchFile copy(folder->GetLocation() + name);
    if (const int err = copy.Open(IO::File::WriteMode); err != KL::NoError)
        return err;
    if (const int err = containerFile->SetPosition(data->contentPosition); err != KL::NoError)
        return err;
    if (const int err = Inflate(*containerFile, data->dataLength, copy.GetOutputChannel());
        err != KL::NoError)
        return err;
    if (const int err = copy.MakePermanent(); err != KL::NoError)
        return err;
    *out = copy.GetLocation();
    return KL::NoError;
}

void LibraryContainerVFS::CleanUp() {
    fileTable.Clear();
    folderTable.Clear();
    if (unzipTempFolder != nullptr) {
        const IO::Location location = unzipTempFolder->GetLocation();
        unzipTempFolder->DeleteAll();
        unzipTempFolder.reset();
        IO::Folder(ParentOf(location)).Delete(LastNameOf(location));
    }
    containerFile.reset();
}

} // namespace LM
