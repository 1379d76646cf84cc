#include "containers/ExtractionPaths.hpp"

#include "containers/ContainerFormat.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/FileType.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <cstdio>
#include <string>

namespace LM {

namespace {

IO::Location ParentOf(const IO::Location& location) {
    IO::Location parent = location;
    parent.DeleteLastLocalName();
    return parent;
}

IO::Name LastNameOf(const IO::Location& location) {
    IO::Name name;
    location.GetLastLocalName(&name);
    return name;
}

// Makes the folder `name` in `parent`. A link standing there is removed, never followed: it may
// lead outside the destination.
int MakeOwnFolder(IO::Folder& parent, const IO::Name& name) {
    const int made = parent.CreateFolder(name);
    if (made != IO::AlreadyExistsError)
        return made;
    IO::EntryType type = IO::FileEntryType;
    if (const int err = parent.GetEntryType(name, &type); err != KL::NoError)
        return err;
    if (type == IO::FolderEntryType)
        return KL::NoError;
    if (type != IO::LinkEntryType)
        return IO::WrongKindError;
    if (const int err = parent.Delete(name); err != KL::NoError)
        return err;
    return parent.CreateFolder(name);
}

int MakeOwnFolder(const IO::Location& location) {
    IO::Folder parent(ParentOf(location));
    if (parent.GetStatus() != KL::NoError)
        return parent.GetStatus();
    return MakeOwnFolder(parent, LastNameOf(location));
}

// "a.txt" as "a-2.txt", "a" as "a-2".
IO::Name NumberedName(const IO::Name& name, int number) {
    const std::string suffix = "-" + std::to_string(number);
    if (!name.HasExtension())
        return IO::Name(name.ToUTF8() + suffix);
    return IO::Name(name.GetBase().ToUTF8() + suffix + "." + name.GetExtension().ToUTF8());
}

} // namespace

void ExtractionPaths::MeasureBase(const IO::Location& base) {
    if (basePathLength != 0)
        return;
    for (std::size_t i = 0; i < base.GetLength(); ++i) {
        IO::Name name;
        base.GetLocalName(i, &name);
        basePathLength += NameLength(name);
    }
}

int ExtractionPaths::MakeFolder(const IO::Location& location) {
    if (basePathLength + folderPathLength >= MaxFolderPathLength) {
        inSpecFolder = true;
        return KL::NoError;
    }
    inSpecFolder = false;
    return MakeOwnFolder(location);
}

int ExtractionPaths::FileTarget(const IO::Location& base, const IO::Location& regular, IO::Location* target) {
    const IO::Name name = LastNameOf(regular);
    const bool overflows =
        inSpecFolder ||
        basePathLength + folderPathLength + static_cast<int>(name.GetLength()) >= MaxFilePathLength;
    if (!overflows) {
        *target = regular;
        return KL::NoError;
    }
    return SideFolderTarget(base, name, target);
}

int ExtractionPaths::SideFolderTarget(const IO::Location& base, const IO::Name& name, IO::Location* target) {
    int made = KL::NoError;
    if (specFileCount == 0 || ++specFileCount >= SideFolderCapacity) {
        specFileCount = 1;
        ++specFolderIndex;
        std::snprintf(specFolderName, sizeof specFolderName, "0000-%d", specFolderIndex);
        made = MakeOwnFolder(base + IO::Name(specFolderName));
    }
    *target = base + IO::Name(specFolderName);
    IO::Folder folder(*target);
    IO::Name unused = name;
    for (int number = 2; folder.Contains(unused); ++number)
        unused = NumberedName(name, number);
    const int appended = target->Append(unused);
    return made != KL::NoError ? made : appended;
}

// The opening makes the file, so that nothing already at the place is written through (a link
// planted there is removed and the file made anew).
int ExtractionPaths::OpenTarget(const IO::Location& target, IO::File* out) {
    const IO::Location parent = ParentOf(target);
    if (targetFolder.GetLocation() != parent)
        targetFolder = IO::Folder(parent);
    int made = out->Open(IO::File::NewMode);
    if (made == IO::AlreadyExistsError && targetFolder.Delete(LastNameOf(target)) == KL::NoError)
        made = out->Open(IO::File::NewMode);
    return made;
}

// The stamp goes on through the opening, after the content is out and before the file closes.
ExtractionPaths::Written ExtractionPaths::WriteTarget(const IO::Location& target, const FileStamp& stamp,
                                                      const std::function<int(IO::File&)>& write) {
    Written result;
    IO::File out(target, IO::File::FailAtOpen);
    if ((result.status = OpenTarget(target, &out)) != KL::NoError)
        return result;
    int written = write(out);
    // Hands the content to the file, without the wait for the disk that File::Flush makes.
    if (written == KL::NoError)
        written = out.GetOutputChannel().Flush();
    if (written == KL::NoError) {
        if (stamp.macType != 0 || stamp.macCreator != 0)
            out.SetTypeInfo(static_cast<std::uint32_t>(stamp.macType),
                            static_cast<std::uint32_t>(stamp.macCreator));
        out.SetCreationTime(stamp.creationTime.ConvertToKLTime());
        out.SetModificationTime(stamp.modificationTime.ConvertToKLTime());
    }
    const int closed = out.Close();
    result.status = written != KL::NoError ? written : closed;
    if (result.status != KL::NoError) {
        targetFolder.Delete(LastNameOf(target));
        result.dropped = true;
    }
    return result;
}

bool IsConvertibleText(std::int32_t macType, const IO::Name& name) {
    const auto type = static_cast<std::uint32_t>(macType);
    if (type == FTM::MakeCode("TEXT"))
        return true;
    if (type == FTM::MakeCode("CRIT"))
        return false;
    return HasExtensionAmong(name, {"txt", "lis"});
}

int ConvertExtractedText(IO::Location target, std::int32_t macType, KL::PlatformSign platform) {
    const auto convert = GetLibraryManagerCallBacks().convertExtractedFile;
    if (platform == KL::LittleEndianSign || convert == nullptr ||
        !IsConvertibleText(macType, LastNameOf(target)))
        return KL::NoError;
    return convert(target, platform);
}

} // namespace LM
