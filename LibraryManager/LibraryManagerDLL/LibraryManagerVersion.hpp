#pragma once

#include "KLRoot/KLExport.hpp"

namespace LM {

// The component's version, "major.minor.patch", as built.
LM_EXPORT const char* GetLibraryManagerVersion();

} // namespace LM
