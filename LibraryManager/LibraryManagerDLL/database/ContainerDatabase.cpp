#include "database/ContainerDatabase.hpp"

#include "database/DatabaseContainerPreferences.hpp"

#include "ObjectDatabase/IdSpace.hpp"

#include <algorithm>

namespace LM {

std::unique_ptr<ODB::FileDatabase> OpenContainerDatabase(const IO::Location& location, ODB::IdSpace& idSpace,
                                                         ODB::FileDatabase::ErrorHandler& errorHandler,
                                                         ODB::FileDatabase::OpenMode mode) {
    ODB::FileDatabase::Parameters parameters;
    parameters.idSpace = &idSpace;
    parameters.idSpaceName = idSpace.GetName();
    parameters.errorHandler = &errorHandler;
    parameters.openMode = mode;
    auto database = std::make_unique<ODB::FileDatabase>(ODB::FileDatabase::Locations{location}, parameters);
    database->SetMaxMemorySize(static_cast<unsigned>(std::max(0, GetLibraryContainerMaxMemorySize())));
    return database;
}

} // namespace LM
