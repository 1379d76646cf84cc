// A part as XML and back: a dump builds to the same part, sections the typed elements cannot carry
// survive as raw bytes, and a bad description says which element broke which rule.
#include <LibraryManager.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using LPF::MakeCode;

constexpr const char* Description = R"(<?xml version="1.0" encoding="UTF-8"?>
<LibraryPart byteOrder="big-endian">
  <DocumentName>Chair Basic</DocumentName>
  <MainGuid>5C1E0A10-2B3C-4D5E-8F60-718293A4B5C6</MainGuid>
  <RevisionGuid>5C1E0A10-2B3C-4D5E-8F60-718293A4B5C7</RevisionGuid>
  <Version>31</Version>
  <Placeable>true</Placeable>
  <MigrationValue>IncompatiblyChanged</MigrationValue>
  <Ancestry template="true"><Ancestor main="0B94D6E2-3A7C-4F15-8D2E-6C1A9F5B3E08"/></Ancestry>
  <Script tag="2DSC">PROJECT2 3, 270, 2&#13;
LINE2 0, 0, A, 0</Script>
  <ParamSection version="2">
    <Header>
      <AutoHotspots>true</AutoHotspots>
      <StatusBits>UIDefault Bit256</StatusBits>
      <Frames left="0.1" bottom="-0.25"/>
    </Header>
    <Parameters>
      <Length name="A" flags="Hidden Unique"><Description>Width</Description><Value>0.9</Value></Length>
      <String name="label"><Description>Label</Description><Value>Oak &amp; Ash</Value></String>
      <Integer name="counts"><Array dim1="2" dim2="2"><V>1</V><V>2</V><V>3</V><V>4</V></Array></Integer>
      <Title name="geometry"><Description>Geometry</Description></Title>
    </Parameters>
    <FrameExpressions><F>A/2</F></FrameExpressions>
    <Orientation def="x" mirr=""/>
  </ParamSection>
  <CalledMacros><Macro name="Chair Leg" main="0B94D6E2-3A7C-4F15-8D2E-6C1A9F5B3E08"/></CalledMacros>
  <MigrationTable><Replaces main="0B94D6E2-3A7C-4F15-8D2E-6C1A9F5B3E08" version="3" flag="true"/></MigrationTable>
  <Drawing2D>
    <Hotspot x="0" y="0"/>
    <Polygon fill="3"><Point x="0" y="0"/><Point x="1" y="0"/><Point x="1" y="1"/></Polygon>
    <Text x="0.5" y="0.5" pen="2">Seat</Text>
  </Drawing2D>
  <Picture name="preview.png">iVBORw0KGgo=</Picture>
  <Binary3D index="1">AAECAw==</Binary3D>
  <Binary3D index="2" version="3" flags="4">/w==</Binary3D>
  <Section tag="XTRA" index="0" version="1" flags="0">AAECAw==</Section>
</LibraryPart>
)";

int Build(const std::string& document, LPF::SymbolFile* part, std::string* message) {
    KL::XMLIChannel xml;
    if (const int err = xml.Parse(document); err != KL::NoError) {
        *message = xml.GetParseMessage();
        return err;
    }
    return KLM::ReadPartXML(xml, part, message);
}

std::string Dump(const LPF::SymbolFile& part) {
    KL::XMLOChannel xml;
    std::string message;
    EXPECT_EQ(KLM::WritePartXML(part, xml, &message), KL::NoError) << message;
    return xml.ToString();
}

std::vector<char> Bytes(const LPF::SymbolFile& part) {
    KL::MemoryOChannel out;
    EXPECT_EQ(part.Write(out), KL::NoError);
    return out.TakeData();
}

std::string SectionBytes(const LPF::SymbolFile& part, LPF::SectionTag tag, std::uint16_t index) {
    GSHandle data = nullptr;
    const int err = part.GetSectionDataRef(tag, index, &data);
    return err == KL::NoError ? std::string(*data, BMGetHandleSize(data)) : "error " + std::to_string(err);
}

class PartXML : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(InitLibPartFile("Default_Set"), KL::NoError); }
};

TEST_F(PartXML, DumpOfABuiltDescriptionBuildsTheSamePart) {
    LPF::SymbolFile part;
    std::string message;
    ASSERT_EQ(Build(Description, &part, &message), KL::NoError) << message;
    EXPECT_EQ(part.GetSectionCount(), 10u);
    KL::UnID id;
    part.GetOwnUnID(&id);
    EXPECT_EQ(id.ToString(), KL::UnID(KL::Guid("5C1E0A10-2B3C-4D5E-8F60-718293A4B5C6"),
                                      KL::Guid("5C1E0A10-2B3C-4D5E-8F60-718293A4B5C7"))
                                 .ToString());
    EXPECT_EQ(SectionBytes(part, LPF::Tags::Binary3D, 1), std::string("\0\1\2\3", 4));
    EXPECT_EQ(SectionBytes(part, LPF::Tags::Preview, 0), std::string("preview.png\0\x89PNG\r\n\x1A\n", 20));
    const std::u16string script = u"PROJECT2 3, 270, 2\r\nLINE2 0, 0, A, 0";
    EXPECT_EQ(SectionBytes(part, MakeCode("2DSC"), 0),
              std::string(reinterpret_cast<const char*>(script.data()), script.size() * 2));

    const std::string dump = Dump(part);
    for (const char* typed : {"<Ancestry", "<Script", "<ParamSection", "<CalledMacros", "<MigrationTable",
                              "<Drawing2D", "<Picture", "<Binary3D", "big-endian"})
        EXPECT_NE(dump.find(typed), std::string::npos) << typed;
    EXPECT_EQ(dump.find("<Section tag=\"XTRA\""), dump.rfind("<Section"))
        << "only the unknown section is raw";
    EXPECT_NE(dump.find("PROJECT2 3, 270, 2&#13;\n"), std::string::npos)
        << "a carriage return is a character reference, which XML parsers do not fold into a line end";

    LPF::SymbolFile rebuilt;
    ASSERT_EQ(Build(dump, &rebuilt, &message), KL::NoError) << message;
    EXPECT_EQ(Dump(rebuilt), dump);
    EXPECT_EQ(Bytes(rebuilt), Bytes(part));
    const LPF::SymbolFile reread(Bytes(part));
    EXPECT_EQ(Dump(reread), dump);
}

