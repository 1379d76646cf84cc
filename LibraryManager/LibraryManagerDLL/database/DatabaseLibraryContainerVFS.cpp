#include "database/DatabaseLibraryContainerVFS.hpp"

#include "database/ContainerDatabase.hpp"
#include "database/DatabaseLibraryContainerAssociations.hpp"
#include "database/DatabaseLibraryContainerContent.hpp"
#include "database/DatabaseLibraryProcessControl.hpp"
#include "services/LibraryManagerGlobals.hpp"

namespace LM {

namespace {

IO::Location DatabaseLocationOf(const ODB::RefBase& object) {
    const ODB::FileDatabase* database = object.GetDatabase();
    return database == nullptr ? IO::Location() : database->GetLocation();
}

} // namespace

DatabaseLibraryContainerVFS::DatabaseLibraryContainerVFS(const IO::Location& location)
    : DatabaseLibraryContainerObjectVFS(location), idSpace(std::make_unique<ODB::IdSpace>("dlcIdSpace")),
      errorHandler(std::make_unique<DatabaseLibraryContainerErrorHandler>()) {
    fileDatabase = OpenContainerDatabase(location, *idSpace, *errorHandler, ODB::FileDatabase::ReadOnly);
    InitContainerRoot(fileDatabase->GetRootObject());
}

DatabaseLibraryContainerVFS::DatabaseLibraryContainerVFS(ODB::ConstRef<ODB::Object> owner,
                                                         ODB::Ref<ODB::Object> databaseOwner)
    : DatabaseLibraryContainerObjectVFS(DatabaseLocationOf(owner)), databaseOwner(std::move(databaseOwner)) {
    InitContainerRoot(owner);
}

DatabaseLibraryContainerVFS::~DatabaseLibraryContainerVFS() {
    Unmounted();
    DropObjects();
    containerRoot.Clear();
    databaseOwner.Clear();
}

void DatabaseLibraryContainerVFS::InitContainerRoot(const ODB::RefBase& owner) {
    containerRoot =
        ODB::ConstRef<DatabaseLibraryContainerRoot>::Cast(DLCOwnerRootAssociation.GetRight(owner));
    SetRootFolder(
        ODB::Ref<DatabaseLibraryContainerFolder>::Cast(DLCRootFolderAssociation.GetRight(containerRoot)));
    if (containerRoot.IsLive())
        SetEstimatedFileCount(containerRoot->GetFileCount());
    SetProcessControl(new DatabaseLibraryProcessControl(GetLibraryManagerStrings().containerExtractionTitle),
                      true);
}

unsigned DatabaseLibraryContainerVFS::GetInfoForLocation(const IO::Location& location,
                                                         KL::Array<InfoData*>* items) const {
    if (items == nullptr)
        return 0;
    if (const auto folder = GetFolderObject(location); folder.IsLive())
        return folder->GetInfoData(*items);
    if (const auto file = GetFileObject(location); file.IsLive()) {
        const auto content = file->GetContent();
        return content.IsLive() ? content->GetInfoData(*items) : 0;
    }
    return 0;
}

} // namespace LM
