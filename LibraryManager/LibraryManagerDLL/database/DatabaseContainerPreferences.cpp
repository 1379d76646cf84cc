#include "database/DatabaseContainerPreferences.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/PerfData.hpp"
#include "KLRoot/Preferences.hpp"

#include <algorithm>
#include <cstdint>

namespace LM {

namespace {

// 0 or 1 once read, 2 while unknown.
int formatEnabled = 2;
int maxMemorySize = -1;

} // namespace

bool IsDatabaseLibraryContainerFormatEnabled() {
    if (formatEnabled == 0 || formatEnabled == 1)
        return formatEnabled == 1;
    KLPref::IRoot* root = KLPref::OpenRootKey(KLPref::UserDomain);
    if (root == nullptr)
        return false;
    bool enabled = false;
    const int result =
        root->ReadBool("FileFormat", "DatabaseLibraryContainerFormat", &enabled, false, KLPref::UserLevel);
    KLPref::CloseRootKey(root);
    if (result != KL::NoError)
        return false;
    formatEnabled = enabled ? 1 : 0;
    return enabled;
}

bool IsDatabaseLibraryContainerOpeningEnabled() {
    return IsDatabaseLibraryContainerFormatEnabled();
}

void SetDatabaseLibraryContainerFormatEnabled(bool enabled) {
    formatEnabled = enabled ? 1 : 0;
}

int GetLibraryContainerMaxMemorySize() {
    if (maxMemorySize != -1)
        return maxMemorySize;
    if (KLPref::IRoot* root = KLPref::OpenRootKey(KLPref::UserDomain)) {
        std::int64_t value = -1;
        const int result =
            root->ReadInt("LibraryManager", "LibraryContainerMaxMemorySize", &value, -1, KLPref::UserLevel);
        KLPref::CloseRootKey(root);
        if (result == KL::NoError && value != -1) {
            maxMemorySize = static_cast<int>(std::clamp<std::int64_t>(value, INT32_MIN, INT32_MAX));
            return maxMemorySize;
        }
    }
    maxMemorySize =
        LibraryContainerMaxMemorySizeFor(std::min(PerfData::RAMBytes(), PerfData::MaxVirtualBytes()));
    return maxMemorySize;
}

// Smaller machines give a smaller share of their memory.
int LibraryContainerMaxMemorySizeFor(std::uint64_t memoryBytes) {
    const std::uint64_t mebibytes = memoryBytes >> 20;
    const double share = mebibytes < 256 ? 0.015 : 0.02;
    return std::max(30, static_cast<int>(static_cast<double>(mebibytes) * share));
}

void ForgetDatabaseContainerPreferences() {
    formatEnabled = 2;
    maxMemorySize = -1;
}

} // namespace LM
