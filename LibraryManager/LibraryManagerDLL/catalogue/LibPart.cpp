#include "catalogue/LibPart.hpp"

#include "lists/FolderItem.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileHeadPrefetcher.hpp"
#include "InputOutput/FileTypeManager.hpp"
#include "InputOutput/Name.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLRoot/XMLOChannel.hpp"

#include <utility>

namespace LM {

namespace {

// Whether `extension` is one of the type's own, so that "a.txt" is named "a" only for text types.
bool ExtensionBelongsToType(const KL::UniString& extension, const FTM::GeneralID& fileType) {
    const FTM::FileTypeManager& manager = FTM::FileTypeManager::GetCurrent();
    if (fileType.IsType()) {
        const FTM::FileType* type = manager.GetType(FTM::TypeID(fileType.GetValue()));
        return type != nullptr && type->IsExtensionIncluded(extension);
    }
    const FTM::FileType pattern(KL::UniString(), extension, 0, 0);
    return manager.SearchForType(pattern, FTM::GroupID(fileType.GetValue())) != FTM::UnknownType;
}

} // namespace

LibPart::~LibPart() {
    delete symbol;
}

bool LibPart::HasSymbolType() const {
    return fileType == GetSymbolFileGroup() || fileType == GetScriptFileType();
}

void LibPart::FillValid(const IO::Location& newLocation, const KL::Guid& newGuid, int newFolderIndex,
                        const FTM::GeneralID& newFileType, std::uint32_t newFlags) {
    location = newLocation;
    folderIndex = newFolderIndex;
    fileType = newFileType;
    SetFlags(newFlags);
    state = location.IsEmpty() ? LibPartStateDummy : LibPartStateValid;
    guid = newGuid;
    name.Clear();
    RenewSymbol();
    FillFromFile(false);
}

void LibPart::RenewSymbol() {
    if (!HasSymbolType()) {
        delete std::exchange(symbol, nullptr);
    } else if (symbol == nullptr) {
        symbol = new Symbol;
    } else {
        std::destroy_at(symbol);
        std::construct_at(symbol);
    }
}

void LibPart::TakeMemoryOf(LibPart& other) noexcept {
    name.TakeMemoryOf(other.name);
    location.TakeMemoryOf(other.location);
    delete std::exchange(symbol, std::exchange(other.symbol, nullptr));
}

// Every field back to a new record's, whatever fields a record comes to have.
void LibPart::Recycle() noexcept {
    LibPart kept;
    kept.TakeMemoryOf(*this);
    std::destroy_at(this);
    std::construct_at(this);
    TakeMemoryOf(kept);
}

void LibPart::Reload() {
    state = location.IsEmpty() ? LibPartStateDummy : LibPartStateValid;
    name.Clear();
    // A reload keeps the symbol, so its proxy stays until the hierarchy is rebuilt.
    if (HasSymbolType() && symbol == nullptr)
        symbol = new Symbol;
    FillFromFile(true);
}

// Reads what the file says about itself; `symbol` exists exactly for symbol and script types.
void LibPart::FillFromFile(bool reload) {
    if (!HasSymbolType()) {
        if (!ReadModificationTime())
            return;
    } else if (fileType == GetSymbolFileGroup()) {
        reload ? symbol->ReloadSymbol(location, &modTime, &name)
               : symbol->FillSymbol(location, &modTime, &name);
    } else {
        reload ? symbol->ReloadScript(location, &modTime, &name)
               : symbol->FillScript(location, &modTime, &name);
    }
    if (name.IsEmpty())
        DeriveNameFromLocation();
}

void LibPart::ReleaseFiles() const {
    if (symbol != nullptr)
        symbol->ReleaseFiles();
}

// A file that is no part is opened only for its time; a walk may have read it already. False when
// it cannot be opened.
bool LibPart::ReadModificationTime() {
    IO::FileHead head;
    if (IO::FileHeadPrefetcher::TakeOnThisThread(location, &head)) {
        modTime = head.modificationTime;
        return true;
    }
    IO::File file(location);
    if (file.Open() != 0)
        return false;
    file.GetModificationTime(&modTime);
    return true;
}

void LibPart::DeriveNameFromLocation() {
    IO::Name last;
    if (location.GetLastLocalName(&last) != 0)
        return;
    name = last.HasExtension() && ExtensionBelongsToType(last.GetExtension(), fileType) ? last.GetBase()
                                                                                        : last.GetText();
}

void LibPart::FillDummy(const KL::UniString& newName, const KL::UnID& unId, int newFolderIndex,
                        const FTM::GeneralID& newFileType, std::uint32_t newFlags) {
    folderIndex = newFolderIndex;
    fileType = newFileType;
    SetFlags(newFlags);
    state = LibPartStateDummy;
    name = newName;
    guid = KL::NULLGuid;
    RenewSymbol();
    if (symbol != nullptr)
        symbol->SetOwnUnID(unId);
}

void LibPart::SetOrigLocation(const IO::Location& value) {
    origLocation = value.IsEmpty() ? nullptr : std::make_unique<IO::Location>(value);
}

void LibPart::Swap(LibPart* other) {
    std::swap(name, other->name);
    std::swap(flags, other->flags);
    std::swap(state, other->state);
    std::swap(guid, other->guid);
    std::swap(location, other->location);
    std::swap(origLocation, other->origLocation);
    std::swap(folderIndex, other->folderIndex);
    std::swap(fileType, other->fileType);
    std::swap(modTime, other->modTime);
    std::swap(symbol, other->symbol);
}

void LibPart::MoveAssignment(LibPart* target) {
    target->name = std::move(name);
    target->flags = flags;
    target->state = state;
    target->guid = guid;
    target->location = std::move(location);
    target->origLocation = std::move(origLocation);
    target->folderIndex = folderIndex;
    target->fileType = fileType;
    target->modTime = modTime;
    target->symbol = std::exchange(symbol, nullptr);
    ResetToDeleted();
}

void LibPart::ResetToDeleted() {
    name.Clear();
    flags = 0;
    state = LibPartStateDeleted;
    guid.Clear();
    location.Clear();
    origLocation.reset();
    folderIndex = -1;
    fileType = FTM::GeneralID();
    modTime = 0;
}

KL::UniString LibPart::GetFileName() const {
    return KL::UniString(location.GetLastLocalNameText());
}

std::uint32_t LibPart::GetFlags() const {
    KL::SpinLockGuard guard(lock);
    return flags;
}

void LibPart::SetFlags(std::uint32_t value) {
    KL::SpinLockGuard guard(lock);
    flags = value;
}

void LibPart::AddFlags(std::uint32_t bits) {
    KL::SpinLockGuard guard(lock);
    flags |= bits;
}

KL::UnID LibPart::GetOwnUnID() const {
    return symbol != nullptr ? symbol->GetOwnUnID() : KL::NULLUnID;
}

void LibPart::SetOwnUnID(const KL::UnID& unId) {
    if (symbol != nullptr)
        symbol->SetOwnUnID(unId);
}

int LibPart::GetProxy() const {
    return symbol != nullptr ? symbol->GetProxy() : -1;
}

void LibPart::SetProxy(int proxy) {
    if (symbol != nullptr)
        symbol->SetProxy(proxy);
}

Paths::TreeEntry* LibPart::GetAncestryId() const {
    return symbol != nullptr ? symbol->GetAncestryId() : nullptr;
}

void LibPart::SetAncestryId(Paths::TreeEntry* entry) {
    if (symbol != nullptr)
        symbol->SetAncestryId(entry);
}

bool LibPart::IsTemplate() const {
    return symbol != nullptr && symbol->IsTemplate();
}

void LibPart::SetAsTemplate(bool isTemplate) {
    if (symbol != nullptr)
        symbol->SetAsTemplate(isTemplate);
}

bool LibPart::IsPlaceable() const {
    return symbol != nullptr && symbol->IsPlaceable();
}

void LibPart::SetPlaceable(bool placeable) {
    if (symbol != nullptr)
        symbol->SetPlaceable(placeable);
}

bool LibPart::IsArchivable() const {
    return symbol != nullptr && symbol->IsArchivable();
}

void LibPart::SetArchivable(bool archivable) {
    if (symbol != nullptr)
        symbol->SetArchivable(archivable);
}

LPF::MigrationValue LibPart::GetMigrationValue() const {
    return symbol != nullptr ? symbol->GetMigrationValue() : LPF::MigrationValue(0);
}

void LibPart::SetMigrationValue(LPF::MigrationValue value) {
    if (symbol != nullptr)
        symbol->SetMigrationValue(value);
}

int LibPart::GetQdlBinCodeIndex(QDL_ScriptType type) const {
    return symbol != nullptr ? symbol->GetQdlBinCodeIndex(type) : -1;
}

void LibPart::SetQdlBinCodeIndex(QDL_ScriptType type, int index) {
    if (symbol != nullptr)
        symbol->SetQdlBinCodeIndex(type, index);
}

void LibPart::SetQdlBinCodeIndex(const QdlBinCodeIndexArray* indices) {
    if (symbol != nullptr)
        symbol->SetQdlBinCodeIndex(indices);
}

void LibPart::ClearQdlBinCodeIndex() {
    if (symbol != nullptr)
        symbol->ClearQdlBinCodeIndex();
}

const LPF::SymbolFile* LibPart::GetSymbolFile() const {
    return GetSymbolFileNotConst();
}

LPF::SymbolFile* LibPart::GetSymbolFileNotConst() const {
    return symbol != nullptr ? symbol->GetSymbolFile(location) : nullptr;
}

const LPF::ScriptFile* LibPart::GetScriptFile() const {
    return GetScriptFileNotConst();
}

LPF::ScriptFile* LibPart::GetScriptFileNotConst() const {
    return symbol != nullptr ? symbol->GetScriptFile(location) : nullptr;
}

KL::ConstSharedPtr<SymbolUserData> LibPart::GetUserData(const KL::Guid& client) const {
    if (symbol == nullptr)
        return nullptr;
    KL::SpinLockGuard guard(lock);
    return symbol->GetUserData(client);
}

void LibPart::SetUserData(const KL::Guid& client, const KL::ConstSharedPtr<SymbolUserData>& data) {
    if (symbol == nullptr)
        return;
    KL::SpinLockGuard guard(lock);
    symbol->SetUserData(client, data);
}

void LibPart::ClearUserData() {
    if (symbol == nullptr)
        return;
    KL::SpinLockGuard guard(lock);
    symbol->ClearUserData();
}

int LibPart::Write(KL::OChannel& channel, int folderOffset) const {
    if (int error = name.Write(channel); error != 0)
        return error;
    if (int error = channel.Write(GetFlags()); error != 0)
        return error;
    if (int error = channel.Write(static_cast<std::int8_t>(state)); error != 0)
        return error;
    // A part read from a temporary copy is remembered at its first place.
    if (int error = GetOrigLocation().Write(channel); error != 0)
        return error;
    if (int error = channel.Write(ShiftFolderIndex(folderIndex, -folderOffset)); error != 0)
        return error;
    if (int error = channel.Write(static_cast<std::int32_t>(modTime)); error != 0)
        return error;
    if (int error = channel.Write(symbol != nullptr); error != 0)
        return error;
    if (symbol != nullptr) {
        if (int error = symbol->Write(channel); error != 0)
            return error;
    }
    return guid.Write(channel);
}

int LibPart::Read(KL::IChannel& channel, int folderOffset, char*** ancestryHandle,
                  MigrationTableObject* migration) {
    if (ancestryHandle != nullptr)
        *ancestryHandle = nullptr;
    if (int error = name.Read(channel); error != 0)
        return error;
    std::uint32_t readFlags = 0;
    if (int error = channel.Read(readFlags); error != 0)
        return error;
    SetFlags(readFlags);
    std::int8_t readState = 0;
    if (int error = channel.Read(readState); error != 0)
        return error;
    if (readState < LibPartStateValid || readState > LibPartStateDeleted)
        return KL::ErrStreamFormat;
    state = static_cast<LibPartState>(readState);
    if (int error = location.Read(channel); error != 0)
        return error;
    std::int32_t storedFolder = 0;
    if (int error = channel.Read(storedFolder); error != 0)
        return error;
    folderIndex = ShiftFolderIndex(storedFolder, folderOffset);
    if (int error = channel.Read(modTime); error != 0)
        return error;
    bool hasSymbol = false;
    if (int error = channel.Read(hasSymbol); error != 0)
        return error;
    if (hasSymbol) {
        delete std::exchange(symbol, nullptr);
        symbol = new Symbol;
        char** scratchHandle = nullptr;
        const int error =
            symbol->Read(channel, ancestryHandle != nullptr ? ancestryHandle : &scratchHandle, migration);
        BMKillHandle(&scratchHandle);
        if (error != 0)
            return error;
    }
    return guid.Read(channel);
}

int LibPart::WriteToXML(KL::XMLOChannel& channel, unsigned detail) const {
    channel.StartTag("LibPart");
    channel.WriteElement("Location", location.ToUniString());
    if (symbol != nullptr && HasSymbolType())
        symbol->WriteToXML(channel, detail);
    channel.EndTag("LibPart");
    return channel.GetStatus();
}

} // namespace LM
