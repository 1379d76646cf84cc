#include "database/DatabaseContainerBuilder.hpp"

#include "DatabaseLibraryContainerErrorHandler.hpp"
#include "catalogue/LibPart.hpp"
#include "catalogue/LibrarySet.hpp"
#include "containers/ContainerSource.hpp"
#include "containers/PackingFacts.hpp"
#include "database/ContainerDatabase.hpp"
#include "database/DatabaseLibraryContainerAssociations.hpp"
#include "database/DatabaseLibraryContainerContent.hpp"
#include "database/DatabaseLibraryProcessControl.hpp"
#include "lists/LibItemIterator.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "ObjectDatabase/FileDatabase.hpp"
#include "ObjectDatabase/IdSpace.hpp"
#include "VBUtils/ProcessControl.hpp"

#include "InputOutput/File.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLUtils/ScratchFile.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <unordered_map>

namespace LM {

namespace {

bool IsContainerLibraryName(const IO::Location& location) {
    IO::Name last;
    return location.GetLastLocalName(&last) == KL::NoError && HasExtensionAmong(last, {"LCF", "PLA", "LIB"});
}

// Objects must let go of a database before it closes, also when a fault unwinds the build.
class ReferencesDropped {
public:
    explicit ReferencesDropped(DatabaseContainerBuilder& builder) : builder(builder) {}
    ~ReferencesDropped() { builder.DropReferences(); }
    ReferencesDropped(const ReferencesDropped&) = delete;
    ReferencesDropped& operator=(const ReferencesDropped&) = delete;

private:
    DatabaseContainerBuilder& builder;
};

// A progress that ends however the build does, a database fault included.
class ProgressRun {
public:
    ProgressRun(KL::ProcessControl& process, OVFS::ProcessControl& progress, int total)
        : process(process), progress(progress) {
        progress.Start(process, total);
    }
    ~ProgressRun() { progress.Finish(process); }
    ProgressRun(const ProgressRun&) = delete;
    ProgressRun& operator=(const ProgressRun&) = delete;

private:
    KL::ProcessControl& process;
    OVFS::ProcessControl& progress;
};

} // namespace

DatabaseContainerBuilder::DatabaseContainerBuilder(const LibrarySet* set,
                                                   const KL::HashTable<const LibPart*, bool>* chosen)
    : librarySet(set), selection(chosen) {}

DatabaseContainerBuilder::~DatabaseContainerBuilder() = default;

void DatabaseContainerBuilder::DropReferences() {
    rootTable.clear();
    folderTable.Clear();
    topFolder.Clear();
    containerRoot.Clear();
}

bool DatabaseContainerBuilder::Build(KL::ProcessControl& process, OVFS::ProcessControl& progress,
                                     const ODB::Ref<ODB::Object>& owner, bool createTopFolder) {
    if (librarySet == nullptr || librarySet->GetActiveLibraryNum() == 0)
        return false;
    fileCount = EstimateFileCount();
    if (!CreateContainerRoot(owner))
        return false;
    const ProgressRun run(process, progress, static_cast<int>(std::min<std::uint32_t>(fileCount, INT32_MAX)));
    const std::vector<IO::Location> embedded = AddRoots(createTopFolder);
    AddParts(process, progress);
    if (!cancelled) {
        RenameEmbedded(embedded);
        MergeFolders(topFolder);
    }
    return !cancelled;
}

// An estimate only: a selection counts its false entries too, and the parts left out are counted.
std::uint32_t DatabaseContainerBuilder::EstimateFileCount() const {
    if (selection != nullptr)
        return static_cast<std::uint32_t>(selection->GetSize());
    std::uint32_t count = 0;
    for (LibItemIterator part(*librarySet, LibItemIterator::AllItems); part != nullptr; ++part)
        ++count;
    return count;
}

// False when the owner is no live object of a database, or holds a container already.
bool DatabaseContainerBuilder::CreateContainerRoot(const ODB::Ref<ODB::Object>& owner) {
    if (!owner.IsLive() || owner.GetDatabase() == nullptr)
        return false;
    containerRoot = ODB::Ref<DatabaseLibraryContainerRoot>(new DatabaseLibraryContainerRoot);
    containerRoot->SetId(DatabaseLibraryContainerRootId);
    containerRoot->SetFileCount(fileCount);
    if (!DLCOwnerRootAssociation.Connect(owner, containerRoot)) {
        containerRoot.Clear();
        return false;
    }
    topFolder = FolderRef(new DatabaseLibraryContainerFolder);
    DLCRootFolderAssociation.Connect(containerRoot, topFolder);
    return true;
}

// A container can hold a single library without a top folder of its own: without
// `createTopFolder` only the first library is taken, and the others' parts are left out. A single
// library that is itself a container (by its name) also fills the top folder directly.
std::vector<IO::Location> DatabaseContainerBuilder::AddRoots(bool createTopFolder) {
    std::vector<std::pair<IO::Location, bool>> libraries; // with whether each is embedded
    int containerLibraries = 0;
    for (int i = 0; i < librarySet->GetActiveLibraryNum(); ++i) {
        IO::Location location;
        if (!GetPackedLibraryLocation(*librarySet, i, &location))
            continue;
        containerLibraries += IsContainerLibraryName(location) ? 1 : 0;
        libraries.emplace_back(std::move(location), librarySet->IsEmbeddedActiveLibrary(i));
    }
    const bool useTopFolder = !createTopFolder || containerLibraries == 1;
    std::vector<IO::Location> embedded;
    for (const auto& [location, isEmbedded] : libraries) {
        if (isEmbedded)
            embedded.push_back(location);
        AddRoot(location, useTopFolder);
        if (!createTopFolder)
            break;
    }
    return embedded;
}

void DatabaseContainerBuilder::AddRoot(const IO::Location& location, bool useTopFolder) {
    FolderRef folder = topFolder;
    if (!useTopFolder) {
        IO::Name name;
        location.GetLastLocalName(&name);
        folder = FolderRef(new DatabaseLibraryContainerFolder(name.GetText()));
        DLCChildrenAssociation.Connect(topFolder, folder);
        ++folderCount;
    }
    const auto same = [&location](const auto& root) { return root.first == location; };
    if (auto found = std::find_if(rootTable.begin(), rootTable.end(), same); found != rootTable.end())
        found->second = folder;
    else
        rootTable.emplace_back(location, folder);
}

void DatabaseContainerBuilder::AddParts(KL::ProcessControl& process, OVFS::ProcessControl& progress) {
    if (rootTable.empty())
        return;
    for (LibItemIterator part(*librarySet, LibItemIterator::AllItems); part != nullptr; ++part) {
        if (!IsPackedPart(*librarySet, selection, part.Get()))
            continue;
        progress.Step(process);
        AddPart(*part.Get());
        cancelled = progress.IsCancelled();
        if (cancelled)
            return;
    }
}

// A part outside every library is left out, and not counted; its file is not read.
void DatabaseContainerBuilder::AddPart(const LibPart& part) {
    const IO::Location& placement = part.GetOrigLocation();
    auto [folder, folderLocation] = FindStartFolder(placement);
    if (folder.IsNull())
        return;
    auto [header, content] = CreateFileObjects(part);
    if (!PlaceUnder(folder, folderLocation, placement, header)) {
        header.Delete();
        return;
    }
    ++partCount;
    // The bytes are needed again only when they are written out.
    content.ClearAndUnload();
}

std::pair<DatabaseContainerBuilder::FolderRef, IO::Location>
DatabaseContainerBuilder::FindStartFolder(const IO::Location& placement) const {
    IO::Location parent = placement;
    parent.DeleteLastLocalName();
    if (const FolderRef* folder = folderTable.GetPtr(parent))
        return {*folder, parent};
    for (const auto& [location, folder] : rootTable) {
        if (location == placement || location.IsAncestorOf(placement))
            return {folder, location};
    }
    return {};
}

// A file that cannot be read still gets its objects, with no bytes: the container lists it.
std::pair<ODB::Ref<DatabaseLibraryContainerLibPartHeader>, ODB::Ref<DatabaseLibraryContainerLibPartContent>>
DatabaseContainerBuilder::CreateFileObjects(const LibPart& part) {
    const IO::Location& location = part.GetLocation();
    IO::Name name;
    location.GetLastLocalName(&name);
    IO::File file(location);
    SourceFacts facts;
    const bool opened = OpenSource(file, &facts) == KL::NoError;
    FileTypeFacts type;
    OVFS::DateTime created;
    OVFS::DateTime modified;
    if (opened) {
        type = FileTypeFactsOf(part, location);
        created = OVFS::DateTime::CreateDateTime(facts.creationTime);
        modified = OVFS::DateTime::CreateDateTime(facts.modificationTime);
    }
    ODB::Ref<DatabaseLibraryContainerLibPartContent> content(new DatabaseLibraryContainerLibPartContent(
        name.GetText(), KL::UniString(type.mime.c_str()), created, modified, type.macType, type.macCreator));
    if (opened && facts.dataLength != 0 && facts.dataLength <= std::numeric_limits<std::uint32_t>::max() &&
        content->SetLibEntry(file, static_cast<std::uint32_t>(facts.dataLength)) == KL::NoError)
        bytesRead += facts.dataLength;
    ODB::Ref<DatabaseLibraryContainerLibPartHeader> header(
        part.IsSymbol() ? new DatabaseLibraryContainerSymbolHeader(name.GetText())
                        : new DatabaseLibraryContainerLibPartHeader(name.GetText()));
    DLCHeaderContentAssociation.Connect(header, content);
    return {header, content};
}

bool DatabaseContainerBuilder::PlaceUnder(FolderRef folder, IO::Location folderLocation,
                                          const IO::Location& placement,
                                          const ODB::Ref<DatabaseLibraryContainerLibPartHeader>& header) {
    for (;;) {
        IO::RelativeLocation difference;
        if (placement.GetDifference(folderLocation, &difference) != KL::NoError)
            return false;
        if (difference.GetLength() <= 1)
            return DLCChildrenAssociation.Connect(folder, header);
        IO::Name first;
        difference.GetLocalName(0, &first);
        IO::Location childLocation = folderLocation + first;
        FolderRef child;
        if (!folderTable.Get(childLocation, &child))
            child = CreateFolder(folder, childLocation, first);
        folder = std::move(child);
        folderLocation = std::move(childLocation);
    }
}

DatabaseContainerBuilder::FolderRef DatabaseContainerBuilder::CreateFolder(const FolderRef& parent,
                                                                           const IO::Location& location,
                                                                           const IO::Name& name) {
    FolderRef folder(new DatabaseLibraryContainerFolder(name.GetText()));
    const InfoArray nested = NestedContainerInfos(location);
    if (!nested.Get().IsEmpty())
        folder->SetInfoData(nested.Get());
    else if (IsMountedSubContainer(location))
        folder->IsSubContainer(true);
    folderTable.Put(location, folder);
    DLCChildrenAssociation.Connect(parent, folder);
    ++folderCount;
    return folder;
}

void DatabaseContainerBuilder::RenameEmbedded(const std::vector<IO::Location>& embedded) {
    const IO::Name name = DefaultEmbeddedFolderName();
    if (!name.IsValid())
        return;
    for (const IO::Location& location : embedded) {
        for (const auto& [rootLocation, folder] : rootTable) {
            if (rootLocation == location)
                folder->SetNameIO(name);
        }
        if (const FolderRef* folder = folderTable.GetPtr(location))
            (*folder)->SetNameIO(name);
    }
}

// The first folder of a name takes the children of the later ones, which go. Only folders that
// took part in a merge are looked into, since only there can new equals meet.
void DatabaseContainerBuilder::MergeFolders(const FolderRef& folder) {
    std::unordered_map<std::string, FolderRef> byName;
    for (DLCChildrenIterator child(folder); !child.IsEnd(); ++child) {
        const FolderRef candidate = FolderRef::Cast(*child);
        if (candidate.IsNull())
            continue;
        const auto [first, isNew] = byName.try_emplace(candidate->GetName().ToUTF8(), candidate);
        if (isNew)
            continue;
        for (DLCChildrenIterator moved(candidate); !moved.IsEnd(); ++moved) {
            DLCChildrenAssociation.Release(candidate, *moved);
            DLCChildrenAssociation.Connect(first->second, *moved);
        }
        ODB::Ref<DatabaseLibraryContainerFolder>(candidate).Delete();
        MergeFolders(first->second);
    }
}

// ---- Entry points

bool WriteDatabaseContainerFile(KL::ProcessControl& process, DatabaseContainerBuilder& builder,
                                const IO::Location& location, bool createTopFolder) {
    IOUtil::ScratchFile scratch(location, ContainerMacType, ContainerMacCreator);
    if (scratch.GetStatus() != KL::NoError)
        return false;
    bool built = false;
    {
        ODB::IdSpace idSpace("lcf_IdSpace");
        DatabaseLibraryContainerErrorHandler errorHandler;
        const auto database =
            OpenContainerDatabase(scratch.GetLocation(), idSpace, errorHandler, ODB::FileDatabase::ReadWrite);
        const ReferencesDropped dropped(builder);
        const ODB::Ref<LibraryContainerFileRoot> fileRoot(new LibraryContainerFileRoot);
        database->AddObject(fileRoot);
        database->SetRootObject(fileRoot);
        DatabaseLibraryProcessControl progress(GetLibraryManagerStrings().containerCreationTitle);
        built = builder.Build(process, progress, fileRoot, createTopFolder);
        if (built) {
            builder.DropReferences();
            database->Flush();
            database->CompactToMinimum();
        }
    }
    return built && scratch.GetStatus() == KL::NoError && scratch.MakePermanent() == KL::NoError;
}

bool CreateDatabaseLibraryContainer(KL::ProcessControl& process, const LibrarySet* librarySet,
                                    const IO::Location& location,
                                    const KL::HashTable<const LibPart*, bool>* selection,
                                    bool createTopFolder) {
    if (librarySet == nullptr)
        return false;
    DatabaseContainerBuilder builder(librarySet, selection);
    return WriteDatabaseContainerFile(process, builder, location, createTopFolder);
}

bool CreateDatabaseLibraryContainer(KL::ProcessControl& process, const LibrarySet* librarySet,
                                    ODB::Ref<ODB::Object> owner,
                                    const KL::HashTable<const LibPart*, bool>* selection,
                                    bool createTopFolder, ODB::Ref<ODB::Object>* result) {
    DatabaseContainerBuilder builder(librarySet, selection);
    DatabaseLibraryProcessControl progress(GetLibraryManagerStrings().containerCreationTitle);
    const ReferencesDropped dropped(builder);
    if (!builder.Build(process, progress, owner, createTopFolder))
        return false;
    if (result != nullptr)
        *result = builder.GetContainerRoot();
    return true;
}

} // namespace LM
