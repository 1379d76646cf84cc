#include "KLUtils/ScratchFile.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/Folder.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace IOUtil {

namespace {

constexpr int MaxCreateTries = 16;
// Room left in a name for the marks around the target's name; file systems allow 255 bytes.
constexpr std::size_t MaxKeptNameLength = 200;

int SyncFolder(const IO::Location& folder) {
    const int descriptor = open(folder.ToString().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return KL::NoError; // nothing to sync where the folder cannot be opened for it
    fsync(descriptor);
    close(descriptor);
    return KL::NoError;
}

} // namespace

ScratchFile::ScratchFile(const IO::Location& targetLocation, std::uint32_t typeCode,
                         std::uint32_t creatorCode, Durability durability)
    : target(targetLocation), type(typeCode), creator(creatorCode), durability(durability) {
    CreateScratch();
}

ScratchFile::~ScratchFile() {
    if (permanent)
        return;
    Close();
    if (!GetLocation().IsEmpty() && GetLocation() != target)
        IO::fileSystem.Delete(GetLocation());
}

int ScratchFile::CreateScratch() {
    IO::Name name;
    if (target.GetLastLocalName(&name) != KL::NoError)
        return ConnectFailed(IO::InvalidLocationError);
    IO::Location parentLocation = target;
    parentLocation.DeleteLastLocalName();
    IO::Folder parent(parentLocation);
    if (parent.GetStatus() != KL::NoError)
        return ConnectFailed(parent.GetStatus());
    const KL::UniString base = KL::UniString(".") + name.GetText().GetPrefix(MaxKeptNameLength);
    for (int attempt = 0; attempt < MaxCreateTries; ++attempt) {
        IO::Name scratch;
        int err = parent.GenerateUnusedNameFromString(base, &scratch, ".scratch");
        if (err == KL::NoError)
            err = parent.CreateFile(scratch);
        if (err == IO::AlreadyExistsError)
            continue; // taken between the two calls
        if (err != KL::NoError)
            return ConnectFailed(err);
        return Connect(parentLocation + scratch, Fail);
    }
    return ConnectFailed(IO::AlreadyExistsError);
}

int ScratchFile::MakePermanent() {
    if (permanent)
        return KL::NoError;
    if (GetStatus() != KL::NoError && !IsOpen())
        return GetStatus();
    if (GetOwnerFileSystem() != nullptr)
        return KL::ErrNotSupported;
    if (IsOpen()) {
        if (durability == SyncEach) {
            if (const int err = Flush(); err != KL::NoError)
                return err;
        }
        if (const int err = Close(); err != KL::NoError)
            return err;
    }
    const IO::Location scratch = GetLocation();
    if (const int err = IO::fileSystem.Move(scratch, target); err != KL::NoError)
        return err;
    if (durability == SyncEach) {
        IO::Location folder = target;
        folder.DeleteLastLocalName();
        SyncFolder(folder);
    }
    permanent = true;
    Connect(target, Fail);
    if (type != 0 || creator != 0)
        SetTypeInfo(type, creator); // codes are a courtesy: a system without them loses nothing else
    return KL::NoError;
}

} // namespace IOUtil
