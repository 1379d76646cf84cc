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

} // namespace LPF
