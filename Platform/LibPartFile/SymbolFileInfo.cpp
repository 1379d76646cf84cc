#include "LibPartFile/SymbolFileInfo.hpp"

#include "LibPartFile/ByteSource.hpp"

#include "KLRoot/ErrorCodes.hpp"

namespace LPF {

SymbolFileInfo::SymbolFileInfo(const IO::Location& location) {
    FileByteSource source(location);
    const SourceVisit visit(source);
    status = visit.GetStatus();
    std::uint64_t headerSize = 0;
    std::uint32_t sectionCount = 0;
    if (status == KL::NoError)
        status = ReadPartHeader(source, &header, &headerSize, &sectionCount);
}

int SymbolFileInfo::GetVersion(short* version) const {
    if (status == KL::NoError)
        *version = header.version;
    return status;
}

int SymbolFileInfo::GetOriginalVersion(short* version) const {
    if (status == KL::NoError)
        *version = header.originalVersion;
    return status;
}

int SymbolFileInfo::GetOwnUnID(KL::UnID* id) const {
    if (status == KL::NoError)
        *id = header.ownUnID;
    return status;
}

int SymbolFileInfo::GetType(unsigned* type) const {
    if (status == KL::NoError)
        *type = header.signature;
    return status;
}

int SymbolFileInfo::GetDocumentName(KL::UniString* name) const {
    if (status == KL::NoError)
        *name = header.documentName;
    return status;
}

} // namespace LPF
