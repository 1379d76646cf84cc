#include "services/LibrarySetSingletonLP.hpp"

#include "bincode/QdlBinCodesContainer.hpp"
#include "catalogue/LibraryErrorHandler.hpp"
#include "services/BinFileTypes.hpp"
#include "services/FileServices.hpp"
#include "services/FileTypeInitializer.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/FileTypeManager.hpp"
#include "KLMSections/InitLibPartFile.hpp"
#include "KLRoot/DebugChannel.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLUtils/ProductVersionInfo.hpp"
#include "LibraryManagerErrors.hpp"
#include "QDL/ParamSection.hpp"

#include <exception>
#include <new>
#include <utility>

namespace LM {

namespace {

// What the library changes answer before InitLibraryManager or after ExitLibraryManager.
constexpr short NotStartedError = static_cast<short>(LibPartFileError);

constexpr const char* LibraryPartExtensions[LibrarySetSingletonLP::LibraryPartTypeCount] = {
    "klm", "dor", "win", "lmp", "rsm", "lsm", "ism", "esm", "gps"};

LibraryManagerStrings StartUpStrings() {
    LibraryManagerStrings strings;
    strings.binCodeFileName = KL::UniString("Tectonix QdlBinCode");
    strings.rootFolderName = KL::UniString("Libraries");
    strings.missingFolderName = KL::UniString("Missing");
    strings.temporarilyMissingFolderName = KL::UniString("Temporarily Missing");
    strings.containerCreationTitle = KL::UniString("Creating Library Container");
    strings.containerExtractionTitle = KL::UniString("Extracting Library Container");
    strings.embeddedLibraryName = KL::UniString("Embedded Library");
    return strings;
}

IO::Location SpecialFolderWith(IO::FileSystem::SpecLocId id, std::initializer_list<KL::UniString> names) {
    IO::Location location;
    if (IO::fileSystem.GetSpecialLocation(id, &location) != 0)
        return IO::Location();
    for (const KL::UniString& name : names)
        location.Append(IO::Name(name));
    return location;
}

} // namespace

LibrarySetSingletonLP::LibrarySetSingletonLP() {
    fileTypeManager = new (std::nothrow) FTM::FileTypeManager("MAKE");
    if (fileTypeManager == nullptr)
        throw KL::OutOfMemoryException("No memory for the file type manager.", __FILE__, __LINE__);
}

LibrarySetSingletonLP::~LibrarySetSingletonLP() {
    if (librarySet != nullptr)
        ExitLibraryManager();
    delete std::exchange(fileTypeManager, nullptr);
}

FTM::TypeID LibrarySetSingletonLP::AddType(const char* name, const char* extensions, const char (&creator)[5],
                                           const char (&type)[5], int resourceId) {
    const FTM::FileType fileType(KL::UniString(name), KL::UniString(extensions), FTM::MakeCode(creator),
                                 FTM::MakeCode(type), resourceId);
    return fileTypeManager->AddType(fileType, FTM::RootGroup);
}

int LibrarySetSingletonLP::InitLibraryManager(BinaryCachingMode mode, FileServices** outFileServices,
                                              IO::Location* dataFolder, IFileTypeInitializer* initializer) {
    try {
        fileTypeInitializer = initializer != nullptr ? initializer : new DefaultFileTypeInitializer;
        InitLibPartFile("Default_Set");
        RegisterLibraryPartTypes();
        fileTypeInitializer->InitImageFileTypes(publicIDs, fileTypeManager);
        LM::InitLibraryManager(LibraryManagerCallBacks{}, StartUpStrings(), publicIDs.symbolGroup,
                               publicIDs.scriptType);

        KL::ArrayFB<FTM::GeneralID, 10> storable;
        for (FTM::GeneralID type :
             {FTM::GeneralID(publicIDs.symbolGroup), FTM::GeneralID(publicIDs.scriptType),
              FTM::GeneralID(publicIDs.imageGroup), FTM::GeneralID(publicIDs.textType),
              FTM::GeneralID(publicIDs.xmlType), FTM::GeneralID(publicIDs.packageType)})
            storable.Push(type);
        const KL::ArrayFB<FTM::GeneralID, 10> unsupported;
        RegisterBinFileTypes(
            SpecialFolderWith(IO::FileSystem::ConfigurationFolder, {KL::UniString(BinFileTypesFileName)}),
            *fileTypeManager, &storable);

        errorHandler = new DefLibraryErrorHandler;
        const IO::Location cacheFolder = CompiledScriptCacheFolder(mode);
        binCodes =
            cacheFolder.IsEmpty()
                ? new QdlBinCodesContainer(QdlBinCodesContainer::NoLimit, QdlBinCodesContainer::NoLimit)
                : new QdlBinCodesContainer(cacheFolder, QdlBinCodesContainer::NoLimit,
                                           QdlBinCodesContainer::NoLimit);
        librarySet = new LibrarySet(binCodes, *errorHandler, nullptr, storable, unsupported,
                                    FTM::UnknownGroup, IO::Location());
        RegisterListTypes();

        const IO::Location data = dataFolder != nullptr ? *dataFolder : DefaultDataFolder();
        const double noValues[26] = {};
        const FileTypeIDS fileTypes(publicIDs.imageGroup, publicIDs.symbolGroup, publicIDs.scriptType,
                                    publicIDs.listSetupType, publicIDs.textType, publicIDs.textGroup,
                                    publicIDs.listCriteriaType);
        fileServices = new FileServices(librarySet, data, fileTypes, QDLParamsToVarHdl(noValues, 26));
        if (outFileServices != nullptr)
            *outFileServices = fileServices;
        return 0;
    } catch (const std::exception& exception) {
        KL::WriteDebugText(std::string("Library manager start-up failed: ") + exception.what());
        return LibPartFileError;
    } catch (...) {
        // A host's file type initializer may throw anything; start-up still answers with a code.
        KL::WriteDebugText("Library manager start-up failed.");
        return LibPartFileError;
    }
}

// The script, text, XML and package types, then the library part types in their own group. The
// package type is registered twice on purpose: hosts look it up by either id.
void LibrarySetSingletonLP::RegisterLibraryPartTypes() {
    publicIDs.scriptType = AddType("QDL Script", "qdl", "KLTX", "TEXT");
    publicIDs.textType = AddType("Text File", "txt", "XCEL", "TEXT");
    publicIDs.xmlType = AddType("XML File", "xml", "MSIE", "TEXT");
    publicIDs.packageType = AddType("KLPC File", "klpc", "KLTX", "KLPC");
    publicIDs.symbolGroup = fileTypeManager->AddGroup(KL::UniString("Symbol Files"), FTM::RootGroup);
    for (int i = 0; i < LibraryPartTypeCount; ++i)
        symbolTypes[i] = AddType("Tectonix Object File", LibraryPartExtensions[i], "KLTX", "KSYM");
    extraPackageType = AddType("KLPC File", "klpc", "KLTX", "KLPC");
    for (FTM::TypeID type : symbolTypes)
        fileTypeManager->AddTypeToGroup(type, publicIDs.symbolGroup);
}

void LibrarySetSingletonLP::RegisterListTypes() {
    publicIDs.listSetupType = AddType("List Setup File", "lis", "KLTX", ".LIS", 215);
    fileTypeManager->AddTypeToGroup(AddType("Plain Text", "txt", "ttxt", "TEXT", 173), publicIDs.textGroup);
    fileTypeManager->AddTypeToGroup(AddType("Tabbed Text", "txt", "XCEL", "TEXT", 160), publicIDs.textGroup);
    fileTypeManager->AddTypeToGroup(AddType("Teamwork Notes File", "txt", "ttxt", "TEXT", 173),
                                    publicIDs.textGroup);
    fileTypeManager->AddTypeToGroup(AddType("List Template File", "txt", "ttxt", "TEXT", 173),
                                    publicIDs.textGroup);
    publicIDs.listCriteriaType = AddType("Binary List Criteria", "lic", "KLTX", "CRIT", 216);
}

IO::Location LibrarySetSingletonLP::CompiledScriptCacheFolder(BinaryCachingMode mode) {
    if (mode != BinaryCachingOnDisk)
        return IO::Location();
    return SpecialFolderWith(IO::FileSystem::UserCacheFolder,
                             {KL::UniString("Kestrelane"), KL::UniString("KFLibPartCache"),
                              SU::ProductVersionInfo::GetPreferencesPostfix()});
}

IO::Location LibrarySetSingletonLP::DefaultDataFolder() {
    return SpecialFolderWith(IO::FileSystem::UserDataFolder, {KL::UniString("KFLibPartData")});
}

// The package type's first registration and the four text types stay registered: hosts that
// looked them up keep valid ids.
void LibrarySetSingletonLP::ExitLibraryManager() {
    delete std::exchange(librarySet, nullptr);
    delete std::exchange(binCodes, nullptr);
    delete std::exchange(errorHandler, nullptr);
    delete std::exchange(fileServices, nullptr);
    FreeLibraryManager();
    if (fileTypeInitializer != nullptr)
        fileTypeInitializer->DestructImageFileTypes(publicIDs, fileTypeManager);
    fileTypeManager->RemoveGroup(publicIDs.symbolGroup);
    fileTypeManager->RemoveGroup(publicIDs.textGroup);
    for (FTM::TypeID type : symbolTypes)
        fileTypeManager->RemoveType(type);
    for (FTM::TypeID type : {extraPackageType, publicIDs.scriptType, publicIDs.textType, publicIDs.xmlType,
                             publicIDs.listSetupType, publicIDs.listCriteriaType})
        fileTypeManager->RemoveType(type);
    delete std::exchange(fileTypeInitializer, nullptr);
}

short LibrarySetSingletonLP::AddLibrary(KL::ProcessControl& process, const IO::Location& location,
                                        bool enumerate) {
    if (librarySet == nullptr)
        return NotStartedError;
    librarySet->AddActiveLibrary(process, location, LocalLibrary, NotVital, KL::NULLGuid, KL::UniString(),
                                 false);
    if (enumerate)
        librarySet->Enumerate(process);
    return 0;
}

short LibrarySetSingletonLP::AddLibraries(KL::ProcessControl& process,
                                          const KL::Array<IO::Location>& locations) {
    if (librarySet == nullptr)
        return NotStartedError;
    for (const IO::Location& location : locations)
        librarySet->AddActiveLibrary(process, location, LocalLibrary, NotVital, KL::NULLGuid, KL::UniString(),
                                     false);
    librarySet->Enumerate(process);
    return 0;
}

short LibrarySetSingletonLP::RemoveLibrary(KL::ProcessControl& process, const IO::Location& location) {
    if (librarySet == nullptr)
        return NotStartedError;
    const int index = librarySet->GetActiveLibraryIndex(location);
    if (index == -1)
        return static_cast<short>(LibPartFileError);
    librarySet->RemoveActiveLibrary(index);
    librarySet->Enumerate(process);
    return 0;
}

short LibrarySetSingletonLP::RemoveAllLibraries(KL::ProcessControl& process) {
    if (librarySet == nullptr)
        return NotStartedError;
    librarySet->ResetActiveLibraries();
    librarySet->Enumerate(process);
    return 0;
}

int LibrarySetSingletonLP::SetLibraryContainerVFSOptions(const LibraryContainerVFSOptions& options) {
    if (librarySet == nullptr)
        return LibPartFileError;
    return librarySet->SetLibraryContainerVFSOptions(options);
}

} // namespace LM
