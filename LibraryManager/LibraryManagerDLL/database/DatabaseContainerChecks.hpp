#pragma once

// Whether something is a database container: a file by its content, or a host's object by the
// container root linked to it. Neither test mounts anything.
#include "ObjectDatabase/Ref.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

namespace LM {

// A file that is a database of ours and holds a container root; false for anything else,
// including a damaged database.
LM_EXPORT bool CheckIfFileDatabaseContainer(const IO::Location& location);
LM_EXPORT bool CheckIfFileDatabaseContainer(ODB::ConstRef<ODB::Object> object);

} // namespace LM
