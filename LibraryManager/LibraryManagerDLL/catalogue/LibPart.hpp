#pragma once

#include "bincode/QdlBinCodeIndexArray.hpp"
#include "catalogue/Symbol.hpp"

#include "InputOutput/FileType.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/SpinLock.hpp"
#include "KLRoot/Time.hpp"
#include "KLRoot/UniString.hpp"
#include "LibPartFile/SectionInfo.hpp"
#include "QDL/ScriptTypes.hpp"

#include <cstdint>
#include <memory>

class MigrationTableObject;

namespace KL {
class IChannel;
class OChannel;
class XMLOChannel;
} // namespace KL
namespace LPF {
class ScriptFile;
class SymbolFile;
} // namespace LPF

namespace LM {

enum LibPartState : std::int32_t { LibPartStateValid = 0, LibPartStateDummy = 1, LibPartStateDeleted = 2 };

// The catalogue's record of one file found in a library: a symbol, a bare script, a picture, a
// text or any other storable file. Records live in the store's paged array; their addresses hold
// until the next Enumerate, so callers keep a LibPartId instead.
class LM_EXPORT LibPart {
public:
    // Bits of `flags` the catalogue itself sets; all others belong to the host.
    // Set by the script engine on a macro it refuses to run; searches for macros pass it over.
    static constexpr std::uint32_t BadMacroFlag = 2;
    static constexpr std::uint32_t ParametersOverwrittenFlag = 4;
    static constexpr std::uint32_t UnsupportedTypeFlag = 8;

    LibPart() = default;
    ~LibPart();
    LibPart(const LibPart&) = delete;
    LibPart& operator=(const LibPart&) = delete;

    void FillValid(const IO::Location& location, const KL::Guid& guid, int folderIndex,
                   const FTM::GeneralID& fileType, std::uint32_t flags);
    void Reload();
    void FillDummy(const KL::UniString& name, const KL::UnID& unId, int folderIndex,
                   const FTM::GeneralID& fileType, std::uint32_t flags);
    // Makes a record let go over into a new one for FillValid, keeping the memory of its texts and
    // its symbol's block, which a fill of much the same file then reuses.
    void Recycle() noexcept;
    void Swap(LibPart* other);
    // Hands every field to an empty `target` and leaves this slot as a deleted hole.
    void MoveAssignment(LibPart* target);

    // The cache record. `ancestryHandle` receives the stored "ANCS" bytes of a symbol, or null; the
    // caller owns them.
    int Read(KL::IChannel& channel, int folderOffset, char*** ancestryHandle,
             MigrationTableObject* migration);
    int Write(KL::OChannel& channel, int folderOffset) const;
    int WriteToXML(KL::XMLOChannel& channel, unsigned detail) const;

    const KL::UniString& GetDocumentName() const { return name; }
    KL::UniString GetFileName() const;
    const IO::Location& GetLocation() const { return location; }
    const IO::Location& GetOrigLocation() const { return origLocation != nullptr ? *origLocation : location; }
    int GetFolderIndex() const { return folderIndex; }
    const FTM::GeneralID& GetGeneralFileType() const { return fileType; }
    std::uint32_t GetFlags() const;
    const KL::Guid& GetGuid() const { return guid; }
    TITime GetFileModTime() const { return modTime; }
    LibPartState GetState() const { return state; }

    void SetLocation(const IO::Location& value) { location = value; }
    void SetOrigLocation(const IO::Location& value);
    void SetFolderIndex(int value) { folderIndex = value; }
    void SetGeneralFileType(const FTM::GeneralID& value) { fileType = value; }
    void SetFlags(std::uint32_t value);
    void AddFlags(std::uint32_t bits);
    void SetState(LibPartState value) { state = value; }
    void SetFileModTime(TITime value) { modTime = value; }

    bool IsValid() const { return state == LibPartStateValid; }
    // Asks the memory for the state ahead of a walk that reads the states of many records.
    void PrefetchState() const { __builtin_prefetch(&state); }
    void SetValid(bool valid) { state = valid ? LibPartStateValid : LibPartStateDummy; }
    bool IsSymbol() const { return symbol != nullptr; }
    const Symbol* GetSymbol() const { return symbol; }

    KL::UnID GetOwnUnID() const;
    void SetOwnUnID(const KL::UnID& unId);

    int GetProxy() const;
    void SetProxy(int proxy);
    Paths::TreeEntry* GetAncestryId() const;
    void SetAncestryId(Paths::TreeEntry* entry);
    bool IsTemplate() const;
    void SetAsTemplate(bool isTemplate);
    bool IsPlaceable() const;
    void SetPlaceable(bool placeable);
    bool IsArchivable() const;
    void SetArchivable(bool archivable);
    LPF::MigrationValue GetMigrationValue() const;
    void SetMigrationValue(LPF::MigrationValue value);
    int GetQdlBinCodeIndex(QDL_ScriptType type) const;
    void SetQdlBinCodeIndex(QDL_ScriptType type, int index);
    void SetQdlBinCodeIndex(const QdlBinCodeIndexArray* indices);
    void ClearQdlBinCodeIndex();

    // The part's files, opened on first use; null for records without a symbol.
    const LPF::SymbolFile* GetSymbolFile() const;
    LPF::SymbolFile* GetSymbolFileNotConst() const;
    const LPF::ScriptFile* GetScriptFile() const;
    LPF::ScriptFile* GetScriptFileNotConst() const;
    static const LPF::SymbolFile* GetSymbolFile(const LibPart& part) { return part.GetSymbolFile(); }

    // A walked part ends as a replayed one does: its files closed and their headers let go, to be
    // read again when first asked for. A catalogue of many parts then keeps no header of each.
    void ReleaseFiles() const;

    KL::ConstSharedPtr<SymbolUserData> GetUserData(const KL::Guid& client) const;
    void SetUserData(const KL::Guid& client, const KL::ConstSharedPtr<SymbolUserData>& data);
    void ClearUserData();

private:
    bool HasSymbolType() const;
    // A blank symbol for the symbol and script types, in the block the record has when it has one;
    // none for the other types.
    void RenewSymbol();
    // Takes what Recycle keeps from `other`, which is left without it.
    void TakeMemoryOf(LibPart& other) noexcept;
    void FillFromFile(bool reload);
    bool ReadModificationTime();
    void DeriveNameFromLocation();
    void ResetToDeleted();

    KL::UniString name;
    std::uint32_t flags = 0;
    LibPartState state = LibPartStateDummy;
    KL::Guid guid;
    IO::Location location;
    // Only a part stored again from another place has one of its own.
    std::unique_ptr<IO::Location> origLocation;
    std::int32_t folderIndex = -1;
    // The next slot of the part table whose record has this record's main guid, or -1: the store
    // chains them to find revision conflicts. It belongs to the slot, like storeIndex.
    std::int32_t nextSameMainGuid = -1;
    FTM::GeneralID fileType;
    TITime modTime = 0;
    Symbol* symbol = nullptr;
    friend class LibPartSet;
    // The record's catalogue index while a store has it registered, else -1. It belongs to the
    // slot: Swap and MoveAssignment leave it where it is.
    std::int32_t storeIndex = -1;
    // The own id the store's id table holds for this slot, when it is not null; it is what the
    // store forgets again, whatever the record's id has become meanwhile.
    KL::UnID registeredUnId;
    // Guards `flags` and the symbol's user data, which script threads may touch.
    mutable KL::SpinLock lock;
};

} // namespace LM
