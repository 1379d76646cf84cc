#include "containers/ContainerReader.hpp"

#include "containers/ILibraryContainerProcessor.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/Location.hpp"
#include "InputOutput/Name.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/MemoryChannel.hpp"
#include "KLRoot/Preferences.hpp"
#include "KLRoot/ProcessControl.hpp"
#include "KLRoot/Thread.hpp"
#include "KLRoot/UniString.hpp"
#include "LibraryManagerErrors.hpp"

#include <cstring>
#include <memory>
#include <string_view>

namespace LM {

namespace {

constexpr int ExtractionProcessId = 84;
constexpr std::uint32_t LocalNameBufferSize = 1024;
// Polls the process control at every sixteenth file.
constexpr std::uint32_t CancelPollMask = 0xF;
constexpr int SoftFailure = ILibraryContainerProcessor::SoftFailure;

bool ReadNestedFolderPreference() {
    bool check = true;
    if (KLPref::IRoot* root = KLPref::OpenRootKey(KLPref::UserDomain)) {
        root->ReadBool(KL::UniString("LibraryManager"), KL::UniString("Check For Redundant Nested Folders"),
                       &check, true, KLPref::UserLevel);
        KLPref::CloseRootKey(root);
    }
    return check;
}

// Names of version 0.4 are single-byte texts: UTF-8 where they are valid UTF-8, else Latin-1.
KL::UniString SingleByteText(std::string_view bytes) {
    if (KL::IsValidUTF8(bytes))
        return KL::UniString(bytes);
    std::u16string units(bytes.size(), u'\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        units[i] = static_cast<unsigned char>(bytes[i]);
    return KL::UniString(std::move(units));
}

// Folds the result of one child into the walk's: a soft failure is remembered, any other failure
// ends the walk.
bool Absorb(int result, bool* soft) {
    if (result == SoftFailure) {
        *soft = true;
        return true;
    }
    return result == 0;
}

} // namespace

ILibraryContainerProcessor::~ILibraryContainerProcessor() = default;

ContainerReader::ContainerReader(ILibraryContainerProcessor* processor, bool callerFlag, bool skipTopFolder,
                                 const KL::PlatformSign* platformSign, bool flattenFolders)
    : callerFlag(callerFlag), processor(processor), checkNestedFolders(ReadNestedFolderPreference()),
      skipTopFolder(skipTopFolder), flattenFolders(flattenFolders) {
    if (platformSign != nullptr)
        platform = *platformSign;
}

ContainerReader::~ContainerReader() = default;

bool ContainerReader::ReadHeader(KL::IChannel& source) {
    if (header.Read(source) != KL::NoError || static_cast<std::uint32_t>(header.magic) != ContainerMagic ||
        !header.IsAcceptedVersion())
        return false;
    unicodeNames = header.versionH == 1 && header.versionL == 0;
    headerInfos.Clear();
    return header.infoCount <= 0 || headerInfos.ReadBlock(source, header.infoCount) == KL::NoError;
}

int ContainerReader::Read(KL::ProcessControl& process, KL::IChannel& source, const IO::Location& base) {
    channel = &source;
    file = dynamic_cast<IO::File*>(&source);
    // The walk reads records and jumps over contents: reading far ahead would pull in the very
    // bytes it skips, and make a mount cost by bytes instead of by entries.
    if (file != nullptr)
        file->SetReadAhead(RecordReadAhead);
    const bool ownsProgress = KL::Thread::IsMain() && !process.IsProcessRunning();
    if (ownsProgress) {
        process.StartProcess(ExtractionProcessId);
        process.SetTitle(GetLibraryManagerStrings().containerExtractionTitle);
    }
    // Memory can run out in a walk; the progress this walk opened closes all the same.
    struct ProgressEnd {
        KL::ProcessControl& process;
        bool owned;
        ~ProgressEnd() {
            if (owned)
                process.EndProcess();
        }
    } progressEnd{process, ownsProgress};
    int result = LibPartFileError;
    ChunkHeader main;
    if (ReadHeader(source) && main.Read(source) == KL::NoError && main.Is(MainTag)) {
        if ((main.flags & HideTopFolderFlag) != 0)
            skipTopFolder = true;
        bool soft = false;
        bool ok = true;
        for (std::int32_t i = 0; ok && !cancelled && i < main.count; ++i)
            ok = Absorb(ReadFolder(process, base, IO::RelativeLocation(), main.count > 1, false, 1), &soft);
        result = !ok ? LibPartFileError : soft ? SoftFailure : 0;
    }
    return result;
}

bool ContainerReader::IsFolderVisible(const FolderEntry& record, const IO::Name& name,
                                      const IO::RelativeLocation& relative, bool hasSiblings,
                                      bool parentHasFiles) {
    if (!name.IsValid())
        return false; // names of old versions are not decoded: their children rise a level
    bool visible = true;
    const bool wrapperPlace =
        checkNestedFolders && !hasSiblings && record.fileCount == 0 &&
        (relative.GetLength() == 0 || (relative.GetLength() == 1 && record.subfolderCount == 1));
    if (wrapperPlace && HasExtensionAmong(name, {"LCF", "PLA", "LIB"})) {
        visible = false;
    } else if (skipTopFolder) {
        visible = relative.GetLength() != 0;
        skipTopFolder = false;
    }
    if (flattenFolders && !relative.IsEmpty() && !hasSiblings)
        visible = visible && parentHasFiles;
    return visible;
}

int ContainerReader::ReadFolder(KL::ProcessControl& process, const IO::Location& base,
                                const IO::RelativeLocation& relative, bool hasSiblings, bool parentHasFiles,
                                int depth) {
    if (cancelled)
        return 0;
    if (depth > MaxFolderDepth)
        return LibPartFileError;
    ChunkHeader block;
    FolderEntry record;
    if (const NodeStart start = ReadNodeStart(FolderTag, &block, &record); start != NodeStart::Read)
        return start == NodeStart::Skip ? 0 : LibPartFileError;
    IO::Name name;
    InfoArray infos;
    if (ReadName(record.nameLength, &name) != KL::NoError ||
        (record.infoCount > 0 && infos.ReadBlock(*channel, record.infoCount) != KL::NoError))
        return LibPartFileError;

    const bool subContainer = (record.flags & SubContainerFolderFlag) != 0;
    const bool visible = IsFolderVisible(record, name, relative, hasSiblings, parentHasFiles);
    IO::RelativeLocation inner = relative;
    bool soft = false;
    if (visible) {
        inner.Append(name);
        processor->FolderEntered(record, base, inner, subContainer);
        if (!Absorb(processor->ProcessFolder(*channel, file, record, base, inner, subContainer, &infos.Get()),
                    &soft))
            return LibPartFileError;
    }
    if (!processor->skipContents) {
        const int children = ReadFolderChildren(process, record, base, inner, depth);
        if (!Absorb(children, &soft))
            return LibPartFileError;
    }
    if (visible)
        processor->FolderExited(record, base, inner, subContainer);
    return soft ? SoftFailure : 0;
}

// Subfolders first, then files: their order in the file. A hidden folder's children receive
// its parent's place.
int ContainerReader::ReadFolderChildren(KL::ProcessControl& process, const FolderEntry& record,
                                        const IO::Location& base, const IO::RelativeLocation& relative,
                                        int depth) {
    bool soft = false;
    for (std::int32_t i = 0; !cancelled && i < record.subfolderCount; ++i) {
        if (!Absorb(ReadFolder(process, base, relative, record.subfolderCount > 1, record.fileCount > 0,
                               depth + 1),
                    &soft))
            return LibPartFileError;
    }
    for (std::int32_t i = 0; !cancelled && i < record.fileCount; ++i) {
        if (!Absorb(ReadFile(process, base, relative), &soft))
            return LibPartFileError;
    }
    return soft ? SoftFailure : 0;
}

int ContainerReader::ReadFile(KL::ProcessControl& process, const IO::Location& base,
                              const IO::RelativeLocation& relative) {
    // Progress is the main thread's; elsewhere the walk only asks for a break.
    if ((++fileCounter & CancelPollMask) == 0 &&
        (KL::Thread::IsMain() ? process.Step() : process.BreakRequested()))
        cancelled = true;
    if (cancelled)
        return 0;
    std::uint64_t start = 0;
    if (Position(&start) != KL::NoError)
        return LibPartFileError;
    ChunkHeader block;
    FileEntry record;
    if (const NodeStart begun = ReadNodeStart(FileTag, &block, &record); begun != NodeStart::Read)
        return begun == NodeStart::Skip ? 0 : LibPartFileError;
    IO::Name name;
    InfoArray infos;
    std::uint64_t contentStart = 0;
    if (ReadName(record.nameLength, &name) != KL::NoError ||
        (record.mimeLength > 0 && channel->Skip(record.mimeLength) != KL::NoError) ||
        (record.infoCount > 0 && infos.ReadBlock(*channel, record.infoCount) != KL::NoError) ||
        Position(&contentStart) != KL::NoError)
        return LibPartFileError;
    // Old files leave the length 0; their content is as long as the data.
    const std::uint64_t end = block.length != 0 ? start + block.length : contentStart + record.dataLength;
    if (end < contentStart)
        return LibPartFileError; // a block that ends inside its own records would walk back
    bool soft = false;
    if (name.IsValid()) {
        IO::RelativeLocation inner = relative;
        inner.Append(name);
        if (!Absorb(processor->ProcessFile(*channel, file, record, base, inner, &infos.Get()), &soft))
            return LibPartFileError;
    }
    if (MoveTo(end) != KL::NoError)
        return LibPartFileError;
    return soft ? SoftFailure : 0;
}

// An unknown block ends its node where it stands, after its header: the next child is read from
// there. A node without a name is passed over the same way.
template <typename Record>
ContainerReader::NodeStart ContainerReader::ReadNodeStart(std::uint32_t tag, ChunkHeader* block,
                                                          Record* record) {
    if (block->Read(*channel) != KL::NoError)
        return NodeStart::Failed;
    if (!block->Is(tag))
        return NodeStart::Skip;
    if (record->Read(*channel) != KL::NoError)
        return NodeStart::Failed;
    return record->nameLength == 0 ? NodeStart::Skip : NodeStart::Read;
}

int ContainerReader::ReadName(std::uint32_t length, IO::Name* name) {
    if (channel->RequireAvailable(length) != KL::NoError)
        return LibPartFileError;
    char local[LocalNameBufferSize];
    std::unique_ptr<char[]> heap(length > LocalNameBufferSize ? new char[length] : nullptr);
    char* bytes = heap != nullptr ? heap.get() : local;
    if (channel->ReadBin(bytes, length) != KL::NoError)
        return LibPartFileError;
    if (unicodeNames) {
        KL::MemoryIChannel field(bytes, length, KL::BigEndianSign);
        return name->Read(field) == KL::NoError ? KL::NoError : LibPartFileError;
    }
    // A text that makes no valid name leaves the name empty, as in versions that are not decoded.
    if (header.versionH == 0 && header.versionL == 4)
        *name = IO::Name(SingleByteText(std::string_view(bytes, strnlen(bytes, length))));
    return KL::NoError; // other old versions: the name is not decoded and stays empty
}

int ContainerReader::Position(std::uint64_t* position) const {
    if (file != nullptr)
        return file->GetPosition(position);
    *position = channel->GetReadCount();
    return KL::NoError;
}

// A processor may have read past the content (a compressed stream reads ahead), so a file moves
// either way; any other channel only forward.
int ContainerReader::MoveTo(std::uint64_t position) {
    if (file != nullptr)
        return file->SetPosition(position);
    const std::uint64_t current = channel->GetReadCount();
    return position >= current ? channel->Skip(position - current) : LibPartFileError;
}

} // namespace LM
