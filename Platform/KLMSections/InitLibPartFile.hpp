#pragma once

#include "KLRoot/KLExport.hpp"

// Registers the sections of a named section set with the part file layer: how each turns between
// byte orders and which object its content makes. "Default_Set" holds the parameters, the called
// macros, the migration table and the 2D drawing. Returns KL::ErrParam for a set it does not know.
// Registering twice is harmless.
LM_EXPORT int InitLibPartFile(const char* sectionSet);
