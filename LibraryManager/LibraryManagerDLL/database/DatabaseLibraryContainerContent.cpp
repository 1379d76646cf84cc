#include "database/DatabaseLibraryContainerContent.hpp"

#include "database/DatabaseLibraryContainerRoot.hpp"
#include "database/InfoItemStream.hpp"
#include "database/StateLevels.hpp"

#include "ObjectDatabase/ClassRegistry.hpp"
#include "TWRoot/NonTWClass.hpp"
#include "VBUtils/NotUndoableClass.hpp"

#include "InputOutput/File.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <cstring>

namespace LM {

const KL::ClassInfo
    DatabaseLibraryContainerLibPartContent::classInfo("DatabaseLibraryContainerLibPartContent",
                                                      KL::Guid("6FAAF82C-C131-4F8B-B1D9-9706144935DD"), 1, 0,
                                                      &ODB::Object::classInfo);

namespace {

// Kept apart from the headers, so a folder lists without paging through file bytes.
const ODB::StorageGroup contentGroup(KL::Guid("4D82E4B9-68CE-48BC-AD4E-37CA24E3717F"),
                                     DatabaseLibraryContainerRoot::classInfo);
const ODB::ClassRegistration contentRegistration(DatabaseLibraryContainerLibPartContent::classInfo,
                                                 DatabaseLibraryContainerLibPartContent::ConstructorFunction,
                                                 &contentGroup,
                                                 {&Undo::NotUndoableClass::Get(), &TW::NonTWClass::Get()});

void WriteTime(KL::OChannel& channel, OVFS::DateTime time) {
    channel.Write(time.GetHigh());
    channel.Write(time.GetLow());
}

OVFS::DateTime ReadTime(KL::IChannel& channel) {
    std::uint32_t high = 0;
    std::uint32_t low = 0;
    channel.Read(high);
    channel.Read(low);
    return {high, low};
}

} // namespace

ODB::Object* DatabaseLibraryContainerLibPartContent::ConstructorFunction() {
    return new DatabaseLibraryContainerLibPartContent;
}

DatabaseLibraryContainerLibPartContent::DatabaseLibraryContainerLibPartContent() = default;

DatabaseLibraryContainerLibPartContent::DatabaseLibraryContainerLibPartContent(
    const KL::UniString& name, const KL::UniString& mime, OVFS::DateTime creationTime,
    OVFS::DateTime modificationTime, std::int32_t macType, std::int32_t macCreator)
    : macType(macType), macCreator(macCreator), creationTime(creationTime),
      modificationTime(modificationTime), name(name), mime(mime) {}

DatabaseLibraryContainerLibPartContent::~DatabaseLibraryContainerLibPartContent() = default;

const KL::ClassInfo* DatabaseLibraryContainerLibPartContent::GetClassInfo() const {
    return &classInfo;
}

int DatabaseLibraryContainerLibPartContent::WriteIsolatedState(KL::OChannel& channel) const {
    return WriteStateLevel(
        channel, classInfo, [&] { return ODB::Object::WriteIsolatedState(channel); },
        [&] {
            name.Write(channel);
            mime.Write(channel);
            channel.Write(macType);
            channel.Write(macCreator);
            WriteTime(channel, creationTime);
            WriteTime(channel, modificationTime);
            WriteInfoItems(channel, infos);
            channel.Write(libEntrySize);
            if (libEntrySize != 0)
                channel.WriteBin(libEntry.get(), libEntrySize);
            return channel.GetStatus();
        });
}

int DatabaseLibraryContainerLibPartContent::ReadIsolatedState(KL::IChannel& channel) {
    return ReadStateLevel(
        channel, classInfo, [&] { return ODB::Object::ReadIsolatedState(channel); },
        [&](KL::ClassVersion) {
            name.Read(channel);
            mime.Read(channel);
            channel.Read(macType);
            channel.Read(macCreator);
            creationTime = ReadTime(channel);
            modificationTime = ReadTime(channel);
            if (channel.GetStatus() != KL::NoError)
                return channel.GetStatus();
            int result = ReadInfoItems(channel, infos);
            std::uint32_t size = 0;
            if (channel.Read(size) != KL::NoError)
                return channel.GetStatus();
            if (size != 0) {
                // A length past what the stream holds is refused before anything is allocated.
                if (const int available = channel.RequireAvailable(size); available != KL::NoError)
                    return available;
                auto bytes = std::make_unique_for_overwrite<char[]>(size);
                if (const int read = channel.ReadBin(bytes.get(), size); read != KL::NoError)
                    return read;
                TakeLibEntry(std::move(bytes), size);
            }
            return result;
        });
}

ODB::IsolatedState* DatabaseLibraryContainerLibPartContent::CreateIsolatedState() const {
    return new IsolatedState;
}

int DatabaseLibraryContainerLibPartContent::StoreIsolatedState(ODB::IsolatedState* state) const {
    return IsolatedStateLevel<IsolatedState>(
        state, [&] { return ODB::Object::StoreIsolatedState(state); },
        [&](IsolatedState& own) {
            own.macType = macType;
            own.macCreator = macCreator;
            own.creationTime = creationTime;
            own.modificationTime = modificationTime;
            own.name = name;
            own.mime = mime;
            own.infos = infos;
            own.libEntry.assign(libEntry.get(), libEntry.get() + libEntrySize);
        });
}

int DatabaseLibraryContainerLibPartContent::RestoreIsolatedState(const ODB::IsolatedState* state) {
    return IsolatedStateLevel<const IsolatedState>(
        state, [&] { return ODB::Object::RestoreIsolatedState(state); },
        [&](const IsolatedState& own) {
            macType = own.macType;
            macCreator = own.macCreator;
            creationTime = own.creationTime;
            modificationTime = own.modificationTime;
            name = own.name;
            mime = own.mime;
            infos = own.infos;
            auto bytes = std::make_unique_for_overwrite<char[]>(own.libEntry.size());
            std::memcpy(bytes.get(), own.libEntry.data(), own.libEntry.size());
            TakeLibEntry(std::move(bytes), static_cast<std::uint32_t>(own.libEntry.size()));
        });
}

std::uint64_t DatabaseLibraryContainerLibPartContent::GetIsolatedSize() const {
    return 120 + std::uint64_t{libEntrySize} + SumOfItemSizes(infos);
}

void DatabaseLibraryContainerLibPartContent::TakeLibEntry(std::unique_ptr<char[]> bytes, std::uint32_t size) {
    libEntry = std::move(bytes);
    libEntrySize = size;
}

int DatabaseLibraryContainerLibPartContent::SetLibEntry(const IO::Location& location) {
    IO::File file(location);
    if (file.GetStatus() != KL::NoError)
        return file.GetStatus();
    if (const int opened = file.Open(IO::File::ReadMode); opened != KL::NoError)
        return opened;
    std::uint64_t length = 0;
    int result = file.GetDataLength(&length);
    if (result == KL::NoError && length > UINT32_MAX)
        result = KL::ErrStreamFormat;
    if (result == KL::NoError && length != 0)
        result = SetLibEntry(file, static_cast<std::uint32_t>(length));
    file.Close();
    return result;
}

int DatabaseLibraryContainerLibPartContent::SetLibEntry(KL::IChannel& channel, std::uint32_t size) {
    if (size == 0)
        return KL::ErrStreamFormat;
    auto bytes = std::make_unique_for_overwrite<char[]>(size);
    if (const int read = channel.ReadBin(bytes.get(), size); read != KL::NoError)
        return read;
    TakeLibEntry(std::move(bytes), size);
    return KL::NoError;
}

int DatabaseLibraryContainerLibPartContent::GetBinData(char* dest, std::uint64_t offset, std::uint32_t size,
                                                       std::uint32_t* read) const {
    if (offset > libEntrySize || size > libEntrySize - offset) {
        if (read != nullptr)
            *read = 0;
        return KL::ErrStreamFormat;
    }
    if (size != 0)
        std::memcpy(dest, libEntry.get() + offset, size);
    if (read != nullptr)
        *read = size;
    return KL::NoError;
}

int DatabaseLibraryContainerLibPartContent::WriteToChannel(KL::OChannel& channel) const {
    if (libEntrySize != 0)
        channel.WriteBin(libEntry.get(), libEntrySize);
    return channel.GetStatus();
}

void DatabaseLibraryContainerLibPartContent::SetInfoData(const KL::Array<InfoData*>& items) {
    infos.Clear();
    infos.PushAll(items);
}

unsigned DatabaseLibraryContainerLibPartContent::GetInfoData(KL::Array<InfoData*>& items) const {
    return AppendItemCopies(infos, items);
}

} // namespace LM
