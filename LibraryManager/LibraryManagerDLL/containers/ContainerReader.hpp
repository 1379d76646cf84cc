#pragma once

// The one pull walk over a container file (docs/formats/lcf.md). It reads records and names in
// file order, decides which folders are shown, and hands each folder and file to a processor,
// moving past every content the processor leaves. Only records are read: the cost of a walk
// grows with the entries, not with their bytes.
//
// Hostile input: every length is checked against what the file holds before anything is
// allocated for it, folders nest at most MaxFolderDepth deep, and no block may end before the
// point the walk has reached, so a walk always moves forward and ends.
#include "containers/ContainerFormat.hpp"

#include "KLRoot/Channel.hpp"
#include "KLRoot/KLExport.hpp"

namespace IO {
class File;
class Location;
class Name;
class RelativeLocation;
} // namespace IO
namespace KL {
class IChannel;
class ProcessControl;
} // namespace KL

namespace LM {

class ILibraryContainerProcessor;

class LM_EXPORT ContainerReader {
public:
    static constexpr int MaxFolderDepth = 256;
    // How far a read of records reaches: far enough for the records of small files together,
    // short of pulling in the contents the walk jumps over.
    static constexpr std::uint64_t RecordReadAhead = 4096;

    // `platform` may be null: the platform sign then stays little-endian.
    ContainerReader(ILibraryContainerProcessor* processor, bool callerFlag, bool skipTopFolder,
                    const KL::PlatformSign* platform, bool flattenFolders);
    ~ContainerReader();
    ContainerReader(const ContainerReader&) = delete;
    ContainerReader& operator=(const ContainerReader&) = delete;

    // Reads and checks the header and its INFO block; false for a file that is no container or a
    // version this reader does not know.
    bool ReadHeader(KL::IChannel& channel);
    // The whole walk: 0, -7003 for a malformed file or failed input, -36 when the walk reached its
    // end with entries that could not be delivered. A user's break ends it quietly with 0.
    int Read(KL::ProcessControl& process, KL::IChannel& channel, const IO::Location& base);

    const ContainerHeader& GetHeader() const { return header; }
    const KL::Array<InfoData*>& GetHeaderInfos() const { return headerInfos.Get(); }
    bool GetCallerFlag() const { return callerFlag; }
    KL::PlatformSign GetPlatform() const { return platform; }

private:
    int ReadFolder(KL::ProcessControl& process, const IO::Location& base,
                   const IO::RelativeLocation& relative, bool hasSiblings, bool parentHasFiles, int depth);
    int ReadFolderChildren(KL::ProcessControl& process, const FolderEntry& record, const IO::Location& base,
                           const IO::RelativeLocation& relative, int depth);
    int ReadFile(KL::ProcessControl& process, const IO::Location& base, const IO::RelativeLocation& relative);
    bool IsFolderVisible(const FolderEntry& record, const IO::Name& name,
                         const IO::RelativeLocation& relative, bool hasSiblings, bool parentHasFiles);
    enum class NodeStart { Read, Skip, Failed };
    template <typename Record>
    NodeStart ReadNodeStart(std::uint32_t tag, ChunkHeader* block, Record* record);
    int ReadName(std::uint32_t length, IO::Name* name);
    int Position(std::uint64_t* position) const;
    int MoveTo(std::uint64_t position);

    ContainerHeader header;
    InfoArray headerInfos;
    bool callerFlag;
    ILibraryContainerProcessor* processor;
    KL::IChannel* channel = nullptr;
    IO::File* file = nullptr;
    std::uint32_t fileCounter = 0;
    bool cancelled = false;
    bool unicodeNames = false;
    KL::PlatformSign platform = KL::LittleEndianSign;
    bool checkNestedFolders = true;
    bool skipTopFolder;
    bool flattenFolders;
};

} // namespace LM
