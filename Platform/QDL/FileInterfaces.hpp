#pragma once

// What the script engine asks of its host to reach files: a service that turns the names a script
// uses into file references, and the references through which it reads scripts, pictures,
// parameters and compiled code. The engine holds these interfaces only; the host implements them.
#include "QDL/ScriptTypes.hpp"

#include "KLRoot/Channel.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/SharedObject.hpp"
#include "KLRoot/UniString.hpp"

class BinCode;
class QDLAddParData;
class VectorImage;

namespace IO {
class Location;
}
namespace KL {
class UnID;
}

// 1 keeps compiled scripts in a file in the user's cache folder; anything else keeps them in
// memory only.
enum BinaryCachingMode : int { BinaryCachingInMemory = 0, BinaryCachingOnDisk = 1 };

// A part's 2D drawing as the engine draws it; counted, since a drawing outlives the call that
// fetched it.
class LM_EXPORT ISymbol2D {
public:
    virtual ~ISymbol2D();
    virtual const VectorImage& GetImage() const = 0;
    virtual ISymbol2D* Clone() const = 0;
    virtual void AddReference() const = 0;
    virtual void RemoveReference() const = 0;
};

namespace QDL {

// One file the engine reads: a script, a part or a picture. Results are 0 or a negative error.
class LM_EXPORT IFileRef {
public:
    virtual ~IFileRef();
    virtual int CloneFileRef(IFileRef** clone) const = 0;
    virtual short OpenQDL(int* reserved, QDL_ScriptType type, KL::UniString& unused) = 0;
    virtual short Close() = 0;
    virtual short WriteCode(const KL::ConstSharedPtr<BinCode>& code, QDL_ScriptType type, short* written) = 0;
    virtual short ReadCode(KL::ConstSharedPtr<BinCode>& code, QDL_ScriptType type) const = 0;
    virtual short GetImageDataFromFile(const short& index, char*** data, char* name) = 0;
    virtual short GetFileModTime(int* time, bool fromFile) const = 0;
    virtual short GetFileName(KL::UniString* name) const = 0;
    virtual short GetDefaultParams(KL::ConstSharedPtr<QDLAddParData>& params) = 0;
    virtual short GetFragmentHdl(KL::ConstSharedPtr<ISymbol2D>& drawing) = 0;
    virtual short GetBinaryHdl(const short& index, short* version, KL::PlatformSign* platform, char*** data,
                               int* size) = 0;
    virtual short WhichBINARY(short* count, short* indices) = 0;
    virtual short GetBINARYCount(short* count) = 0;
    // The length of the next line, or EndOfScriptError after the last.
    virtual int GetFileLine(KL::UniString& line, int* lineNumber, QDL_ScriptType* scriptType) = 0;
    virtual void SetBadMacro() = 0;
    virtual bool EqualFile(const IFileRef* other) const = 0;
};

// Finds files by the names scripts use. References it hands out go back through Dispose.
class LM_EXPORT IFileServices {
public:
    virtual ~IFileServices();
    virtual IFileRef* Texture2File(const KL::UniString& name, short* error) = 0;
    virtual IFileRef* Image3D2File(const KL::UniString& name, short* error) = 0;
    virtual IFileRef* Macro2File(const KL::UniString& name, const IFileRef* caller, char*** unused,
                                 short* missing, QDL_ScriptType unusedType, KL::UnID* outUnID,
                                 bool silent) = 0;
    virtual void IFSGetCurrentTime(int* time) = 0;
    virtual short Name2Location(const KL::UniString& name, IO::Location* location) = 0;
    virtual short GetDataFolder(IO::Location* location) = 0;
    virtual short Init(const BinaryCachingMode& mode) = 0;
    virtual void Exit() = 0;
    virtual void Dispose(IFileRef** ref) = 0;
};

} // namespace QDL
