#include "containers/PackingFacts.hpp"

#include "LibraryContainerVFS.hpp"
#include "LibraryContainerWriteOptions.hpp"
#include "catalogue/LibPart.hpp"
#include "catalogue/LibrarySet.hpp"
#include "containers/ContainerExtraction.hpp"
#include "containers/ContainerReader.hpp"
#include "database/DatabaseContainerPreferences.hpp"
#include "database/DatabaseLibraryContainerVFS.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/FileTypeManager.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <cstring>

namespace LM {

namespace {

static_assert(sizeof(ContainerHeader) == ContainerHeader::Size,
              "EMBH carries the header as it lies in memory");

const IO::FixedVFS* ServingFileSystem(const IO::Location& location) {
    return IO::fileSystem.GetServingVFS(location, false);
}

} // namespace

bool GetPackedLibraryLocation(const LibrarySet& librarySet, int index, IO::Location* location) {
    return librarySet.IsExistActiveLibrary(index) && !librarySet.IsBuiltInActiveLibrary(index) &&
           librarySet.GetActiveLibraryLocation(index, location) == KL::NoError && !location->IsEmpty();
}

bool IsPackedPart(const LibrarySet& librarySet, const KL::HashTable<const LibPart*, bool>* selection,
                  const LibPart* part) {
    bool selected = true;
    if (selection != nullptr && !selection->Get(part, &selected))
        return false;
    return selected && part->IsValid() && librarySet.IsSymbolArchivable(part);
}

InfoArray NestedContainerInfos(const IO::Location& location) {
    InfoArray infos;
    if (!IO::fileSystem.IsMountPoint(location))
        return infos;
    const ContainerHeaderProbe nested(location);
    if (!nested.IsContainer())
        return infos;
    char bytes[ContainerHeader::Size];
    std::memcpy(bytes, &nested.GetHeader(), sizeof bytes);
    infos.Push(InfoData(EmbeddedHeaderTag, ContainerHeader::Size, bytes));
    infos.PushAll(nested.GetHeaderInfos());
    return infos;
}

bool IsMountedSubContainer(const IO::Location& location) {
    const IO::FixedVFS* served = ServingFileSystem(location);
    if (const auto* container = dynamic_cast<const LibraryContainerVFS*>(served))
        return container->IsFolderSubContainer(location);
    const auto* database = dynamic_cast<const DatabaseLibraryContainerVFS*>(served);
    return database != nullptr && IsDatabaseLibraryContainerOpeningEnabled() &&
           database->IsFolderSubContainer(location);
}

void AddMountedFolderInfos(const IO::Location& location, InfoArray* infos) {
    const IO::FixedVFS* served = ServingFileSystem(location);
    if (const auto* container = dynamic_cast<const LibraryContainerVFS*>(served)) {
        if (const KL::Array<InfoData*>* items = container->GetInfoForLocation(location))
            infos->PushAll(*items);
    } else if (const auto* database = dynamic_cast<const DatabaseLibraryContainerVFS*>(served);
               database != nullptr && IsDatabaseLibraryContainerOpeningEnabled()) {
        if (const auto folder = database->GetFolderObject(location); folder.IsLive())
            infos->PushAll(folder->GetInfos().Get());
    }
}

IO::Name DefaultEmbeddedFolderName() {
    if (DefaultContainerWriteOptions == nullptr)
        return IO::Name();
    return IO::Name(DefaultContainerWriteOptions->GetEmbeddedName());
}

FileTypeFacts FileTypeFactsOf(const LibPart& part, const IO::Location& location) {
    FTM::FileTypeManager& types = FTM::FileTypeManager::GetCurrent();
    const FTM::GeneralID id = part.GetGeneralFileType();
    FTM::TypeID type(id.GetValue());
    if (id.IsGroup()) {
        const FTM::GroupID group(id.GetValue());
        type = id == GetSymbolFileGroup() ? types.GetFirstTypeChild(group) : types.Identify(location, group);
    }
    FileTypeFacts facts;
    if (type == FTM::UnknownType)
        return facts;
    facts.mime = types.GetMime(type);
    facts.macType = static_cast<std::int32_t>(types.GetMacType(type));
    facts.macCreator = static_cast<std::int32_t>(types.GetMacCreator(type));
    return facts;
}

} // namespace LM
