#include "services/FileServices.hpp"

#include "LibraryManagerErrors.hpp"
#include "catalogue/Symbol.hpp"
#include "hierarchy/AncestryInfo.hpp"
#include "services/FileRef.hpp"

#include "InputOutput/FileTypeManager.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/MemoryChannel.hpp"
#include "KLRoot/Preferences.hpp"
#include "KLRoot/Time.hpp"
#include "LibPartFile/SymbolFile.hpp"
#include "QDL/ParamSection.hpp"
#include "QDL/SyCalledMacroItem.hpp"

#include <memory>
#include <optional>

namespace LM {

namespace {

// Parts saved at this version or before may have called macros by the rules of their time.
constexpr short LastCompatibleModeVersion = 23;
constexpr LibrarySet::LibPartSearchMode DirectSearch = 1;
constexpr LibrarySet::LibPartSearchMode FullSearch = 2;

// The macros a part's scripts call, each resolved at the first call from the part. Looked up by the
// exact name a script uses.
class CalledMacrosData : public SymbolUserData {
public:
    KL::HashTable<KL::UniString, SyCalledMacroItem> table;
};

// Scripts may name a macro in a subfolder with "/"; the catalogue knows such names with ":". Most
// names have no "/" and are used as they are, without a copy.
class LookupName {
public:
    explicit LookupName(const KL::UniString& name) : name(name) {
        if (name.FindFirst(u'/') != KL::UniString::NotFound) {
            replaced = name;
            replaced->ReplaceAll(u'/', u':');
        }
    }
    const KL::UniString& Get() const { return replaced ? *replaced : name; }

private:
    const KL::UniString& name;
    std::optional<KL::UniString> replaced;
};

// Read once per process: whether old parts may find their macros the way they were found then.
bool ReadAllowCompatibleMode() {
    static const bool allow = [] {
        bool value = true;
        if (KLPref::IRoot* root = KLPref::OpenRootKey(KLPref::UserDomain)) {
            root->ReadBool(KL::UniString("Macro Search"), KL::UniString("Allow Compatible Mode"), &value,
                           value, KLPref::UserLevel);
            KLPref::CloseRootKey(root);
        }
        return value;
    }();
    return allow;
}

bool UsesCompatibleMode(const LPF::SymbolFile& file) {
    short version = 0;
    return file.GetOriginalVersion(&version) == KL::NoError && version <= LastCompatibleModeVersion &&
           ReadAllowCompatibleMode();
}

KL::UnID OwnIdOf(const LibPart* part) {
    return part != nullptr ? part->GetOwnUnID() : KL::NULLUnID;
}

} // namespace

KL::Array<SyCalledMacroItem> FileServices::ReadCalledMacros(const LPF::SymbolFile& file) {
    KL::Array<SyCalledMacroItem> items;
    GSHandle section = nullptr;
    if (file.GetSectionDataRef(LPF::Tags::CalledMacros, 0, &section) != KL::NoError)
        return items;
    KL::MemoryIChannel channel(*section, static_cast<std::uint64_t>(BMGetHandleSize(section)),
                               KL::HostPlatformSign);
    if (ReadCalledMacroList(channel, &items) != KL::NoError)
        items.Clear();
    return items;
}

FileServices::FileServices(LibrarySet* librarySet, const IO::Location& dataFolder,
                           const FileTypeIDS& fileTypes, GSHandle defaultParams)
    : librarySet(librarySet), dataFolder(dataFolder), fileTypes(fileTypes),
      defaultParamsHandle(defaultParams) {}

FileServices::~FileServices() {
    BMKillHandle(&defaultParamsHandle);
}

// ---- Life cycle

void FileServices::Init(GSHandle defaultParams) {
    if (defaultParams == nullptr)
        return;
    BMKillHandle(&defaultParamsHandle);
    defaultParamsHandle = defaultParams;
}

short FileServices::Init(const BinaryCachingMode& /*mode*/) {
    return 0;
}

void FileServices::Exit() {
    BMKillHandle(&defaultParamsHandle);
}

void FileServices::IFSGetCurrentTime(int* time) {
    *time = TIGetTime();
}

short FileServices::GetDataFolder(IO::Location* location) {
    if (location == nullptr)
        return LibPartFileError;
    *location = dataFolder;
    return 0;
}

void FileServices::Dispose(QDL::IFileRef** ref) {
    if (ref == nullptr || *ref == nullptr)
        return;
    delete *ref;
    *ref = nullptr;
}

void FileServices::Dispose(FileRef** ref) {
    if (ref == nullptr)
        return;
    QDL::IFileRef* engineRef = *ref;
    Dispose(&engineRef);
    *ref = nullptr;
}

const LibPart* FileServices::GetLibPart(const LibPartId& id) const {
    return GetLibSetThreadSafeModifier().GetConstLibrarySet()->GetLibPart(id);
}

FileRef* FileServices::NewPartRef(const LibPart* part) {
    return new FileRef(LibPartId(part->GetOwnUnID(), part->GetFileName()), *this);
}

// ---- Names

short FileServices::Name2Location(const KL::UniString& name, IO::Location* location) {
    const LibrarySet& set = *GetLibSetThreadSafeModifier().GetConstLibrarySet();
    const LibPart* part = set.SearchLibPartDocuName(name);
    if (!LibrarySet::IsLibPartValid(part))
        part = set.SearchLibPartFileName(name);
    if (!LibrarySet::IsLibPartValid(part) || location == nullptr)
        return LibPartFileError;
    *location = part->GetLocation();
    return 0;
}

// Unlike Name2Location, a part found here need not be valid.
FileRef* FileServices::Name2FileRef(const KL::UniString& name) {
    const LibrarySet& set = *GetLibSetThreadSafeModifier().GetConstLibrarySet();
    const LibPart* part = set.SearchLibPartDocuName(name);
    if (part == nullptr)
        part = set.SearchLibPartFileName(name);
    return part != nullptr ? new FileRef(part, *this) : nullptr;
}

short FileServices::Name2LibPart(const KL::UniString& name, const LibPart** part) {
    if (part == nullptr)
        return LibPartFileError;
    *part = nullptr;
    QDL::IFileRef* ref = Texture2File(name, nullptr);
    if (ref == nullptr)
        return LibPartFileError;
    static_cast<FileRef*>(ref)->GetLibPart(part);
    Dispose(&ref);
    return 0;
}

QDL::IFileRef* FileServices::Texture2File(const KL::UniString& name, short* error) {
    if (error != nullptr)
        *error = 0;
    const LibrarySet& set = *GetLibSetThreadSafeModifier().GetConstLibrarySet();
    const LibPart* part = set.SearchLibPartDocuName(name, fileTypes.imageGroup);
    if (!LibrarySet::IsLibPartValid(part))
        part = set.SearchLibPartFileName(name, fileTypes.imageGroup);
    if (!LibrarySet::IsLibPartValid(part)) {
        if (error != nullptr)
            *error = 2;
        return nullptr;
    }
    if (const int check = CheckPictFile(nullptr, part); check != 0) {
        if (check > 0 && error != nullptr)
            *error = 3;
        return nullptr;
    }
    return NewPartRef(part);
}

QDL::IFileRef* FileServices::Image3D2File(const KL::UniString& name, short* error) {
    if (error != nullptr)
        *error = 0;
    const LibPart* part =
        GetLibSetThreadSafeModifier().GetConstLibrarySet()->SearchLibPartAnyhow(KL::NULLUnID, name, nullptr);
    if (LibrarySet::IsLibPartValid(part))
        return NewPartRef(part);
    if (error != nullptr)
        *error = 2;
    return nullptr;
}

int FileServices::CheckPictFile(const IO::Location* location, const LibPart* part) const {
    const IO::Location* at = LibrarySet::IsLibPartValid(part) ? &part->GetLocation() : location;
    // Any picture the type manager reads is acceptable; what it says is not needed.
    if (at != nullptr)
        FTM::FileTypeManager::GetCurrent().Identify(*at);
    return 0;
}

// ---- Macros

QDL::IFileRef* FileServices::Macro2File(const KL::UniString& name, const QDL::IFileRef* caller,
                                        char*** /*unused*/, short* missing, QDL_ScriptType /*unusedType*/,
                                        KL::UnID* outUnID, bool silent) {
    if (missing != nullptr)
        *missing = 0;
    IO::Location callerLocation;
    const LibPart* callerPart = nullptr;
    if (caller != nullptr) {
        const auto* callerRef = dynamic_cast<const FileRef*>(caller);
        if (callerRef == nullptr || callerRef->GetLibPartLocation(&callerLocation) != KL::NoError)
            return nullptr;
        LibPartId callerId;
        if (callerRef->GetLibPartId(callerId) == KL::NoError && callerId != LibPartId())
            callerPart = GetLibPart(callerId);
    }
    const LibPart* found = nullptr;
    bool notFound = false;
    FileRef* result = nullptr;
    if (GetMacroFile(name, callerLocation, callerPart, nullptr, &found, &notFound, outUnID, silent))
        result = new FileRef(found, *this);
    if (notFound && missing != nullptr)
        *missing = 1;
    return result;
}

bool FileServices::GetMacroFile(const KL::UniString& name, const IO::Location& callerLocation,
                                const LibPart* callerPart, IO::Location* outLocation, const LibPart** outPart,
                                bool* missing, KL::UnID* outUnID, bool silent) {
    const LibrarySet::ThreadSafeModifier modifier = GetLibSetThreadSafeModifier();
    *outPart = nullptr;
    if (outLocation != nullptr)
        *outLocation = IO::Location();
    if (missing != nullptr)
        *missing = false;
    const LookupName lookup(name);
    const KL::UniString& lookupName = lookup.Get();
    if (!LibrarySet::IsLibPartValid(callerPart) && !callerLocation.IsEmpty()) {
        // A file outside the catalogue may call itself by its file name.
        IO::Name fileName;
        if (outLocation != nullptr && callerLocation.GetLastLocalName(&fileName) == KL::NoError &&
            lookupName.IsEqual(fileName.GetText(), KL::CaseInsensitive)) {
            *outLocation = callerLocation;
            *outPart = callerPart;
            if (outUnID != nullptr)
                *outUnID = OwnIdOf(callerPart);
            return true;
        }
        callerPart =
            modifier.GetConstLibrarySet()->SearchLibPart(callerLocation, LibrarySet::CurrentLocation);
    }
    bool compatibleMode = false;
    if (LibrarySet::IsLibPartValid(callerPart)) {
        const LibPart* known = FindInMacroMap(callerPart, lookupName, &compatibleMode, silent);
        if (LibrarySet::IsLibPartValid(known)) {
            if (outLocation != nullptr)
                *outLocation = known->GetLocation();
            *outPart = known;
            if (outUnID != nullptr)
                *outUnID = known->GetOwnUnID();
            return true;
        }
    }
    const KL::UnID preferredId = PreferredIdFromFile(callerPart, callerLocation, lookupName, &compatibleMode);
    const bool found =
        GetMacroFile(preferredId, lookupName, outLocation, outPart, missing, compatibleMode, silent);
    if (outUnID != nullptr)
        *outUnID = OwnIdOf(*outPart);
    return found;
}

const LibPart* FileServices::FindInMacroMap(const LibPart* caller, const KL::UniString& lookupName,
                                            bool* compatibleMode, bool silent) {
    KL::ConstSharedPtr<SymbolUserData> stored = caller->GetUserData(MacroMapKeyGuid);
    auto map = KL::ConstSharedPtr<CalledMacrosData>(dynamic_cast<const CalledMacrosData*>(stored.Get()));
    if (map == nullptr) {
        auto built = KL::MakeShared<CalledMacrosData>();
        if (const LPF::SymbolFile* file = caller->GetSymbolFile()) {
            *compatibleMode = UsesCompatibleMode(*file);
            for (const SyCalledMacroItem& item : ReadCalledMacros(*file)) {
                SyCalledMacroItem resolved;
                if (GetMacroFile(item.unId, item.name, nullptr, &resolved.libPart, nullptr, *compatibleMode,
                                 silent)) {
                    resolved.name = item.name;
                    resolved.unId = item.unId;
                    built->table.Put(item.name, resolved);
                }
            }
        }
        // Stored also when empty, so that a part is read once.
        GetLibSetThreadSafeModifier().SetUserData(caller, MacroMapKeyGuid, built);
        map = built;
    }
    const SyCalledMacroItem* item = map->table.GetPtr(lookupName);
    return item != nullptr ? item->libPart : nullptr;
}

KL::UnID FileServices::PreferredIdFromFile(const LibPart* caller, const IO::Location& callerLocation,
                                           const KL::UniString& lookupName, bool* compatibleMode) const {
    std::unique_ptr<LPF::SymbolFile> opened;
    const LPF::SymbolFile* file = nullptr;
    if (LibrarySet::IsLibPartValid(caller)) {
        file = caller->GetSymbolFile();
    } else if (!callerLocation.IsEmpty()) {
        opened = std::make_unique<LPF::SymbolFile>(callerLocation);
        file = opened.get();
    }
    if (file == nullptr)
        return KL::NULLUnID;
    *compatibleMode = UsesCompatibleMode(*file);
    for (const SyCalledMacroItem& item : ReadCalledMacros(*file)) {
        if (item.name.IsEqual(lookupName, KL::CaseInsensitive))
            return item.unId;
    }
    return KL::NULLUnID;
}

bool FileServices::GetMacroFile(const KL::UnID& id, const KL::UniString& name, IO::Location* outLocation,
                                const LibPart** outPart, bool* missing, bool compatibleMode, bool silent) {
    if (outLocation != nullptr)
        *outLocation = IO::Location();
    if (outPart != nullptr)
        *outPart = nullptr;
    if (missing != nullptr)
        *missing = false;
    const LibrarySet& set = *GetLibSetThreadSafeModifier().GetConstLibrarySet();
    const LookupName lookup(name);
    const KL::UniString& lookupName = lookup.Get();
    const LibPart* part = set.SearchLibPartComplex(id, lookupName, compatibleMode ? FullSearch : DirectSearch,
                                                   nullptr, nullptr, nullptr);
    // A miss is searched again in full, even after a full first search: kept as it always was.
    if (part == nullptr)
        part = set.SearchLibPartComplex(id, lookupName, FullSearch, nullptr, nullptr, nullptr);
    if (LibrarySet::IsLibPartValid(part)) {
        // A macro the engine refused is not run again, nor reported as missing.
        if ((part->GetFlags() & LibPart::BadMacroFlag) != 0)
            return false;
        if (outLocation != nullptr)
            *outLocation = part->GetLocation();
        if (outPart != nullptr)
            *outPart = part;
        return true;
    }
    if (missing != nullptr && !silent)
        AddToMissingMacroList(name, missing);
    return false;
}

void FileServices::AddToMissingMacroList(const KL::UniString& name, bool* firstTime) {
    *firstTime = true;
    KL::FastLockGuard guard(missingMacroLock);
    // With recording off every miss reads as the first.
    if (!missingMacroRecording)
        return;
    for (const KL::UniString& recorded : missingMacroList) {
        if (recorded.IsEqual(name, KL::CaseInsensitive)) {
            *firstTime = false;
            return;
        }
    }
    missingMacroList.Push(name);
}

void FileServices::ResetMissingMacros(bool on) {
    KL::FastLockGuard guard(missingMacroLock);
    missingMacroRecording = on;
}

KL::PagedArray<KL::UniString, 8> FileServices::GetMissingMacros() const {
    KL::FastLockGuard guard(missingMacroLock);
    return missingMacroList;
}

// ---- Parameters

int FileServices::RefreshLibPartFile(LPF::SymbolFile* file) const {
    const LibrarySet& set = *GetLibSetThreadSafeModifier().GetConstLibrarySet();
    KL::UnID own;
    file->GetOwnUnID(&own);
    GSHandle ancestrySection = nullptr;
    if (const int err = file->GetSectionDataRef(LPF::Tags::Ancestry, 0, &ancestrySection); err != KL::NoError)
        return err;
    const LibPart* part = nullptr;
    try {
        AncestryInfo ancestry(&ancestrySection);
        if (set.RefreshAncestryInfo(own, &ancestry, &part) == KL::NoError)
            file->SetSectionDataRef(LPF::Tags::Ancestry, 0, ancestry.GetAncestrySection(), true, -1);
    } catch (const KL::IllegalArgumentException&) {
        return LibPartFileError;
    }
    GSHandle fileParams = nullptr;
    const int firstError = file->GetSectionDataRef(LPF::Tags::Parameters, 0, &fileParams);
    GSHandle catalogueParams = nullptr;
    if (LibrarySet::IsLibPartValid(part)) {
        if (const LPF::SymbolFile* catalogued = part->GetSymbolFile()) {
            if (const int err = catalogued->GetSectionDataRef(LPF::Tags::Parameters, 0, &catalogueParams);
                err != KL::NoError)
                return err;
        }
    }
    if (fileParams != nullptr && catalogueParams != nullptr) {
        if (GSHandle merged = NewSyParHdlFromRef(catalogueParams, fileParams, nullptr, 0))
            file->SetSectionDataRef(LPF::Tags::Parameters, 0, merged, true, -1);
    }
    return firstError;
}

int FileServices::GetDefaultParamsOfMacro(const IO::Location* location, const LibPart* part,
                                          GSHandle* out) const {
    *out = nullptr;
    if (!LibrarySet::IsLibPartValid(part)) {
        if (location == nullptr)
            return -1;
        part = GetLibSetThreadSafeModifier().GetConstLibrarySet()->SearchLibPart(*location,
                                                                                 LibrarySet::CurrentLocation);
    }
    if (!LibrarySet::IsLibPartValid(part) && location != nullptr) {
        LPF::SymbolFile file(*location);
        RefreshLibPartFile(&file);
        GSHandle params = nullptr;
        if (file.GetSectionDataRef(LPF::Tags::Parameters, 0, &params) != KL::NoError)
            return -1;
        SplitSyParHandle(params, out);
        return *out != nullptr ? 0 : LibPartFileError;
    }
    const FTM::FileTypeManager& types = FTM::FileTypeManager::GetCurrent();
    const FTM::GeneralID type = part->GetGeneralFileType();
    if (types.IsTypeOrGroupInTypeOrGroup(type, fileTypes.scriptType) ||
        types.IsTypeOrGroupInTypeOrGroup(type, fileTypes.imageGroup))
        return 0;
    GSHandle params = nullptr;
    if (const LPF::SymbolFile* file = part->GetSymbolFile();
        file != nullptr && file->GetSectionDataRef(LPF::Tags::Parameters, 0, &params) == KL::NoError)
        SplitSyParHandle(params, out);
    if (*out == nullptr && defaultParamsHandle != nullptr)
        SplitSyParHandle(defaultParamsHandle, out);
    return *out != nullptr ? 0 : LibPartFileError;
}

} // namespace LM
