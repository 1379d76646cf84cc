#include "InputOutput/FileTypeManager.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <atomic>
#include <cstring>
#include <mutex>
#include <span>
#include <strings.h>
#include <vector>

namespace FTM {

namespace {

std::atomic<FileTypeManager*> current{nullptr};

constexpr std::size_t HeadSize = 512;

std::uint32_t CodeFromText(const char* text) {
    char code[5] = "    ";
    if (text != nullptr)
        std::memcpy(code, text, std::min<std::size_t>(std::strlen(text), 4));
    return MakeCode(code);
}

} // namespace

// What Identify may look at beyond the name, read once and only when needed.
class FileFacts {
public:
    explicit FileFacts(const IO::Location& at) : location(at) {}

    const std::vector<char>& GetHead() {
        Load();
        return head;
    }
    std::uint32_t GetTypeCode() {
        Load();
        return typeCode;
    }

private:
    void Load() {
        if (loaded)
            return;
        loaded = true;
        IO::File file(location);
        std::uint32_t creator = 0;
        file.GetTypeInfo(&typeCode, &creator);
        if (file.Open(IO::File::ReadMode) != KL::NoError)
            return;
        head.resize(HeadSize);
        std::uint64_t count = 0;
        file.ReadUpTo(head.data(), head.size(), &count);
        head.resize(count);
    }

