#include "walking/LibraryCacheEnumerator.hpp"

#include "catalogue/LibrarySet.hpp"
#include "containers/VirtualFileSystemRegistry.hpp"

#include "InputOutput/FileSystem.hpp"
#include "KLRoot/ProcessControl.hpp"

namespace LM {

namespace {

const KL::UniString ContainerExtension("LCF");

} // namespace

LibraryCacheEnumerator::LibraryCacheEnumerator(KL::ProcessControl& processControl, const IO::Folder& folder,
                                               LibrarySet* librarySet,
                                               const KL::Array<LibraryCacheEntry>* entries)
    : IO::TreeEnumerator(folder), rootLocation(folder.GetLocation()), entries(entries),
      librarySet(librarySet), processControl(processControl) {
    ListModificationTimes();
}

// Only a library that proved valid as a whole gets its containers mounted.
LibraryCacheEnumerator::~LibraryCacheEnumerator() {
    if (!isValid)
        return;
    for (const IO::Location& location : containers)
        librarySet->MountContainerFile(processControl, location);
}

bool LibraryCacheEnumerator::EntryFound(const IO::Name& name, bool isFolder) {
    if (isFolder || !name.GetExtension().IsEqual(ContainerExtension, KL::CaseInsensitive))
        return true;
    const IO::Location location = GetParent().GetLocation() + name;
    containers.Push(location);
    CompareWithNextEntry(location);
    return false;
}

// Only files the catalogue stores have entries: others may come and go without a word.
bool LibraryCacheEnumerator::FileFound(const IO::Name& name) {
    const IO::Location location = GetParent().GetLocation() + name;
    if (librarySet->IsLocationStorableFileTypeForReplay(location, nullptr))
        CompareWithNextEntry(location);
    return false;
}

// The walker kept no entries inside containers, so the comparison does not go in either.
bool LibraryCacheEnumerator::FolderFound(const IO::Name&) {
    return !IsContainerFileSystem(GetParent().GetOwnerFileSystem());
}

int LibraryCacheEnumerator::Do() {
    const int result = IO::TreeEnumerator::Do();
    // The list names files the disk no longer has.
    if (isValid && nextEntry != entries->GetSize())
        isValid = false;
    return result;
}

void LibraryCacheEnumerator::Invalidate() {
    isValid = false;
    Stop();
}

// By position: a changed order counts as a change.
void LibraryCacheEnumerator::CompareWithNextEntry(const IO::Location& location) {
    if (nextEntry >= entries->GetSize())
        return Invalidate();
    const LibraryCacheEntry& expected = (*entries)[nextEntry];
    IO::RelativeLocation relative;
    location.GetDifference(rootLocation, &relative);
    if (!(relative == expected.relLocation))
        return Invalidate();
    // The listing's time spares a lookup of the whole path; without it the file is asked.
    TITime time = 0;
    if (const TITime* listed = GetFoundModificationTime())
        time = *listed;
    else if (IO::fileSystem.GetFileModificationTime(location, &time) != 0)
        return Invalidate();
    if (time != expected.modTime)
        return Invalidate();
    ++nextEntry;
}

} // namespace LM
