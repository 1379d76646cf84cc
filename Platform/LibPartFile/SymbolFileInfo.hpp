#pragma once

#include "LibPartFile/PartFormat.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

namespace LPF {

// The header of a part file alone, for callers that want its version or id and nothing more: the
// directory is not even read.
class LM_EXPORT SymbolFileInfo {
public:
    explicit SymbolFileInfo(const IO::Location& location);

    int GetStatus() const { return status; }
    int GetVersion(short* version) const;
    int GetOriginalVersion(short* version) const;
    int GetOwnUnID(KL::UnID* id) const;
    int GetType(unsigned* type) const;
    int GetDocumentName(KL::UniString* name) const;

private:
    PartHeader header;
    int status = 0;
};

} // namespace LPF