    const IO::Location& location;
    bool loaded = false;
    std::vector<char> head;
    std::uint32_t typeCode = 0;
};

namespace {

bool DetectorAccepts(const FileType& type, FileFacts& facts) {
    if (type.GetDetector() == nullptr)
        return false;
    const std::vector<char>& head = facts.GetHead();
    return type.GetDetector()(head.data(), head.size());
}

} // namespace

FileTypeManager::FileTypeManager(const char* creator)
    : applicationCreator(CodeFromText(creator)), previous(current.load()) {
    groups.emplace(RootGroup.GetValue(), Group{"Root", 0, {}});
    current = this;
}

FileTypeManager::~FileTypeManager() {
    FileTypeManager* self = this;
    current.compare_exchange_strong(self, previous);
}

FileTypeManager& FileTypeManager::GetCurrent() {
    if (FileTypeManager* manager = current.load())
        return *manager;
    static FileTypeManager fallback;
    return *current.load();
}

TypeID FileTypeManager::AddType(const FileType& type, GroupID parent) {
    std::unique_lock guard(lock);
    const auto group = groups.find(parent.GetValue());
    if (group == groups.end())
        return UnknownType;
    const std::int32_t id = nextType++;
    types.emplace(id, std::make_unique<FileType>(type));
    group->second.types.insert(id);
    RebuildMembers();
    return TypeID(id);
}

GroupID FileTypeManager::AddGroup(const KL::UniString& name, GroupID parent) {
    std::unique_lock guard(lock);
    if (!groups.contains(parent.GetValue()) || nextGroup == GroupID::UnknownValue)
        return UnknownGroup;
    const std::int32_t id = nextGroup--;
    groups.emplace(id, Group{name, parent.GetValue(), {}});
    RebuildMembers();
    return GroupID(id);
}

int FileTypeManager::AddTypeToGroup(TypeID type, GroupID group) {
    std::unique_lock guard(lock);
    const auto found = groups.find(group.GetValue());
    if (found == groups.end() || !types.contains(type.GetValue()))
        return KL::ErrParam;
    found->second.types.insert(type.GetValue());
    RebuildMembers();
    return KL::NoError;
}

int FileTypeManager::RemoveType(TypeID type) {
    std::unique_lock guard(lock);
    if (types.erase(type.GetValue()) == 0)
        return KL::ErrParam;
    for (auto& [id, group] : groups)
        group.types.erase(type.GetValue());
    RebuildMembers();
    return KL::NoError;
}

int FileTypeManager::RemoveGroup(GroupID group) {
    std::unique_lock guard(lock);
    if (group == RootGroup || !groups.contains(group.GetValue()))
        return KL::ErrParam;
    std::vector<std::int32_t> doomed{group.GetValue()};
    for (std::size_t i = 0; i < doomed.size(); ++i) {
        for (const auto& [id, candidate] : groups) {
            if (candidate.parent == doomed[i])
                doomed.push_back(id);
        }
    }
    for (const std::int32_t id : doomed)
        groups.erase(id);
    RebuildMembers();
    return KL::NoError;
}

const FileType* FileTypeManager::GetType(TypeID type) const {
    std::shared_lock guard(lock);
    const auto found = types.find(type.GetValue());
    return found == types.end() ? nullptr : found->second.get();
}

bool FileTypeManager::IsGroupWithin(std::int32_t group, std::int32_t outer) const {
    // Parents were made before their children, so the chain ends; the bound guards a broken table.
    for (std::size_t steps = 0; steps <= groups.size(); ++steps) {
        if (group == outer)
            return true;
        const auto found = groups.find(group);
        if (found == groups.end() || found->second.parent == 0)
            return false;
        group = found->second.parent;
    }
    return false;
}

void FileTypeManager::RebuildMembers() {
    members.clear();
    for (const auto& [id, group] : groups) {
        for (const auto& [outer, unused] : groups) {
            if (IsGroupWithin(id, outer))
                members[outer].insert(group.types.begin(), group.types.end());
        }
    }
}

bool FileTypeManager::IsInGroup(std::int32_t type, std::int32_t group) const {
    if (!types.contains(type))
        return false;
    if (group == RootGroup.GetValue())
        return true;
    const auto found = members.find(group);
    return found != members.end() && found->second.contains(type);
}

template <typename Accepts>
TypeID FileTypeManager::FindTypeOf(GeneralID within, Accepts accepts) const {
    if (within.IsType()) {
        const auto found = types.find(within.GetValue());
        return found != types.end() && accepts(*found->second) ? TypeID(found->first) : UnknownType;
    }
    if (within == RootGroup) {
        for (const auto& [id, type] : types) {
            if (accepts(*type))
                return TypeID(id);
        }
        return UnknownType;
    }
    const auto group = members.find(within.GetValue());
    if (group == members.end())
        return UnknownType;
    for (const std::int32_t id : group->second) {
        if (accepts(*types.at(id)))
            return TypeID(id);
    }
    return UnknownType;
}

TypeID FileTypeManager::SearchForType(const FileType& pattern, GroupID within) const {
    std::shared_lock guard(lock);
    const bool byExtension = !pattern.GetExtensions().empty();
    if (!byExtension && pattern.GetMacType() == 0)
        return UnknownType;
    return FindTypeOf(within, [&](const FileType& type) {
        return (!byExtension || type.IsFoldedExtensionIncluded(pattern.GetExtensions().front())) &&
               (pattern.GetMacType() == 0 || type.GetMacType() == pattern.GetMacType());
    });
}

TypeID FileTypeManager::SearchForMime(const char* mime) const {
    if (mime == nullptr || *mime == '\0')
        return UnknownType;
    std::shared_lock guard(lock);
    for (const auto& [id, type] : types) {
        if (strcasecmp(type->GetMime().c_str(), mime) == 0)
            return TypeID(id);
    }
    return UnknownType;
}

TypeID FileTypeManager::Identify(const IO::Location& location, GeneralID within) const {
    if (location.GetLength() == 0)
        return UnknownType;
    const KL::UniString extension = location.GetLastExtension().GetFolded();
    std::shared_lock guard(lock);
    FileFacts facts(location);
    return IdentifyLocked(extension, within, facts);
}

bool FileTypeManager::Match(const IO::Location& location, GeneralID id) const {
    return MatchFirst(location, std::span<const GeneralID>(&id, 1)) == 0;
}

int FileTypeManager::MatchFirst(const IO::Location& location, std::span<const GeneralID> ids) const {
    if (location.GetLength() == 0)
        return -1;
    // Runs for every file of a walk: the extension is folded once, and the file is read at most
    // once, whichever of the ids needs its content.
    const KL::UniString extension = location.GetLastExtension().GetFolded();
    std::shared_lock guard(lock);
    FileFacts facts(location);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (MatchLocked(extension, ids[i], facts))
            return static_cast<int>(i);
    }
    return -1;
}

