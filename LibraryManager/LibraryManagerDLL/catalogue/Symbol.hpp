#pragma once

#include "Paths.hpp"
#include "bincode/QdlBinCodeIndexArray.hpp"

#include "KLRoot/Guid.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/SharedObject.hpp"
#include "KLRoot/SpinLock.hpp"
#include "LibPartFile/SectionInfo.hpp"
#include "QDL/ScriptTypes.hpp"

#include <atomic>
#include <cstdint>
#include <memory>

class MigrationTableObject;

namespace IO {
class Location;
}
namespace KL {
class IChannel;
class OChannel;
class UniString;
class XMLOChannel;
} // namespace KL
namespace LPF {
class ScriptFile;
class SymbolFile;
} // namespace LPF

namespace LM {

class LibPart;
struct SymbolStreamAccess;

// What a client attaches to a symbol under its own guid; clients derive from it.
class LM_EXPORT SymbolUserData : public KL::SharedObject {
public:
    ~SymbolUserData() override;
};

// The part of a catalogue record that only library part files and bare scripts have: identity,
// flags, place in the type tree, compiled script indices and client data, kept in memory so that
// the file stays closed. The file objects are opened on first use, from any thread.
//
// Owned by its LibPart, which also guards the user data with its own lock.
class LM_EXPORT Symbol {
public:
    Symbol();
    ~Symbol();
    Symbol(const Symbol&) = delete;
    Symbol& operator=(const Symbol&) = delete;

    // Open the file afresh and read what the catalogue keeps. A file that cannot be read leaves the
    // values of Clear and a null own id; `modTime` and `name` keep what they held.
    void FillSymbol(const IO::Location& location, int* modTime, KL::UniString* name);
    void FillScript(const IO::Location& location, int* modTime, KL::UniString* name);
    // The same, and the node in the type tree is dropped until the tree is rebuilt.
    void ReloadSymbol(const IO::Location& location, int* modTime, KL::UniString* name);
    void ReloadScript(const IO::Location& location, int* modTime, KL::UniString* name);

    // Resets flags, migration value, user data and compiled script indices; identity, proxy, tree
    // node and files stay.
    void Clear();

    int GetProxy() const { return proxy; }
    void SetProxy(int value) { proxy = value; }
    Paths::TreeEntry* GetAncestryId() const { return ancestryId; }
    void SetAncestryId(Paths::TreeEntry* entry) { ancestryId = entry; }
    bool IsTemplate() const { return isTemplate; }
    void SetAsTemplate(bool value) { isTemplate = value; }
    bool IsPlaceable() const { return isPlaceable; }
    void SetPlaceable(bool value) { isPlaceable = value; }
    bool IsArchivable() const { return isArchivable; }
    void SetArchivable(bool value) { isArchivable = value; }
    LPF::MigrationValue GetMigrationValue() const { return migrationValue; }
    void SetMigrationValue(LPF::MigrationValue value) { migrationValue = value; }
    const KL::UnID& GetOwnUnID() const { return ownUnID; }
    void SetOwnUnID(const KL::UnID& id) { ownUnID = id; }

    // The type is not checked: callers hold one of the eight script types.
    int GetQdlBinCodeIndex(QDL_ScriptType type) const { return binCodeIndices.Get(type); }
    void SetQdlBinCodeIndex(QDL_ScriptType type, int index) { binCodeIndices.Set(type, index); }
    // Copies all eight; null leaves them.
    void SetQdlBinCodeIndex(const QdlBinCodeIndexArray* indices);
    void ClearQdlBinCodeIndex() { binCodeIndices.Clear(); }

    // The file object, created for `location` on the first call; later calls return the same
    // object whatever location they pass.
    LPF::SymbolFile* GetSymbolFile(const IO::Location& location);
    const LPF::SymbolFile* GetSymbolFile(const IO::Location& location) const;
    LPF::ScriptFile* GetScriptFile(const IO::Location& location);
    const LPF::ScriptFile* GetScriptFile(const IO::Location& location) const;

    KL::ConstSharedPtr<SymbolUserData> GetUserData(const KL::Guid& client) const;
    // Null removes the client's entry.
    void SetUserData(const KL::Guid& client, const KL::ConstSharedPtr<SymbolUserData>& data);
    void ClearUserData() { userData.reset(); }
    // Lets the file objects go; the next question opens them again. Owner's thread only, with no
    // reader of them left.
    void ReleaseFiles() const;

    // The header of an open symbol file and, unless the bits of `detail` say otherwise (1 ancestry,
    // 2 parameters, 4 migration table), its section dumps. Nothing without an open symbol file.
    int WriteToXML(KL::XMLOChannel& channel, unsigned detail) const;

private:
    friend class LibPart;
    friend struct SymbolStreamAccess;

    // The record of the library cache: own id, flags, migration value, the "ANCS" bytes of the open
    // file (size 0 without one) and its migration table if it has one. Read hands the ancestry bytes
    // to `*ancestryHandle` (null for none), owned by the caller, and the table to `migration`.
    int Read(KL::IChannel& channel, char*** ancestryHandle, MigrationTableObject* migration);
    int Write(KL::OChannel& channel) const;

    LPF::SymbolFile* OpenSymbolFile(const IO::Location& location) const;
    LPF::ScriptFile* OpenScriptFile(const IO::Location& location) const;
    void ResetForFill();

    // Atomic, since a file is looked for outside `lock` first and created under it.
    mutable std::atomic<LPF::SymbolFile*> symbolFile{nullptr};
    mutable std::atomic<LPF::ScriptFile*> scriptFile{nullptr};
    KL::UnID ownUnID;
    std::int32_t proxy = -1;
    Paths::TreeEntry* ancestryId = nullptr;
    bool isTemplate = false;
    bool isPlaceable = false;
    bool isArchivable = false;
    LPF::MigrationValue migrationValue = LPF::Normal;
    QdlBinCodeIndexArray binCodeIndices;
    // Made when a client first sets data: few parts ever carry any, and an empty table would
    // cost every part its size.
    using UserDataTable = KL::HashTable<KL::Guid, KL::ConstSharedPtr<SymbolUserData>>;
    std::unique_ptr<UserDataTable> userData;
    mutable KL::SpinLock lock;
};

} // namespace LM
