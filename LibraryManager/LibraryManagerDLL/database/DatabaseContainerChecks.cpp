#include "database/DatabaseContainerChecks.hpp"

#include "DatabaseLibraryContainerErrorHandler.hpp"
#include "database/ContainerDatabase.hpp"
#include "database/DatabaseContainerPreferences.hpp"
#include "database/DatabaseLibraryContainerAssociations.hpp"

#include "ObjectDatabase/FileDatabase.hpp"
#include "ObjectDatabase/IdSpace.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Exceptions.hpp"

#include <filesystem>

namespace LM {

bool CheckIfFileDatabaseContainer(const IO::Location& location) {
    // The database is a file on disk, whatever is mounted over it.
    std::error_code error;
    if (!std::filesystem::is_regular_file(location.ToString(), error))
        return false;
    if (!ODB::FileDatabase::IsOwnFile(location))
        return false;
    ODB::IdSpace space("tmpIdSpace");
    DatabaseLibraryContainerErrorHandler handler;
    // A database that cannot be read holds no container a caller could use.
    try {
        const auto database = OpenContainerDatabase(location, space, handler, ODB::FileDatabase::ReadOnly);
        return ODB::RefBase(DatabaseLibraryContainerRootId, space).IsLive();
    } catch (const KL::KLException&) {
        return false;
    }
}

bool IsOpenableDatabaseContainer(const IO::Location& location) {
    return ODB::FileDatabase::IsOwnFile(location) && IsDatabaseLibraryContainerOpeningEnabled() &&
           CheckIfFileDatabaseContainer(location);
}

bool CheckIfFileDatabaseContainer(ODB::ConstRef<ODB::Object> object) {
    if (!object.Load())
        return false;
    return DLCOwnerRootAssociation.GetRight(object).IsLive();
}

bool DeleteContainerFromFileDatabase(ODB::Ref<ODB::Object> object) {
    if (!object.Load())
        return false;
    // The associations own what hangs below the root: folders, headers and contents go with it.
    if (ODB::RefBase root = DLCOwnerRootAssociation.GetRight(object); root.IsLive())
        root.Delete();
    return true;
}

} // namespace LM
