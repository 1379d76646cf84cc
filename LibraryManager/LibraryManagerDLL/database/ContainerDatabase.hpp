#pragma once

// Opens a container's own database file the one way every reader and writer of it does: in the
// given id space, with the container's error handler, and under the memory limit of container
// databases.
#include "ObjectDatabase/FileDatabase.hpp"

#include "InputOutput/Location.hpp"

#include <memory>

namespace ODB {
class IdSpace;
}

namespace LM {

std::unique_ptr<ODB::FileDatabase> OpenContainerDatabase(const IO::Location& location, ODB::IdSpace& idSpace,
                                                         ODB::FileDatabase::ErrorHandler& errorHandler,
                                                         ODB::FileDatabase::OpenMode mode);

} // namespace LM
