#pragma once

// A container file system whose walk a test runs itself, to see the walk's result, which a
// mount through the file system keeps to itself.
#include <LibraryManager.hpp>

namespace testsupport {

class ContainerWalk : public LM::LibraryContainerVFS {
public:
    explicit ContainerWalk(const IO::Location& unzip = IO::Location())
        : LM::LibraryContainerVFS(unzip.IsEmpty() ? LM::LibraryContainerVFSOptions()
                                                  : LM::LibraryContainerVFSOptions(unzip)) {}
    int Walk(const IO::Location& location) {
        IO::File file(location);
        if (file.Open(IO::File::ReadMode) != KL::NoError)
            return -1;
        KL::NonInterruptibleProcessControl process;
        return Mounted(process, location, file);
    }
};

} // namespace testsupport
