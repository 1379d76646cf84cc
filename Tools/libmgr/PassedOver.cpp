#include "PassedOver.hpp"

#include <LibraryManager.hpp>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <dirent.h>
#include <sys/stat.h>

namespace libmgr {

namespace {

std::string Printable(const std::string& bytes) {
    if (KL::IsValidUTF8(bytes))
        return bytes;
    std::string text;
    for (const unsigned char byte : bytes) {
        if (byte < 0x80) {
            text += static_cast<char>(byte);
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            text += escaped;
        }
    }
    return text;
}

class Walk {
public:
    explicit Walk(std::vector<PassedOver>* found) : found(found) {}

    void Folder(const std::string& path, const std::string& place, int depth) {
        DIR* folder = ::opendir(path.c_str());
        if (folder == nullptr) {
            if (errno == EACCES || errno == EPERM)
                Add("unreadable folder", place);
            return;
        }
        while (const dirent* entry = ::readdir(folder)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..")
                continue;
            const std::string childPath = path + "/" + name;
            const std::string childPlace = place + "/" + name;
            if (!KL::IsValidUTF8(name)) {
                Add("name not UTF-8", childPlace);
                continue;
            }
            if (childPath.size() >= PATH_MAX) {
                Add("path too long", childPlace);
                continue;
            }
            struct stat info {};
            if (::lstat(childPath.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
                continue;
            if (depth + 1 > IO::TreeEnumerator::MaxDepth)
                Add("too deep", childPlace);
            else
                Folder(childPath, childPlace, depth + 1);
        }
        ::closedir(folder);
    }

private:
    void Add(const char* kind, const std::string& place) { found->push_back({kind, Printable(place)}); }

    std::vector<PassedOver>* found;
};

} // namespace

std::vector<PassedOver> FindPassedOver(const std::filesystem::path& library) {
    std::vector<PassedOver> found;
    Walk(&found).Folder(library.string(), library.filename().string(), 0);
    // In name order, as the walker goes, whatever order the folders listed in.
    std::sort(found.begin(), found.end(),
              [](const PassedOver& a, const PassedOver& b) { return a.place < b.place; });
    return found;
}

} // namespace libmgr
