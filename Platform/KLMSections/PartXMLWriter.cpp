#include "KLMSections/AncestrySection.hpp"
#include "KLMSections/MigrationTable.hpp"
#include "KLMSections/PartXML.hpp"
#include "KLMSections/PartXMLForm.hpp"

#include "LibPartFile/LibPartFileErrors.hpp"
#include "LibPartFile/SectionTypes.hpp"
#include "QDL/ParamSection.hpp"
#include "QDL/ParamXML.hpp"
#include "QDL/SyCalledMacroItem.hpp"
#include "VectorImage/VectorImage.hpp"

#include "KLRoot/Base64.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/MemoryChannel.hpp"
#include "KLRoot/NumberText.hpp"

#include <bit>
#include <cstring>
#include <functional>

namespace KLM {

namespace {

using Bytes = std::string_view;
// Writes a section's typed element; prepared only once the typed form is known to give back the
// section's exact bytes, because the XML channel cannot take back what it wrote.
using Writer = std::function<void(KL::XMLOChannel&)>;

KL::UniString Text(const std::string& utf8) {
    return KL::UniString(utf8);
}

bool SameBytes(Bytes section, const std::vector<char>& rebuilt) {
    return section.size() == rebuilt.size() &&
           std::memcmp(section.data(), rebuilt.data(), rebuilt.size()) == 0;
}

template <typename Content>
bool ReadsBackExactly(Bytes section, Content* content) {
    if (LPF::ReadWholeSection(section.data(), section.size(), KL::HostPlatformSign, content) != KL::NoError)
        return false;
    KL::MemoryOChannel out;
    return content->Write(out) == KL::NoError && SameBytes(section, out.GetData());
}

void SetSectionAttributes(KL::XMLOChannel& xml, const LPF::SectionInfo& info, bool writeIndex) {
    if (writeIndex && info.subIdent != 0)
        xml.SetAttribute("index", Text(std::to_string(info.subIdent)));
    if (info.version != LPF::DefaultSectionVersion)
        xml.SetAttribute("version", Text(std::to_string(info.version)));
    if (info.flags != 0)
        xml.SetAttribute("flags", Text(std::to_string(info.flags)));
}

void SetGuid(KL::XMLOChannel& xml, const char* name, const KL::Guid& guid) {
    if (!guid.IsNull())
        xml.SetAttribute(name, Text(guid.ToString()));
}

Writer RawSection(const LPF::SectionInfo& info, Bytes data) {
    return [info, data](KL::XMLOChannel& xml) {
        xml.StartTag("Section");
        xml.SetAttribute("tag", Text(Form::CodeToText(info.tag)));
        xml.SetAttribute("index", Text(std::to_string(info.subIdent)));
        xml.SetAttribute("version", Text(std::to_string(info.version)));
        xml.SetAttribute("flags", Text(std::to_string(info.flags)));
        xml.WriteText(Text(KL::Base64Encode(data.data(), data.size())));
        xml.EndTag("Section");
    };
}

Writer AncestryWriter(const LPF::SectionInfo& info, Bytes data) {
    AncestrySection section;
    if (ParseAncestrySection(data.data(), data.size(), &section) != KL::NoError ||
        !SameBytes(data, BuildAncestrySection(section)))
        return nullptr;
    return [info, section](KL::XMLOChannel& xml) {
        xml.StartTag("Ancestry");
        SetSectionAttributes(xml, info, true);
        if (section.isTemplate)
            xml.SetAttribute("template", "true");
        for (const KL::UnID& ancestor : section.ancestors) {
            xml.StartTag("Ancestor");
            xml.SetAttribute("main", Text(ancestor.mainGuid.ToString()));
            SetGuid(xml, "revision", ancestor.revGuid);
            xml.EndTag("Ancestor");
        }
        xml.EndTag("Ancestry");
    };
}

Writer ScriptWriter(const LPF::SectionInfo& info, Bytes data) {
    if (data.size() % 2 != 0)
        return nullptr;
    std::u16string units(data.size() / 2, u'\0');
    std::memcpy(units.data(), data.data(), data.size());
    KL::UniString script(std::move(units));
    if (!Form::IsXMLText(script, false))
        return nullptr;
    return [info, script](KL::XMLOChannel& xml) {
        xml.StartTag("Script");
        xml.SetAttribute("tag", Text(Form::CodeToText(info.tag)));
        SetSectionAttributes(xml, info, true);
        xml.WriteText(script);
        xml.EndTag("Script");
    };
}

bool ParamTextsFit(const SyParSection& section) {
    for (const SyParameter& parameter : section.parameters) {
        if (!Form::IsXMLText(parameter.description, false))
            return false;
        for (const KL::UniString& text : parameter.texts) {
            if (!Form::IsXMLText(text, false))
                return false;
        }
    }
    for (const std::string& expression : section.frameExpressions) {
        if (!Form::IsXMLText(expression, false))
            return false;
    }
    return Form::IsXMLText(section.orientationDef, true) && Form::IsXMLText(section.orientationMirr, true);
}

bool IsPositiveZero(float value) {
    return std::bit_cast<std::uint32_t>(value) == 0;
}

void WriteParHeader(KL::XMLOChannel& xml, const SyParHeader& header) {
    if (header == SyParHeader{})
        return;
    xml.StartTag("Header");
    if (header.version != CurrentParHeaderVersion)
        xml.WriteElement("Version", std::uint32_t{header.version});
    if (header.autoHotspots)
        xml.WriteElement("AutoHotspots", true);
    if (header.statusBits != 0)
        xml.WriteElement("StatusBits", Text(BitsToNames(header.statusBits, Form::StatusBitNames,
                                                        std::size(Form::StatusBitNames))));
    const std::pair<const char*, float> frames[] = {{"left", header.leftFrame},
                                                    {"right", header.rightFrame},
                                                    {"top", header.topFrame},
                                                    {"bottom", header.bottomFrame}};
    if (!IsPositiveZero(header.leftFrame) || !IsPositiveZero(header.rightFrame) ||
        !IsPositiveZero(header.topFrame) || !IsPositiveZero(header.bottomFrame)) {
        xml.StartTag("Frames");
        for (const auto& [name, value] : frames) {
            if (!IsPositiveZero(value))
                xml.SetAttribute(name, Text(KL::FormatFloat(value)));
        }
        xml.EndTag("Frames");
    }
    if (header.layerFlags != 0)
        xml.WriteElement("LayerFlags", header.layerFlags);
    if (!IsPositiveZero(header.mirrorThickness))
        xml.WriteElement("MirrorThickness", Text(KL::FormatFloat(header.mirrorThickness)));
    if (!IsPositiveZero(header.wallInset))
        xml.WriteElement("WallInset", Text(KL::FormatFloat(header.wallInset)));
    if (header.symbolColor != 0)
        xml.WriteElement("SymbolColor", header.symbolColor);
    xml.EndTag("Header");
}

Writer ParamWriter(const LPF::SectionInfo& info, Bytes data) {
    SyParSection section;
    if (ParseSyParSection(data.data(), data.size(), &section) != KL::NoError || !ParamTextsFit(section))
        return nullptr;
    KL::ScopedHandle rebuilt(BuildSyParHandle(section));
    if (rebuilt.Get() == nullptr ||
        !SameBytes(data, std::vector<char>(rebuilt.GetData(), rebuilt.GetData() + rebuilt.GetSize())))
        return nullptr;
    return [info, section](KL::XMLOChannel& xml) {
        xml.StartTag("ParamSection");
        SetSectionAttributes(xml, info, true);
        WriteParHeader(xml, section.header);
        if (!section.parameters.empty())
            WriteSyParametersToXML(xml, section.parameters, section.parameters.size());
        if (!section.frameExpressions.empty()) {
            xml.StartTag("FrameExpressions");
            for (const std::string& expression : section.frameExpressions)
                xml.WriteElement("F", Text(expression));
            xml.EndTag("FrameExpressions");
        }
        if (section.hasOrientation) {
            xml.StartTag("Orientation");
            xml.SetAttribute("def", Text(section.orientationDef));
            xml.SetAttribute("mirr", Text(section.orientationMirr));
            xml.EndTag("Orientation");
        }
        xml.EndTag("ParamSection");
    };
}

Writer CalledMacrosWriter(const LPF::SectionInfo& info, Bytes data) {
    SyCalledMacroList macros;
    if (!ReadsBackExactly(data, &macros))
        return nullptr;
    for (std::size_t i = 0; i < macros.items.GetSize(); ++i) {
        if (!Form::IsXMLText(macros.items[i].name, true))
            return nullptr;
    }
    return [info, macros](KL::XMLOChannel& xml) {
        xml.StartTag("CalledMacros");
        SetSectionAttributes(xml, info, true);
        for (std::size_t i = 0; i < macros.items.GetSize(); ++i) {
            xml.StartTag("Macro");
            xml.SetAttribute("name", macros.items[i].name);
            SetGuid(xml, "main", macros.items[i].unId.mainGuid);
            SetGuid(xml, "revision", macros.items[i].unId.revGuid);
            xml.EndTag("Macro");
        }
        xml.EndTag("CalledMacros");
    };
}

Writer MigrationWriter(const LPF::SectionInfo& info, Bytes data) {
    MigrationTable table;
    if (!ReadsBackExactly(data, &table))
        return nullptr;
    return [info, table](KL::XMLOChannel& xml) {
        xml.StartTag("MigrationTable");
        SetSectionAttributes(xml, info, true);
        for (auto pair = table.BeginPairs(); pair != table.EndPairs(); ++pair) {
            xml.StartTag("Replaces");
            xml.SetAttribute("main", Text(pair->first.ToString()));
            if (pair->second.version != 0)
                xml.SetAttribute("version", Text(std::to_string(pair->second.version)));
            if (pair->second.flag)
                xml.SetAttribute("flag", "true");
            xml.EndTag("Replaces");
        }
        xml.EndTag("MigrationTable");
    };
}

Writer DrawingWriter(Bytes data) {
    VectorImage image;
    if (!ReadsBackExactly(data, &image))
        return nullptr;
    for (const VectorImage::Primitive& primitive : image.GetPrimitives()) {
        if (!Form::IsXMLText(primitive.text, false))
            return nullptr;
    }
    return [image](KL::XMLOChannel& xml) { image.WriteXML(xml); };
}

Writer PictureWriter(const LPF::SectionInfo& info, Bytes data) {
    const bool preview = info.tag == LPF::Tags::Preview;
    if (preview != (info.subIdent == 0))
        return nullptr;
    const std::size_t end = data.find('\0');
    if (end == Bytes::npos)
        return nullptr;
    const std::string name(data.substr(0, end));
    if (!Form::IsXMLText(name, true))
        return nullptr;
    const Bytes picture = data.substr(end + 1);
    return [info, name, picture](KL::XMLOChannel& xml) {
        xml.StartTag("Picture");
        SetSectionAttributes(xml, info, true);
        if (!name.empty())
            xml.SetAttribute("name", Text(name));
        xml.WriteText(Text(KL::Base64Encode(picture.data(), picture.size())));
        xml.EndTag("Picture");
    };
}

Writer BinaryWriter(const LPF::SectionInfo& info, Bytes data) {
    return [info, data](KL::XMLOChannel& xml) {
        xml.StartTag("Binary3D");
        SetSectionAttributes(xml, info, true);
        xml.WriteText(Text(KL::Base64Encode(data.data(), data.size())));
        xml.EndTag("Binary3D");
    };
}

Writer TypedWriter(const LPF::SectionInfo& info, Bytes data) {
    if (LPF::IsScriptTag(info.tag))
        return ScriptWriter(info, data);
    switch (info.tag) {
    case LPF::Tags::Ancestry:
        return AncestryWriter(info, data);
    case LPF::Tags::Parameters:
        return ParamWriter(info, data);
    case LPF::Tags::CalledMacros:
        return CalledMacrosWriter(info, data);
    case LPF::Tags::MigrationTable:
        return MigrationWriter(info, data);
    case LPF::Tags::Drawing2D:
        // The drawing's element carries no section attributes, so only defaults are typed.
        return info.subIdent == 0 && info.version == LPF::DefaultSectionVersion && info.flags == 0
                   ? DrawingWriter(data)
                   : nullptr;
    case LPF::Tags::Preview:
    case LPF::Tags::Picture:
        return PictureWriter(info, data);
    case LPF::Tags::Binary3D:
        return BinaryWriter(info, data);
    default:
        return nullptr;
    }
}

struct SectionVisit {
    const LPF::SymbolFile* part;
    KL::XMLOChannel* xml;
    std::string* message;
};

int WriteSection(const LPF::SectionInfo& info, void* userData) {
    auto* visit = static_cast<SectionVisit*>(userData);
    GSHandle data = nullptr;
    if (const int err = visit->part->GetSectionDataRef(info.tag, info.subIdent, &data); err != KL::NoError) {
        *visit->message = "section " + Form::CodeToText(info.tag) + " " + std::to_string(info.subIdent) +
                          ": " + LPF::DescribeError(err);
        return err;
    }
    const Bytes bytes(*data, static_cast<std::size_t>(BMGetHandleSize(data)));
    Writer writer = TypedWriter(info, bytes);
    (writer ? writer : RawSection(info, bytes))(*visit->xml);
    return KL::NoError;
}

void WriteIdentity(KL::XMLOChannel& xml, const LPF::SymbolFile& part) {
    KL::UniString name;
    KL::UnID id;
    unsigned type = 0;
    unsigned owner = 0;
    short version = 0;
    short originalVersion = 0;
    bool placeable = false;
    bool archivable = false;
    LPF::MigrationValue migration = LPF::Normal;
    part.GetDocumentName(&name);
    part.GetOwnUnID(&id);
    part.GetType(&type);
    part.GetOwner(&owner);
    part.GetVersion(&version);
    part.GetOriginalVersion(&originalVersion);
    part.IsPlaceable(&placeable);
    part.IsArchivable(&archivable);
    part.GetMigrationValue(&migration);
    const LPF::PartHeader defaults;
    if (!name.IsEmpty())
        xml.WriteElement("DocumentName", name);
    xml.WriteElement("MainGuid", id.mainGuid);
    xml.WriteElement("RevisionGuid", id.revGuid);
    if (type != defaults.signature)
        xml.WriteElement("Signature", Text(Form::CodeToText(type)));
    if (owner != defaults.owner)
        xml.WriteElement("Owner", Text(Form::CodeToText(owner)));
    if (version != defaults.version)
        xml.WriteElement("Version", std::int32_t{version});
    if (originalVersion != version)
        xml.WriteElement("OriginalVersion", std::int32_t{originalVersion});
    if (placeable)
        xml.WriteElement("Placeable", true);
    if (archivable)
        xml.WriteElement("Archivable", true);
    if (migration != LPF::Normal)
        xml.WriteElement("MigrationValue", Text(Form::MigrationValueToText(migration)));
}

} // namespace

int WritePartXML(const LPF::SymbolFile& part, KL::XMLOChannel& xml, std::string* message) {
    std::string ignored;
    message = message != nullptr ? message : &ignored;
    if (const int err = part.GetStatus(); err != KL::NoError) {
        *message = LPF::DescribeError(err);
        return err;
    }
    KL::UniString name;
    part.GetDocumentName(&name);
    if (!Form::IsXMLText(name, false)) {
        *message = "the document name holds characters XML cannot carry";
        return KL::ErrNotSupported;
    }
    xml.StartTag("LibraryPart");
    if (part.GetByteOrder() == KL::BigEndianSign)
        xml.SetAttribute("byteOrder", "big-endian");
    WriteIdentity(xml, part);
    SectionVisit visit{&part, &xml, message};
    if (const int err = part.EnumerateSections(WriteSection, &visit);
        err != KL::NoError && err != LPF::SectionNotFoundError)
        return err;
    xml.EndTag("LibraryPart");
    return xml.GetStatus();
}

} // namespace KLM
