#pragma once

#include "InputOutput/Name.hpp"

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace IO {

class RelativeLocation;

// A sequence of names kept as one text joined by "/", which no name holds: one allocation per
// path, and the names are found by scanning. Shared by absolute and relative locations.
class LM_EXPORT NameSequence {
public:
    // Deepest path a stream may carry; far beyond what a file system allows.
    static constexpr std::uint32_t MaxNameCount = 4096;

    std::size_t GetLength() const { return count; }
    // ErrParam for an index past the last name.
    int GetLocalName(std::size_t index, Name* name) const;
    int GetLastLocalName(Name* name) const;
    // The last name's text, without making a name; empty without names.
    std::u16string_view GetLastLocalNameText() const;
    // What follows the last dot of the last name; empty without names.
    KL::UniString GetLastExtension() const;
    int DeleteLastLocalName();

protected:
    int AppendName(const Name& name);
    void AppendNames(const NameSequence& names);
    void ClearNames();
    bool BeginsWithNames(const NameSequence& prefix) const;
    // Name by name, shorter first on a common prefix: "/" weighs below every other unit.
    std::strong_ordering CompareNames(const NameSequence& other) const;
    // Names from `first` on, joined.
    KL::UniString GetJoinedFrom(std::size_t first) const;
    int WriteNames(KL::OChannel& channel) const;
    int ReadNames(KL::IChannel& channel, std::uint32_t nameCount);

    KL::UniString joined;
    std::uint32_t count = 0;
};

// An absolute path: the root and a sequence of names. The default location is empty, which no
// operation accepts as a place in a file system; the root is valid and has no names.
class LM_EXPORT Location : public NameSequence {
public:
    Location() = default;
    // A "/"-separated absolute path. Empty and "." elements are dropped and ".." climbs one name
    // (never above the root); a relative path or a name that is not valid gives an empty location.
    explicit Location(std::string_view path);
    explicit Location(const char* path) : Location(std::string_view(path != nullptr ? path : "")) {}
    explicit Location(const std::string& path) : Location(std::string_view(path)) {}
    explicit Location(const KL::UniString& path) : Location(std::string_view(path.ToUTF8())) {}

    static Location Root();

    bool IsEmpty() const { return !valid; }
    bool IsValid() const { return valid; }
    void Clear();
    // Empties both locations, this one keeping the memory of the other's path (see
    // KL::UniString::TakeMemoryOf).
    void TakeMemoryOf(Location& other) noexcept;

    int Append(const Name& name);
    int Append(const RelativeLocation& relative);
    // Copies with one name more, for the common "folder plus entry" step; an invalid name gives
    // an empty location.
    Location operator+(const Name& name) const;

    // True when `other` lies strictly below this location.
    bool IsAncestorOf(const Location& other) const;
    // The names that lead from `base` to this location; ErrParam unless `base` is this location or
    // an ancestor of it.
    int GetDifference(const Location& base, RelativeLocation* difference) const;

    // "/a/b"; "" for the empty location.
    std::string ToString() const;
    KL::UniString ToUniString() const { return KL::UniString(ToString()); }

    bool operator==(const Location& other) const { return valid == other.valid && joined == other.joined; }
    // A total order that keeps every subtree contiguous: a location sorts right before its
    // descendants; the empty location sorts first.
    std::strong_ordering operator<=>(const Location& other) const;
    std::size_t GetHashValue() const;

    // Stream form: i32 name count (-1 for the empty location), then the names. Read refuses
    // counts over MaxNameCount and invalid names with ErrStreamFormat.
    int Write(KL::OChannel& channel) const;
    int Read(KL::IChannel& channel);

private:
    bool valid = false;
};

// The names that lead from one location to another; empty when both are the same.
class LM_EXPORT RelativeLocation : public NameSequence {
public:
    RelativeLocation() = default;
    // "a/b"; empty and "." elements are dropped; ".." or an invalid name gives an empty result.
    explicit RelativeLocation(std::string_view path);

    bool IsEmpty() const { return count == 0; }
    void Clear() { ClearNames(); }
    int Append(const Name& name) { return AppendName(name); }
    void Append(const RelativeLocation& other) { AppendNames(other); }

    std::string ToString() const { return joined.ToUTF8(); }

    bool operator==(const RelativeLocation& other) const { return joined == other.joined; }
    // Equal to `folder` with `name` appended; a walk compares each entry so without a copy.
    bool IsEntryOf(const RelativeLocation& folder, const Name& name) const;
    std::strong_ordering operator<=>(const RelativeLocation& other) const { return CompareNames(other); }

    // Stream form: u32 name count, then the names.
    int Write(KL::OChannel& channel) const;
    int Read(KL::IChannel& channel);

private:
    friend class Location;
};

} // namespace IO

template <>
struct std::hash<IO::Location> {
    std::size_t operator()(const IO::Location& location) const noexcept { return location.GetHashValue(); }
};
