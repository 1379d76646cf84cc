#include "database/DatabaseLibraryContainerRoot.hpp"

#include "database/DatabaseLibraryContainerAssociations.hpp"
#include "database/StateLevels.hpp"

#include "ObjectDatabase/ClassRegistry.hpp"
#include "TWRoot/NonTWClass.hpp"
#include "VBUtils/NotUndoableClass.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace LM {

namespace {

constexpr std::int32_t DefaultMagic = 0x4B4C4346; // "KLCF"
constexpr std::int32_t DefaultFileType = 0x65C07A1E;

} // namespace

const KL::ClassInfo DatabaseLibraryContainerRoot::classInfo("DatabaseLibraryContainerRoot",
                                                            KL::Guid("07CEF894-9581-4805-B50F-7DD328D39E8C"),
                                                            2, 0, &ODB::Object::classInfo);
const KL::ClassInfo LibraryContainerFileRoot::classInfo("LibraryContainerFileRoot",
                                                        KL::Guid("193C5C99-1DAC-47B9-A7A2-CC51662F963C"), 1,
                                                        0, &ODB::Object::classInfo);

namespace {

const ODB::StorageGroup rootGroup(KL::Guid("C263886B-2236-4893-9F10-9579237A2AD3"),
                                  DatabaseLibraryContainerRoot::classInfo);
const ODB::ClassRegistration rootRegistration(DatabaseLibraryContainerRoot::classInfo,
                                              DatabaseLibraryContainerRoot::ConstructorFunction, &rootGroup,
                                              {&Undo::NotUndoableClass::Get(), &TW::NonTWClass::Get()});
const ODB::ClassRegistration fileRootRegistration(LibraryContainerFileRoot::classInfo,
                                                  LibraryContainerFileRoot::ConstructorFunction, nullptr,
                                                  {&Undo::NotUndoableClass::Get(), &TW::NonTWClass::Get()});

} // namespace

ODB::Object* DatabaseLibraryContainerRoot::ConstructorFunction() {
    return new DatabaseLibraryContainerRoot;
}

DatabaseLibraryContainerRoot::DatabaseLibraryContainerRoot()
    : DatabaseLibraryContainerRoot(DefaultMagic, DefaultFileType, 1, 0) {}

DatabaseLibraryContainerRoot::DatabaseLibraryContainerRoot(std::int32_t magic, std::int32_t fileType,
                                                           std::int16_t versionH, std::int16_t versionL)
    : magic(magic), fileType(fileType), versionH(versionH), versionL(versionL) {}

DatabaseLibraryContainerRoot::~DatabaseLibraryContainerRoot() = default;

const KL::ClassInfo* DatabaseLibraryContainerRoot::GetClassInfo() const {
    return &classInfo;
}

int DatabaseLibraryContainerRoot::WriteIsolatedState(KL::OChannel& channel) const {
    return WriteStateLevel(
        channel, classInfo, [&] { return ODB::Object::WriteIsolatedState(channel); },
        [&] { return WriteCoreVersion2(channel); });
}

int DatabaseLibraryContainerRoot::ReadIsolatedState(KL::IChannel& channel) {
    // Versions this code does not know leave the fields as they are.
    return ReadStateLevel(
        channel, classInfo, [&] { return ODB::Object::ReadIsolatedState(channel); },
        [&](KL::ClassVersion version) {
            if (version.major == 1)
                return ReadCoreVersion1(channel);
            if (version.major == 2)
                return ReadCoreVersion2(channel);
            return KL::NoError;
        });
}

int DatabaseLibraryContainerRoot::WriteCoreVersion1(KL::OChannel& channel) const {
    if (channel.GetStatus() != KL::NoError)
        return channel.GetStatus();
    channel.Write(magic);
    channel.Write(fileType);
    channel.Write(versionH);
    channel.Write(versionL);
    channel.Write(static_cast<std::int16_t>(platform));
    return channel.GetStatus();
}

int DatabaseLibraryContainerRoot::WriteCoreVersion2(KL::OChannel& channel) const {
    if (const int result = WriteCoreVersion1(channel); result != KL::NoError)
        return result;
    channel.Write(fileCount);
    return channel.GetStatus();
}

