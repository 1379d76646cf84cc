#include "LibraryManagerVersion.hpp"

namespace LM {

const char* GetLibraryManagerVersion() {
    return LM_VERSION_TEXT;
}

} // namespace LM
