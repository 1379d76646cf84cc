#include "QDL/ParamSection.hpp"

#include "LibPartFile/LibPartFileErrors.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

constexpr std::uint64_t HeaderSize = 72;
constexpr std::uint64_t RecordSize = 48;
constexpr std::uint64_t NameFieldSize = 32;
constexpr std::uint64_t AddParHeaderSize = 12;

std::uint64_t Pad4(std::uint64_t size) {
    return (size + 3) / 4 * 4;
}

// Bounds-checked reads from a block in a given byte order; the first fault sticks.
class BlockReader {
public:
    BlockReader(const char* data, std::uint64_t size, KL::PlatformSign order)
        : data(data), size(size), order(order) {}

    bool Seek(std::uint64_t offset) {
        if (offset > size)
            failed = true;
        else
            position = offset;
        return !failed;
    }
    template <typename T>
    T Take() {
        if (failed || size - position < sizeof(T)) {
            failed = true;
            return T{};
        }
        const T value = KL::LoadInOrder<T>(data + position, order);
        position += sizeof(T);
        return value;
    }
    std::u16string TakeUnits(std::uint32_t count) {
        if (failed || (size - position) / 2 < count) {
            failed = true;
            return {};
        }
        std::u16string units(count, u'\0');
        for (char16_t& unit : units)
            unit = Take<char16_t>();
        const std::uint64_t padding = Pad4(2ULL * count) - 2ULL * count;
        if (size - position < padding)
            failed = true;
        else
            position += padding;
        return units;
    }
    std::uint64_t Remaining() const { return failed ? 0 : size - position; }
    bool Failed() const { return failed; }
    void Fail() { failed = true; }

private:
    const char* data;
    std::uint64_t size;
    KL::PlatformSign order;
    std::uint64_t position = 0;
    bool failed = false;
};

class BlockWriter {
public:
    explicit BlockWriter(KL::PlatformSign order) : order(order) {}
    template <typename T>
    void Put(T value) {
        const std::size_t at = bytes.size();
        bytes.resize(at + sizeof(T));
        KL::StoreInOrder(bytes.data() + at, value, order);
    }
    void PutUnits(const std::u16string& units) {
        Put(static_cast<std::uint32_t>(units.size()));
        for (const char16_t unit : units)
            Put(unit);
        bytes.resize(Pad4(bytes.size()), '\0');
    }
    void PutBytes(const void* data, std::size_t size) {
        const auto* begin = static_cast<const char*>(data);
        bytes.insert(bytes.end(), begin, begin + size);
    }
    void PutFixedText(const std::string& text, std::size_t field) {
        PutBytes(text.data(), text.size());
        bytes.resize(bytes.size() + field - text.size(), '\0');
    }
    std::vector<char>& Bytes() { return bytes; }

private:
    KL::PlatformSign order;
    std::vector<char> bytes;
};

// The text of a NUL-padded field; false when it has no NUL.
bool TakeFixedText(const char* field, std::size_t size, std::string* text) {
    const void* end = std::memchr(field, '\0', size);
    if (end == nullptr)
        return false;
    text->assign(field, static_cast<const char*>(end));
    return true;
}

bool IsValidParName(const std::string& name) {
    if (name.empty() || name.size() > MaxParNameLength)
        return false;
    for (const char c : name) {
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_'))
            return false;
    }
    return true;
}

int ParseParameterBlocks(const char* names, std::uint64_t namesSize, const char* values,
                         std::uint64_t valuesSize, KL::PlatformSign order,
                         std::vector<SyParameter>* parameters) {
    if (namesSize % RecordSize != 0)
        return KL::ErrStreamFormat;
    std::vector<SyParameter> result(namesSize / RecordSize);
    for (std::uint64_t i = 0; i < result.size(); ++i) {
        SyParameter& parameter = result[i];
        const char* record = names + i * RecordSize;
        if (!TakeFixedText(record, NameFieldSize, &parameter.name) || !IsValidParName(parameter.name))
            return KL::ErrStreamFormat;
        BlockReader fields(record + NameFieldSize, RecordSize - NameFieldSize, order);
        parameter.type = fields.Take<std::uint16_t>();
        parameter.flags = fields.Take<std::uint16_t>();
        parameter.dim1 = fields.Take<std::uint32_t>();
        parameter.dim2 = fields.Take<std::uint32_t>();
        const std::uint32_t valueOffset = fields.Take<std::uint32_t>();
        if (!IsKnownParType(parameter.type) || (parameter.dim1 == 0 && parameter.dim2 != 0))
            return KL::ErrStreamFormat;
        BlockReader value(values, valuesSize, order);
        value.Seek(valueOffset);
        parameter.description = KL::UniString(value.TakeUnits(value.Take<std::uint32_t>()));
        const std::uint64_t count = GetParValueCount(parameter);
        // Every value takes at least four bytes: the count is checked before anything is allocated.
        if (count > value.Remaining() / 4)
            return KL::ErrStreamFormat;
        if (parameter.type == ParString) {
            parameter.texts.resize(count);
            for (KL::UniString& text : parameter.texts)
                text = KL::UniString(value.TakeUnits(value.Take<std::uint32_t>()));
        } else {
            parameter.numbers.resize(count);
            for (double& number : parameter.numbers)
                number = value.Take<double>();
        }
        if (value.Failed())
            return KL::ErrStreamFormat;
    }
    *parameters = std::move(result);
    return KL::NoError;
}

