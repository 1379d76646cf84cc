#pragma once

#include "LibPartFile/PartHeaderFields.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

namespace LPF {

// The header of a part file alone, for callers that want its version or id and nothing more: the
// directory is not even read.
class LM_EXPORT SymbolFileInfo : public PartHeaderFields {
public:
    explicit SymbolFileInfo(const IO::Location& location);
};

} // namespace LPF
