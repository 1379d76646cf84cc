#include "InputOutput/FileType.hpp"

namespace FTM {

FileType::FileType(const KL::UniString& typeName, const KL::UniString& extensionList,
                   std::uint32_t creatorCode, std::uint32_t typeCode, std::int32_t resource,
                   ContentDetector contentDetector, const char* mimeText, bool identifiesByExtension)
    : name(typeName), creator(creatorCode), type(typeCode), resourceId(resource), detector(contentDetector),
      mime(mimeText != nullptr ? mimeText : ""), byExtension(identifiesByExtension) {
    std::size_t start = 0;
    while (start <= extensionList.GetLength()) {
        std::size_t end = extensionList.FindFirst(u';', start);
        if (end == KL::UniString::NotFound)
            end = extensionList.GetLength();
        if (end > start)
            extensions.push_back(extensionList.GetSubstring(start, end - start).GetFolded());
        start = end + 1;
    }
}

bool FileType::IsExtensionIncluded(const KL::UniString& extension) const {
    return IsFoldedExtensionIncluded(extension.GetFolded());
}

bool FileType::IsFoldedExtensionIncluded(const KL::UniString& folded) const {
    if (folded.IsEmpty())
        return false;
    for (const KL::UniString& candidate : extensions) {
        if (candidate == folded)
            return true;
    }
    return false;
}

} // namespace FTM
