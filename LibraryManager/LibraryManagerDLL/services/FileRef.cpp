#include "services/FileRef.hpp"

#include "LibraryManagerErrors.hpp"
#include "catalogue/LibPart.hpp"
#include "catalogue/LibrarySet.hpp"
#include "services/FileServices.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileTypeManager.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Channel.hpp"
#include "LibPartFile/LibPartFileErrors.hpp"
#include "LibPartFile/ScriptFile.hpp"
#include "LibPartFile/SymbolFile.hpp"
#include "QDL/BinCode.hpp"
#include "QDL/ParamSection.hpp"
#include "QDL/QDLAddParData.hpp"

#include <algorithm>
#include <cstring>
#include <typeinfo>

namespace LM {

namespace {

constexpr std::size_t PictureNameSize = 256;
// The parameter section's header: length and offset of the block of parameter records.
constexpr std::int64_t ParamNamesLengthOffset = 40;
constexpr std::int64_t ParamNamesOffsetOffset = 44;
constexpr std::int64_t AncestryRecordSize = 32;

// What the engine makes of a part file, by the type code in its header.
short ModeOfPartFileType(unsigned type) {
    using FTM::MakeCode;
    static constexpr struct {
        std::uint32_t code;
        short mode;
    } Modes[] = {{MakeCode(".CPS"), 5}, {MakeCode(".FPS"), 5}, {MakeCode(".GPS"), 5}, {MakeCode(".LSM"), 5},
                 {MakeCode(".RPS"), 5}, {MakeCode(".SPS"), 5}, {MakeCode(".WPS"), 5}, {MakeCode("KSYM"), 5},
                 {MakeCode("MSYM"), 5}, {MakeCode("RSYM"), 5}, {MakeCode("DSYM"), 2}, {MakeCode("WSYM"), 3},
                 {MakeCode("LSYM"), 4}, {MakeCode("PICT"), 6}, {MakeCode("ESYM"), 7}};
    for (const auto& entry : Modes) {
        if (entry.code == type)
            return entry.mode;
    }
    return 1;
}

// Copies at most the name's first 255 bytes, terminated.
void CopyPictureName(std::string_view text, char* name) {
    const std::size_t length = std::min(text.size(), PictureNameSize - 1);
    std::memcpy(name, text.data(), length);
    name[length] = '\0';
}

int ReadWholeFile(const IO::Location& location, GSHandle* data) {
    IO::File file(location);
    if (const int err = file.Open(IO::File::ReadMode); err != KL::NoError)
        return err;
    std::uint64_t length = 0;
    if (const int err = file.GetDataLength(&length); err != KL::NoError)
        return err;
    KL::ScopedHandle bytes(BMAllocateHandle(static_cast<std::int64_t>(length), 0, 0));
    if (bytes.Get() == nullptr)
        return BMError();
    if (length > 0) {
        if (const int err = file.ReadBin(bytes.GetData(), length); err != KL::NoError)
            return err;
    }
    *data = bytes.Release();
    return KL::NoError;
}

// The picture's bytes behind its NUL-terminated name, moved to the start of the handle.
int CutPictureName(GSHandle data, char* name) {
    const std::int64_t size = BMGetHandleSize(data);
    const char* bytes = *data;
    const char* terminator =
        static_cast<const char*>(std::memchr(bytes, '\0', static_cast<std::size_t>(size)));
    if (terminator == nullptr)
        return LibPartFileError;
    if (name != nullptr)
        CopyPictureName(std::string_view(bytes, static_cast<std::size_t>(terminator - bytes)), name);
    const std::int64_t rest = size - (terminator - bytes) - 1;
    std::memmove(*data, terminator + 1, static_cast<std::size_t>(rest));
    return BMReallocHandle(data, rest, 0, 0) != nullptr ? KL::NoError : BMError();
}

struct BinarySectionCount {
    std::int32_t count = 0;
    short* indices = nullptr;
};

int CountBinarySection(const LPF::SectionInfo& info, void* userData) {
    auto* state = static_cast<BinarySectionCount*>(userData);
    if (info.tag == LPF::Tags::Binary3D) {
        if (state->indices != nullptr)
            state->indices[state->count] = static_cast<short>(info.subIdent);
        ++state->count;
    }
    return KL::NoError;
}

} // namespace

// The part file an operation reads: the catalogued part's own, which stays open with the part, or
// one opened at the reference's location for the length of the call.
class FileRef::PartFile {
public:
    PartFile() = default;
    explicit PartFile(const LPF::SymbolFile* file) : file(file) {}
    explicit PartFile(const IO::Location& location)
        : opened(std::make_unique<LPF::SymbolFile>(location)), file(opened.get()) {}

