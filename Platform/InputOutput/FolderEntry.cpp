#include "InputOutput/FolderEntry.hpp"

#include "InputOutput/FileEntry.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

#include <string>

namespace IO {

namespace {

// Enough tries for any real folder; a file system that claims every name is broken.
constexpr int MaxUnusedNameTries = 100000;

bool IsAbsent(int status) {
    return status == EntryStatus::TransferFailed || status == EntryStatus::NoSuchEntry ||
           status == NotFoundError;
}

} // namespace

FolderEntry::~FolderEntry() = default;

int FolderEntry::EnumerateContentsWithTimes(TimedEntryCallback callback, void* data) const {
    if (callback == nullptr)
        return KL::ErrParam;
    struct Forward {
        TimedEntryCallback callback;
        void* data;
    } forward{callback, data};
    return EnumerateContents(
        [](const Name& name, EntryType type, void* context) {
            const auto& target = *static_cast<Forward*>(context);
            return target.callback(name, type, nullptr, target.data);
        },
        &forward);
}

int FolderEntry::GenerateUnusedName(const Name& base, Name* result, const KL::UniString& suffix) const {
    if (result == nullptr || !base.IsValid())
        return KL::ErrParam;
    for (int number = 0; number < MaxUnusedNameTries; ++number) {
        KL::UniString text = base.GetText();
        if (number > 0)
            text.Append(KL::UniString(std::to_string(number)));
        text.Append(suffix);
        const Name candidate(text);
        if (!candidate.IsValid())
            return InvalidLocationError;
        EntryType type = FileEntryType;
        const int status = GetEntryType(candidate, &type);
        if (IsAbsent(status)) {
            *result = candidate;
            return KL::NoError;
        }
        if (status != EntryStatus::Ok)
            return status;
    }
    return AlreadyExistsError;
}

int FolderEntry::GenerateUnusedNameFromString(const KL::UniString& text, Name* result,
                                              const KL::UniString& suffix) const {
    std::u16string units(text.View().substr(0, Name::MaxLength / 2));
    for (char16_t& unit : units) {
        if (unit == u'/' || unit == 0)
            unit = u'_';
    }
    if (units.empty() || units == u"." || units == u"..")
        units.assign(1, u'_');
    return GenerateUnusedName(Name(KL::UniString(std::move(units))), result, suffix);
}

int ReadOnlyFolderEntry::SetCreationTime(TITime) {
    return ReadOnlyError;
}

int ReadOnlyFolderEntry::SetModificationTime(TITime) {
    return ReadOnlyError;
}

int ReadOnlyFolderEntry::CreateFile(const Name&) {
    return ReadOnlyError;
}

int ReadOnlyFolderEntry::CreateFolder(const Name&) {
    return ReadOnlyError;
}

int ReadOnlyFolderEntry::Delete(const Name&) {
    return ReadOnlyError;
}

} // namespace IO
