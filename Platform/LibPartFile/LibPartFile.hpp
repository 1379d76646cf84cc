#pragma once

// Library part files: the .klm reader and writer, bare scripts, and the section registry.
#include "LibPartFile/LibPartFileErrors.hpp"
#include "LibPartFile/PartHeaderFields.hpp"
#include "LibPartFile/ScriptFile.hpp"
#include "LibPartFile/SectionInfo.hpp"
#include "LibPartFile/SectionTypes.hpp"
#include "LibPartFile/SymbolFile.hpp"
#include "LibPartFile/SymbolFileInfo.hpp"
