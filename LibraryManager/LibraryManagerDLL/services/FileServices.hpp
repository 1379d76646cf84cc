#pragma once

#include "catalogue/LibrarySet.hpp"
#include "services/FileTypeIDs.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/PagedArray.hpp"
#include "KLRoot/SpinLock.hpp"
#include "QDL/FileInterfaces.hpp"
#include "QDL/SyCalledMacroItem.hpp"

namespace LPF {
class SymbolFile;
}

namespace LM {

class FileRef;

// What the script engine asks of the catalogue: macros, pictures and parameters by the names that
// scripts use. Start-up creates one per catalogue and hands it to the host for the engine. Script
// threads call it while the owner's thread is idle; each call reaches the catalogue through a
// thread-safe modifier only.
class LM_EXPORT FileServices : public QDL::IFileServices {
public:
    // Where a part keeps the macros its scripts call, resolved at the first call from it.
    static constexpr KL::Guid MacroMapKeyGuid{"B3AF71BA-78D3-4081-A565-67445FB22147"};

    // Takes over `defaultParams`.
    FileServices(LibrarySet* librarySet, const IO::Location& dataFolder, const FileTypeIDS& fileTypes,
                 GSHandle defaultParams);
    ~FileServices() override;
    FileServices(const FileServices&) = delete;
    FileServices& operator=(const FileServices&) = delete;

    // ---- The engine's interface.
    // A picture part by name; `*error` 2 when there is none.
    QDL::IFileRef* Texture2File(const KL::UniString& name, short* error) override;
    // Any part by name; `*error` 2 when there is none.
    QDL::IFileRef* Image3D2File(const KL::UniString& name, short* error) override;
    // The macro that a script of `caller` calls by `name`. `*missing` is 1 when it was not found and
    // was not reported before.
    QDL::IFileRef* Macro2File(const KL::UniString& name, const QDL::IFileRef* caller, char*** unused,
                              short* missing, QDL_ScriptType unusedType, KL::UnID* outUnID,
                              bool silent) override;
    void IFSGetCurrentTime(int* time) override;
    short Name2Location(const KL::UniString& name, IO::Location* location) override;
    short GetDataFolder(IO::Location* location) override;
    short Init(const BinaryCachingMode& mode) override;
    void Exit() override;
    void Dispose(QDL::IFileRef** ref) override;

    // ---- The host's side.
    // Replaces the default parameters with `defaultParams`, taken over; null keeps them.
    void Init(GSHandle defaultParams);
    const FileTypeIDS& GetFileTypeIDS() const { return fileTypes; }
    LibrarySet* GetLibrarySet() const { return librarySet; }
    const LibPart* GetLibPart(const LibPartId& id) const;
    LibrarySet::ThreadSafeModifier GetLibSetThreadSafeModifier() const {
        return LibrarySet::ThreadSafeModifier(librarySet);
    }
    // A reference to the part of that document or file name, valid or not; null when none.
    FileRef* Name2FileRef(const KL::UniString& name);
    // The picture part of that name.
    short Name2LibPart(const KL::UniString& name, const LibPart** part);
    void Dispose(FileRef** ref);

    // ---- Macro resolution.
    // From the calling part outward: the caller itself when it is no catalogued part, its map of
    // called macros, the id it recorded for the name, then the catalogue by name.
    bool GetMacroFile(const KL::UniString& name, const IO::Location& callerLocation,
                      const LibPart* callerPart, IO::Location* outLocation, const LibPart** outPart,
                      bool* missing, KL::UnID* outUnID, bool silent);
    bool GetMacroFile(const KL::UnID& id, const KL::UniString& name, IO::Location* outLocation,
                      const LibPart** outPart, bool* missing, bool compatibleMode, bool silent);
    // Records a macro that was not found; `*firstTime` is false when it was recorded before.
    void AddToMissingMacroList(const KL::UniString& name, bool* firstTime);
    // Switches recording on or off; what was recorded stays.
    void ResetMissingMacros(bool on);
    // The macros recorded as missing, in the order they were first missed.
    KL::PagedArray<KL::UniString, 8> GetMissingMacros() const;

    // The macros a part file lists as called; a list that cannot be read is empty.
    static KL::Array<SyCalledMacroItem> ReadCalledMacros(const LPF::SymbolFile& file);

    // ---- Parameters and pictures.
    // The default parameters of a macro for `*out`, owned by the caller: 0, -1 when there is no part
    // file to ask, or LibPartFileError.
    int GetDefaultParamsOfMacro(const IO::Location* location, const LibPart* part, GSHandle* out) const;
    // Brings the ancestry and parameters of a part file outside the catalogue in line with it.
    int RefreshLibPartFile(LPF::SymbolFile* file) const;
    int CheckPictFile(const IO::Location* location, const LibPart* part) const;

private:
    // The part that `caller` knows under `lookupName` from its map of called macros, which is built
    // from its "MCRS" section at the first call and kept on the part.
    const LibPart* FindInMacroMap(const LibPart* caller, const KL::UniString& lookupName,
                                  bool* compatibleMode, bool silent);
    KL::UnID PreferredIdFromFile(const LibPart* caller, const IO::Location& callerLocation,
                                 const KL::UniString& name, bool* compatibleMode) const;
    FileRef* NewPartRef(const LibPart* part);

    LibrarySet* librarySet;
    IO::Location dataFolder;
    FileTypeIDS fileTypes;
    mutable KL::FastLock missingMacroLock;
    KL::PagedArray<KL::UniString, 8> missingMacroList;
    bool missingMacroRecording = false;
    GSHandle defaultParamsHandle = nullptr;
};

} // namespace LM

// Hosts name it without a namespace.
using LM::FileServices;
