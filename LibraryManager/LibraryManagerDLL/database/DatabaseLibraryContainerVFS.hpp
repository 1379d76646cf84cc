#pragma once

// A database container mounted as a read-only folder tree, so that walks and scripts use it as
// they use a container file. The objects live either in a container's own file database, which
// this file system opens read-only and owns, or under a host's object in the host's database.
// It keeps no copy of any file: its tables map locations to object references, and bytes come
// from the database when an entry reads them.
//
// Invariant: every reference to a database object is dropped before the database it belongs to
// is closed; the destructor does that first.
#include "DatabaseLibraryContainerErrorHandler.hpp"
#include "database/DatabaseLibraryContainerEntries.hpp"
#include "database/DatabaseLibraryContainerRoot.hpp"

#include "ObjectDatabase/FileDatabase.hpp"
#include "ObjectDatabase/IdSpace.hpp"
#include "ObjectDatabase/Ref.hpp"
#include "VBUtils/ObjectVFS.hpp"

#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"

#include <memory>

namespace LM {

using DatabaseLibraryContainerObjectVFS =
    OVFS::ObjectVFS<DatabaseLibraryContainerLibPartHeader, DatabaseLibraryContainerFolder,
                    DatabaseLibraryContainerFolder>;

class LM_EXPORT DatabaseLibraryContainerVFS : public DatabaseLibraryContainerObjectVFS {
public:
    // Opens the container's file database read-only; its faults pass out as the container
    // exceptions.
    explicit DatabaseLibraryContainerVFS(const IO::Location& location);
    // The container under `owner` in a host's database; `databaseOwner` is the host's object that
    // the container belongs to.
    DatabaseLibraryContainerVFS(ODB::ConstRef<ODB::Object> owner, ODB::Ref<ODB::Object> databaseOwner);
    ~DatabaseLibraryContainerVFS() override;

    // Appends deep copies of the items of the folder at that location, else of the file's
    // content; returns how many, 0 when neither is there.
    unsigned GetInfoForLocation(const IO::Location& location, KL::Array<InfoData*>* items) const;
    ODB::Ref<ODB::Object> GetDatabaseOwner() const { return databaseOwner; }
    // The host says its object is gone.
    void DatabaseOwnerDeleted() { databaseOwner.Clear(); }
    ODB::ConstRef<DatabaseLibraryContainerRoot> GetContainerRoot() const { return containerRoot; }

private:
    // Follows owner → container root → top folder; keeps the root and takes the file count from it.
    void InitContainerRoot(const ODB::RefBase& owner);

    std::unique_ptr<ODB::IdSpace> idSpace;
    std::unique_ptr<DatabaseLibraryContainerErrorHandler> errorHandler;
    std::unique_ptr<ODB::FileDatabase> fileDatabase;
    ODB::ConstRef<DatabaseLibraryContainerRoot> containerRoot;
    ODB::Ref<ODB::Object> databaseOwner;
};

} // namespace LM
