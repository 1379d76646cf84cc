#pragma once

#include "KLRoot/KLExport.hpp"

#include <string_view>

namespace KL {

// Diagnostics for developers, never for users: silent unless $LIBMGR_DEBUG is set and not empty,
// then one line each on stderr. A host may route them elsewhere with SetDebugSink (null restores
// the default).
using DebugSink = void (*)(std::string_view line);

LM_EXPORT void WriteDebugText(std::string_view line);
LM_EXPORT void SetDebugSink(DebugSink sink);

} // namespace KL
