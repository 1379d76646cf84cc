#include "KLUtils/ResourceFileSystem.hpp"

#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <map>
#include <mutex>

namespace IOUtil {

namespace {

struct Registry {
    std::mutex lock;
    std::map<IO::Location, IO::Location> origins;
};

Registry& GetRegistry() {
    static Registry registry;
    return registry;
}

} // namespace

int RegisterResourceFileSystem(const IO::Location& mountPoint, const IO::Location& resourceLocation) {
    if (mountPoint.IsEmpty() || resourceLocation.IsEmpty())
        return KL::ErrParam;
    Registry& registry = GetRegistry();
    std::lock_guard guard(registry.lock);
    return registry.origins.emplace(mountPoint, resourceLocation).second ? KL::NoError
                                                                         : IO::AlreadyExistsError;
}

int UnregisterResourceFileSystem(const IO::Location& mountPoint) {
    Registry& registry = GetRegistry();
    std::lock_guard guard(registry.lock);
    return registry.origins.erase(mountPoint) > 0 ? KL::NoError : IO::NotFoundError;
}

bool IsResourceFileSystemMountPoint(const IO::Location& location) {
    Registry& registry = GetRegistry();
    std::lock_guard guard(registry.lock);
    return registry.origins.contains(location);
}

IO::Location GetResourceFileSystemLocationFromMountPoint(const IO::Location& mountPoint) {
    Registry& registry = GetRegistry();
    std::lock_guard guard(registry.lock);
    const auto found = registry.origins.find(mountPoint);
    return found == registry.origins.end() ? IO::Location() : found->second;
}

} // namespace IOUtil
