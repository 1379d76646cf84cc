#pragma once

#include "catalogue/LibraryModes.hpp"

#include "InputOutput/FileType.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace IO {
class Location;
class RelativeLocation;
} // namespace IO
namespace KL {
class Guid;
class ProcessControl;
class UniString;
} // namespace KL

namespace LM {

class FolderSet;
class LibrarySet;

// The right to change the active libraries and re-enumerate. A library list is applied to a set
// through this interface, so the list need not know the set's class. Every operation belongs to
// the thread that owns the set, with no other thread inside the catalogue.
class LM_EXPORT ILibrarySetModifier {
public:
    virtual int ResetActiveLibraries() const = 0;
    virtual int AddActiveLibrary(const KL::UniString& url, LibraryMode mode, VitalMode vital) const = 0;
    virtual int AddActiveLibrary(KL::ProcessControl& process, const IO::Location& location, LibraryMode mode,
                                 VitalMode vital, const KL::Guid& guid, const KL::UniString& langCode,
                                 bool collapseLongBranches) const = 0;
    virtual int AddServerActiveLibrary(const IO::Location& location, const IO::Location& serverId,
                                       const IO::RelativeLocation& relLocation, const KL::UniString& srcLocation,
                                       std::int64_t version, int vital) const = 0;
    virtual int RemoveActiveLibrary(int index) const = 0;
    virtual void AddStorableFileType(FTM::GeneralID type) const = 0;
    virtual void StartBatchLibPartAdd() const = 0;
    virtual void EndBatchLibPartAdd(KL::ProcessControl& process) const = 0;
    virtual int SetActiveLibraryVersion(int index, std::int64_t version) const = 0;
    virtual int Enumerate(KL::ProcessControl& process) const = 0;
    virtual void Reset(KL::ProcessControl& process) const = 0;
    virtual void CleanUp() const = 0;
    virtual void SetLibpartSearchCompatibility(LibpartSearchCompatibility compatibility) const = 0;
    virtual FolderSet* GetFolderSet() const = 0;
    virtual ~ILibrarySetModifier();
};

} // namespace LM