bool PutParameterBlocks(const std::vector<SyParameter>& parameters, BlockWriter* names, BlockWriter* values) {
    for (const SyParameter& parameter : parameters) {
        if (!IsValidParName(parameter.name) || !IsKnownParType(parameter.type) ||
            (parameter.dim1 == 0 && parameter.dim2 != 0))
            return false;
        const std::uint64_t count = GetParValueCount(parameter);
        const bool isString = parameter.type == ParString;
        if ((isString ? parameter.texts.size() : parameter.numbers.size()) != count ||
            (isString ? !parameter.numbers.empty() : !parameter.texts.empty()))
            return false;
        names->PutFixedText(parameter.name, NameFieldSize);
        names->Put(parameter.type);
        names->Put(parameter.flags);
        names->Put(parameter.dim1);
        names->Put(parameter.dim2);
        names->Put(static_cast<std::uint32_t>(values->Bytes().size()));
        values->PutUnits(parameter.description.Units());
        for (const KL::UniString& text : parameter.texts)
            values->PutUnits(text.Units());
        for (const double number : parameter.numbers)
            values->Put(number);
    }
    return true;
}

struct Block {
    std::uint32_t length = 0;
    std::uint32_t offset = 0;
};

// `located`, when given, gets where the four blocks lie.
int ParseSection(const char* data, std::uint64_t size, KL::PlatformSign order, SyParSection* section,
                 Block (*located)[4] = nullptr) {
    BlockReader fields(data, size, order);
    SyParSection result;
    SyParHeader& header = result.header;
    header.version = fields.Take<std::uint8_t>();
    const std::uint8_t autoHotspots = fields.Take<std::uint8_t>();
    header.autoHotspots = autoHotspots != 0;
    header.statusBits = fields.Take<std::uint16_t>();
    header.leftFrame = fields.Take<float>();
    header.rightFrame = fields.Take<float>();
    header.topFrame = fields.Take<float>();
    header.bottomFrame = fields.Take<float>();
    header.layerFlags = fields.Take<std::uint32_t>();
    header.mirrorThickness = fields.Take<float>();
    header.wallInset = fields.Take<float>();
    header.symbolColor = fields.Take<std::uint32_t>();
    const std::uint32_t count = fields.Take<std::uint32_t>();
    Block blocks[4];
    for (Block& block : blocks) {
        block.length = fields.Take<std::uint32_t>();
        block.offset = fields.Take<std::uint32_t>();
        if (std::uint64_t{block.offset} + block.length > size)
            fields.Fail();
    }
    if (fields.Failed() || autoHotspots > 1 || blocks[0].length != std::uint64_t{count} * RecordSize)
        return KL::ErrStreamFormat;
    const auto [namesLength, namesOffset] = blocks[0];
    const auto [valuesLength, valuesOffset] = blocks[1];
    if (const int err = ParseParameterBlocks(data + namesOffset, namesLength, data + valuesOffset,
                                             valuesLength, order, &result.parameters);
        err != KL::NoError)
        return err;
    const char* expressions = data + blocks[2].offset;
    for (std::uint64_t at = 0; at < blocks[2].length;) {
        const void* end = std::memchr(expressions + at, '\0', blocks[2].length - at);
        if (end == nullptr || result.frameExpressions.size() == MaxFrameExpressions)
            return KL::ErrStreamFormat;
        result.frameExpressions.emplace_back(expressions + at, static_cast<const char*>(end));
        at = static_cast<std::uint64_t>(static_cast<const char*>(end) - expressions) + 1;
    }
    if (blocks[3].length != 0) {
        const char* orientation = data + blocks[3].offset;
        if (blocks[3].length != 2 * OrientationTextSize ||
            !TakeFixedText(orientation, OrientationTextSize, &result.orientationDef) ||
            !TakeFixedText(orientation + OrientationTextSize, OrientationTextSize, &result.orientationMirr))
            return KL::ErrStreamFormat;
        result.hasOrientation = true;
    }
    if (located != nullptr)
        std::copy(std::begin(blocks), std::end(blocks), std::begin(*located));
    *section = std::move(result);
    return KL::NoError;
}

