// Per-part operations of LibrarySet: lookups by id and index, and the forwarders that apply a
// record's own operation to the part an id names.
#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"
#include "lists/FolderSet.hpp"

#include "LibraryManagerErrors.hpp"

namespace LM {

namespace {

// Applies `read` to the part, or leaves the output as it is for an unknown id.
template <typename Value, typename Read>
void ReadInto(const LibPart* part, Value* output, Read read) {
    if (part != nullptr && output != nullptr)
        *output = read(*part);
}

template <typename Result, typename Read>
Result ReadOr(const LibPart* part, Result otherwise, Read read) {
    return part != nullptr ? read(*part) : otherwise;
}

template <typename Write>
void WriteTo(LibPart* part, Write write) {
    if (part != nullptr)
        write(*part);
}

} // namespace

const LibPart* LibrarySet::GetLibPart(const LibPartId& id) const {
    return libParts != nullptr ? libParts->FindPart(id) : nullptr;
}

const LibPart* LibrarySet::GetLibPartByIndex(int index) const {
    if (libParts == nullptr || index < 0 || index >= GetLibPartNumber())
        return nullptr;
    return &libParts->GetLibPart(static_cast<std::size_t>(index));
}

int LibrarySet::GetIndexByLibPart(const LibPart* part) const {
    return libParts != nullptr ? libParts->GetIndex(part) : -1;
}

int LibrarySet::GetLibPartNumber() const {
    return libParts != nullptr ? static_cast<int>(libParts->GetCount()) : 0;
}

bool LibrarySet::IsEqualLibParts(const LibPartId& a, const LibPartId& b) const {
    const bool knowsA = GetLibPart(a) != nullptr;
    const bool knowsB = GetLibPart(b) != nullptr;
    if (!knowsA || !knowsB)
        return knowsA == knowsB;
    return a == b;
}

int LibrarySet::GetSortedSymbolIndexByName(int n) const {
    if (libParts == nullptr || n < 0 || static_cast<std::size_t>(n) >= libParts->GetIndexByName().size())
        return -1;
    return static_cast<int>(libParts->GetIndexByName()[static_cast<std::size_t>(n)]);
}

void LibrarySet::SetTempLocationForLibPart(const LibPart* part, const IO::Location& location) {
    if (part == nullptr)
        return;
    auto* record = const_cast<LibPart*>(part);
    record->SetOrigLocation(record->GetOrigLocation());
    record->SetLocation(location);
}

void LibrarySet::AddFlags(const LibPart* part, std::uint32_t bits) {
    if (part != nullptr)
        const_cast<LibPart*>(part)->AddFlags(bits);
}

void LibrarySet::SetUserData(const LibPart* part, const KL::Guid& client,
                             const KL::ConstSharedPtr<SymbolUserData>& data) {
    if (part != nullptr)
        const_cast<LibPart*>(part)->SetUserData(client, data);
}

int LibrarySet::ClearAllSymbolFlags(std::uint32_t mask) {
    if (libParts == nullptr)
        return LibPartFileError;
    for (std::size_t i = 0; i < libParts->GetCount(); ++i) {
        LibPart& part = libParts->GetLibPart(i);
        part.SetFlags(part.GetFlags() & ~mask);
    }
    return 0;
}

// Parts of built-in libraries go into archives only when they say so themselves.
bool LibrarySet::IsSymbolArchivable(const LibPart* part) const {
    if (part == nullptr || folderSet == nullptr)
        return false;
    const int folder = part->GetFolderIndex();
    if (!folderSet->IsValidIndex(folder) || folder == FolderSet::MissingFolder ||
        folder == FolderSet::TemporarilyMissingFolder)
        return false;
    if (!IsBuiltInActiveLibrary(folderSet->GetActLibIndex(folder)))
        return true;
    return part->IsSymbol() && part->IsArchivable();
}

bool LibrarySet::IsSymbolArchivable(int index) const {
    return IsSymbolArchivable(GetLibPartByIndex(index));
}

void LibrarySet::GetDocumentName(const LibPartId& id, KL::UniString* name) const {
    ReadInto(GetLibPart(id), name, [](const LibPart& part) { return part.GetDocumentName(); });
}

void LibrarySet::GetFileName(const LibPartId& id, KL::UniString* name) const {
    ReadInto(GetLibPart(id), name, [](const LibPart& part) { return part.GetFileName(); });
}

void LibrarySet::GetLocation(const LibPartId& id, IO::Location* location) const {
    ReadInto(GetLibPart(id), location, [](const LibPart& part) { return part.GetLocation(); });
}

void LibrarySet::GetOrigLocation(const LibPartId& id, IO::Location* location) const {
    ReadInto(GetLibPart(id), location, [](const LibPart& part) { return part.GetOrigLocation(); });
}

int LibrarySet::GetFolderIndex(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), -1, [](const LibPart& part) { return part.GetFolderIndex(); });
}

