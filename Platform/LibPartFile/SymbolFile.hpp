#pragma once

#include "LibPartFile/PartHeaderFields.hpp"
#include "LibPartFile/SectionInfo.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Channel.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/Object.hpp"
#include "KLRoot/Time.hpp"
#include "KLRoot/UniString.hpp"
#include "KLUtils/ScratchFile.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace LPF {

class ByteSource;

// Called for each section in directory order; a result other than 0 stops the walk and is returned.
using SectionEnumerator = int (*)(const SectionInfo& info, void* userData);

// A library part file: its header and its sections. Opening reads the header and the directory
// only; a section's bytes are read the first time someone asks for them, and kept. No file stays
// open in between. Sections come out in the host's byte order whatever order the file has.
//
// Section reads may come from several threads at once; changes (the setters, SetSection...) belong
// to one thread with no readers. A reference from GetSectionDataRef stays valid until that section
// is set or deleted, or the object goes.
class LM_EXPORT SymbolFile : public PartHeaderFields {
public:
    // A new, empty part in memory, with fresh defaults and a null id.
    SymbolFile();
    explicit SymbolFile(const IO::Location& location);
    // A part file held in memory, as read from a container or a database.
    explicit SymbolFile(std::vector<char> bytes);
    ~SymbolFile();
    SymbolFile(const SymbolFile&) = delete;
    SymbolFile& operator=(const SymbolFile&) = delete;

    int GetModificationTime(TITime* time) const;

    void SetOwnUnID(const KL::UnID& id) { header.ownUnID = id; }
    void SetPlaceable(bool placeable) { SetFlag(PlaceableFlag, placeable); }
    void SetArchivable(bool archivable) { SetFlag(ArchivableFlag, archivable); }
    void SetMigrationValue(MigrationValue value) { header.migrationValue = value; }
    void SetDocumentName(const KL::UniString& name) { header.documentName = name; }
    void SetOwner(unsigned owner) { header.owner = owner; }
    void SetType(unsigned type) { header.signature = type; }
    void SetVersion(short version) { header.version = version; }
    void SetOriginalVersion(short version) { header.originalVersion = version; }
    // The byte order Save and Write use.
    void SetByteOrder(KL::PlatformSign order) { header.byteOrder = order; }

    // The section's bytes, owned by this object; SectionNotFoundError when there is none.
    int GetSectionDataRef(SectionTag tag, std::uint16_t subIdent, GSHandle* data) const;
    // A copy of the section's bytes in a new handle that the caller owns.
    int GetSectionData(SectionTag tag, std::uint16_t subIdent, GSHandle* data) const;
    int GetSectionInfo(SectionTag tag, std::uint16_t subIdent, SectionInfo* info) const;
    bool HasSection(SectionTag tag, std::uint16_t subIdent) const;
    // The section decoded into an object by its registered type, or null with `*error` set:
    // SectionNotFoundError, ErrNotSupported for a tag without an object form, or the decoder's code.
    std::unique_ptr<KL::Object> GetSectionContent(SectionTag tag, std::uint16_t subIdent, int* error) const;
    int EnumerateSections(SectionEnumerator enumerator, void* userData) const;
    std::size_t GetSectionCount() const { return sections.size(); }

    // Replaces the section's bytes, or adds the section at the end. With `adopt` the handle is taken
    // over, else copied. A `version` of -1 keeps the section's version (the default for a new one).
    int SetSectionDataRef(SectionTag tag, std::uint16_t subIdent, GSHandle data, bool adopt, int version);
    int SetSection(const SectionInfo& info, const void* data, std::uint64_t size);
    int DeleteSection(SectionTag tag, std::uint16_t subIdent);

    // The whole part in its byte order. Every section is read first; a section that cannot be
    // read fails the write.
    int Write(KL::OChannel& channel) const;
    // Writes through a scratch file that replaces `location` at the end, in one rename.
    int Save(const IO::Location& location,
             IOUtil::ScratchFile::Durability durability = IOUtil::ScratchFile::SyncEach) const;

private:
    struct Section {
        SectionInfo info;
        std::uint64_t offset = 0;
        mutable KL::ScopedHandle data;
        mutable bool loaded = false;
    };

    void Open();
    void LoadBufferedCatalogueSections();
    void SetFlag(std::uint32_t flag, bool on);
    const Section* Find(SectionTag tag, std::uint16_t subIdent) const;
    Section* Find(SectionTag tag, std::uint16_t subIdent) {
        return const_cast<Section*>(std::as_const(*this).Find(tag, subIdent));
    }
    int Load(const Section& section) const;
    int LoadAll() const;
    int VisitAndLoad(const std::vector<const Section*>& wanted) const;
    int ReadSection(const Section& section) const;

    std::unique_ptr<ByteSource> source;
    TITime modificationTime = 0;
    std::uint64_t openedLength = 0;
    std::vector<Section> sections;
    mutable std::mutex loadLock;
};

} // namespace LPF
