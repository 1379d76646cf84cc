#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

namespace LM {

class AncestryHierarchy;

// The cache of compiled scripts, by part and script kind. Its folder also holds the library cache.
// This holds what the catalogue needs from it today: the folder and the type tree that decides
// whether compiled code of an ancestor still fits; storing and evicting code, and its file, come
// with the compiled script store.
class LM_EXPORT QdlBinCodesContainer {
public:
    static constexpr int DefaultMemoryLimit = 64 * 1024 * 1024;
    static constexpr int DefaultFileLimit = 256 * 1024 * 1024;

    QdlBinCodesContainer(int memoryLimit, int fileLimit);
    QdlBinCodesContainer(const IO::Location& folder, int memoryLimit, int fileLimit);
    ~QdlBinCodesContainer();
    QdlBinCodesContainer(const QdlBinCodesContainer&) = delete;
    QdlBinCodesContainer& operator=(const QdlBinCodesContainer&) = delete;

    void SetAncestryHierarchy(const AncestryHierarchy* newHierarchy) { hierarchy = newHierarchy; }
    const AncestryHierarchy* GetAncestryHierarchy() const { return hierarchy; }
    // Empty for a cache without a folder.
    IO::Location GetBinCodeFolder() const { return folder; }
    int GetMemoryLimit() const { return memoryLimit; }
    int GetFileLimit() const { return fileLimit; }

private:
    IO::Location folder;
    int memoryLimit;
    int fileLimit;
    const AncestryHierarchy* hierarchy = nullptr;
};

} // namespace LM
