#include "LibPartFile/SymbolFile.hpp"

#include "LibPartFile/ByteSource.hpp"
#include "LibPartFile/LibPartFileErrors.hpp"
#include "LibPartFile/SectionTypes.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLUtils/ScratchFile.hpp"

#include <cstring>
#include <limits>

namespace LPF {

SymbolFile::SymbolFile() = default;

SymbolFile::SymbolFile(const IO::Location& location) : source(std::make_unique<FileByteSource>(location)) {
    Open();
}

SymbolFile::SymbolFile(std::vector<char> bytes)
    : source(std::make_unique<MemoryByteSource>(std::move(bytes))) {
    Open();
}

SymbolFile::~SymbolFile() = default;

void SymbolFile::Open() {
    const SourceVisit visit(*source);
    status = visit.GetStatus();
    if (status != KL::NoError)
        return;
    std::uint64_t headerSize = 0;
    std::uint32_t sectionCount = 0;
    PartHeader read;
    std::vector<DirectoryEntry> directory;
    status = ReadPartHeader(*source, &read, &headerSize, &sectionCount);
    if (status == KL::NoError)
        status = ReadPartDirectory(*source, read, headerSize, sectionCount, &directory);
    if (status != KL::NoError)
        return;
    header = std::move(read);
    modificationTime = source->GetModificationTime();
    openedLength = source->GetLength();
    sections.resize(directory.size());
    for (std::size_t i = 0; i < directory.size(); ++i) {
        sections[i].info = directory[i].info;
        sections[i].offset = directory[i].offset;
    }
    LoadBufferedCatalogueSections();
}

// A catalogue reads the ancestry and migration sections of every part it stores. When they lie in
// the bytes the header read brought anyway, they are taken now: storing a part then opens its file
// once. A section that fails here is left to be read, and to fail, when asked for.
void SymbolFile::LoadBufferedCatalogueSections() {
    for (Section& section : sections) {
        const bool wanted = section.info.tag == Tags::Ancestry || section.info.tag == Tags::MigrationTable;
        if (wanted && section.offset + section.info.size <= source->GetBufferedLength())
            ReadSection(section);
    }
}

void SymbolFile::SetFlag(std::uint32_t flag, bool on) {
    header.flags = on ? header.flags | flag : header.flags & ~flag;
}

int SymbolFile::GetModificationTime(TITime* time) const {
    return Give(time, modificationTime);
}

const SymbolFile::Section* SymbolFile::Find(SectionTag tag, std::uint16_t subIdent) const {
    for (const Section& section : sections) {
        if (section.info.tag == tag && section.info.subIdent == subIdent)
            return &section;
    }
    return nullptr;
}

bool SymbolFile::HasSection(SectionTag tag, std::uint16_t subIdent) const {
    return Find(tag, subIdent) != nullptr;
}

int SymbolFile::Load(const Section& section) const {
    const std::lock_guard guard(loadLock);
    if (section.loaded)
        return KL::NoError;
    return VisitAndLoad({&section});
}

int SymbolFile::LoadAll() const {
    const std::lock_guard guard(loadLock);
    std::vector<const Section*> missing;
    for (const Section& section : sections) {
        if (!section.loaded)
            missing.push_back(&section);
    }
    return missing.empty() ? KL::NoError : VisitAndLoad(missing);
}

// One opening of the file for all the sections asked for; the caller holds loadLock.
int SymbolFile::VisitAndLoad(const std::vector<const Section*>& wanted) const {
    if (source == nullptr)
        return NoFileError;
    const SourceVisit visit(*source);
    if (visit.GetStatus() != KL::NoError)
        return visit.GetStatus();
    if (source->GetLength() != openedLength || source->GetModificationTime() != modificationTime)
        return FileChangedError;
    for (const Section* section : wanted) {
        if (const int err = ReadSection(*section); err != KL::NoError)
            return err;
    }
    return KL::NoError;
}

int SymbolFile::ReadSection(const Section& section) const {
    KL::ScopedHandle data(BMAllocateHandle(section.info.size, 0, 0));
    if (data.Get() == nullptr)
        return BMError();
    if (const int err = source->ReadAt(section.offset, data.GetData(), section.info.size); err != KL::NoError)
        return err;
    if (header.byteOrder != KL::HostPlatformSign) {
        const SectionType* type = FindSectionType(section.info.tag);
        if (type != nullptr && type->convert != nullptr) {
            if (const int err =
                    type->convert(data.GetData(), section.info.size, header.byteOrder, KL::HostPlatformSign);
                err != KL::NoError)
                return err;
        }
    }
    section.data = std::move(data);
    section.loaded = true;
    return KL::NoError;
}

int SymbolFile::GetSectionDataRef(SectionTag tag, std::uint16_t subIdent, GSHandle* data) const {
    if (data == nullptr)
        return KL::ErrParam;
    *data = nullptr;
    if (status != KL::NoError)
        return status;
    const Section* section = Find(tag, subIdent);
    if (section == nullptr)
        return SectionNotFoundError;
    if (const int err = Load(*section); err != KL::NoError)
        return err;
    *data = section->data.Get();
    return KL::NoError;
}

int SymbolFile::GetSectionData(SectionTag tag, std::uint16_t subIdent, GSHandle* data) const {
    GSHandle reference = nullptr;
    if (const int err = GetSectionDataRef(tag, subIdent, &reference); err != KL::NoError)
        return err;
    *data = KL::BMNewHandleFrom(*reference, BMGetHandleSize(reference));
    return *data != nullptr ? KL::NoError : BMError();
}

int SymbolFile::GetSectionInfo(SectionTag tag, std::uint16_t subIdent, SectionInfo* info) const {
    if (status != KL::NoError)
        return status;
    const Section* section = Find(tag, subIdent);
    if (section == nullptr)
        return SectionNotFoundError;
    *info = section->info;
    return KL::NoError;
}

std::unique_ptr<KL::Object> SymbolFile::GetSectionContent(SectionTag tag, std::uint16_t subIdent,
                                                          int* error) const {
    GSHandle data = nullptr;
    *error = GetSectionDataRef(tag, subIdent, &data);
    if (*error != KL::NoError)
        return nullptr;
    const SectionType* type = FindSectionType(tag);
    if (type == nullptr || type->makeContent == nullptr) {
        *error = KL::ErrNotSupported;
        return nullptr;
    }
    return type->makeContent(*data, static_cast<std::uint64_t>(BMGetHandleSize(data)), error);
}

int SymbolFile::EnumerateSections(SectionEnumerator enumerator, void* userData) const {
    if (status != KL::NoError)
        return status;
    if (sections.empty())
        return SectionNotFoundError;
    for (const Section& section : sections) {
        if (const int result = enumerator(section.info, userData); result != KL::NoError)
            return result;
    }
    return KL::NoError;
}

int SymbolFile::SetSectionDataRef(SectionTag tag, std::uint16_t subIdent, GSHandle data, bool adopt,
                                  int version) {
    if (data == nullptr)
        return KL::ErrNilHandle;
    const std::int64_t size = BMGetHandleSize(data);
    if (size > std::numeric_limits<std::uint32_t>::max())
        return KL::ErrParam;
    KL::ScopedHandle held(adopt ? data : KL::BMNewHandleFrom(*data, size));
    if (held.Get() == nullptr)
        return BMError();
    Section* section = Find(tag, subIdent);
    if (section == nullptr) {
        section = &sections.emplace_back();
        section->info.tag = tag;
        section->info.subIdent = subIdent;
    }
    if (version >= 0)
        section->info.version = static_cast<std::uint16_t>(version);
    section->info.size = static_cast<std::uint32_t>(size);
    section->data = std::move(held);
    section->loaded = true;
    return KL::NoError;
}

int SymbolFile::SetSection(const SectionInfo& info, const void* data, std::uint64_t size) {
    GSHandle copy = KL::BMNewHandleFrom(data, static_cast<std::int64_t>(size));
    if (copy == nullptr)
        return BMError();
    if (const int err = SetSectionDataRef(info.tag, info.subIdent, copy, true, info.version);
        err != KL::NoError) {
        BMKillHandle(&copy);
        return err;
    }
    Find(info.tag, info.subIdent)->info.flags = info.flags;
    return KL::NoError;
}

int SymbolFile::DeleteSection(SectionTag tag, std::uint16_t subIdent) {
    const Section* section = Find(tag, subIdent);
    if (section == nullptr)
        return SectionNotFoundError;
    sections.erase(sections.begin() + (section - sections.data()));
    return KL::NoError;
}

int SymbolFile::Write(KL::OChannel& channel) const {
    if (status != KL::NoError)
        return status;
    if (const int err = LoadAll(); err != KL::NoError)
        return err;
    std::vector<DirectoryEntry> directory(sections.size());
    for (std::size_t i = 0; i < sections.size(); ++i)
        directory[i].info = sections[i].info;
    const std::vector<char> prologue = BuildPartPrologue(header, &directory);
    if (!directory.empty() &&
        directory.back().offset + directory.back().info.size > std::numeric_limits<std::uint32_t>::max())
        return KL::ErrParam;
    channel.WriteBin(prologue.data(), prologue.size());
    std::uint64_t written = prologue.size();
    static constexpr char Padding[SectionAlignment] = {};
    std::vector<char> converted;
    for (std::size_t i = 0; i < sections.size(); ++i) {
        channel.WriteBin(Padding, directory[i].offset - written);
        const char* bytes = sections[i].data.GetData();
        const std::uint64_t size = sections[i].info.size;
        const SectionType* type = FindSectionType(sections[i].info.tag);
        if (header.byteOrder != KL::HostPlatformSign && type != nullptr && type->convert != nullptr) {
            converted.assign(bytes, bytes + size);
            if (const int err = type->convert(converted.data(), size, KL::HostPlatformSign, header.byteOrder);
                err != KL::NoError)
                return err;
            bytes = converted.data();
        }
        channel.WriteBin(bytes, size);
        written = directory[i].offset + size;
    }
    return channel.GetStatus();
}

int SymbolFile::Save(const IO::Location& location, IOUtil::ScratchFile::Durability durability) const {
    IOUtil::ScratchFile file(location, header.signature, header.owner, durability);
    if (const int err = file.Open(IO::File::WriteMode); err != KL::NoError)
        return err;
    if (const int err = Write(file.GetOutputChannel()); err != KL::NoError)
        return err;
    return file.MakePermanent();
}

} // namespace LPF
