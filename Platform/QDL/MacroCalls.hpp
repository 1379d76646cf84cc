#pragma once

#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <vector>

// The macros a script line calls by a literal name: CALL "name" or CALL 'name', the keyword in any
// case and standing as a word of its own. Names a script computes are known only when it runs.
LM_EXPORT std::vector<KL::UniString> FindMacroCallNames(const KL::UniString& line);
