#include "lists/VersionFileFinder.hpp"

#include "InputOutput/Location.hpp"
#include "InputOutput/Name.hpp"
#include "KLUtils/ProductVersionInfo.hpp"

namespace LM {

namespace {

const KL::UniString VersionExtension("version");

// "._" names are attribute companions another platform leaves beside a file.
bool IsVersionFileName(const IO::Name& name) {
    return name.HasExtension() && name.GetExtension() == VersionExtension && !name.ToUTF8().starts_with("._");
}

} // namespace

VersionFileFinder::VersionFileFinder(const IO::Location& location, int maxDepth)
    : IO::Folder(location, IO::Folder::Fail), maxDepth(maxDepth) {}

VersionFileFinder::~VersionFileFinder() = default;

bool VersionFileFinder::Do() {
    found = false;
    Enumerate(EnumFileCallback, this);
    return found;
}

bool VersionFileFinder::IsMigrationLibrary() const {
    return !information.updatesLibrary.IsEmpty() || !information.updatesGuid.IsNull();
}

bool VersionFileFinder::EnumFileCallback(const IO::Folder& folder, const IO::Name& name, bool isFolder,
                                         void* context) {
    auto& finder = *static_cast<VersionFileFinder*>(context);
    const IO::Location location = folder.GetLocation() + name;
    if (isFolder) {
        if (finder.maxDepth >= 1 && finder.depth + 1 >= finder.maxDepth)
            return true;
        const IO::Folder subfolder(location, IO::Folder::Fail);
        if (subfolder.GetStatus() != 0)
            return true;
        ++finder.depth;
        subfolder.Enumerate(EnumFileCallback, context);
        --finder.depth;
        return !finder.found;
    }
    if (!IsVersionFileName(name))
        return true;
    const SU::ProductVersionInfo file(location);
    LibraryVersionInformation& information = finder.information;
    information.name = name.GetBase();
    information.guid = file.GetGuid();
    information.langCode = file.GetKLLanguageCode();
    information.version = file.GetVersionNum1();
    information.collapseLongBranches = file.GetCollapseLongBranches();
    information.updatesLibrary = file.GetUpdatesLibrary();
    information.updatesGuid = file.GetUpdatesGuid();
    information.neededLibraries = file.GetNeedsLibrary();
    information.neededGuids = file.GetNeedsGuid();
    information.supersedesLibraries = file.GetSupersedesLibrary();
    information.supersedesGuids = file.GetSupersedesGuid();
    finder.found = true;
    return false;
}

} // namespace LM
