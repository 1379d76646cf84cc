#include "walking/LibraryCache.hpp"

#include "walking/LibraryCacheEnumerator.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileSystem.hpp"
#include "InputOutput/Folder.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLUtils/ScratchFile.hpp"

namespace LM {

namespace {

// The least an entry takes: an empty relative location and a time.
constexpr std::uint64_t MinEntrySize = 4 + 4;

IO::Location Child(const IO::Location& folder, const char* name) {
    return folder.IsEmpty() ? IO::Location() : folder + IO::Name(name);
}

TITime ModificationTimeOf(const IO::Folder& folder) {
    TITime time = 0;
    folder.GetModificationTime(&time);
    return time;
}

} // namespace

LibraryCachePaths::LibraryCachePaths(const IO::Location& binCodeFolder)
    : enabled(!binCodeFolder.IsEmpty()), rootFolder(Child(binCodeFolder, "LibraryCache")),
      dataFolder(Child(rootFolder, "Data")), folderSetFolder(Child(rootFolder, "FolderSet")) {
    if (!enabled)
        return;
    IO::fileSystem.CreateFolderTree(dataFolder);
    IO::fileSystem.CreateFolderTree(folderSetFolder);
}

IO::Location LibraryCachePaths::In(const IO::Location& folder, const KL::UniString& name) {
    const IO::Name file(name);
    return folder.IsEmpty() || !file.IsValid() ? IO::Location() : folder + file;
}

int LibraryCachePaths::WriteValidityStream(KL::OChannel& channel, const IO::Location& libraryLocation,
                                           TITime folderTime, const KL::Array<LibraryCacheEntry>& entries) {
    libraryLocation.Write(channel);
    channel.Write(static_cast<std::int32_t>(folderTime));
    channel.Write(static_cast<std::uint32_t>(entries.GetSize()));
    for (const LibraryCacheEntry& entry : entries) {
        entry.relLocation.Write(channel);
        channel.Write(static_cast<std::int32_t>(entry.modTime));
    }
    return channel.GetStatus();
}

int LibraryCachePaths::ReadValidityStream(KL::IChannel& channel, IO::Location* libraryLocation,
                                          TITime* folderTime, KL::Array<LibraryCacheEntry>* entries) {
    std::int32_t time = 0;
    std::uint32_t count = 0;
    libraryLocation->Read(channel);
    channel.Read(time);
    channel.Read(count);
    if (channel.GetStatus() != KL::NoError || channel.RequireAvailable(count * MinEntrySize) != KL::NoError)
        return channel.GetStatus() != KL::NoError ? channel.GetStatus() : KL::ErrStreamFormat;
    *folderTime = time;
    entries->Clear();
    for (std::uint32_t i = 0; i < count; ++i) {
        LibraryCacheEntry& entry = entries->PushNew();
        std::int32_t modTime = 0;
        entry.relLocation.Read(channel);
        channel.Read(modTime);
        entry.modTime = modTime;
        if (channel.GetStatus() != KL::NoError)
            return channel.GetStatus();
    }
    return KL::NoError;
}

bool LibraryCachePaths::CheckValidity(KL::ProcessControl& process, const IO::Folder& folder,
                                      LibrarySet* librarySet, const IO::Location& partStream) const {
    IO::Name name;
    if (partStream.GetLastLocalName(&name) != KL::NoError)
        return false;
    IO::File validity(ValidityStream(name.GetText()));
    if (validity.Open(IO::File::ReadMode) != KL::NoError)
        return false;
    IO::Location libraryLocation;
    TITime folderTime = 0;
    KL::Array<LibraryCacheEntry> entries;
    // The comparing walk begins to list the library while its list is read.
    LibraryCacheEnumerator comparison(process, folder, librarySet, &entries);
    if (ReadValidityStream(validity, &libraryLocation, &folderTime, &entries) != KL::NoError ||
        !(libraryLocation == folder.GetLocation()) || folderTime != ModificationTimeOf(folder))
        return false;
    return comparison.Do() == KL::NoError && comparison.IsValid();
}

int LibraryCachePaths::WriteValidity(const KL::UniString& name, const IO::Location& libraryLocation,
                                     const IO::Folder& folder,
                                     const KL::Array<LibraryCacheEntry>& entries) const {
    IOUtil::ScratchFile stream(ValidityStream(name));
    if (const int err = stream.Open(IO::File::WriteMode); err != KL::NoError)
        return err;
    if (const int err = WriteValidityStream(stream.GetOutputChannel(), libraryLocation,
                                            ModificationTimeOf(folder), entries);
        err != KL::NoError)
        return err;
    return stream.MakePermanent();
}

void LibraryCachePaths::DropValidity(const KL::UniString& name) const {
    const IO::Location location = ValidityStream(name);
    if (!location.IsEmpty())
        IO::fileSystem.Delete(location);
}

} // namespace LM