    const LPF::SymbolFile* Get() const { return file; }

private:
    std::unique_ptr<LPF::SymbolFile> opened;
    const LPF::SymbolFile* file = nullptr;
};

// ---- Construction and identity

FileRef::FileRef(const IO::Location& location, FileServices& services)
    : kind(FileKindByLocation), location(std::make_unique<IO::Location>(location)), services(&services),
      fileTypes(&services.GetFileTypeIDS()) {}

FileRef::FileRef(const LibPart* part, FileServices& services)
    : FileRef(part != nullptr ? LibPartId(part) : LibPartId(), services) {}

FileRef::FileRef(const LibPartId& id, FileServices& services)
    : kind(FileKindByPart), partId(id), services(&services), fileTypes(&services.GetFileTypeIDS()) {}

FileRef::FileRef(const FileRef& other)
    : QDL::IFileRef(), kind(other.kind), partId(other.partId),
      location(other.location != nullptr ? std::make_unique<IO::Location>(*other.location) : nullptr),
      services(other.services), fileTypes(other.fileTypes) {}

FileRef& FileRef::operator=(const FileRef& other) {
    if (this == &other)
        return *this;
    kind = other.kind;
    partId = other.partId;
    location = other.location != nullptr ? std::make_unique<IO::Location>(*other.location) : nullptr;
    services = other.services;
    fileTypes = other.fileTypes;
    ResetReadState();
    return *this;
}

FileRef::~FileRef() = default;

bool FileRef::operator==(const FileRef& other) const {
    if (kind != other.kind)
        return false;
    if (kind == FileKindByPart)
        return partId == other.partId;
    return location != nullptr && other.location != nullptr && *location == *other.location;
}

bool FileRef::EqualFile(const QDL::IFileRef* other) const {
    return other != nullptr && typeid(*other) == typeid(*this) &&
           *this == static_cast<const FileRef&>(*other);
}

int FileRef::CloneFileRef(QDL::IFileRef** clone) const {
    if (clone == nullptr)
        return LibPartFileError;
    *clone = new FileRef(*this);
    return KL::NoError;
}

const LibPart* FileRef::FindUsablePart() const {
    if (kind != FileKindByPart)
        return nullptr;
    const LibPart* part = services->GetLibPart(partId);
    return LibrarySet::IsLibPartValid(part) ? part : nullptr;
}

FileRef::PartFile FileRef::OpenPartFile() const {
    return OpenPartFile(FindUsablePart());
}

FileRef::PartFile FileRef::OpenPartFile(const LibPart* part) const {
    if (part != nullptr)
        return PartFile(part->GetSymbolFile());
    if (kind == FileKindByLocation && location != nullptr && location->IsValid())
        return PartFile(*location);
    return PartFile();
}

int FileRef::GetLibPartId(LibPartId& id) const {
    if (kind != FileKindByPart)
        return LibPartFileError;
    id = partId;
    return KL::NoError;
}

int FileRef::GetLocation(IO::Location* out) const {
    if (out == nullptr || kind != FileKindByLocation || location == nullptr)
        return LibPartFileError;
    *out = *location;
    return KL::NoError;
}

int FileRef::GetLibPart(const LibPart** part) const {
    if (part == nullptr || kind != FileKindByPart)
        return LibPartFileError;
    *part = services->GetLibPart(partId);
    return KL::NoError;
}

int FileRef::GetLibPartLocation(IO::Location* out) const {
    return LibPartLocationOf(FindUsablePart(), out);
}

int FileRef::LibPartLocationOf(const LibPart* part, IO::Location* out) const {
    if (out == nullptr)
        return LibPartFileError;
    if (part != nullptr) {
        *out = part->GetLocation();
        return KL::NoError;
    }
    if (kind == FileKindByLocation && location != nullptr && !location->IsEmpty()) {
        *out = *location;
        return KL::NoError;
    }
    return LibPartFileError;
}

FileRef::KFFileType FileRef::GetFileType() const {
    return FileTypeOf(FindUsablePart());
}

FileRef::KFFileType FileRef::FileTypeOf(const LibPart* part) const {
    const FTM::FileTypeManager& types = FTM::FileTypeManager::GetCurrent();
    const auto isOf = [&](FTM::GeneralID id) {
        return part != nullptr ? types.IsTypeOrGroupInTypeOrGroup(part->GetGeneralFileType(), id)
                               : types.Match(*location, id);
    };
    if (part == nullptr && (kind == FileKindByPart || location == nullptr || location->IsEmpty()))
        return KFUnknownFile;
    if (isOf(fileTypes->symbolGroup))
        return KFPartFile;
    if (isOf(fileTypes->imageGroup))
        return KFPictureFile;
    if (isOf(fileTypes->scriptType) || isOf(fileTypes->listSetupType) || isOf(fileTypes->textType) ||
        isOf(fileTypes->listCriteriaType))
        return KFScriptFile;
    return KFUnknownFile;
}

int FileRef::GetFileMode(short* mode) const {
    if (mode == nullptr)
        return LibPartFileError;
    *mode = 0;
    const FTM::FileTypeManager& types = FTM::FileTypeManager::GetCurrent();
    if (const LibPart* part = FindUsablePart()) {
        const FTM::GeneralID type = part->GetGeneralFileType();
        if (type == fileTypes->scriptType || type == fileTypes->textType)
            *mode = 1;
        else if (types.IsTypeOrGroupInTypeOrGroup(type, fileTypes->symbolGroup))
            *mode = 5;
        else if (types.IsTypeOrGroupInTypeOrGroup(type, fileTypes->imageGroup))
            *mode = 6;
        else
            *mode = 1;
        return KL::NoError;
    }
    IO::Location at;
    if (GetLocation(&at) != KL::NoError)
        return LibPartFileError;
    const LPF::SymbolFile file(at);
    if (file.GetStatus() != KL::NoError) {
        if (LPF::ScriptFile(at).GetStatus() != KL::NoError)
            return LibPartFileError;
        *mode = 1;
        return KL::NoError;
    }
    unsigned type = 0;
    file.GetType(&type);
    *mode = ModeOfPartFileType(type);
    return KL::NoError;
}

// ---- Scripts

int FileRef::GetFullScript(const LPF::SymbolFile& file, unsigned tag, char*** out, int* prefix) {
    if (out == nullptr)
        return ParamError;
    *out = nullptr;
    if (prefix != nullptr)
        *prefix = 0;
    constexpr LPF::SectionTag Master = LPF::Tags::MasterScript;
    GSHandle section = nullptr;
    if (int err = file.GetSectionDataRef(tag, 0, &section); err != KL::NoError) {
        if (err != LPF::SectionNotFoundError || tag == Master)
            return err;
        if ((err = file.GetSectionDataRef(Master, 0, &section)) != KL::NoError)
            return err;
        // In bytes, not characters: the requested script is missing, so everything reads as the
        // master script.
        if (prefix != nullptr)
            *prefix = static_cast<int>(BMGetHandleSize(section));
    } else if (tag != Master) {
        GSHandle master = nullptr;
        err = file.GetSectionDataRef(Master, 0, &master);
        if (err == KL::NoError) {
            const std::int64_t masterSize = BMGetHandleSize(master);
            const std::int64_t size = BMGetHandleSize(section);
            if (prefix != nullptr)
                *prefix = static_cast<int>(masterSize / 2);
            KL::ScopedHandle joined(BMAllocateHandle(masterSize + size, 0, 0));
            if (joined.Get() == nullptr)
                return BMError();
            std::memcpy(joined.GetData(), *master, static_cast<std::size_t>(masterSize));
            std::memcpy(joined.GetData() + masterSize, *section, static_cast<std::size_t>(size));
            *out = joined.Release();
            return KL::NoError;
        }
        if (err != LPF::SectionNotFoundError)
            return err;
    }
    return BMHandleToHandle(section, out);
}

short FileRef::OpenQDL(int* /*reserved*/, QDL_ScriptType type, KL::UniString& /*unused*/) {
    const LibPart* part = FindUsablePart();
    if (kind == FileKindByPart && part == nullptr)
        return LibPartFileError;
    const KFFileType fileType = FileTypeOf(part);
    if (fileType == KFPictureFile || fileType == KFUnknownFile)
        return LibPartFileError;
    ResetReadState();
    scriptType = type;
    const int err = LoadScript(part, fileType);
    textLength = static_cast<std::int32_t>(script.GetLength());
    FindLineEnd();
    return err != KL::NoError ? LibPartFileError : 0;
}

short FileRef::LoadScript(const LibPart* part, KFFileType fileType) {
    GSHandle text = nullptr;
    int err = KL::NoError;
    if (fileType == KFPartFile) {
        const LPF::SectionTag tag = GetScriptSectionTag(scriptType);
        if (tag == 0)
            return LibPartFileError;
        const PartFile file = OpenPartFile(part);
        if (file.Get() == nullptr)
            return LibPartFileError;
        err = GetFullScript(*file.Get(), tag, &text, &prefixLength);
        if (err == LPF::SectionNotFoundError)
            return KL::NoError;
    } else {
        IO::Location at;
        if (part != nullptr && part->GetScriptFile() != nullptr)
            err = part->GetScriptFile()->GetData(&text);
        else if ((err = LibPartLocationOf(part, &at)) == KL::NoError)
            err = LPF::ScriptFile(at).GetData(&text);
    }
    scriptHandle.Reset(text);
    if (err == KL::NoError && text != nullptr)
        script = KL::UniString(reinterpret_cast<const KL::UniChar*>(*text),
                               static_cast<std::size_t>(BMGetHandleSize(text) / 2));
    return static_cast<short>(err != KL::NoError ? LibPartFileError : 0);
}

void FileRef::FindLineEnd() {
    const bool hasCR = script.FindFirst(u'\r') != KL::UniString::NotFound;
    const bool hasLF = script.FindFirst(u'\n') != KL::UniString::NotFound;
    endOfLine = hasCR ? u'\r' : u'\n';
    endOfLineLength = hasCR && hasLF ? 2 : 1;
}

int FileRef::GetFileLine(KL::UniString& line, int* outLineNumber, QDL_ScriptType* outScriptType) {
    QDL_ScriptType lineType = scriptType;
    if (prefixLength > 0) {
        if (readPosition < prefixLength) {
            lineType = QDL_MasterScript;
        } else {
            // Numbering starts again where the requested script begins.
            prefixLength = 0;
            lineNumber = 0;
        }
    }
    if (outScriptType != nullptr)
        *outScriptType = lineType;
    if (readPosition >= textLength)
        return EndOfScriptError;
    ++lineNumber;
    if (outLineNumber != nullptr)
        *outLineNumber = lineNumber;
    const std::u16string_view text = script.View();
    const std::size_t start = static_cast<std::size_t>(readPosition);
    std::size_t end = text.size();
    std::size_t terminator = 0;
    if (endOfLineLength == 2) {
        const std::size_t cr = text.find(u'\r', start);
        const std::size_t lf = text.find(u'\n', start);
        if (cr < lf) {
            end = cr;
            terminator = cr + 1 < text.size() && text[cr + 1] == u'\n' ? 2 : 1;
        } else if (lf != std::u16string_view::npos) {
            end = lf;
            terminator = 1;
        }
    } else if (const std::size_t hit = text.find(endOfLine, start); hit != std::u16string_view::npos) {
        end = hit;
        terminator = 1;
    }
    line = script.GetSubstring(start, end - start);
    readPosition = static_cast<std::int32_t>(end + terminator);
    return static_cast<int>(end - start);
}

short FileRef::Close() {
    scriptHandle.Reset();
    script.Clear();
    textLength = 0;
    readPosition = 0;
    return 0;
}

void FileRef::ResetReadState() {
    scriptHandle.Reset();
    script.Clear();
    textLength = 0;
    prefixLength = 0;
    lineNumber = 0;
    readPosition = 0;
}

int FileRef::GetScriptHdl(QDL_ScriptType type, char*** out) {
    short mode = 0;
    if (out == nullptr || GetFileMode(&mode) != KL::NoError)
        return LibPartFileError;
    *out = nullptr;
    if (mode == 1) {
        const LibPart* part = FindUsablePart();
        if (part != nullptr && part->GetScriptFile() != nullptr)
            return part->GetScriptFile()->GetData(out) != KL::NoError ? LibPartFileError : 0;
        IO::Location at;
        if (GetLibPartLocation(&at) != KL::NoError)
            return LibPartFileError;
        return LPF::ScriptFile(at).GetData(out) != KL::NoError ? LibPartFileError : 0;
    }
    const LPF::SectionTag tag = GetScriptSectionTag(type);
    const PartFile file = OpenPartFile();
    if (tag == 0 || file.Get() == nullptr)
        return LibPartFileError;
    const int err = GetFullScript(*file.Get(), tag, out, &prefixLength);
    return err == KL::NoError || err == LPF::SectionNotFoundError ? 0 : LibPartFileError;
}

// ---- Compiled code

short FileRef::WriteCode(const KL::ConstSharedPtr<BinCode>& code, QDL_ScriptType type, short* written) {
    if (written != nullptr)
        *written = 0;
    if (kind != FileKindByPart)
        return LibPartFileError;
    const LibrarySet::ThreadSafeModifier modifier = services->GetLibSetThreadSafeModifier();
    const LibPart* part = modifier.GetConstLibrarySet()->GetLibPart(partId);
    // Nowhere to keep code is no error: the script runs all the same.
    if (!LibrarySet::IsLibPartValid(part) || !part->IsSymbol())
        return 0;
    return modifier.SetSymbolQdlBinCode(part, type, code) != KL::NoError ? LibPartFileError : 0;
}

short FileRef::ReadCode(KL::ConstSharedPtr<BinCode>& code, QDL_ScriptType type) const {
    if (kind != FileKindByPart)
        return LibPartFileError;
    code.Reset();
    const LibrarySet::ThreadSafeModifier modifier = services->GetLibSetThreadSafeModifier();
    const LibPart* part = modifier.GetConstLibrarySet()->GetLibPart(partId);
    if (!LibrarySet::IsLibPartValid(part) || !part->IsSymbol())
        return LibPartFileError;
    return modifier.GetSymbolQdlBinCode(part, type, &code) != KL::NoError ? LibPartFileError : 0;
}

// ---- Pictures, drawings and binary data

short FileRef::GetImageDataFromFile(const short& index, char*** data, char* name) {
    if (data == nullptr)
        return LibPartFileError;
    *data = nullptr;
    const LibPart* part = FindUsablePart();
    if (kind == FileKindByPart && part == nullptr)
        return LibPartFileError;
    if (name != nullptr)
        *name = '\0';
    int err = KL::NoError;
    if (index < 0) {
        IO::Location at;
        err = LibPartLocationOf(part, &at);
        if (err == KL::NoError && name != nullptr) {
            const FTM::FileTypeManager& types = FTM::FileTypeManager::GetCurrent();
            const FTM::TypeID type = types.Identify(at, fileTypes->imageGroup);
            if (type != FTM::UnknownType)
                CopyPictureName(types.GetMime(type), name);
        }
        if (err == KL::NoError)
            err = ReadWholeFile(at, data);
    } else {
        const LPF::SectionTag tag = index == 0 ? LPF::Tags::Preview : LPF::Tags::Picture;
        const PartFile file = OpenPartFile(part);
        if (file.Get() != nullptr)
            file.Get()->GetSectionData(tag, static_cast<std::uint16_t>(index), data);
        if (*data == nullptr)
            return 0;
        err = CutPictureName(*data, name);
    }
    if (err != KL::NoError) {
        BMKillHandle(data);
        return LibPartFileError;
    }
    return 0;
}

short FileRef::GetFragmentHdl(KL::ConstSharedPtr<ISymbol2D>& drawing) {
    const LibPart* part = FindUsablePart();
    if (kind == FileKindByPart && part == nullptr)
        return LibPartFileError;
    if (FileTypeOf(part) == KFScriptFile)
        return NoDataError;
    const PartFile file = OpenPartFile(part);
    if (file.Get() == nullptr)
        return LibPartFileError;
    int err = KL::NoError;
    const std::unique_ptr<KL::Object> content = file.Get()->GetSectionContent(LPF::Tags::Drawing2D, 0, &err);
    if (const auto* image = dynamic_cast<const VectorImage*>(content.get())) {
        drawing = KL::ConstSharedPtr<ISymbol2D>(new Symbol2DVectorImage(*image));
        return 0;
    }
    return err == LPF::SectionNotFoundError ? NoDataError : LibPartFileError;
}

short FileRef::GetBinaryHdl(const short& index, short* version, KL::PlatformSign* platform, char*** data,
                            int* size) {
    // The header of the file the data comes from: the catalogued part's, which is open already, or
    // the one at the reference's location.
    const PartFile file = OpenPartFile();
    if (file.Get() == nullptr || file.Get()->GetVersion(version) != KL::NoError)
        return LibPartFileError;
    *platform = KL::LittleEndianSign;
    const int err = file.Get()->GetSectionData(LPF::Tags::Binary3D, static_cast<std::uint16_t>(index), data);
    if (err == LPF::SectionNotFoundError)
        return NoDataError;
    if (err != KL::NoError)
        return LibPartFileError;
    *size = static_cast<int>(BMGetHandleSize(*data));
    return 0;
}

int FileRef::CountBinarySections(short* count, short* indices) const {
    const PartFile file = OpenPartFile();
    if (file.Get() == nullptr)
        return LibPartFileError;
    BinarySectionCount state{0, indices};
    const int err = file.Get()->EnumerateSections(CountBinarySection, &state);
    if (err == LPF::SectionNotFoundError)
        return NoDataError;
    if (err != KL::NoError)
        return LibPartFileError;
    *count = static_cast<short>(state.count);
    return state.count == 0 ? NoDataError : 0;
}

short FileRef::WhichBINARY(short* count, short* indices) {
    if (count == nullptr || indices == nullptr)
        return LibPartFileError;
    return static_cast<short>(CountBinarySections(count, indices));
}

short FileRef::GetBINARYCount(short* count) {
    if (count == nullptr)
        return LibPartFileError;
    *count = 0;
    return static_cast<short>(CountBinarySections(count, nullptr));
}

// ---- Parameters, sections, ancestry

int FileRef::GetSectionData(unsigned tag, char subIndex, char*** out) const {
    const PartFile file = OpenPartFile();
    if (file.Get() == nullptr)
        return LibPartFileError;
    return file.Get()->GetSectionData(tag, static_cast<unsigned char>(subIndex), out);
}

int FileRef::GetParamNames(char*** out, int* size) const {
    if (out == nullptr || size == nullptr)
        return ParamError;
    *out = nullptr;
    *size = 0;
    short mode = 0;
    if (GetFileMode(&mode) != KL::NoError)
        return LibPartFileError;
    if (mode == 1)
        return 0;
    KL::ScopedHandle params;
    if (GetSectionData(LPF::Tags::Parameters, 0, params.GetAddress()) != KL::NoError ||
        params.Get() == nullptr)
        return LibPartFileError;
    QDLDecode_ParHdl(params.Get());
    const std::int64_t blockSize = params.GetSize();
    if (blockSize < ParamNamesOffsetOffset + 4)
        return LibPartFileError;
    const auto length =
        KL::LoadInOrder<std::int32_t>(params.GetData() + ParamNamesLengthOffset, KL::HostPlatformSign);
    const auto offset =
        KL::LoadInOrder<std::int32_t>(params.GetData() + ParamNamesOffsetOffset, KL::HostPlatformSign);
    if (length < 0 || offset < 0 || std::int64_t{offset} + length > blockSize)
        return LibPartFileError;
    *out = KL::BMNewHandleFrom(params.GetData() + offset, length);
    if (*out == nullptr)
        return BMError();
    *size = length;
    return 0;
}

short FileRef::GetDefaultParams(KL::ConstSharedPtr<QDLAddParData>& params) {
    params.Reset();
    const LibPart* part = FindUsablePart();
    IO::Location at;
    const KFFileType fileType = FileTypeOf(part);
    if (LibPartLocationOf(part, &at) != KL::NoError || fileType == KFPictureFile || fileType == KFUnknownFile)
        return LibPartFileError;
    if (fileType == KFScriptFile)
        return 0;
    const bool cacheable = part != nullptr && part->IsSymbol();
    if (cacheable) {
        const auto cached = part->GetUserData(DefaultParamsKeyGuid);
        if (const auto* data = dynamic_cast<const QDLAddParDataSymbolUserData*>(cached.Get())) {
            params = data->GetParams();
            return 0;
        }
    }
    KL::ScopedHandle handle;
    if (const int err = services->GetDefaultParamsOfMacro(&at, part, handle.GetAddress()); err != KL::NoError)
        return static_cast<short>(err);
    params = KL::ConstSharedPtr<QDLAddParData>(new QDLAddParData(handle.Get()));
    if (cacheable) {
        services->GetLibSetThreadSafeModifier().SetUserData(
            part, DefaultParamsKeyGuid,
            KL::ConstSharedPtr<SymbolUserData>(new QDLAddParDataSymbolUserData(params)));
    }
    return 0;
}

int FileRef::GetANCSArray(KL::Array<KL::UnID>* array) {
    if (array == nullptr)
        return LibPartFileError;
    KL::ScopedHandle section;
    const PartFile file = OpenPartFile();
    if (file.Get() == nullptr ||
        file.Get()->GetSectionData(LPF::Tags::Ancestry, 0, section.GetAddress()) != KL::NoError)
        return LibPartFileError;
    const std::int64_t size = section.GetSize();
    if (size < AncestryRecordSize)
        return LibPartFileError;
    const auto count = KL::LoadInOrder<std::uint32_t>(section.GetData() + 4, KL::HostPlatformSign);
    if (std::int64_t{count} * AncestryRecordSize > size)
        return LibPartFileError;
    // From the very start: the header comes first as an id and the last ancestor is left out. The
    // engine expects exactly this.
    for (std::uint32_t i = 0; i < count; ++i) {
        const char* record = section.GetData() + std::int64_t{i} * AncestryRecordSize;
        array->PushNew(KL::Guid::FromRaw(record, KL::HostPlatformSign),
                       KL::Guid::FromRaw(record + KL::Guid::RawSize, KL::HostPlatformSign));
    }
    return 0;
}

// ---- Engine bookkeeping

short FileRef::GetFileModTime(int* time, bool fromFile) const {
    if (time == nullptr)
        return LibPartFileError;
    if (const LibPart* part = FindUsablePart(); part != nullptr && !fromFile) {
        *time = part->GetFileModTime();
        return 0;
    }
    IO::Location at;
    if (GetLibPartLocation(&at) != KL::NoError)
        return LibPartFileError;
    TITime modified = 0;
    if (IO::File(at).GetModificationTime(&modified) != KL::NoError)
        return LibPartFileError;
    *time = modified;
    return 0;
}

short FileRef::GetFileName(KL::UniString* name) const {
    IO::Location at;
    IO::Name last;
    if (name == nullptr || GetLibPartLocation(&at) != KL::NoError ||
        at.GetLastLocalName(&last) != KL::NoError)
        return LibPartFileError;
    *name = last.GetText();
    return 0;
}

void FileRef::SetBadMacro() {
    if (const LibPart* part = FindUsablePart())
        services->GetLibSetThreadSafeModifier().AddFlags(part, LibPart::BadMacroFlag);
}

// ---- FileRefEmbedder

FileRefEmbedder::FileRefEmbedder(FileServices& services) : services(services) {}

FileRefEmbedder::FileRefEmbedder(FileServices& services, const IO::Location& location) : services(services) {
    CreateFileRef(location);
}

FileRefEmbedder::FileRefEmbedder(FileServices& services, const LibPartId& id) : services(services) {
    CreateFileRef(id);
}

FileRefEmbedder::FileRefEmbedder(FileServices& services, const FileRef& ref) : services(services) {
    CreateFileRef(ref);
}

FileRefEmbedder::~FileRefEmbedder() {
    services.Dispose(&fileRef);
}

void FileRefEmbedder::Replace(FileRef* ref) {
    services.Dispose(&fileRef);
    fileRef = ref;
}

bool FileRefEmbedder::CreateFileRef(const IO::Location& location) {
    if (!location.IsValid())
        return false;
    Replace(new FileRef(location, services));
    return true;
}

bool FileRefEmbedder::CreateFileRef(const LibPartId& id) {
    if (!services.GetLibSetThreadSafeModifier().GetConstLibrarySet()->IsValidLibPart(id))
        return false;
    Replace(new FileRef(id, services));
    return true;
}

bool FileRefEmbedder::CreateFileRef(const LibPart* part, const IO::Location& location) {
    if (part != nullptr && CreateFileRef(LibPartId(part)))
        return true;
    return CreateFileRef(location);
}

bool FileRefEmbedder::CreateFileRef(const FileRef& ref) {
    Replace(new FileRef(ref));
    return true;
}

} // namespace LM
