#include "InputOutput/Location.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <algorithm>
#include <vector>

namespace IO {

namespace {

constexpr char16_t Separator = u'/';

// Splits a "/"-separated path into valid names, resolving "." and "..". Returns false for a name
// that is not valid, or for ".." when `allowClimb` is false.
bool SplitPath(std::string_view path, bool allowClimb, std::vector<Name>& names) {
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos)
            end = path.size();
        const std::string_view element = path.substr(start, end - start);
        start = end + 1;
        if (element.empty() || element == ".")
            continue;
        if (element == "..") {
            if (!allowClimb)
                return false;
            if (!names.empty())
                names.pop_back();
            continue;
        }
        Name name(element);
        if (!name.IsValid())
            return false;
        names.push_back(std::move(name));
    }
    return true;
}

} // namespace

int NameSequence::GetLocalName(std::size_t index, Name* name) const {
    if (name == nullptr || index >= count)
        return KL::ErrParam;
    std::size_t start = 0;
    for (std::size_t i = 0; i < index; ++i)
        start = joined.FindFirst(Separator, start) + 1;
    const std::size_t end = joined.FindFirst(Separator, start);
    *name = Name(
        joined.GetSubstring(start, end == KL::UniString::NotFound ? KL::UniString::NotFound : end - start));
    return KL::NoError;
}

int NameSequence::GetLastLocalName(Name* name) const {
    if (name == nullptr || count == 0)
        return KL::ErrParam;
    *name = Name(KL::UniString(GetLastLocalNameText()));
    return KL::NoError;
}

std::u16string_view NameSequence::GetLastLocalNameText() const {
    const std::u16string_view text = joined.View();
    const std::size_t separator = text.rfind(Separator);
    return separator == std::u16string_view::npos ? text : text.substr(separator + 1);
}

KL::UniString NameSequence::GetLastExtension() const {
    const std::u16string_view name = GetLastLocalNameText();
    const std::size_t dot = name.rfind(u'.');
    return dot == std::u16string_view::npos ? KL::UniString() : KL::UniString(name.substr(dot + 1));
}

int NameSequence::DeleteLastLocalName() {
    if (count == 0)
        return KL::ErrParam;
    const std::size_t separator = joined.FindLast(Separator);
    joined.Delete(separator == KL::UniString::NotFound ? 0 : separator);
    --count;
    return KL::NoError;
}

int NameSequence::AppendName(const Name& name) {
    if (!name.IsValid())
        return KL::ErrParam;
    if (count > 0)
        joined.Append(Separator);
    joined.Append(name.GetText());
    ++count;
    return KL::NoError;
}

void NameSequence::AppendNames(const NameSequence& names) {
    if (names.count == 0)
        return;
    if (count > 0)
        joined.Append(Separator);
    joined.Append(names.joined);
    count += names.count;
}

void NameSequence::ClearNames() {
    joined.Clear();
    count = 0;
}

bool NameSequence::BeginsWithNames(const NameSequence& prefix) const {
    if (prefix.count > count)
        return false;
    if (prefix.count == 0)
        return true;
    const std::u16string_view mine = joined.View();
    const std::u16string_view theirs = prefix.joined.View();
    return mine.starts_with(theirs) && (mine.size() == theirs.size() || mine[theirs.size()] == Separator);
}

std::strong_ordering NameSequence::CompareNames(const NameSequence& other) const {
    const std::u16string_view a = joined.View();
    const std::u16string_view b = other.joined.View();
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] == b[i])
            continue;
        const auto weight = [](char16_t unit) { return unit == Separator ? 0u : unit + 1u; };
        return weight(a[i]) <=> weight(b[i]);
    }
    return a.size() <=> b.size();
}

KL::UniString NameSequence::GetJoinedFrom(std::size_t first) const {
    if (first >= count)
        return {};
    std::size_t start = 0;
    for (std::size_t i = 0; i < first; ++i)
        start = joined.FindFirst(Separator, start) + 1;
    return joined.GetSubstring(start);
}

int NameSequence::WriteNames(KL::OChannel& channel) const {
    // One pass over the joined text: locations are written once per part into the caches.
    const std::u16string_view names = joined.View();
    for (std::size_t start = 0; count > 0 && start <= names.size();) {
        const std::size_t end = std::min(names.find(Separator, start), names.size());
        if (const int err = Name::WriteUnits(channel, names.substr(start, end - start)); err != KL::NoError)
            return err;
        start = end + 1;
    }
    return channel.GetStatus();
}