TEST_F(PartXML, GuidsLeftOutAreFreshForEachBuild) {
    const std::string source =
        "<LibraryPart><DocumentName>x</DocumentName><Version>12</Version></LibraryPart>";
    LPF::SymbolFile first;
    LPF::SymbolFile second;
    std::string message;
    ASSERT_EQ(Build(source, &first, &message), KL::NoError) << message;
    ASSERT_EQ(Build(source, &second, &message), KL::NoError) << message;
    KL::UnID one;
    KL::UnID two;
    short original = 0;
    first.GetOwnUnID(&one);
    second.GetOwnUnID(&two);
    first.GetOriginalVersion(&original);
    EXPECT_FALSE(one.mainGuid.IsNull() || one.revGuid.IsNull());
    EXPECT_NE(one.mainGuid, one.revGuid);
    EXPECT_NE(one.mainGuid, two.mainGuid);
    EXPECT_NE(one.revGuid, two.revGuid);
    EXPECT_EQ(original, 12) << "the original version follows the version";
}

TEST_F(PartXML, SectionsTheTypedFormCannotCarryAreDumpedRaw) {
    LPF::SymbolFile part;
    const auto set = [&part](LPF::SectionTag tag, std::uint16_t index, const std::string& bytes) {
        const LPF::SectionInfo info{tag, index};
        ASSERT_EQ(part.SetSection(info, bytes.data(), bytes.size()), KL::NoError);
    };
    set(MakeCode("2DSC"), 0, "odd");
    const std::u16string control = u"A\u0001B";
    set(MakeCode("3DSC"), 0, std::string(reinterpret_cast<const char*>(control.data()), 6));
    std::vector<char> ancestry = BuildAncestrySection({false, {KL::UnID(KL::Guid::Generate(), {})}});
    ancestry[10] = 1;
    set(LPF::Tags::Ancestry, 0, std::string(ancestry.begin(), ancestry.end()));
    VectorImage image;
    image.Add({VectorImage::Hotspot, 1, 0, {0, 0}, {}});
    KL::MemoryOChannel drawing;
    image.Write(drawing);
    set(LPF::Tags::Drawing2D, 1, std::string(drawing.GetData().begin(), drawing.GetData().end()));
    set(LPF::Tags::Parameters, 0, "not parameters");
    set(LPF::Tags::Picture, 0, std::string("x\0y", 3));

    const std::string dump = Dump(part);
    for (const char* typed : {"<Script", "<Ancestry", "<Drawing2D", "<ParamSection", "<Picture"})
        EXPECT_EQ(dump.find(typed), std::string::npos) << typed;
    LPF::SymbolFile rebuilt;
    std::string message;
    ASSERT_EQ(Build(dump, &rebuilt, &message), KL::NoError) << message;
    EXPECT_EQ(Bytes(rebuilt), Bytes(part));
}

TEST_F(PartXML, ErrorsNameTheElementAndTheRule) {
    using ::testing::AllOf;
    using ::testing::HasSubstr;
    const auto failure = [](const std::string& document) {
        LPF::SymbolFile part;
        std::string message;
        EXPECT_EQ(Build(document, &part, &message), KL::ErrXMLFormat) << document;
        return message;
    };
    const auto inPart = [&failure](const std::string& body) {
        return failure("<LibraryPart>" + body + "</LibraryPart>");
    };
    EXPECT_THAT(inPart("<Bogus/>"), HasSubstr("Bogus"));
    EXPECT_THAT(inPart("<MainGuid>nope</MainGuid>"), HasSubstr("MainGuid"));
    EXPECT_THAT(inPart("<ParamSection><Parameters><Volume name=\"A\"/></Parameters></ParamSection>"),
                AllOf(HasSubstr("ParamSection"), HasSubstr("Volume")));
    EXPECT_THAT(inPart("<Binary3D index=\"1\">AA==</Binary3D><Binary3D index=\"1\">AA==</Binary3D>"),
                AllOf(HasSubstr("3DBN 1"), HasSubstr("twice")));
    EXPECT_THAT(inPart("<Ancestry><Ancestor main=\"xyz\"/></Ancestry>"),
                AllOf(HasSubstr("Ancestry"), HasSubstr("xyz")));
    EXPECT_THAT(inPart("<Binary3D>not base64</Binary3D>"), HasSubstr("base64"));
    EXPECT_THAT(inPart("<Script tag=\"XXSC\">x</Script>"), HasSubstr("XXSC"));
    EXPECT_THAT(inPart("<Binary3D index=\"70000\">AA==</Binary3D>"), HasSubstr("70000"));
    EXPECT_THAT(failure("<Part/>"), HasSubstr("LibraryPart"));
}

} // namespace
