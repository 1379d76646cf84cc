#include "containers/ContainerWriter.hpp"

#include "LibraryManagerErrors.hpp"
#include "catalogue/LibPart.hpp"
#include "catalogue/LibrarySet.hpp"
#include "containers/ContainerSource.hpp"
#include "containers/PackingFacts.hpp"
#include "database/DatabaseContainerBuilder.hpp"
#include "database/DatabaseContainerPreferences.hpp"
#include "lists/LibItemIterator.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/Name.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/MemoryChannel.hpp"
#include "KLRoot/ProcessControl.hpp"
#include "KLUtils/ScratchFile.hpp"

#include <limits>

namespace LM {

namespace {

constexpr int ContainerCreationProcessId = 84;
constexpr std::uint32_t FileFlags = 2;
constexpr std::int32_t FolderFlags = 2;
constexpr std::uint32_t CancelPollMask = 0xF;
constexpr std::uint64_t MaxContainerSize = std::numeric_limits<std::uint32_t>::max();

// A name as the format stores it: the IO::Name stream form, big-endian.
std::vector<char> NameField(const IO::Name& name) {
    KL::MemoryOChannel field(KL::BigEndianSign);
    name.Write(field);
    return field.TakeData();
}

// An embedded library goes under the process's name for them; a folder without a usable one, under
// its own.
IO::Name FolderName(const ContainerFolderRecord& folder) {
    if (folder.isEmbedded) {
        if (IO::Name embedded = DefaultEmbeddedFolderName(); embedded.IsValid())
            return embedded;
    }
    IO::Name name;
    folder.location.GetLastLocalName(&name);
    return name;
}

} // namespace

ContainerWriter::ContainerWriter(const LibrarySet* set, const ContainerWriteOptions& writeOptions)
    : librarySet(set), options(writeOptions) {}

ContainerWriter::~ContainerWriter() = default;

// ---- The tree

void ContainerWriter::BuildTree(const KL::HashTable<const LibPart*, bool>* selection) {
    if (librarySet == nullptr)
        return;
    AddRoots();
    if (roots.empty())
        return;
    for (LibItemIterator part(*librarySet, LibItemIterator::AllItems); part != nullptr; ++part) {
        if (IsPackedPart(*librarySet, selection, part.Get()))
            PlacePart(part.Get());
    }
    HoistSingleContainerLibrary();
}

void ContainerWriter::AddRoots() {
    for (int i = 0; i < librarySet->GetActiveLibraryNum(); ++i) {
        IO::Location location;
        if (!GetPackedLibraryLocation(*librarySet, i, &location))
            continue;
        auto root = std::make_unique<ContainerFolderRecord>();
        root->location = location;
        root->isEmbedded = librarySet->IsEmbeddedActiveLibrary(i);
        roots.push_back(std::move(root));
    }
}

void ContainerWriter::PlacePart(const LibPart* part) {
    auto record = std::make_unique<ContainerFileRecord>();
    record->libPart = part;
    record->location = part->GetLocation();
    const IO::Location& placement = part->GetOrigLocation();
    IO::Location parent = placement;
    parent.DeleteLastLocalName();
    ContainerFolderRecord* folder = nullptr;
    if (!folderTable.Get(parent, &folder)) {
        for (const auto& root : roots) {
            if (root->location == placement || root->location.IsAncestorOf(placement)) {
                folder = root.get();
                break;
            }
        }
    }
    // A part outside every library is left out, and not counted.
    if (folder == nullptr)
        return;
    AddPartUnder(*folder, placement, std::move(record));
    ++partCount;
}

void ContainerWriter::AddPartUnder(ContainerFolderRecord& folder, const IO::Location& placement,
                                   std::unique_ptr<ContainerFileRecord> record) {
    IO::RelativeLocation difference;
    if (placement.GetDifference(folder.location, &difference) != KL::NoError)
        return;
    if (difference.GetLength() <= 1) {
        folder.files.push_back(std::move(record));
        return;
    }
    IO::Location parent = placement;
    parent.DeleteLastLocalName();
    for (const auto& subfolder : folder.subfolders) {
        if (subfolder->location == parent || subfolder->location.IsAncestorOf(parent)) {
            AddPartUnder(*subfolder, placement, std::move(record));
            return;
        }
    }
    IO::Name first;
    difference.GetLocalName(0, &first);
    AddPartUnder(AddSubfolder(folder, first), placement, std::move(record));
}

ContainerFolderRecord& ContainerWriter::AddSubfolder(ContainerFolderRecord& folder, const IO::Name& name) {
    auto subfolder = std::make_unique<ContainerFolderRecord>();
    subfolder->location = folder.location + name;
    subfolder->infos = NestedContainerInfos(subfolder->location);
    if (subfolder->infos.Get().IsEmpty()) {
        subfolder->isSubContainer = IsMountedSubContainer(subfolder->location);
        AddMountedFolderInfos(subfolder->location, &subfolder->infos);
    }
    subfolder->parent = &folder;
    folderTable.Put(subfolder->location, subfolder.get());
    folder.subfolders.push_back(std::move(subfolder));
    return *folder.subfolders.back();
}

// A single library that is itself a container would nest the container's own roots one level
// deeper; its level is dropped. "LIB" is not on the list, although readers treat it as a wrapper.
void ContainerWriter::HoistSingleContainerLibrary() {
    if (roots.size() != 1 || !roots.front()->files.empty())
        return;
    IO::Name last;
    if (roots.front()->location.GetLastLocalName(&last) != KL::NoError ||
        !HasExtensionAmong(last, {"LCF", "PLA"}))
        return;
    std::unique_ptr<ContainerFolderRecord> old = std::move(roots.front());
    roots.clear();
    for (auto& subfolder : old->subfolders) {
        subfolder->parent = nullptr;
        roots.push_back(std::move(subfolder));
    }
    old->subfolders.clear();
    retired.push_back(std::move(old));
}

// ---- Writing

int ContainerWriter::Write(KL::ProcessControl& process, IO::File& target) {
    file = &target;
    std::uint64_t start = 0;
    if (Position(&start) != KL::NoError)
        return LibPartFileError;
    out = &target.GetOutputChannel();
    reader = std::make_unique<ContentReader>(CollectSourcesInWriteOrder(),
                                             options.IsZipEnabled() ? std::optional(options.GetZipOptions())
                                                                    : std::nullopt);
    const bool started = !process.IsProcessRunning();
    if (started)
        process.StartProcess(ContainerCreationProcessId);
    process.SetTitle(GetLibraryManagerStrings().containerCreationTitle);
    process.SetStep(0);
    int result = WriteTree(process);
    if (started)
        process.EndProcess();
    reader.reset();
    if (result == KL::NoError)
        result = out->Flush();
    std::uint64_t end = start;
    if (result == KL::NoError)
        result = Position(&end);
    bytesWritten = end - start;
    out = nullptr;
    file = nullptr;
    return result == KL::NoError ? 0 : LibPartFileError;
}

int ContainerWriter::WriteTree(KL::ProcessControl& process) {
    ContainerHeader header;
    header.magic = static_cast<std::int32_t>(ContainerMagic);
    header.fileType = static_cast<std::int32_t>(ContainerFileTypeCode);
    header.versionH = 1;
    header.versionL = 0;
    header.partCount = partCount;
    header.headerSize = static_cast<std::int32_t>(ContainerHeader::Size);
    header.infoCount = 0;
    if (const int err = header.Write(*out); err != KL::NoError)
        return err;
    if (const int err = BeginBlock(MainTag, options.CreateTopFolder() ? 0 : HideTopFolderFlag);
        err != KL::NoError)
        return err;
    for (const auto& root : roots) {
        // An empty root leaves no trace, unlike an empty folder further down.
        if (root->IsEmpty())
            continue;
        ++blockStack.back().header.count;
        if (const int err = WriteFolder(process, *root); err != KL::NoError)
            return err;
    }
    return EndBlock();
}

int ContainerWriter::WriteFolder(KL::ProcessControl& process, const ContainerFolderRecord& folder) {
    if (cancelled)
        return LibPartFileError;
    if (const int err = BeginBlock(FolderTag, 0); err != KL::NoError)
        return err;
    const IO::Name name = FolderName(folder);
    const std::vector<char> nameField = NameField(name);
    FolderEntry record;
    record.flags = FolderFlags;
    record.recordSize = static_cast<std::int32_t>(FolderEntry::Size);
    record.nameLength = static_cast<std::uint32_t>(nameField.size());
    record.subfolderCount = static_cast<std::int32_t>(folder.subfolders.size());
    record.fileCount = static_cast<std::int32_t>(folder.files.size());
    record.infoCount = static_cast<std::int32_t>(folder.infos.Get().GetSize());
    record.dataOffset = record.nameLength + static_cast<std::uint32_t>(FolderEntry::Size);
    record.Write(*out);
    out->WriteBin(nameField.data(), nameField.size());
    if (const int err = folder.infos.WriteBlock(*out); err != KL::NoError)
        return err;
    ++foldersWritten;
    for (const auto& subfolder : folder.subfolders) {
        ++blockStack.back().header.count;
        if (const int err = WriteFolder(process, *subfolder); err != KL::NoError)
            return err;
    }
    for (const auto& child : folder.files) {
        ++blockStack.back().header.count;
        if (const int err = WriteFile(process, *child); err != KL::NoError)
            return err;
    }
    return EndBlock();
}

bool ContainerWriter::PollForBreak(KL::ProcessControl& process) {
    if ((++fileCounter & CancelPollMask) == 0 && process.Step())
        cancelled = true;
    return cancelled;
}

int ContainerWriter::WriteFile(KL::ProcessControl& process, const ContainerFileRecord& record) {
    if (PollForBreak(process))
        return LibPartFileError;
    IO::Name name;
    record.location.GetLastLocalName(&name);
    const std::vector<char> nameField = NameField(name);
    const std::uint32_t flags = FileFlags | (options.IsZipEnabled() ? CompressedFileFlag : 0);
    if (const int err = WriteFileContent(record, nameField, flags); err != KL::NoError)
        return err;
    ++filesWritten;
    return KL::NoError;
}

// A file block's length is known before it is written: the content is measured, or read or
// compressed ahead, so no file block needs patching.
int ContainerWriter::WriteFileContent(const ContainerFileRecord& record, const std::vector<char>& nameField,
                                      std::uint32_t flags) {
    const SourceContent content = reader->TakeNext();
    if (content.status == KL::ErrNotEnoughMemory)
        throw KL::OutOfMemoryException("no memory to read " + record.location.ToString(), __FILE__, __LINE__);
    if (content.status != KL::NoError)
        return content.status;
    if (content.left)
        return CopyFileContent(record, nameField, flags);
    bytesRead += content.facts.dataLength;
    if (const int err = WriteFileRecord(record, nameField, flags, content.facts, content.bytes.size());
        err != KL::NoError)
        return err;
    return out->WriteBin(content.bytes.data(), content.bytes.size());
}

// A large file goes from the file to the container without passing through memory.
int ContainerWriter::CopyFileContent(const ContainerFileRecord& record, const std::vector<char>& nameField,
                                     std::uint32_t flags) {
    IO::File source(record.location, IO::File::FailAtOpen);
    SourceFacts facts;
    if (const int err = OpenSource(source, &facts); err != KL::NoError)
        return err;
    if (const int err = WriteFileRecord(record, nameField, flags, facts, facts.dataLength);
        err != KL::NoError)
        return err;
    bytesRead += facts.dataLength;
    return source.CopyTo(*file, facts.dataLength);
}

int ContainerWriter::WriteFileRecord(const ContainerFileRecord& record, const std::vector<char>& nameField,
                                     std::uint32_t flags, const SourceFacts& facts,
                                     std::uint64_t storedLength) {
    FileEntry entry;
    entry.flags = static_cast<std::int32_t>(flags);
    entry.recordSize = static_cast<std::int32_t>(FileEntry::Size);
    entry.nameLength = static_cast<std::uint32_t>(nameField.size());
    const FileTypeFacts type = FileTypeFactsOf(*record.libPart, record.location);
    const std::string& mime = type.mime;
    entry.macType = type.macType;
    entry.macCreator = type.macCreator;
    entry.mimeLength = static_cast<std::uint32_t>(mime.size());
    entry.mimeOffset = mime.empty() ? 0 : static_cast<std::int32_t>(FileEntry::Size + entry.nameLength);
    entry.creationTime = OVFS::DateTime::CreateDateTime(facts.creationTime);
    entry.modificationTime = OVFS::DateTime::CreateDateTime(facts.modificationTime);
    entry.dataLength = static_cast<std::uint32_t>(facts.dataLength);
    entry.infoCount = static_cast<std::int32_t>(record.infos.Get().GetSize());
    entry.dataOffset = static_cast<std::uint32_t>(FileEntry::Size) + entry.nameLength + entry.mimeLength;

    const std::uint64_t length = ChunkHeader::Size + FileEntry::Size + nameField.size() + mime.size() +
                                 record.infos.GetBlockSize() + storedLength;
    std::uint64_t start = 0;
    if (const int err = Position(&start); err != KL::NoError)
        return err;
    if (facts.dataLength > MaxContainerSize || start + length > MaxContainerSize)
        return KL::ErrParam;
    ChunkHeader block;
    block.tag = FileTag;
    block.count = 1;
    block.length = static_cast<std::uint32_t>(length);
    block.Write(*out);
    entry.Write(*out);
    out->WriteBin(nameField.data(), nameField.size());
    out->WriteBin(mime.data(), mime.size());
    record.infos.WriteBlock(*out);
    return out->GetStatus();
}

std::vector<IO::Location> ContainerWriter::CollectSourcesInWriteOrder() const {
    std::vector<IO::Location> sources;
    auto collect = [&sources](const ContainerFolderRecord& folder, const auto& self) -> void {
        for (const auto& subfolder : folder.subfolders)
            self(*subfolder, self);
        for (const auto& child : folder.files)
            sources.push_back(child->location);
    };
    for (const auto& root : roots)
        collect(*root, collect);
    return sources;
}

int ContainerWriter::Position(std::uint64_t* position) const {
    return file->GetPosition(position);
}

int ContainerWriter::BeginBlock(std::uint32_t tag, std::int32_t flags) {
    OpenBlock block;
    if (const int err = Position(&block.start); err != KL::NoError)
        return err;
    block.header.tag = tag;
    block.header.flags = flags;
    if (const int err = block.header.Write(*out); err != KL::NoError)
        return err;
    blockStack.push_back(block);
    return KL::NoError;
}

int ContainerWriter::EndBlock() {
    OpenBlock block = blockStack.back();
    blockStack.pop_back();
    std::uint64_t end = 0;
    if (const int err = Position(&end); err != KL::NoError)
        return err;
    if (end > MaxContainerSize)
        return KL::ErrParam;
    block.header.length = static_cast<std::uint32_t>(end - block.start);
    if (const int err = file->SetPosition(block.start); err != KL::NoError)
        return err;
    block.header.Write(*out);
    if (const int err = file->SetPosition(end); err != KL::NoError)
        return err;
    return out->GetStatus();
}

int ContainerWriter::WriteToLocation(KL::ProcessControl& process, const IO::Location& location) {
    IOUtil::ScratchFile scratch(location, ContainerMacType, ContainerMacCreator);
    if (const int err = scratch.Open(IO::File::WriteMode); err != KL::NoError)
        return err;
    if (Write(process, scratch) != 0)
        return LibPartFileError;
    return scratch.MakePermanent() == KL::NoError ? 0 : LibPartFileError;
}

// ---- Entry points

int CreateContainer(KL::ProcessControl& process, const IO::Location& location, const LibrarySet* librarySet,
                    const KL::HashTable<const LibPart*, bool>* selection,
                    const ContainerWriteOptions& options) {
    if (location.IsEmpty() || librarySet == nullptr)
        return LibPartFileError;
    if (IsDatabaseLibraryContainerFormatEnabled())
        return CreateDatabaseLibraryContainer(process, librarySet, location, selection,
                                              options.CreateTopFolder())
                   ? 0
                   : LibPartFileError;
    ContainerWriter writer(librarySet, options);
    writer.BuildTree(selection);
    return writer.WriteToLocation(process, location);
}

int CreateContainer(KL::ProcessControl& process, IO::File& file, const LibrarySet* librarySet,
                    const KL::HashTable<const LibPart*, bool>* selection,
                    const ContainerWriteOptions& options) {
    if (librarySet == nullptr)
        return LibPartFileError;
    ContainerWriter writer(librarySet, options);
    writer.BuildTree(selection);
    return writer.Write(process, file);
}

} // namespace LM
