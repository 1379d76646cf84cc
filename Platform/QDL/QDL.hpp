#pragma once

// What the script engine defines and the library manager uses: script types, compiled code, the
// parameter section and its routines, default parameters, and the list of called macros.
#include "QDL/BinCode.hpp"
#include "QDL/FileInterfaces.hpp"
#include "QDL/MacroCalls.hpp"
#include "QDL/ParamSection.hpp"
#include "QDL/ParamXML.hpp"
#include "QDL/QDLAddParData.hpp"
#include "QDL/ScriptTypes.hpp"
#include "QDL/SyCalledMacroItem.hpp"
