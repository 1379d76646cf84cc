#include "KLMSections/AncestrySection.hpp"
#include "KLMSections/MigrationTable.hpp"
#include "KLMSections/PartXML.hpp"
#include "KLMSections/PartXMLForm.hpp"

#include "QDL/ParamSection.hpp"
#include "QDL/ParamXML.hpp"
#include "QDL/SyCalledMacroItem.hpp"
#include "VectorImage/VectorImage.hpp"

#include "KLRoot/Base64.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/MemoryChannel.hpp"
#include "KLRoot/NumberText.hpp"

#include <limits>

namespace KLM {

namespace {

// Carries the first failure and its words through the reading of one document.
class Reader {
public:
    Reader(KL::XMLIChannel& xml, LPF::SymbolFile* part) : xml(xml), part(part) {}

    int ReadDocument();
    const std::string& GetMessage() const { return message; }

private:
    int Fail(const std::string& text) {
        if (message.empty())
            message = (context.empty() ? "" : context + ": ") + text;
        return KL::ErrXMLFormat;
    }
    bool Attribute(const char* name, std::string* value) const {
        KL::UniString text;
        if (xml.ReadAttribute(name, text) != KL::NoError)
            return false;
        *value = text.ToUTF8();
        return true;
    }
    template <typename T>
    int Number(const char* name, T* value, bool required);
    int Guid(const char* name, KL::Guid* guid, bool required);
    int SectionAttributes(LPF::SectionInfo* info, bool readIndex);
    int Store(const LPF::SectionInfo& info, const std::vector<char>& bytes);
    int Base64Content(std::vector<char>* bytes);

    int ReadIdentity(const std::string& element);
    int ReadSection(const std::string& element);
    int ReadAncestry(LPF::SectionInfo info);
    int ReadScript(LPF::SectionInfo info);
    int ReadParamSection(LPF::SectionInfo info);
    int ReadParHeader(SyParHeader* header);
    int ReadCalledMacros(LPF::SectionInfo info);
    int ReadMigrationTable(LPF::SectionInfo info);
    int ReadDrawing(LPF::SectionInfo info);
    int ReadPicture(LPF::SectionInfo info);
    int ReadBinary(LPF::SectionInfo info);
    int ReadRawSection(LPF::SectionInfo info);

