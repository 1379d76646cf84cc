#include "InputOutput/FixedVFS.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/Folder.hpp"
#include "KLRoot/ErrorCodes.hpp"

namespace IO {

FixedVFS::~FixedVFS() = default;

void FixedVFS::Mounted(const Location&) {}

void FixedVFS::Unmounted() {}

BackingFileFacts ReadBackingFileFacts(const File& file) {
    BackingFileFacts facts;
    TITime time = 0;
    if (file.GetCreationTime(&time) == KL::NoError)
        facts.creationTime = time;
    if (file.GetModificationTime(&time) == KL::NoError)
        facts.modificationTime = time;
    Location parentLocation = file.GetLocation();
    parentLocation.DeleteLastLocalName();
    const Folder parent(parentLocation);
    facts.onLocalVolume = parent.IsOnLocalVolume();
    facts.onFixedVolume = parent.IsOnFixedVolume();
    return facts;
}

} // namespace IO
