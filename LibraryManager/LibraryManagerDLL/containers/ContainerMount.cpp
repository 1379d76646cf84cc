#include "containers/ContainerMount.hpp"

namespace LM {

// No container reader is built into the component yet, so no container file can be opened and
// none is mounted: a walk passes container files over. The container reader replaces this.
bool CreateAndMountContainerFileSystem(KL::ProcessControl&, const IO::Location&, const LibraryContainerVFSOptions&) {
    return false;
}

} // namespace LM
