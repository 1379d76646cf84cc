#pragma once

// The preferences that decide whether database containers are written and opened, and how much
// memory each container's database may keep loaded. Both are process-wide caches without a lock:
// the format switch is asked again until a read of it succeeds; the memory limit is computed once.
#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace LM {

// "FileFormat" / "DatabaseLibraryContainerFormat", false when absent.
LM_EXPORT bool IsDatabaseLibraryContainerFormatEnabled();
LM_EXPORT bool IsDatabaseLibraryContainerOpeningEnabled();
// Decides the format switch for this process, whatever the preference says: for a host that
// knows its own mind, as the command-line tool, which reads either kind of container.
LM_EXPORT void SetDatabaseLibraryContainerFormatEnabled(bool enabled);
// In MiB: "LibraryManager" / "LibraryContainerMaxMemorySize" unless absent or -1, else a share of
// the machine's memory, at least 30.
LM_EXPORT int GetLibraryContainerMaxMemorySize();
// The computed limit for a machine of that much memory.
LM_EXPORT int LibraryContainerMaxMemorySizeFor(std::uint64_t memoryBytes);
// Forgets both caches, for a host that changed the preferences and for tests.
LM_EXPORT void ForgetDatabaseContainerPreferences();

} // namespace LM