    KL::XMLIChannel& xml;
    LPF::SymbolFile* part;
    std::string context;
    std::string message;
    KL::UnID id;
    bool hasMain = false;
    bool hasRevision = false;
    bool hasOriginalVersion = false;
};

template <typename T>
int Reader::Number(const char* name, T* value, bool required) {
    std::string text;
    if (!Attribute(name, &text))
        return required ? Fail(std::string("the attribute '") + name + "' is required") : KL::NoError;
    double number = 0;
    if (!KL::ParseDouble(text, &number) || number != static_cast<double>(static_cast<std::int64_t>(number)) ||
        number < static_cast<double>(std::numeric_limits<T>::min()) ||
        number > static_cast<double>(std::numeric_limits<T>::max()))
        return Fail(std::string("'") + name + "' must be a whole number that fits, not '" + text + "'");
    *value = static_cast<T>(number);
    return KL::NoError;
}

int Reader::Guid(const char* name, KL::Guid* guid, bool required) {
    std::string text;
    if (!Attribute(name, &text))
        return required ? Fail(std::string("the attribute '") + name + "' is required") : KL::NoError;
    const std::optional<KL::Guid> parsed = KL::Guid::Parse(text);
    if (!parsed)
        return Fail(std::string("'") + name + "' is not a guid: '" + text + "'");
    *guid = *parsed;
    return KL::NoError;
}

int Reader::SectionAttributes(LPF::SectionInfo* info, bool readIndex) {
    if (readIndex) {
        if (const int err = Number("index", &info->subIdent, false); err != KL::NoError)
            return err;
    }
    if (const int err = Number("version", &info->version, false); err != KL::NoError)
        return err;
    return Number("flags", &info->flags, false);
}

int Reader::Store(const LPF::SectionInfo& info, const std::vector<char>& bytes) {
    if (part->HasSection(info.tag, info.subIdent))
        return Fail("the section " + Form::CodeToText(info.tag) + " " + std::to_string(info.subIdent) +
                    " is there twice");
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max())
        return Fail("the section is larger than a part file can hold");
    return part->SetSection(info, bytes.data(), bytes.size());
}

int Reader::Base64Content(std::vector<char>* bytes) {
    KL::UniString text;
    xml.ReadText(text);
    if (!KL::Base64Decode(text.ToUTF8(), bytes))
        return Fail("the content is not base64");
    return KL::NoError;
}

int Reader::ReadIdentity(const std::string& element) {
    context = element;
    KL::UniString text;
    if (element == "DocumentName") {
        xml.ReadElement(element, text);
        part->SetDocumentName(text);
    } else if (element == "MainGuid" || element == "RevisionGuid") {
        KL::Guid guid;
        if (xml.ReadElement(element, guid) != KL::NoError)
            return Fail("not a guid");
        (element == "MainGuid" ? id.mainGuid : id.revGuid) = guid;
        (element == "MainGuid" ? hasMain : hasRevision) = true;
    } else if (element == "Signature" || element == "Owner") {
        xml.ReadElement(element, text);
        const std::optional<std::uint32_t> code = Form::TextToCode(text.ToUTF8());
        if (!code)
            return Fail("four characters or 0x and eight hex digits, not '" + text.ToUTF8() + "'");
        element == "Signature" ? part->SetType(*code) : part->SetOwner(*code);
    } else if (element == "Version" || element == "OriginalVersion") {
        std::int32_t version = 0;
        if (xml.ReadElement(element, version) != KL::NoError || version < 0 ||
            version > std::numeric_limits<std::int16_t>::max())
            return Fail("a whole number from 0 to 32767");
        if (element == "Version") {
            part->SetVersion(static_cast<short>(version));
        } else {
            part->SetOriginalVersion(static_cast<short>(version));
            hasOriginalVersion = true;
        }
    } else if (element == "Placeable" || element == "Archivable") {
        bool value = false;
        if (xml.ReadElement(element, value) != KL::NoError)
            return Fail("true or false");
        element == "Placeable" ? part->SetPlaceable(value) : part->SetArchivable(value);
    } else {
        xml.ReadElement(element, text);
        const std::optional<std::int32_t> value = Form::TextToMigrationValue(text.ToUTF8());
        if (!value)
            return Fail("Normal, IncompatiblyChanged, Obsolete or a number, not '" + text.ToUTF8() + "'");
        part->SetMigrationValue(static_cast<LPF::MigrationValue>(*value));
    }
    return KL::NoError;
}

int Reader::ReadAncestry(LPF::SectionInfo info) {
    AncestrySection section;
    std::string mark;
    if (Attribute("template", &mark) && mark != "true" && mark != "false")
        return Fail("template is true or false");
    section.isTemplate = mark == "true";
    for (std::string next = xml.PeekNextName(); !next.empty(); next = xml.PeekNextName()) {
        if (next != "Ancestor")
            return Fail("unexpected element '" + next + "'");
        xml.StartTag("Ancestor");
        KL::UnID& ancestor = section.ancestors.emplace_back();
        if (const int err = Guid("main", &ancestor.mainGuid, true); err != KL::NoError)
            return err;
        if (const int err = Guid("revision", &ancestor.revGuid, false); err != KL::NoError)
            return err;
        xml.EndTag("Ancestor");
    }
    info.tag = LPF::Tags::Ancestry;
    return Store(info, BuildAncestrySection(section));
}

int Reader::ReadScript(LPF::SectionInfo info) {
    std::string tag;
    if (!Attribute("tag", &tag))
        return Fail("the attribute 'tag' is required");
    const std::optional<std::uint32_t> code = Form::TextToCode(tag);
    if (!code || !LPF::IsScriptTag(*code))
        return Fail("'" + tag + "' is not a script section");
    context += " " + tag;
    info.tag = *code;
    KL::UniString text;
    xml.ReadText(text);
    const std::u16string& units = text.Units();
    const char* bytes = reinterpret_cast<const char*>(units.data());
    return Store(info, std::vector<char>(bytes, bytes + units.size() * sizeof(char16_t)));
}

int Reader::ReadParHeader(SyParHeader* header) {
    xml.StartTag("Header");
    for (std::string next = xml.PeekNextName(); !next.empty(); next = xml.PeekNextName()) {
        KL::UniString text;
        if (next == "Frames") {
            xml.StartTag("Frames");
            const std::pair<const char*, float*> frames[] = {{"left", &header->leftFrame},
                                                             {"right", &header->rightFrame},
                                                             {"top", &header->topFrame},
                                                             {"bottom", &header->bottomFrame}};
            for (const auto& [name, value] : frames) {
                std::string number;
                if (Attribute(name, &number) && !KL::ParseFloat(number, value))
                    return Fail(std::string("Frames ") + name + " is not a number");
            }
            xml.EndTag("Frames");
            continue;
        }
        xml.ReadElement(next, text);
        const std::string value = text.ToUTF8();
        std::uint32_t bits = 0;
        bool ok = true;
        if (next == "Version")
            ok = KL::ParseUInt32(value, &bits) && bits <= 255,
            header->version = static_cast<std::uint8_t>(bits);
        else if (next == "AutoHotspots")
            ok = value == "true" || value == "false", header->autoHotspots = value == "true";
        else if (next == "StatusBits")
            ok = NamesToBits(value, Form::StatusBitNames, std::size(Form::StatusBitNames), &bits) &&
                 bits <= 0xFFFF,
            header->statusBits = static_cast<std::uint16_t>(bits);
        else if (next == "LayerFlags")
            ok = KL::ParseUInt32(value, &header->layerFlags);
        else if (next == "MirrorThickness")
            ok = KL::ParseFloat(value, &header->mirrorThickness);
        else if (next == "WallInset")
            ok = KL::ParseFloat(value, &header->wallInset);
        else if (next == "SymbolColor")
            ok = KL::ParseUInt32(value, &header->symbolColor);
        else
            return Fail("unexpected header element '" + next + "'");
        if (!ok)
            return Fail("the header's " + next + " does not read: '" + value + "'");
    }
    return xml.EndTag("Header");
}

int Reader::ReadParamSection(LPF::SectionInfo info) {
    SyParSection section;
    for (std::string next = xml.PeekNextName(); !next.empty(); next = xml.PeekNextName()) {
        if (next == "Header") {
            if (const int err = ReadParHeader(&section.header); err != KL::NoError)
                return err;
        } else if (next == "Parameters") {
            std::string why;
            if (ReadSyParametersFromXML(xml, &section.parameters, &why) != KL::NoError)
                return Fail(why);
        } else if (next == "FrameExpressions") {
            xml.StartTag(next);
            while (xml.PeekNextName() == "F") {
                KL::UniString text;
                xml.ReadElement("F", text);
                section.frameExpressions.push_back(text.ToUTF8());
            }
            if (!xml.PeekNextName().empty())
                return Fail("FrameExpressions holds only F elements");
            xml.EndTag(next);
        } else if (next == "Orientation") {
            xml.StartTag(next);
            section.hasOrientation = true;
            Attribute("def", &section.orientationDef);
            Attribute("mirr", &section.orientationMirr);
            xml.EndTag(next);
        } else {
            return Fail("unexpected element '" + next + "'");
        }
    }
    KL::ScopedHandle bytes(BuildSyParHandle(section));
    if (bytes.Get() == nullptr)
        return Fail(
            "the parameters do not make a valid section (a name longer than 31 characters, more than six "
            "frame expressions, or an orientation text of 32 bytes or more)");
    info.tag = LPF::Tags::Parameters;
    return Store(info, std::vector<char>(bytes.GetData(), bytes.GetData() + bytes.GetSize()));
}

int Reader::ReadCalledMacros(LPF::SectionInfo info) {
    KL::Array<SyCalledMacroItem> items;
    for (std::string next = xml.PeekNextName(); !next.empty(); next = xml.PeekNextName()) {
        if (next != "Macro")
            return Fail("unexpected element '" + next + "'");
        xml.StartTag("Macro");
        SyCalledMacroItem& item = items.PushNew();
        KL::UniString name;
        if (xml.ReadAttribute("name", name) != KL::NoError)
            return Fail("a Macro needs a name");
        item.name = name;
        if (const int err = Guid("main", &item.unId.mainGuid, false); err != KL::NoError)
            return err;
        if (const int err = Guid("revision", &item.unId.revGuid, false); err != KL::NoError)
            return err;
        xml.EndTag("Macro");
    }
    KL::MemoryOChannel out;
    WriteCalledMacroList(out, items);
    info.tag = LPF::Tags::CalledMacros;
    return Store(info, out.TakeData());
}

int Reader::ReadMigrationTable(LPF::SectionInfo info) {
    MigrationTable table;
    for (std::string next = xml.PeekNextName(); !next.empty(); next = xml.PeekNextName()) {
        if (next != "Replaces")
            return Fail("unexpected element '" + next + "'");
        xml.StartTag("Replaces");
        KL::Guid main;
        MigrationTable::Value value;
        std::string flag;
        if (const int err = Guid("main", &main, true); err != KL::NoError)
            return err;
        if (const int err = Number("version", &value.version, false); err != KL::NoError)
            return err;
        if (Attribute("flag", &flag) && flag != "true" && flag != "false")
            return Fail("flag is true or false");
        value.flag = flag == "true";
        if (table.Find(main) != nullptr)
            return Fail("the guid " + main.ToString() + " is replaced twice");
        table.Add(main, value);
        xml.EndTag("Replaces");
    }
    KL::MemoryOChannel out;
    table.Write(out);
    info.tag = LPF::Tags::MigrationTable;
    return Store(info, out.TakeData());
}

int Reader::ReadDrawing(LPF::SectionInfo info) {
    VectorImage image;
    if (image.ReadXML(xml) != KL::NoError)
        return Fail(image.GetXMLMessage());
    KL::MemoryOChannel out;
    image.Write(out);
    info.tag = LPF::Tags::Drawing2D;
    return Store(info, out.TakeData());
}

int Reader::ReadPicture(LPF::SectionInfo info) {
    std::string name;
    Attribute("name", &name);
    if (name.find('\0') != std::string::npos)
        return Fail("a picture name cannot hold NUL");
    std::vector<char> picture;
    if (const int err = Base64Content(&picture); err != KL::NoError)
        return err;
    std::vector<char> bytes(name.begin(), name.end());
    bytes.push_back('\0');
    bytes.insert(bytes.end(), picture.begin(), picture.end());
    info.tag = info.subIdent == 0 ? LPF::Tags::Preview : LPF::Tags::Picture;
    return Store(info, bytes);
}

int Reader::ReadBinary(LPF::SectionInfo info) {
    std::vector<char> bytes;
    if (const int err = Base64Content(&bytes); err != KL::NoError)
        return err;
    info.tag = LPF::Tags::Binary3D;
    return Store(info, bytes);
}

int Reader::ReadRawSection(LPF::SectionInfo info) {
    std::string tag;
    if (!Attribute("tag", &tag))
        return Fail("the attribute 'tag' is required");
    const std::optional<std::uint32_t> code = Form::TextToCode(tag);
    if (!code)
        return Fail("'" + tag + "' is not a section tag");
    context += " " + tag;
    if (const int err = Number("index", &info.subIdent, true); err != KL::NoError)
        return err;
    if (const int err = Number("version", &info.version, true); err != KL::NoError)
        return err;
    if (const int err = Number("flags", &info.flags, true); err != KL::NoError)
        return err;
    std::vector<char> bytes;
    if (const int err = Base64Content(&bytes); err != KL::NoError)
        return err;
    info.tag = *code;
    return Store(info, bytes);
}

int Reader::ReadSection(const std::string& element) {
    using SectionReader = int (Reader::*)(LPF::SectionInfo);
    static const std::pair<const char*, SectionReader> readers[] = {
        {"Ancestry", &Reader::ReadAncestry},
        {"Script", &Reader::ReadScript},
        {"ParamSection", &Reader::ReadParamSection},
        {"CalledMacros", &Reader::ReadCalledMacros},
        {"MigrationTable", &Reader::ReadMigrationTable},
        {"Drawing2D", &Reader::ReadDrawing},
        {"Picture", &Reader::ReadPicture},
        {"Binary3D", &Reader::ReadBinary},
        {"Section", &Reader::ReadRawSection},
    };
    context = element;
    for (const auto& [name, reader] : readers) {
        if (element != name)
            continue;
        LPF::SectionInfo info;
        // The drawing opens its own element.
        if (reader == &Reader::ReadDrawing)
            return ReadDrawing(info);
        xml.StartTag(element);
        if (reader != &Reader::ReadRawSection) {
            if (const int err = SectionAttributes(&info, true); err != KL::NoError)
                return err;
        }
        if (const int err = (this->*reader)(info); err != KL::NoError)
            return err;
        return xml.EndTag(element);
    }
    return Fail("unknown element");
}

int Reader::ReadDocument() {
    static const char* const identity[] = {"DocumentName", "MainGuid",      "RevisionGuid",    "Signature",
                                           "Owner",        "Version",       "OriginalVersion", "Placeable",
                                           "Archivable",   "MigrationValue"};
    if (xml.StartTag("LibraryPart") != KL::NoError)
        return Fail("the root element must be LibraryPart");
    std::string order;
    if (Attribute("byteOrder", &order)) {
        if (order != "big-endian" && order != "little-endian")
            return Fail("byteOrder is big-endian or little-endian");
        part->SetByteOrder(order == "big-endian" ? KL::BigEndianSign : KL::LittleEndianSign);
    }
    std::size_t nextIdentity = 0;
    for (std::string next = xml.PeekNextName(); !next.empty(); next = xml.PeekNextName()) {
        std::size_t position = nextIdentity;
        while (position < std::size(identity) && next != identity[position])
            ++position;
        if (position < std::size(identity)) {
            nextIdentity = position + 1;
            if (const int err = ReadIdentity(next); err != KL::NoError)
                return err;
        } else if (const int err = ReadSection(next); err != KL::NoError) {
            return err;
        }
    }
    short version = 0;
    part->GetVersion(&version);
    if (!hasOriginalVersion)
        part->SetOriginalVersion(version);
    part->SetOwnUnID(KL::UnID(hasMain ? id.mainGuid : KL::Guid::Generate(),
                              hasRevision ? id.revGuid : KL::Guid::Generate()));
    return xml.EndTag("LibraryPart");
}

} // namespace

int ReadPartXML(KL::XMLIChannel& channel, LPF::SymbolFile* part, std::string* message) {
    Reader reader(channel, part);
    const int result = reader.ReadDocument();
    if (message != nullptr)
        *message = reader.GetMessage();
    return result;
}

} // namespace KLM