void LibrarySet::GetGeneralFileType(const LibPartId& id, FTM::GeneralID* type) const {
    ReadInto(GetLibPart(id), type, [](const LibPart& part) { return part.GetGeneralFileType(); });
}

std::uint32_t LibrarySet::GetFlags(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), std::uint32_t{1}, [](const LibPart& part) { return part.GetFlags(); });
}

void LibrarySet::GetFileModTime(const LibPartId& id, TITime* time) const {
    ReadInto(GetLibPart(id), time, [](const LibPart& part) { return part.GetFileModTime(); });
}

void LibrarySet::GetGuid(const LibPartId& id, KL::Guid* guid) const {
    ReadInto(GetLibPart(id), guid, [](const LibPart& part) { return part.GetGuid(); });
}

bool LibrarySet::IsSymbol(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), false, [](const LibPart& part) { return part.IsSymbol(); });
}

const LPF::SymbolFile* LibrarySet::GetSymbolFile(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), static_cast<const LPF::SymbolFile*>(nullptr),
                  [](const LibPart& part) { return part.GetSymbolFile(); });
}

const LPF::ScriptFile* LibrarySet::GetScriptFile(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), static_cast<const LPF::ScriptFile*>(nullptr),
                  [](const LibPart& part) { return part.GetScriptFile(); });
}

void LibrarySet::GetOwnUnID(const LibPartId& id, KL::UnID* unId) const {
    ReadInto(GetLibPart(id), unId, [](const LibPart& part) { return part.GetOwnUnID(); });
}

Paths::TreeEntry* LibrarySet::GetAncestryId(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), static_cast<Paths::TreeEntry*>(nullptr),
                  [](const LibPart& part) { return part.GetAncestryId(); });
}

bool LibrarySet::IsTemplate(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), false, [](const LibPart& part) { return part.IsTemplate(); });
}

bool LibrarySet::IsPlaceable(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), false, [](const LibPart& part) { return part.IsPlaceable(); });
}

bool LibrarySet::IsArchivable(const LibPartId& id) const {
    return ReadOr(GetLibPart(id), false, [](const LibPart& part) { return part.IsArchivable(); });
}

KL::ConstSharedPtr<SymbolUserData> LibrarySet::GetUserData(const LibPartId& id,
                                                           const KL::Guid& client) const {
    return ReadOr(GetLibPart(id), KL::ConstSharedPtr<SymbolUserData>(),
                  [&client](const LibPart& part) { return part.GetUserData(client); });
}

void LibrarySet::SetLocation(const LibPartId& id, const IO::Location& location) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetLocation(location); });
}

void LibrarySet::SetOrigLocation(const LibPartId& id, const IO::Location& location) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetOrigLocation(location); });
}

void LibrarySet::SetFolderIndex(const LibPartId& id, int folderIndex) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetFolderIndex(folderIndex); });
}

void LibrarySet::SetGeneralFileType(const LibPartId& id, const FTM::GeneralID& type) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetGeneralFileType(type); });
}

void LibrarySet::SetFlags(const LibPartId& id, std::uint32_t flags) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetFlags(flags); });
}

void LibrarySet::SetValid(const LibPartId& id, bool valid) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetValid(valid); });
}

void LibrarySet::SetFileModTime(const LibPartId& id, TITime time) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetFileModTime(time); });
}

void LibrarySet::SetOwnUnID(const LibPartId& id, const KL::UnID& unId) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetOwnUnID(unId); });
}

void LibrarySet::SetProxy(const LibPartId& id, int proxy) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetProxy(proxy); });
}

void LibrarySet::SetAncestryId(const LibPartId& id, Paths::TreeEntry* entry) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetAncestryId(entry); });
}

// The type tree moves records it found by search, which hands out const records of this set.
void LibrarySet::SetAncestryId(const LibPart* part, Paths::TreeEntry* entry) {
    if (part != nullptr)
        const_cast<LibPart*>(part)->SetAncestryId(entry);
}

void LibrarySet::SetAsTemplate(const LibPartId& id, bool isTemplate) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetAsTemplate(isTemplate); });
}

void LibrarySet::SetPlaceable(const LibPartId& id, bool placeable) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetPlaceable(placeable); });
}

void LibrarySet::SetArchivable(const LibPartId& id, bool archivable) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetArchivable(archivable); });
}

void LibrarySet::SetUserData(const LibPartId& id, const KL::Guid& client,
                             const KL::ConstSharedPtr<SymbolUserData>& data) {
    WriteTo(MutablePart(id), [&](LibPart& part) { part.SetUserData(client, data); });
}

void LibrarySet::ClearUserData(const LibPartId& id) {
    WriteTo(MutablePart(id), [](LibPart& part) { part.ClearUserData(); });
}

} // namespace LM
