#include "catalogue/Symbol.hpp"

#include "LibraryManagerErrors.hpp"
#include "hierarchy/AncestryInfo.hpp"

#include "InputOutput/Location.hpp"
#include "KLMSections/MigrationTable.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLRoot/UniString.hpp"
#include "KLRoot/XMLOChannel.hpp"
#include "LibPartFile/ScriptFile.hpp"
#include "LibPartFile/SectionTypes.hpp"
#include "LibPartFile/SymbolFile.hpp"
#include "QDL/ParamSection.hpp"
#include "QDL/ParamXML.hpp"

#include <cstring>
#include <memory>
#include <string_view>

namespace LM {

namespace {

constexpr unsigned NoAncestryDump = 1;
constexpr unsigned NoParameterDump = 2;
constexpr unsigned NoMigrationDump = 4;
constexpr int NoParameterLimit = 0x7fffffff;

constexpr SyBitName StatusBitNames[] = {
    {STBit_UIDefault, "STBit_UIDefault"},
    {STBit_FixSize, "STBit_FixSize"},
    {STBit_SizeTo2D, "STBit_SizeTo2D"},
    {STBit_OneRunVLScript, "STBit_OneRunVLScript"},
};

// Any thread may ask for a file first: the unlocked look is repeated under the lock, so exactly one
// object is made.
template <typename File>
File* OpenOnce(std::atomic<File*>& file, KL::SpinLock& lock, const IO::Location& location) {
    if (File* open = file.load(std::memory_order_acquire))
        return open;
    KL::SpinLockGuard guard(lock);
    if (File* open = file.load(std::memory_order_relaxed))
        return open;
    File* created = new File(location);
    file.store(created, std::memory_order_release);
    return created;
}

// Filling belongs to the owning thread, with no reader of the old object left.
template <typename File>
const File& Reopen(std::atomic<File*>& file, const IO::Location& location) {
    delete file.exchange(nullptr, std::memory_order_acq_rel);
    File* created = new File(location);
    file.store(created, std::memory_order_release);
    return *created;
}

// The migration table as an object, or null. The error starts as a failure, so a call that leaves
// it alone counts as no table.
std::unique_ptr<KL::Object> GetMigrationContent(const LPF::SymbolFile& file) {
    int error = LibPartFileError;
    std::unique_ptr<KL::Object> content = file.GetSectionContent(LPF::Tags::MigrationTable, 0, &error);
    return error == KL::NoError ? std::move(content) : nullptr;
}

const char* MigrationValueText(LPF::MigrationValue value) {
    switch (value) {
    case LPF::Normal:
        return "Normal";
    case LPF::IncompatiblyChanged:
        return "IncompatiblyChanged";
    case LPF::Obsolete:
        return "Obsolete";
    }
    return "";
}

// A NUL-terminated text that may also end at the end of its field.
KL::UniString TextInField(const char* field, std::size_t size) {
    return KL::UniString(std::string_view(field, strnlen(field, size)));
}

void WriteSectionInfo(KL::XMLOChannel& channel, const LPF::SymbolFile& file, LPF::SectionTag tag) {
    LPF::SectionInfo info;
    file.GetSectionInfo(tag, 0, &info);
    channel.WriteElement("SectVersion", std::uint32_t{info.version});
    channel.WriteElement("SectionFlags", std::uint32_t{info.flags});
    channel.WriteElement("SubIdent", std::uint32_t{info.subIdent});
}

void WriteAncestryDump(KL::XMLOChannel& channel, const LPF::SymbolFile& file) {
    GSHandle data = nullptr;
    if (file.GetSectionDataRef(LPF::Tags::Ancestry, 0, &data) != KL::NoError)
        return;
    // A damaged section still gets its tag and section info; its chain reads as empty.
    AncestryInfo ancestry;
    try {
        if (ancestry.SetAncestrySection(&data) != 0)
            ancestry = AncestryInfo();
    } catch (const KL::IllegalArgumentException&) {
        ancestry = AncestryInfo();
    }
    channel.StartTag("Ancestry");
    WriteSectionInfo(channel, file, LPF::Tags::Ancestry);
    channel.WriteElement("Template", ancestry.IsTemplate());
    for (unsigned k = 1; k <= ancestry.GetAncestorsCount(); ++k)
        channel.WriteElement("MainGUID", ancestry.GetAncestorRef(k).mainGuid);
    channel.EndTag("Ancestry");
}

void WriteParameterHeader(KL::XMLOChannel& channel, const SyParHeader& header) {
    channel.StartTag("ParamSectHeader");
    channel.WriteElement("Version", std::uint32_t{header.version});
    channel.WriteElement("AutoHotspots", header.autoHotspots);
    channel.StartTag("StatBits");
    for (const SyBitName& bit : StatusBitNames) {
        if ((header.statusBits & bit.bit) != 0)
            channel.WriteElement(bit.name, "");
    }
    channel.EndTag("StatBits");
    channel.WriteElement("WDLeftFrame", double{header.leftFrame});
    channel.WriteElement("WDRightFrame", double{header.rightFrame});
    channel.WriteElement("WDTopFrame", double{header.topFrame});
    channel.WriteElement("WDBotFrame", double{header.bottomFrame});
    channel.WriteElement("LayFlags", header.layerFlags);
    channel.WriteElement("WDMirrorThickness", double{header.mirrorThickness});
    channel.WriteElement("WDWallInset", double{header.wallInset});
    channel.WriteElement("SymbolColor", header.symbolColor);
    channel.EndTag("ParamSectHeader");
}

void WriteFrameExpressions(KL::XMLOChannel& channel, const KL::ScopedHandle& expressions) {
    const auto size = static_cast<std::size_t>(expressions.GetSize());
    if (size == 0)
        return;
    channel.StartTag("WDFrameExpression");
    const char* text = expressions.GetData();
    std::size_t at = 0;
    for (std::size_t written = 0; written < MaxFrameExpressions && at < size; ++written) {
        const std::size_t length = strnlen(text + at, size - at);
        channel.WriteElement("F", KL::UniString(std::string_view(text + at, length)));
        at += length + 1;
    }
    channel.EndTag("WDFrameExpression");
}

void WriteOrientation(KL::XMLOChannel& channel, const KL::ScopedHandle& orientation) {
    if (orientation.GetSize() < static_cast<std::int64_t>(2 * OrientationTextSize))
        return;
    channel.StartTag("WDOrientation");
    channel.WriteElement("Def", TextInField(orientation.GetData(), OrientationTextSize));
    channel.WriteElement("Mirr",
                         TextInField(orientation.GetData() + OrientationTextSize, OrientationTextSize));
    channel.EndTag("WDOrientation");
}

void WriteParameterDump(KL::XMLOChannel& channel, const LPF::SymbolFile& file) {
    GSHandle data = nullptr;
    if (file.GetSectionDataRef(LPF::Tags::Parameters, 0, &data) != KL::NoError)
        return;
    SyParHeader header;
    KL::ScopedHandle names;
    KL::ScopedHandle values;
    KL::ScopedHandle expressions;
    KL::ScopedHandle orientation;
    if (SplitSyParHandle(data, &header, names.GetAddress(), values.GetAddress(), expressions.GetAddress(),
                         orientation.GetAddress()) != KL::NoError)
        return;
    channel.StartTag("ParamSection");
    WriteSectionInfo(channel, file, LPF::Tags::Parameters);
    WriteParameterHeader(channel, header);
    ConvertAddParToXMLChannel(channel, names.Get(), values.Get(), NoParameterLimit);
    WriteFrameExpressions(channel, expressions);
    WriteOrientation(channel, orientation);
    channel.EndTag("ParamSection");
}

void WriteMigrationDump(KL::XMLOChannel& channel, const LPF::SymbolFile& file) {
    const std::unique_ptr<KL::Object> content = GetMigrationContent(file);
    const auto* migration = dynamic_cast<const MigrationTableObject*>(content.get());
    if (migration == nullptr)
        return;
    const MigrationTable& table = migration->GetTable();
    channel.StartTag("MigrationTable");
    WriteSectionInfo(channel, file, LPF::Tags::MigrationTable);
    for (auto pair = table.BeginPairs(); pair != table.EndPairs(); ++pair) {
        channel.StartTag("MigrationTableElement");
        channel.WriteElement("MainGUID", pair->first);
        channel.WriteElement("Version", pair->second.version);
        channel.EndTag("MigrationTableElement");
    }
    channel.EndTag("MigrationTable");
}

// A record cut short gives LibPartFileError whatever the channel says: the cache is then stale.
int ReadAncestryBytes(KL::IChannel& channel, std::uint32_t size, char*** ancestryHandle) {
    if (size == 0)
        return KL::NoError;
    if (channel.RequireAvailable(size) != KL::NoError)
        return LibPartFileError;
    KL::ScopedHandle bytes(BMAllocateHandle(size, 0, 0));
    if (bytes.Get() == nullptr)
        throw KL::OutOfMemoryException("BM: cannot allocate the needed memory!", __FILE__, __LINE__);
    if (channel.ReadBin(bytes.GetData(), size) != KL::NoError)
        return LibPartFileError;
    *ancestryHandle = bytes.Release();
    return KL::NoError;
}

// A record without a table clears `migration`, so that one object can serve a whole replay.
int ReadMigrationTable(KL::IChannel& channel, MigrationTableObject* migration) {
    if (migration != nullptr)
        migration->GetTable().Clear();
    bool hasTable = false;
    if (const int error = channel.Read(hasTable); error != KL::NoError || !hasTable)
        return error;
    MigrationTableObject unwanted;
    return (migration != nullptr ? migration : &unwanted)->Read(channel);
}

} // namespace

SymbolUserData::~SymbolUserData() = default;

Symbol::Symbol() = default;

Symbol::~Symbol() {
    delete symbolFile.load(std::memory_order_acquire);
    delete scriptFile.load(std::memory_order_acquire);
}

void Symbol::ReleaseFiles() const {
    delete symbolFile.exchange(nullptr, std::memory_order_acq_rel);
    delete scriptFile.exchange(nullptr, std::memory_order_acq_rel);
}

void Symbol::ResetForFill() {
    ownUnID = KL::NULLUnID;
    Clear();
}

void Symbol::FillSymbol(const IO::Location& location, int* modTime, KL::UniString* name) {
    ResetForFill();
    const LPF::SymbolFile& file = Reopen(symbolFile, location);
    file.GetModificationTime(modTime);
    file.GetOwnUnID(&ownUnID);
    file.IsPlaceable(&isPlaceable);
    file.IsArchivable(&isArchivable);
    file.GetMigrationValue(&migrationValue);
    file.GetDocumentName(name);
}

void Symbol::FillScript(const IO::Location& location, int* modTime, KL::UniString* name) {
    ResetForFill();
    const LPF::ScriptFile& file = Reopen(scriptFile, location);
    file.GetModificationTime(modTime);
    file.GetDocumentName(name);
}

void Symbol::ReloadSymbol(const IO::Location& location, int* modTime, KL::UniString* name) {
    ancestryId = nullptr;
    FillSymbol(location, modTime, name);
}

void Symbol::ReloadScript(const IO::Location& location, int* modTime, KL::UniString* name) {
    ancestryId = nullptr;
    FillScript(location, modTime, name);
}

void Symbol::Clear() {
    isTemplate = false;
    isPlaceable = false;
    isArchivable = false;
    migrationValue = LPF::Normal;
    userData.reset();
    binCodeIndices.Clear();
}

void Symbol::SetQdlBinCodeIndex(const QdlBinCodeIndexArray* indices) {
    if (indices != nullptr)
        binCodeIndices = *indices;
}

LPF::SymbolFile* Symbol::OpenSymbolFile(const IO::Location& location) const {
    return OpenOnce(symbolFile, lock, location);
}

LPF::ScriptFile* Symbol::OpenScriptFile(const IO::Location& location) const {
    return OpenOnce(scriptFile, lock, location);
}

LPF::SymbolFile* Symbol::GetSymbolFile(const IO::Location& location) {
    return OpenSymbolFile(location);
}

const LPF::SymbolFile* Symbol::GetSymbolFile(const IO::Location& location) const {
    return OpenSymbolFile(location);
}

LPF::ScriptFile* Symbol::GetScriptFile(const IO::Location& location) {
    return OpenScriptFile(location);
}

const LPF::ScriptFile* Symbol::GetScriptFile(const IO::Location& location) const {
    return OpenScriptFile(location);
}

KL::ConstSharedPtr<SymbolUserData> Symbol::GetUserData(const KL::Guid& client) const {
    const KL::ConstSharedPtr<SymbolUserData>* entry =
        userData != nullptr ? userData->GetPtr(client) : nullptr;
    return entry != nullptr ? *entry : KL::ConstSharedPtr<SymbolUserData>();
}

void Symbol::SetUserData(const KL::Guid& client, const KL::ConstSharedPtr<SymbolUserData>& data) {
    if (data.IsNull()) {
        if (userData != nullptr)
            userData->Delete(client);
        return;
    }
    if (userData == nullptr)
        userData = std::make_unique<UserDataTable>();
    userData->Put(client, data);
}

int Symbol::WriteToXML(KL::XMLOChannel& channel, unsigned detail) const {
    const LPF::SymbolFile* file = symbolFile.load(std::memory_order_acquire);
    if (file == nullptr)
        return channel.GetStatus();
    unsigned owner = 0;
    unsigned signature = 0;
    KL::UniString documentName;
    file->GetOwner(&owner);
    file->GetType(&signature);
    file->GetDocumentName(&documentName);
    channel.StartTag("Symbol");
    channel.WriteElement("IsArchivable", isArchivable);
    channel.WriteElement("IsPlaceable", isPlaceable);
    channel.WriteElement("MainGuid", ownUnID.mainGuid);
    channel.WriteElement("MigrationValue", MigrationValueText(migrationValue));
    channel.WriteElement("Owner", std::uint32_t{owner});
    channel.WriteElement("Signature", std::uint32_t{signature});
    channel.WriteElement("DocumentName", documentName);
    if ((detail & NoAncestryDump) == 0)
        WriteAncestryDump(channel, *file);
    if ((detail & NoParameterDump) == 0)
        WriteParameterDump(channel, *file);
    if ((detail & NoMigrationDump) == 0)
        WriteMigrationDump(channel, *file);
    channel.EndTag("Symbol");
    return channel.GetStatus();
}

int Symbol::Write(KL::OChannel& channel) const {
    if (const int error = ownUnID.Write(channel); error != KL::NoError)
        return error;
    if (const int error = channel.Write(isPlaceable); error != KL::NoError)
        return error;
    if (const int error = channel.Write(isArchivable); error != KL::NoError)
        return error;
    if (const int error = channel.Write(static_cast<std::int8_t>(migrationValue)); error != KL::NoError)
        return error;
    // Only a file already open is asked: writing the cache must not open every part.
    const LPF::SymbolFile* file = symbolFile.load(std::memory_order_acquire);
    GSHandle ancestry = nullptr;
    if (file == nullptr || file->GetSectionDataRef(LPF::Tags::Ancestry, 0, &ancestry) != KL::NoError)
        ancestry = nullptr;
    const auto ancestrySize = static_cast<std::uint32_t>(ancestry != nullptr ? BMGetHandleSize(ancestry) : 0);
    if (const int error = channel.Write(ancestrySize); error != KL::NoError)
        return error;
    if (ancestrySize != 0) {
        if (const int error = channel.WriteBin(*ancestry, ancestrySize); error != KL::NoError)
            return error;
    }
    const std::unique_ptr<KL::Object> migration = file != nullptr ? GetMigrationContent(*file) : nullptr;
    if (const int error = channel.Write(migration != nullptr); error != KL::NoError)
        return error;
    return migration != nullptr ? migration->Write(channel) : KL::NoError;
}

int Symbol::Read(KL::IChannel& channel, char*** ancestryHandle, MigrationTableObject* migration) {
    *ancestryHandle = nullptr;
    if (const int error = ownUnID.Read(channel); error != KL::NoError)
        return error;
    if (const int error = channel.Read(isPlaceable); error != KL::NoError)
        return error;
    if (const int error = channel.Read(isArchivable); error != KL::NoError)
        return error;
    std::int8_t storedMigrationValue = 0;
    if (const int error = channel.Read(storedMigrationValue); error != KL::NoError)
        return error;
    migrationValue = static_cast<LPF::MigrationValue>(storedMigrationValue);
    std::uint32_t ancestrySize = 0;
    if (const int error = channel.Read(ancestrySize); error != KL::NoError)
        return error;
    if (const int error = ReadAncestryBytes(channel, ancestrySize, ancestryHandle); error != KL::NoError)
        return error;
    return ReadMigrationTable(channel, migration);
}

} // namespace LM