bool BuildSection(const SyParSection& section, KL::PlatformSign order, std::vector<char>* bytes) {
    BlockWriter names(order), values(order), expressions(order), orientation(order);
    if (!PutParameterBlocks(section.parameters, &names, &values) ||
        section.frameExpressions.size() > MaxFrameExpressions)
        return false;
    for (const std::string& expression : section.frameExpressions) {
        if (expression.find('\0') != std::string::npos)
            return false;
        expressions.PutBytes(expression.c_str(), expression.size() + 1);
    }
    if (section.hasOrientation) {
        for (const std::string* text : {&section.orientationDef, &section.orientationMirr}) {
            if (text->size() >= OrientationTextSize || text->find('\0') != std::string::npos)
                return false;
            orientation.PutFixedText(*text, OrientationTextSize);
        }
    }
    const SyParHeader& header = section.header;
    BlockWriter out(order);
    out.Put(header.version);
    out.Put(static_cast<std::uint8_t>(header.autoHotspots ? 1 : 0));
    out.Put(header.statusBits);
    for (const float frame : {header.leftFrame, header.rightFrame, header.topFrame, header.bottomFrame})
        out.Put(frame);
    out.Put(header.layerFlags);
    out.Put(header.mirrorThickness);
    out.Put(header.wallInset);
    out.Put(header.symbolColor);
    out.Put(static_cast<std::uint32_t>(section.parameters.size()));
    std::uint64_t offset = HeaderSize;
    for (BlockWriter* block : {&names, &values, &expressions, &orientation}) {
        out.Put(static_cast<std::uint32_t>(block->Bytes().size()));
        out.Put(static_cast<std::uint32_t>(offset));
        offset += block->Bytes().size();
    }
    if (offset > UINT32_MAX)
        return false;
    for (BlockWriter* block : {&names, &values, &expressions, &orientation})
        out.PutBytes(block->Bytes().data(), block->Bytes().size());
    *bytes = std::move(out.Bytes());
    return true;
}

GSHandle HandleFrom(const std::vector<char>& bytes) {
    return KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size()));
}

// Where each block lies, and the header, from a section checked whole.
int LocateBlocks(const char* data, std::uint64_t size, Block (&blocks)[4], SyParHeader* header = nullptr) {
    SyParSection checked;
    if (const int err = ParseSection(data, size, KL::HostPlatformSign, &checked, &blocks); err != KL::NoError)
        return err;
    if (header != nullptr)
        *header = checked.header;
    return KL::NoError;
}

} // namespace

bool IsKnownParType(std::uint16_t type) {
    return type >= ParLength && type <= ParTitle;
}

bool HasParValue(std::uint16_t type) {
    return type != ParSeparator && type != ParTitle;
}

std::uint64_t GetParValueCount(const SyParameter& parameter) {
    if (!HasParValue(parameter.type))
        return 0;
    if (parameter.dim1 == 0)
        return 1;
    return std::uint64_t{parameter.dim1} * (parameter.dim2 == 0 ? 1 : parameter.dim2);
}

int ParseSyParSection(const char* data, std::uint64_t size, SyParSection* section) {
    return ParseSection(data, size, KL::HostPlatformSign, section);
}

GSHandle BuildSyParHandle(const SyParSection& section) {
    std::vector<char> bytes;
    return BuildSection(section, KL::HostPlatformSign, &bytes) ? HandleFrom(bytes) : nullptr;
}

int QDLDecode_ParHdl(GSHandle handle) {
    if (handle == nullptr || *handle == nullptr)
        return KL::ErrNilHandle;
    SyParSection checked;
    return ParseSection(*handle, static_cast<std::uint64_t>(BMGetHandleSize(handle)), KL::HostPlatformSign,
                        &checked);
}

int ConvertParamSection(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to) {
    if (from == to)
        return KL::NoError;
    SyParSection section;
    std::vector<char> bytes;
    if (ParseSection(data, size, from, &section) != KL::NoError || !BuildSection(section, to, &bytes) ||
        bytes.size() != size)
        return LPF::CorruptSectionError;
    std::memcpy(data, bytes.data(), size);
    return KL::NoError;
}

