#pragma once

#include "catalogue/LibPartId.hpp"
#include "catalogue/Symbol.hpp"
#include "services/FileTypeIDs.hpp"

#include "KLRoot/Array.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "QDL/FileInterfaces.hpp"
#include "QDL/QDLAddParData.hpp"
#include "VectorImage/VectorImage.hpp"

#include <memory>

namespace IO {
class Location;
}
namespace LPF {
class SymbolFile;
}

namespace LM {

class FileServices;
class LibPart;

// One file that a script run reads: a catalogued part, held by its id and looked up afresh on every
// call (so that it outlives an Enumerate), or a file by location. A reference belongs to one script
// run; its read state is not shared.
class LM_EXPORT FileRef : public QDL::IFileRef {
public:
    static constexpr int FileKindByPart = 1;
    static constexpr int FileKindByLocation = 2;
    // What lies behind a reference.
    enum KFFileType : int { KFScriptFile = 0, KFPictureFile = 1, KFPartFile = 2, KFUnknownFile = 3 };
    // The part's cached default parameters live on the part under this key.
    static constexpr KL::Guid DefaultParamsKeyGuid{"2AB4005A-0371-4B52-985E-C9C17037827B"};

    FileRef(const IO::Location& location, FileServices& services);
    // By the part's own id and file name; a null part gives a reference to nothing.
    FileRef(const LibPart* part, FileServices& services);
    FileRef(const LibPartId& id, FileServices& services);
    // A copy starts with nothing open.
    FileRef(const FileRef& other);
    FileRef& operator=(const FileRef& other);
    ~FileRef() override;

    bool operator==(const FileRef& other) const;
    bool operator!=(const FileRef& other) const { return !(*this == other); }

    // ---- The engine's interface.
    int CloneFileRef(QDL::IFileRef** clone) const override;
    // Loads the script of `type`, the master script in front of it, and starts reading at its top.
    short OpenQDL(int* reserved, QDL_ScriptType type, KL::UniString& unused) override;
    short Close() override;
    short WriteCode(const KL::ConstSharedPtr<BinCode>& code, QDL_ScriptType type, short* written) override;
    short ReadCode(KL::ConstSharedPtr<BinCode>& code, QDL_ScriptType type) const override;
    // An index below 0 reads the whole file; 0 the preview picture, above 0 a further picture.
    short GetImageDataFromFile(const short& index, char*** data, char* name) override;
    short GetFileModTime(int* time, bool fromFile) const override;
    short GetFileName(KL::UniString* name) const override;
    short GetDefaultParams(KL::ConstSharedPtr<QDLAddParData>& params) override;
    short GetFragmentHdl(KL::ConstSharedPtr<ISymbol2D>& drawing) override;
    short GetBinaryHdl(const short& index, short* version, KL::PlatformSign* platform, char*** data,
                       int* size) override;
    // The sub-indices of the binary 3D sections; `indices` must have room for all of them.
    short WhichBINARY(short* count, short* indices) override;
    short GetBINARYCount(short* count) override;
    // Lines of the master script come as type 6, then numbering starts again with the requested type.
    int GetFileLine(KL::UniString& line, int* lineNumber, QDL_ScriptType* scriptType) override;
    void SetBadMacro() override;
    bool EqualFile(const QDL::IFileRef* other) const override;

    // ---- Identity.
    int GetLibPartId(LibPartId& id) const;
    int GetLocation(IO::Location* location) const;
    int GetLibPart(const LibPart** part) const;
    // The catalogued part's location, or the reference's own.
    int GetLibPartLocation(IO::Location* location) const;
    KFFileType GetFileType() const;
    int GetFileMode(short* mode) const;

    // ---- Section reads.
    // The section of `tag` with the master script in front; `*prefix` gets the master script's length.
    static int GetFullScript(const LPF::SymbolFile& file, unsigned tag, char*** out, int* prefix);
    int GetSectionData(unsigned tag, char subIndex, char*** out) const;
    int GetParamNames(char*** out, int* size) const;
    int GetScriptHdl(QDL_ScriptType type, char*** out);
    int GetANCSArray(KL::Array<KL::UnID>* array);

private:
    class PartFile;

    // The catalogued part when it is there and valid; null otherwise, and always for a file. The
    // forms that take it save a second lookup in the catalogue within one call.
    const LibPart* FindUsablePart() const;
    PartFile OpenPartFile() const;
    PartFile OpenPartFile(const LibPart* usablePart) const;
    KFFileType FileTypeOf(const LibPart* usablePart) const;
    int LibPartLocationOf(const LibPart* usablePart, IO::Location* out) const;
    short LoadScript(const LibPart* part, KFFileType fileType);
    void FindLineEnd();
    int CountBinarySections(short* count, short* indices) const;
    void ResetReadState();

    int kind;
    LibPartId partId;
    std::unique_ptr<IO::Location> location;
    KL::ScopedHandle scriptHandle;
    KL::UniString script;
    std::int32_t textLength = 0;
    std::int32_t prefixLength = 0;
    std::int32_t lineNumber = 0;
    QDL_ScriptType scriptType = QDL_MasterScript;
    std::int32_t readPosition = 0;
    KL::UniChar endOfLine = u'\n';
    std::int32_t endOfLineLength = 1;
    FileServices* services;
    const FileTypeIDS* fileTypes;
};

// Holds a reference for a scope and gives it back to the services at its end.
class LM_EXPORT FileRefEmbedder {
public:
    explicit FileRefEmbedder(FileServices& services);
    FileRefEmbedder(FileServices& services, const IO::Location& location);
    FileRefEmbedder(FileServices& services, const LibPartId& id);
    FileRefEmbedder(FileServices& services, const FileRef& ref);
    ~FileRefEmbedder();
    FileRefEmbedder(const FileRefEmbedder&) = delete;
    FileRefEmbedder& operator=(const FileRefEmbedder&) = delete;

    FileRef* GetFileRef() const { return fileRef; }
    // Each replaces the held reference and gives false when it cannot make one.
    bool CreateFileRef(const IO::Location& location);
    bool CreateFileRef(const LibPartId& id);
    // The part first, and the location when there is no part.
    bool CreateFileRef(const LibPart* part, const IO::Location& location);
    bool CreateFileRef(const FileRef& ref);

private:
    void Replace(FileRef* ref);

    FileRef* fileRef = nullptr;
    FileServices& services;
};

// A part's default parameters, kept on the part so that the engine builds them once.
class LM_EXPORT QDLAddParDataSymbolUserData : public SymbolUserData {
public:
    explicit QDLAddParDataSymbolUserData(KL::ConstSharedPtr<QDLAddParData> params)
        : params(std::move(params)) {}
    const KL::ConstSharedPtr<QDLAddParData>& GetParams() const { return params; }

private:
    KL::ConstSharedPtr<QDLAddParData> params;
};

// A part's 2D drawing handed to the engine.
class LM_EXPORT Symbol2DVectorImage : public ISymbol2D, public KL::SharedObject {
public:
    explicit Symbol2DVectorImage(const VectorImage& image) : image(image) {}

    const VectorImage& GetImage() const override { return image; }
    ISymbol2D* Clone() const override { return new Symbol2DVectorImage(image); }
    void AddReference() const override { KL::SharedObject::AddReference(); }
    void RemoveReference() const override { KL::SharedObject::RemoveReference(); }

private:
    VectorImage image;
};

} // namespace LM

using LM::FileRef;
using LM::FileRefEmbedder;