namespace {

auto ClaimsExtension(const KL::UniString& extension) {
    return [&extension](const FileType& type) {
        return type.IdentifiesByExtension() && type.IsFoldedExtensionIncluded(extension);
    };
}

} // namespace

TypeID FileTypeManager::IdentifyLocked(const KL::UniString& extension, GeneralID within,
                                       FileFacts& facts) const {
    const auto byExtension = ClaimsExtension(extension);
    const TypeID first = FindTypeOf(within, byExtension);
    const bool shared =
        first != UnknownType && FindTypeOf(within, [&](const FileType& type) {
                                    return byExtension(type) && &type != types.at(first.GetValue()).get();
                                }) != UnknownType;
    if (first != UnknownType && !shared)
        return first;
    const auto byContent = [&](const FileType& type) { return DetectorAccepts(type, facts); };
    const auto byCode = [&](const FileType& type) {
        return facts.GetTypeCode() != 0 && type.GetMacType() == facts.GetTypeCode();
    };
    // Several types share the extension: the content, then the file's code, tell them apart.
    if (shared) {
        if (const TypeID found =
                FindTypeOf(within, [&](const FileType& t) { return byExtension(t) && byContent(t); });
            found != UnknownType)
            return found;
        const TypeID found =
            FindTypeOf(within, [&](const FileType& t) { return byExtension(t) && byCode(t); });
        return found != UnknownType ? found : first;
    }
    if (const TypeID found = FindTypeOf(within, byContent); found != UnknownType)
        return found;
    return FindTypeOf(within, byCode);
}

// A name that a type claims settles the matter: content and codes speak only for names no type
// knows. Codes are shared ("TEXT" of scripts and texts alike), extensions are not. This also
// spares a walk the opening of every picture and text that it asks about the part types first.
bool FileTypeManager::IsClaimedByAnyType(const KL::UniString& extension) const {
    return !extension.IsEmpty() && FindTypeOf(RootGroup, ClaimsExtension(extension)) != UnknownType;
}

bool FileTypeManager::MatchLocked(const KL::UniString& extension, GeneralID id, FileFacts& facts) const {
    const auto byExtension = ClaimsExtension(extension);
    if (id.IsGroup()) {
        // A type of the group that claims the name settles it; which of several does is the
        // content's question, and not this one's.
        if (FindTypeOf(id, byExtension) != UnknownType)
            return true;
        return !IsClaimedByAnyType(extension) && IdentifyLocked(extension, id, facts) != UnknownType;
    }
    const auto found = types.find(id.GetValue());
    if (found == types.end())
        return false;
    const FileType& type = *found->second;
    if (byExtension(type))
        return true;
    if ((type.GetDetector() == nullptr && type.GetMacType() == 0) || IsClaimedByAnyType(extension))
        return false;
    return DetectorAccepts(type, facts) ||
           (facts.GetTypeCode() != 0 && facts.GetTypeCode() == type.GetMacType());
}

bool FileTypeManager::IsTypeOrGroupInTypeOrGroup(GeneralID inner, GeneralID outer) const {
    if (inner == outer)
        return true;
    if (outer.IsType())
        return false;
    std::shared_lock guard(lock);
    if (inner.IsType())
        return IsInGroup(inner.GetValue(), outer.GetValue());
    return groups.contains(inner.GetValue()) && IsGroupWithin(inner.GetValue(), outer.GetValue());
}

TypeID FileTypeManager::GetFirstTypeChild(GroupID group) const {
    std::shared_lock guard(lock);
    const auto found = groups.find(group.GetValue());
    if (found == groups.end() || found->second.types.empty())
        return UnknownType;
    return TypeID(*found->second.types.begin());
}

std::string FileTypeManager::GetMime(TypeID type) const {
    const FileType* found = GetType(type);
    return found != nullptr ? found->GetMime() : std::string();
}

std::uint32_t FileTypeManager::GetMacType(TypeID type) const {
    const FileType* found = GetType(type);
    return found != nullptr ? found->GetMacType() : 0;
}

std::uint32_t FileTypeManager::GetMacCreator(TypeID type) const {
    const FileType* found = GetType(type);
    return found != nullptr ? found->GetMacCreator() : 0;
}

} // namespace FTM