int SplitSyParHandle(const char* const* section, SyParHeader* header, GSHandle* names, GSHandle* values,
                     GSHandle* frameExpressions, GSHandle* orientation) {
    if (section == nullptr || *section == nullptr)
        return KL::ErrNilHandle;
    const char* data = *section;
    const auto size = static_cast<std::uint64_t>(BMGetHandleSize(const_cast<GSHandle>(section)));
    Block blocks[4];
    if (const int err = LocateBlocks(data, size, blocks, header); err != KL::NoError)
        return err;
    GSHandle* outputs[4] = {names, values, frameExpressions, orientation};
    for (int i = 0; i < 4; ++i) {
        if (outputs[i] == nullptr)
            continue;
        *outputs[i] = KL::BMNewHandleFrom(data + blocks[i].offset, blocks[i].length);
        if (*outputs[i] == nullptr)
            return BMError();
    }
    return KL::NoError;
}

int SplitSyParHandle(const char* const* section, GSHandle* addPar) {
    if (addPar == nullptr)
        return KL::ErrParam;
    *addPar = nullptr;
    if (section == nullptr || *section == nullptr)
        return KL::ErrNilHandle;
    const char* data = *section;
    Block blocks[4];
    if (const int err = LocateBlocks(
            data, static_cast<std::uint64_t>(BMGetHandleSize(const_cast<GSHandle>(section))), blocks);
        err != KL::NoError)
        return err;
    BlockWriter out(KL::HostPlatformSign);
    out.Put(blocks[0].length / static_cast<std::uint32_t>(RecordSize));
    out.Put(blocks[0].length);
    out.Put(blocks[1].length);
    out.PutBytes(data + blocks[0].offset, blocks[0].length);
    out.PutBytes(data + blocks[1].offset, blocks[1].length);
    *addPar = HandleFrom(out.Bytes());
    return *addPar != nullptr ? KL::NoError : BMError();
}

int ParseAddParHandle(const char* const* addPar, std::vector<SyParameter>* parameters) {
    if (addPar == nullptr || *addPar == nullptr)
        return KL::ErrNilHandle;
    const auto size = static_cast<std::uint64_t>(BMGetHandleSize(const_cast<GSHandle>(addPar)));
    BlockReader fields(*addPar, size, KL::HostPlatformSign);
    const std::uint32_t count = fields.Take<std::uint32_t>();
    const std::uint32_t namesLength = fields.Take<std::uint32_t>();
    const std::uint32_t valuesLength = fields.Take<std::uint32_t>();
    if (fields.Failed() || namesLength != std::uint64_t{count} * RecordSize ||
        AddParHeaderSize + std::uint64_t{namesLength} + valuesLength != size)
        return KL::ErrStreamFormat;
    const char* names = *addPar + AddParHeaderSize;
    return ParseParameterBlocks(names, namesLength, names + namesLength, valuesLength, KL::HostPlatformSign,
                                parameters);
}

int ParseSyParameters(const char* const* names, const char* const* values,
                      std::vector<SyParameter>* parameters) {
    if (names == nullptr || values == nullptr)
        return KL::ErrNilHandle;
    return ParseParameterBlocks(
        *names, static_cast<std::uint64_t>(BMGetHandleSize(const_cast<GSHandle>(names))), *values,
        static_cast<std::uint64_t>(BMGetHandleSize(const_cast<GSHandle>(values))), KL::HostPlatformSign,
        parameters);
}

GSHandle NewSyParHdlFromRef(const char* const* reference, const char* const* actual, void* /*reserved*/,
                            int mergeType) {
    if (mergeType != 0 || reference == nullptr || *reference == nullptr || actual == nullptr ||
        *actual == nullptr)
        return nullptr;
    SyParSection merged;
    SyParSection source;
    if (ParseSyParSection(*reference,
                          static_cast<std::uint64_t>(BMGetHandleSize(const_cast<GSHandle>(reference))),
                          &merged) != KL::NoError ||
        ParseSyParSection(*actual, static_cast<std::uint64_t>(BMGetHandleSize(const_cast<GSHandle>(actual))),
                          &source) != KL::NoError)
        return nullptr;
    for (SyParameter& parameter : merged.parameters) {
        for (const SyParameter& candidate : source.parameters) {
            if (candidate.name == parameter.name && candidate.type == parameter.type &&
                candidate.dim1 == parameter.dim1 && candidate.dim2 == parameter.dim2) {
                parameter.numbers = candidate.numbers;
                parameter.texts = candidate.texts;
                break;
            }
        }
    }
    return BuildSyParHandle(merged);
}

GSHandle QDLParamsToVarHdl(const double* values, int count) {
    if (count < 0 || count > 26 || (count > 0 && values == nullptr))
        return nullptr;
    SyParSection section;
    for (int i = 0; i < count; ++i) {
        SyParameter& parameter = section.parameters.emplace_back();
        parameter.name = std::string(1, static_cast<char>('A' + i));
        parameter.type = ParLength;
        parameter.numbers = {values[i]};
    }
    return BuildSyParHandle(section);
}
