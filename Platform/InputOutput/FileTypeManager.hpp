#pragma once

#include "InputOutput/FileType.hpp"
#include "KLRoot/KLExport.hpp"

#include <map>
#include <memory>
#include <set>
#include <shared_mutex>
#include <span>
#include <string>

namespace IO {
class Location;
}

namespace FTM {

class FileFacts;

// The table of file types and groups. Groups form a tree under RootGroup; a type belongs to the
// group it was added under and to any group it is added to later. The most recently made manager
// that still lives is the process's current one, which the rest of the system asks.
//
// Lookups may run on any thread; changes belong to start-up and shut-down.
class LM_EXPORT FileTypeManager {
public:
    explicit FileTypeManager(const char* applicationCreator = "MAKE");
    ~FileTypeManager();
    FileTypeManager(const FileTypeManager&) = delete;
    FileTypeManager& operator=(const FileTypeManager&) = delete;

    static FileTypeManager& GetCurrent();

    // UnknownType (AddType) or UnknownGroup (AddGroup) when the parent is no group.
    TypeID AddType(const FileType& type, GroupID parent = RootGroup);
    GroupID AddGroup(const KL::UniString& name, GroupID parent = RootGroup);
    int AddTypeToGroup(TypeID type, GroupID group);
    // Removing a group takes its subgroups with it; the types stay registered.
    int RemoveType(TypeID type);
    int RemoveGroup(GroupID group);

    // Null for an unknown id; valid until the type is removed.
    const FileType* GetType(TypeID type) const;
    // The first type in `within` (at any depth) that has the pattern's first extension, and its
    // type code when that is not 0.
    TypeID SearchForType(const FileType& pattern, GroupID within = RootGroup) const;
    TypeID SearchForMime(const char* mime) const;
    // The type of the file at a location among the types of `within`: by extension, then by
    // content, then by the file's own type code.
    TypeID Identify(const IO::Location& location, GeneralID within = RootGroup) const;
    // True when the file at `location` is of type `id`, or of a type in group `id`. A type matches
    // by extension; by content or type code only a file whose extension no type claims.
    bool Match(const IO::Location& location, GeneralID id) const;
    // The index of the first of `ids` that Match would answer true for, asked in order, with the
    // file read at most once for all of them; -1 when none matches.
    int MatchFirst(const IO::Location& location, std::span<const GeneralID> ids) const;
    // True when `inner` is `outer`, or lies in it at any depth.
    bool IsTypeOrGroupInTypeOrGroup(GeneralID inner, GeneralID outer) const;
    TypeID GetFirstTypeChild(GroupID group) const;
    // Empty, or 0, for an unknown type.
    std::string GetMime(TypeID type) const;
    std::uint32_t GetMacType(TypeID type) const;
    std::uint32_t GetMacCreator(TypeID type) const;
    std::uint32_t GetApplicationCreator() const { return applicationCreator; }

private:
    struct Group {
        KL::UniString name;
        std::int32_t parent;
        std::set<std::int32_t> types; // ordered: lookups go by registration order
    };

    bool IsInGroup(std::int32_t type, std::int32_t group) const;
    bool IsGroupWithin(std::int32_t group, std::int32_t outer) const;
    // Refills `members` after a change of the table.
    void RebuildMembers();
    // The first type of `within` (registration order; a type id stands for itself) that `accepts`.
    template <typename Accepts>
    TypeID FindTypeOf(GeneralID within, Accepts accepts) const;
    TypeID IdentifyLocked(const KL::UniString& extension, GeneralID within, FileFacts& facts) const;
    bool MatchLocked(const KL::UniString& extension, GeneralID id, FileFacts& facts) const;
    bool IsClaimedByAnyType(const KL::UniString& extension) const;

    std::uint32_t applicationCreator;
    std::map<std::int32_t, std::unique_ptr<FileType>> types;
    std::map<std::int32_t, Group> groups;
    // Every type of a group and of the groups below it, in registration order: identification
    // runs for every file of a walk and must not walk the group tree each time.
    std::map<std::int32_t, std::set<std::int32_t>> members;
    std::int32_t nextType = 1;
    std::int32_t nextGroup = -2;
    mutable std::shared_mutex lock;
    FileTypeManager* previous;
};

} // namespace FTM
