#pragma once

// A library's version file ("*.version"): which library this is, in which version and language,
// which libraries it needs, updates and supersedes. The finder looks for the first such file in
// a library folder, down to a depth limit, and keeps what it says.
#include "InputOutput/Folder.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace LM {

struct LM_EXPORT LibraryVersionInformation {
    KL::UniString name;
    KL::Guid guid;
    KL::UniString langCode;
    std::int32_t version = 0;
    bool collapseLongBranches = false;
    KL::UniString updatesLibrary;
    KL::Guid updatesGuid;
    KL::Array<KL::UniString> neededLibraries;
    KL::Array<KL::Guid> neededGuids;
    KL::Array<KL::UniString> supersedesLibraries;
    KL::Array<KL::Guid> supersedesGuids;
};

class LM_EXPORT VersionFileFinder : public IO::Folder {
public:
    // `maxDepth` 1 searches the folder itself, 2 one level of subfolders too; 0 or below, all.
    VersionFileFinder(const IO::Location& location, int maxDepth);
    ~VersionFileFinder() override;

    // True when a version file was found; the first one wins, whether it reads cleanly or not.
    bool Do();

    const KL::Guid& GetGuid() const { return information.guid; }
    std::int32_t GetVersion() const { return information.version; }
    const KL::UniString& GetKLLanguageCode() const { return information.langCode; }
    bool GetCollapseLongBranches() const { return information.collapseLongBranches; }
    const KL::UniString& GetUpdatesLibrary() const { return information.updatesLibrary; }
    const KL::Guid& GetUpdatesGuid() const { return information.updatesGuid; }
    const KL::Array<KL::UniString>& GetNeededLibraries() const { return information.neededLibraries; }
    const KL::Array<KL::Guid>& GetNeededGuids() const { return information.neededGuids; }
    const KL::Array<KL::UniString>& GetSupersedesLibraries() const { return information.supersedesLibraries; }
    const KL::Array<KL::Guid>& GetSupersedesGuids() const { return information.supersedesGuids; }
    const LibraryVersionInformation& GetLibraryVersionInformation() const { return information; }
    // A library that updates another, named or by guid.
    bool IsMigrationLibrary() const;

    // The enumeration callback; true goes on.
    static bool EnumFileCallback(const IO::Folder& folder, const IO::Name& name, bool isFolder, void* finder);

private:
    bool found = false;
    LibraryVersionInformation information;
    int maxDepth;
    int depth = 0;
};

} // namespace LM
