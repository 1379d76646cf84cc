#pragma once

#include "LibPartFile/SectionInfo.hpp"

// The kinds of script a part carries; 6 is the master script, run before each of the others.
enum QDL_ScriptType : int {
    QDL_ParameterScript = 1,
    QDL_2DScript = 2,
    QDL_3DScript = 3,
    QDL_UIScript = 4,
    QDL_ValueListScript = 5,
    QDL_MasterScript = 6,
    QDL_ForwardMigrationScript = 7,
    QDL_BackwardMigrationScript = 8,
};

// The section that holds a script type, or 0 for a value outside 1 to 8.
constexpr LPF::SectionTag GetScriptSectionTag(int type) {
    return type >= 1 && type <= 8 ? LPF::Tags::Scripts[type - 1] : 0;
}