int DatabaseLibraryContainerRoot::ReadCoreVersion1(KL::IChannel& channel) {
    if (channel.GetStatus() != KL::NoError)
        return channel.GetStatus();
    std::int16_t storedPlatform = 0;
    channel.Read(magic);
    channel.Read(fileType);
    channel.Read(versionH);
    channel.Read(versionL);
    channel.Read(storedPlatform);
    platform = storedPlatform;
    return channel.GetStatus();
}

int DatabaseLibraryContainerRoot::ReadCoreVersion2(KL::IChannel& channel) {
    if (const int result = ReadCoreVersion1(channel); result != KL::NoError)
        return result;
    channel.Read(fileCount);
    return channel.GetStatus();
}

ODB::IsolatedState* DatabaseLibraryContainerRoot::CreateIsolatedState() const {
    return new IsolatedState;
}

int DatabaseLibraryContainerRoot::StoreIsolatedState(ODB::IsolatedState* state) const {
    return IsolatedStateLevel<IsolatedState>(
        state, [&] { return ODB::Object::StoreIsolatedState(state); },
        [&](IsolatedState& own) {
            own.magic = magic;
            own.fileType = fileType;
            own.versionH = versionH;
            own.versionL = versionL;
            own.platform = platform;
            own.fileCount = fileCount;
        });
}

int DatabaseLibraryContainerRoot::RestoreIsolatedState(const ODB::IsolatedState* state) {
    return IsolatedStateLevel<const IsolatedState>(
        state, [&] { return ODB::Object::RestoreIsolatedState(state); },
        [&](const IsolatedState& own) {
            magic = own.magic;
            fileType = own.fileType;
            versionH = own.versionH;
            versionL = own.versionL;
            platform = own.platform;
            fileCount = own.fileCount;
        });
}

std::uint64_t DatabaseLibraryContainerRoot::GetIsolatedSize() const {
    return 48;
}

void DatabaseLibraryContainerRoot::GetConnectedFolderObjects(
    KL::Array<ODB::Ref<DatabaseLibraryContainerFolder>>* list) const {
    if (list == nullptr)
        return;
    list->Clear();
    const auto folder =
        ODB::Ref<DatabaseLibraryContainerFolder>::Cast(DLCRootFolderAssociation.GetRight(GetRef()));
    if (!folder.IsNull())
        list->Push(folder);
}

void DatabaseLibraryContainerRoot::GetConnectedFileObjects(
    KL::Array<ODB::Ref<DatabaseLibraryContainerLibPartHeader>>* list) const {
    if (list != nullptr)
        list->Clear();
}

ODB::Ref<DatabaseLibraryContainerFolder> DatabaseLibraryContainerRoot::CreateFolderObject(const IO::Name&,
                                                                                          bool) {
    return {};
}

ODB::Ref<DatabaseLibraryContainerLibPartHeader>
DatabaseLibraryContainerRoot::CreateFileObject(const IO::Name&) {
    return {};
}

void DatabaseLibraryContainerRoot::DeleteFolderObject(const ODB::Ref<DatabaseLibraryContainerFolder>&) {}

void DatabaseLibraryContainerRoot::DeleteFileObject(const ODB::Ref<DatabaseLibraryContainerLibPartHeader>&) {}

ODB::Object* LibraryContainerFileRoot::ConstructorFunction() {
    return new LibraryContainerFileRoot;
}

LibraryContainerFileRoot::LibraryContainerFileRoot() = default;

LibraryContainerFileRoot::~LibraryContainerFileRoot() = default;

const KL::ClassInfo* LibraryContainerFileRoot::GetClassInfo() const {
    return &classInfo;
}

int LibraryContainerFileRoot::WriteIsolatedState(KL::OChannel& channel) const {
    return WriteStateLevel(
        channel, classInfo, [&] { return ODB::Object::WriteIsolatedState(channel); },
        [] { return KL::NoError; });
}

int LibraryContainerFileRoot::ReadIsolatedState(KL::IChannel& channel) {
    return ReadStateLevel(
        channel, classInfo, [&] { return ODB::Object::ReadIsolatedState(channel); },
        [](KL::ClassVersion) { return KL::NoError; });
}

} // namespace LM
