#pragma once

// Whether something is a database container: a file by its content, or a host's object by the
// container root linked to it. Neither test mounts anything. And the removal of a container from
// a host's database.
#include "ObjectDatabase/Ref.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

namespace LM {

// A file that is a database of ours and holds a container root; false for anything else,
// including a damaged database.
LM_EXPORT bool CheckIfFileDatabaseContainer(const IO::Location& location);
LM_EXPORT bool CheckIfFileDatabaseContainer(ODB::ConstRef<ODB::Object> object);
// A database container file while they may be opened. The file's first bytes are looked at before
// the preference is read and before the database is opened, so that folders and other files,
// which most locations are, cost one failed read.
LM_EXPORT bool IsOpenableDatabaseContainer(const IO::Location& location);
// Deletes the container under `object`, all its objects with it; false only for a dead object.
LM_EXPORT bool DeleteContainerFromFileDatabase(ODB::Ref<ODB::Object> object);

} // namespace LM