int NameSequence::ReadNames(KL::IChannel& channel, std::uint32_t nameCount) {
    if (nameCount > MaxNameCount)
        return channel.SetStatus(KL::ErrStreamFormat);
    // Each name takes at least six bytes; a count the stream cannot hold is refused at once.
    if (const int err = channel.RequireAvailable(std::uint64_t{nameCount} * 6); err != KL::NoError)
        return err;
    // Straight into one buffer: a cache replay reads hundreds of thousands of names.
    std::u16string text;
    for (std::uint32_t i = 0; i < nameCount; ++i) {
        if (i > 0)
            text.push_back(Separator);
        if (const int err = Name::ReadAppending(channel, text); err != KL::NoError)
            return err;
    }
    joined = KL::UniString(std::move(text));
    count = nameCount;
    return KL::NoError;
}

Location::Location(std::string_view path) {
    std::vector<Name> names;
    if (path.empty() || path.front() != '/' || !SplitPath(path, true, names))
        return;
    valid = true;
    for (const Name& name : names)
        AppendName(name);
}

Location Location::Root() {
    Location root;
    root.valid = true;
    return root;
}

void Location::Clear() {
    ClearNames();
    valid = false;
}

void Location::TakeMemoryOf(Location& other) noexcept {
    joined.TakeMemoryOf(other.joined);
    Clear();
    other.Clear();
}

int Location::Append(const Name& name) {
    if (!valid)
        return KL::ErrParam;
    return AppendName(name);
}

int Location::Append(const RelativeLocation& relative) {
    if (!valid)
        return KL::ErrParam;
    AppendNames(relative);
    return KL::NoError;
}

Location Location::operator+(const Name& name) const {
    Location result = *this;
    if (result.Append(name) != KL::NoError)
        result.Clear();
    return result;
}

bool Location::IsAncestorOf(const Location& other) const {
    return valid && other.valid && other.count > count && other.BeginsWithNames(*this);
}

int Location::GetDifference(const Location& base, RelativeLocation* difference) const {
    if (difference == nullptr || !valid || !base.valid || !BeginsWithNames(base))
        return KL::ErrParam;
    difference->ClearNames();
    difference->joined = GetJoinedFrom(base.count);
    difference->count = count - base.count;
    return KL::NoError;
}

std::string Location::ToString() const {
    if (!valid)
        return {};
    return "/" + joined.ToUTF8();
}

std::strong_ordering Location::operator<=>(const Location& other) const {
    if (valid != other.valid)
        return valid ? std::strong_ordering::greater : std::strong_ordering::less;
    return CompareNames(other);
}

std::size_t Location::GetHashValue() const {
    return std::hash<std::u16string_view>()(joined.View()) ^ (valid ? 0x9e3779b9u : 0u);
}

int Location::Write(KL::OChannel& channel) const {
    channel.Write(valid ? static_cast<std::int32_t>(count) : std::int32_t{-1});
    return WriteNames(channel);
}

int Location::Read(KL::IChannel& channel) {
    std::int32_t nameCount = 0;
    if (const int err = channel.Read(nameCount); err != KL::NoError)
        return err;
    if (nameCount == -1) {
        Clear();
        return KL::NoError;
    }
    if (nameCount < 0)
        return channel.SetStatus(KL::ErrStreamFormat);
    if (const int err = ReadNames(channel, static_cast<std::uint32_t>(nameCount)); err != KL::NoError)
        return err;
    valid = true;
    return KL::NoError;
}

RelativeLocation::RelativeLocation(std::string_view path) {
    std::vector<Name> names;
    if (!path.starts_with('/') && SplitPath(path, false, names)) {
        for (const Name& name : names)
            AppendName(name);
    }
}

bool RelativeLocation::IsEntryOf(const RelativeLocation& folder, const Name& name) const {
    const std::u16string_view all = joined.View();
    const std::u16string_view head = folder.joined.View();
    const std::u16string_view tail = name.GetText().View();
    const std::size_t separator = folder.count > 0 ? 1 : 0;
    return count == folder.count + 1 && all.size() == head.size() + separator + tail.size() &&
           all.starts_with(head) && all.ends_with(tail);
}

int RelativeLocation::Write(KL::OChannel& channel) const {
    channel.Write(count);
    return WriteNames(channel);
}

int RelativeLocation::Read(KL::IChannel& channel) {
    std::uint32_t nameCount = 0;
    if (const int err = channel.Read(nameCount); err != KL::NoError)
        return err;
    return ReadNames(channel, nameCount);
}

} // namespace IO
