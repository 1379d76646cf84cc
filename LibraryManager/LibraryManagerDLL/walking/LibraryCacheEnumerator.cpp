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
    : IO::TreeEnumerator(folder), entries(entries), librarySet(librarySet), processControl(processControl) {
    ListModificationTimes();
    ListAhead();
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
    containers.Push(GetParent().GetLocation() + name);
    CompareWithNextEntry(name);
    return false;
}

// Only files the catalogue stores have entries: others may come and go without a word. A file
// the list names at this place kept its type as long as it kept its time, so only the others
// are asked for theirs.
bool LibraryCacheEnumerator::FileFound(const IO::Name& name) {
    if (IsNextEntry(name))
        CompareTimeOfNextEntry(name);
    else if (librarySet->IsLocationStorableFileType(GetParent().GetLocation() + name, nullptr))
        Invalidate();
    return false;
}

// The walker kept no entries inside containers, so the comparison does not go in either.
bool LibraryCacheEnumerator::FolderFound(const IO::Name&) {
    return !IsContainerFileSystem(GetParent().GetOwnerFileSystem());
}

void LibraryCacheEnumerator::FolderEntered(const IO::Name& name, const IO::Folder&) {
    folderPlace.Append(name);
}

void LibraryCacheEnumerator::FolderExited(const IO::Name&, const IO::Folder&) {
    folderPlace.DeleteLastLocalName();
}

int LibraryCacheEnumerator::Do() {
    folderPlace.Clear();
    nextEntry = 0;
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

bool LibraryCacheEnumerator::IsNextEntry(const IO::Name& name) const {
    return nextEntry < entries->GetSize() && (*entries)[nextEntry].relLocation.IsEntryOf(folderPlace, name);
}

// By position: a changed order counts as a change.
void LibraryCacheEnumerator::CompareWithNextEntry(const IO::Name& name) {
    if (IsNextEntry(name))
        CompareTimeOfNextEntry(name);
    else
        Invalidate();
}

void LibraryCacheEnumerator::CompareTimeOfNextEntry(const IO::Name& name) {
    // The listing's time spares a lookup of the whole path; without it the file is asked.
    TITime time = 0;
    if (const TITime* listed = GetFoundModificationTime())
        time = *listed;
    else if (IO::fileSystem.GetFileModificationTime(GetParent().GetLocation() + name, &time) != 0)
        return Invalidate();
    if (time != (*entries)[nextEntry].modTime)
        return Invalidate();
    ++nextEntry;
}

} // namespace LM
