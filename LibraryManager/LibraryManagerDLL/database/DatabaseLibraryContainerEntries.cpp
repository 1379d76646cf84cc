#include "database/DatabaseLibraryContainerEntries.hpp"

#include "database/DatabaseLibraryContainerAssociations.hpp"
#include "database/DatabaseLibraryContainerContent.hpp"
#include "database/InfoItemStream.hpp"
#include "database/StateLevels.hpp"

#include "ObjectDatabase/Association.hpp"
#include "ObjectDatabase/ClassRegistry.hpp"
#include "TWRoot/NonTWClass.hpp"
#include "VBUtils/NotUndoableClass.hpp"

#include "KLRoot/ErrorCodes.hpp"

namespace LM {

const KL::ClassInfo DatabaseLibraryContainerEntry::classInfo("DatabaseLibraryContainerEntry",
                                                             KL::Guid("159757F5-FA85-4F59-983C-505180658E87"),
                                                             1, 0, &ODB::Object::classInfo);
const KL::ClassInfo
    DatabaseLibraryContainerFolder::classInfo("DatabaseLibraryContainerFolder",
                                              KL::Guid("85E97D44-0DBF-42C6-98C8-6A15DC4EDA93"), 1, 0,
                                              &DatabaseLibraryContainerEntry::classInfo);
const KL::ClassInfo
    DatabaseLibraryContainerLibPartHeader::classInfo("DatabaseLibraryContainerLibPartHeader",
                                                     KL::Guid("A2A8363F-0DAA-49E2-A404-070B263FF699"), 1, 0,
                                                     &DatabaseLibraryContainerEntry::classInfo);
const KL::ClassInfo
    DatabaseLibraryContainerSymbolHeader::classInfo("DatabaseLibraryContainerSymbolHeader",
                                                    KL::Guid("5CC0B05D-A11C-4D62-B29D-A3897814A203"), 1, 0,
                                                    &DatabaseLibraryContainerLibPartHeader::classInfo);

namespace {

template <class Class>
ODB::ClassRegistration Registration() {
    return {Class::classInfo,
            Class::ConstructorFunction,
            nullptr,
            {&Undo::NotUndoableClass::Get(), &TW::NonTWClass::Get()}};
}

const ODB::ClassRegistration entryRegistration = Registration<DatabaseLibraryContainerEntry>();
const ODB::ClassRegistration folderRegistration = Registration<DatabaseLibraryContainerFolder>();
const ODB::ClassRegistration headerRegistration = Registration<DatabaseLibraryContainerLibPartHeader>();
const ODB::ClassRegistration symbolHeaderRegistration = Registration<DatabaseLibraryContainerSymbolHeader>();

// The children of `folder` that are of class T, in link order.
template <class T>
void ChildrenOfClass(const ODB::RefBase& folder, KL::Array<ODB::Ref<T>>* list) {
    if (list == nullptr)
        return;
    list->Clear();
    if (!DLCChildrenAssociation.IsConnectedAsLeft(folder))
        return;
    for (DLCChildrenIterator child(folder); !child.IsEnd(); ++child) {
        if (const auto typed = ODB::Ref<T>::Cast(*child); !typed.IsNull())
            list->Push(typed);
    }
}

int WriteName(KL::OChannel& channel, const KL::UniString& name) {
    name.Write(channel);
    return channel.GetStatus();
}

int ReadName(KL::IChannel& channel, KL::UniString& name) {
    name.Read(channel);
    return channel.GetStatus();
}

} // namespace

// --- entry

ODB::Object* DatabaseLibraryContainerEntry::ConstructorFunction() {
    return new DatabaseLibraryContainerEntry;
}

DatabaseLibraryContainerEntry::DatabaseLibraryContainerEntry() = default;
DatabaseLibraryContainerEntry::~DatabaseLibraryContainerEntry() = default;

const KL::ClassInfo* DatabaseLibraryContainerEntry::GetClassInfo() const {
    return &classInfo;
}

int DatabaseLibraryContainerEntry::WriteIsolatedState(KL::OChannel& channel) const {
    return WriteStateLevel(
        channel, classInfo, [&] { return ODB::Object::WriteIsolatedState(channel); },
        [] { return KL::NoError; });
}

int DatabaseLibraryContainerEntry::ReadIsolatedState(KL::IChannel& channel) {
    return ReadStateLevel(
        channel, classInfo, [&] { return ODB::Object::ReadIsolatedState(channel); },
        [](KL::ClassVersion) { return KL::NoError; });
}

ODB::IsolatedState* DatabaseLibraryContainerEntry::CreateIsolatedState() const {
    return new IsolatedState;
}

int DatabaseLibraryContainerEntry::StoreIsolatedState(ODB::IsolatedState* state) const {
    return IsolatedStateLevel<IsolatedState>(
        state, [&] { return ODB::Object::StoreIsolatedState(state); }, [](IsolatedState&) {});
}

int DatabaseLibraryContainerEntry::RestoreIsolatedState(const ODB::IsolatedState* state) {
    return IsolatedStateLevel<const IsolatedState>(
        state, [&] { return ODB::Object::RestoreIsolatedState(state); }, [](const IsolatedState&) {});
}

std::uint64_t DatabaseLibraryContainerEntry::GetIsolatedSize() const {
    return 24;
}

// --- folder

ODB::Object* DatabaseLibraryContainerFolder::ConstructorFunction() {
    return new DatabaseLibraryContainerFolder;
}

DatabaseLibraryContainerFolder::DatabaseLibraryContainerFolder() = default;
DatabaseLibraryContainerFolder::DatabaseLibraryContainerFolder(const KL::UniString& name) : name(name) {}
DatabaseLibraryContainerFolder::~DatabaseLibraryContainerFolder() = default;

const KL::ClassInfo* DatabaseLibraryContainerFolder::GetClassInfo() const {
    return &classInfo;
}

int DatabaseLibraryContainerFolder::WriteIsolatedState(KL::OChannel& channel) const {
    return WriteStateLevel(
        channel, classInfo, [&] { return DatabaseLibraryContainerEntry::WriteIsolatedState(channel); },
        [&] {
            WriteName(channel, name);
            channel.Write(isSubContainer);
            return WriteInfoItems(channel, infos);
        });
}

int DatabaseLibraryContainerFolder::ReadIsolatedState(KL::IChannel& channel) {
    return ReadStateLevel(
        channel, classInfo, [&] { return DatabaseLibraryContainerEntry::ReadIsolatedState(channel); },
        [&](KL::ClassVersion) {
            ReadName(channel, name);
            channel.Read(isSubContainer);
            if (channel.GetStatus() != KL::NoError)
                return channel.GetStatus();
            return ReadInfoItems(channel, infos);
        });
}

ODB::IsolatedState* DatabaseLibraryContainerFolder::CreateIsolatedState() const {
    return new IsolatedState;
}

int DatabaseLibraryContainerFolder::StoreIsolatedState(ODB::IsolatedState* state) const {
    return IsolatedStateLevel<IsolatedState>(
        state, [&] { return DatabaseLibraryContainerEntry::StoreIsolatedState(state); },
        [&](IsolatedState& own) {
            own.name = name;
            own.infos = infos;
            own.isSubContainer = isSubContainer;
        });
}

int DatabaseLibraryContainerFolder::RestoreIsolatedState(const ODB::IsolatedState* state) {
    return IsolatedStateLevel<const IsolatedState>(
        state, [&] { return DatabaseLibraryContainerEntry::RestoreIsolatedState(state); },
        [&](const IsolatedState& own) {
            name = own.name;
            infos = own.infos;
            isSubContainer = own.isSubContainer;
        });
}

std::uint64_t DatabaseLibraryContainerFolder::GetIsolatedSize() const {
    return 72;
}

void DatabaseLibraryContainerFolder::SetNameIO(const IO::Name& newName) {
    name = newName.GetText();
}

void DatabaseLibraryContainerFolder::SetInfoData(const KL::Array<InfoData*>& items) {
    infos.Clear();
    infos.PushAll(items);
}

unsigned DatabaseLibraryContainerFolder::GetInfoData(KL::Array<InfoData*>& items) const {
    return AppendItemCopies(infos, items);
}

void DatabaseLibraryContainerFolder::GetConnectedFolderObjects(
    KL::Array<ODB::Ref<DatabaseLibraryContainerFolder>>* list) const {
    ChildrenOfClass(GetRef(), list);
}

void DatabaseLibraryContainerFolder::GetConnectedFileObjects(
    KL::Array<ODB::Ref<DatabaseLibraryContainerLibPartHeader>>* list) const {
    ChildrenOfClass(GetRef(), list);
}

ODB::Ref<DatabaseLibraryContainerFolder> DatabaseLibraryContainerFolder::CreateFolderObject(const IO::Name&,
                                                                                            bool) {
    return {};
}

ODB::Ref<DatabaseLibraryContainerLibPartHeader>
DatabaseLibraryContainerFolder::CreateFileObject(const IO::Name&) {
    return {};
}

void DatabaseLibraryContainerFolder::DeleteFolderObject(const ODB::Ref<DatabaseLibraryContainerFolder>&) {}

void DatabaseLibraryContainerFolder::DeleteFileObject(
    const ODB::Ref<DatabaseLibraryContainerLibPartHeader>&) {}

// --- header

ODB::Object* DatabaseLibraryContainerLibPartHeader::ConstructorFunction() {
    return new DatabaseLibraryContainerLibPartHeader;
}

DatabaseLibraryContainerLibPartHeader::DatabaseLibraryContainerLibPartHeader() = default;
DatabaseLibraryContainerLibPartHeader::DatabaseLibraryContainerLibPartHeader(const KL::UniString& name)
    : name(name) {}
DatabaseLibraryContainerLibPartHeader::~DatabaseLibraryContainerLibPartHeader() = default;

const KL::ClassInfo* DatabaseLibraryContainerLibPartHeader::GetClassInfo() const {
    return &classInfo;
}

int DatabaseLibraryContainerLibPartHeader::WriteIsolatedState(KL::OChannel& channel) const {
    return WriteStateLevel(
        channel, classInfo, [&] { return DatabaseLibraryContainerEntry::WriteIsolatedState(channel); },
        [&] { return WriteName(channel, name); });
}

int DatabaseLibraryContainerLibPartHeader::ReadIsolatedState(KL::IChannel& channel) {
    return ReadStateLevel(
        channel, classInfo, [&] { return DatabaseLibraryContainerEntry::ReadIsolatedState(channel); },
        [&](KL::ClassVersion) { return ReadName(channel, name); });
}

ODB::IsolatedState* DatabaseLibraryContainerLibPartHeader::CreateIsolatedState() const {
    return new IsolatedState;
}

int DatabaseLibraryContainerLibPartHeader::StoreIsolatedState(ODB::IsolatedState* state) const {
    return IsolatedStateLevel<IsolatedState>(
        state, [&] { return DatabaseLibraryContainerEntry::StoreIsolatedState(state); },
        [&](IsolatedState& own) { own.name = name; });
}

int DatabaseLibraryContainerLibPartHeader::RestoreIsolatedState(const ODB::IsolatedState* state) {
    return IsolatedStateLevel<const IsolatedState>(
        state, [&] { return DatabaseLibraryContainerEntry::RestoreIsolatedState(state); },
        [&](const IsolatedState& own) { name = own.name; });
}

std::uint64_t DatabaseLibraryContainerLibPartHeader::GetIsolatedSize() const {
    return 40;
}

void DatabaseLibraryContainerLibPartHeader::SetNameIO(const IO::Name& newName) {
    name = newName.GetText();
}

ODB::ConstRef<DatabaseLibraryContainerLibPartContent>
DatabaseLibraryContainerLibPartHeader::GetContent() const {
    return ODB::ConstRef<DatabaseLibraryContainerLibPartContent>::Cast(
        DLCHeaderContentAssociation.GetRight(GetRef()));
}

std::uint64_t DatabaseLibraryContainerLibPartHeader::GetDataSize() const {
    const auto content = GetContent();
    return content.IsNull() ? 0 : content->GetLibEntrySize();
}

int DatabaseLibraryContainerLibPartHeader::GetBinData(char* dest, std::uint64_t offset, std::uint32_t size,
                                                      std::uint32_t* read) const {
    const auto content = GetContent();
    return content.IsNull() ? KL::ErrStreamFormat : content->GetBinData(dest, offset, size, read);
}

OVFS::DateTime DatabaseLibraryContainerLibPartHeader::GetCreationTime() const {
    const auto content = GetContent();
    return content.IsNull() ? OVFS::DateTime() : content->GetCreationTime();
}

OVFS::DateTime DatabaseLibraryContainerLibPartHeader::GetModificationTime() const {
    const auto content = GetContent();
    return content.IsNull() ? OVFS::DateTime() : content->GetModificationTime();
}

std::int32_t DatabaseLibraryContainerLibPartHeader::GetMacType() const {
    const auto content = GetContent();
    return content.IsNull() ? 0 : content->GetMacType();
}

std::int32_t DatabaseLibraryContainerLibPartHeader::GetMacCreator() const {
    const auto content = GetContent();
    return content.IsNull() ? 0 : content->GetMacCreator();
}

int DatabaseLibraryContainerLibPartHeader::SetBinData(const char*, std::uint64_t, std::uint32_t,
                                                      std::uint32_t*) {
    return KL::NoError;
}

// --- symbol header

ODB::Object* DatabaseLibraryContainerSymbolHeader::ConstructorFunction() {
    return new DatabaseLibraryContainerSymbolHeader;
}

DatabaseLibraryContainerSymbolHeader::DatabaseLibraryContainerSymbolHeader() = default;
DatabaseLibraryContainerSymbolHeader::DatabaseLibraryContainerSymbolHeader(const KL::UniString& name)
    : DatabaseLibraryContainerLibPartHeader(name) {}
DatabaseLibraryContainerSymbolHeader::~DatabaseLibraryContainerSymbolHeader() = default;

const KL::ClassInfo* DatabaseLibraryContainerSymbolHeader::GetClassInfo() const {
    return &classInfo;
}

int DatabaseLibraryContainerSymbolHeader::WriteIsolatedState(KL::OChannel& channel) const {
    return WriteStateLevel(
        channel, classInfo,
        [&] { return DatabaseLibraryContainerLibPartHeader::WriteIsolatedState(channel); },
        [] { return KL::NoError; });
}

int DatabaseLibraryContainerSymbolHeader::ReadIsolatedState(KL::IChannel& channel) {
    return ReadStateLevel(
        channel, classInfo, [&] { return DatabaseLibraryContainerLibPartHeader::ReadIsolatedState(channel); },
        [](KL::ClassVersion) { return KL::NoError; });
}

ODB::IsolatedState* DatabaseLibraryContainerSymbolHeader::CreateIsolatedState() const {
    return new IsolatedState;
}

int DatabaseLibraryContainerSymbolHeader::StoreIsolatedState(ODB::IsolatedState* state) const {
    return IsolatedStateLevel<IsolatedState>(
        state, [&] { return DatabaseLibraryContainerLibPartHeader::StoreIsolatedState(state); },
        [](IsolatedState&) {});
}

int DatabaseLibraryContainerSymbolHeader::RestoreIsolatedState(const ODB::IsolatedState* state) {
    return IsolatedStateLevel<const IsolatedState>(
        state, [&] { return DatabaseLibraryContainerLibPartHeader::RestoreIsolatedState(state); },
        [](const IsolatedState&) {});
}

} // namespace LM
