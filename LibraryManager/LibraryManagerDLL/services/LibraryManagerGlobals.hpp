#pragma once

#include "InputOutput/FileType.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

namespace IO {
class FixedVFS;
class Folder;
class Location;
} // namespace IO

namespace KL {
class ProcessControl;
}

namespace LM {

class LibraryList;
class ILibrarySetModifier;

// Hooks of the host. Every one is optional: null switches its feature off, and each caller tests
// before calling. Written once at start-up, then read without locks from any thread.
struct LibraryManagerCallBacks {
    // A library location that is a file, not a folder: a file system to mount on it, or null.
    IO::FixedVFS* (*createLibraryVFS)(const IO::Location& location) = nullptr;
    void (*reserved1)() = nullptr;
    // A file just extracted from a container carries another platform sign than 0x5757.
    int (*convertExtractedFile)(IO::Location& location, int platformSign) = nullptr;
    // The walk of a library failed: it holds an over-long path, failed with 0x81010400, or failed.
    void (*libraryPathTooLong)(const IO::Folder& library) = nullptr;
    void (*libraryWalkFailedWithCode)(const IO::Folder& library) = nullptr;
    void (*libraryWalkFailed)(const IO::Folder& library) = nullptr;
    // Before and after mounting a file system that createLibraryVFS returned.
    void (*setMountProgress)(IO::FixedVFS* vfs, KL::ProcessControl* process) = nullptr;
    // Asked by LibraryList::SetActiveLibraries when a server library was seen; the arguments after
    // the modifier are the host's own, passed through unchanged.
    void (*confirmLibraryList)(const LibraryList& list, const ILibrarySetModifier& modifier,
                               void* hostData) = nullptr;
    void (*reserved8)() = nullptr;
    KL::UniString (*serverIdDisplayName)(const IO::Location& serverId) = nullptr;
    bool (*isServerIdValid)(const IO::Location& serverId) = nullptr;
    void (*reserved11)() = nullptr;
    // Once at the end of each successful Enumerate, inside a batch; the argument is always 0.
    void (*afterEnumerate)(int) = nullptr;
};

// Texts the host may localize.
struct LibraryManagerStrings {
    KL::UniString binCodeFileName;
    KL::UniString rootFolderName;
    KL::UniString missingFolderName;
    KL::UniString temporarilyMissingFolderName;
    KL::UniString containerCreationTitle;
    KL::UniString containerExtractionTitle;
    KL::UniString embeddedLibraryName;
};

// Copies the four into process-wide storage; a host may call this itself instead of going through
// LibrarySetSingletonLP.
LM_EXPORT void InitLibraryManager(const LibraryManagerCallBacks& callBacks,
                                  const LibraryManagerStrings& strings, const FTM::GeneralID& symbolFileGroup,
                                  const FTM::GeneralID& scriptFileType);
// Counterpart of InitLibraryManager; the records stay as they are, since threads may still read them.
LM_EXPORT void FreeLibraryManager();

LM_EXPORT const LibraryManagerCallBacks& GetLibraryManagerCallBacks();
LM_EXPORT const LibraryManagerStrings& GetLibraryManagerStrings();
// A part of this type is a symbol (a library part file).
LM_EXPORT const FTM::GeneralID& GetSymbolFileGroup();
// A bare script; counts as a symbol wherever duplicates are compared.
LM_EXPORT const FTM::GeneralID& GetScriptFileType();

} // namespace LM
