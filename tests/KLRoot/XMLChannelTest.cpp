#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(XMLChannel, TypedElementsRoundTrip) {
    const KL::Guid guid("E666B724-587D-447A-B9A8-6248E3368E70");
    KL::XMLOChannel out;
    out.StartTag("LibPartId", KL::ClassVersion{1, 0});
    out.WriteElement("Name", KL::UniString("Fenêtre <1> & \"2\""));
    out.WriteElement("MainGuid", guid);
    out.WriteElement("Valid", true);
    out.WriteElement("Index", std::int32_t{-7003});
    out.WriteElement("Size", std::uint64_t{std::numeric_limits<std::uint64_t>::max()});
    out.WriteElement("Ratio", 0.1);
    out.WriteElement("Empty", "");
    out.EndTag("LibPartId");
    ASSERT_EQ(out.GetStatus(), KL::NoError);

    KL::XMLIChannel in;
    ASSERT_EQ(in.Parse(out.ToString()), KL::NoError);
    KL::ClassVersion version;
    ASSERT_EQ(in.StartTag("LibPartId", &version), KL::NoError);
    EXPECT_EQ(version, (KL::ClassVersion{1, 0}));
    KL::UniString name;
    KL::Guid readGuid;
    bool valid = false;
    std::int32_t index = 0;
    std::uint64_t size = 0;
    double ratio = 0;
    KL::UniString empty("x");
    EXPECT_EQ(in.ReadElement("Name", name), KL::NoError);
    EXPECT_EQ(in.ReadElement("MainGuid", readGuid), KL::NoError);
    EXPECT_EQ(in.ReadElement("Valid", valid), KL::NoError);
    EXPECT_EQ(in.ReadElement("Index", index), KL::NoError);
    EXPECT_EQ(in.ReadElement("Size", size), KL::NoError);
    EXPECT_EQ(in.ReadElement("Ratio", ratio), KL::NoError);
    EXPECT_EQ(in.ReadElement("Empty", empty), KL::NoError);
    EXPECT_EQ(in.EndTag("LibPartId"), KL::NoError);
    EXPECT_EQ(name, "Fenêtre <1> & \"2\"");
    EXPECT_EQ(readGuid, guid);
    EXPECT_TRUE(valid);
    EXPECT_EQ(index, -7003);
    EXPECT_EQ(size, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(ratio, 0.1);
    EXPECT_TRUE(empty.IsEmpty());
}

TEST(XMLChannel, ReaderPassesOverUnknownElementsAndReportsMissingOnes) {
    KL::XMLIChannel in;
    ASSERT_EQ(in.Parse("<Root><Future>1</Future><A>5</A><B>oops</B><C>7</C></Root>"), KL::NoError);
    ASSERT_EQ(in.StartTag("Root"), KL::NoError);
    EXPECT_EQ(in.PeekNextName(), "Future");
    std::int32_t a = 0;
    std::int32_t b = 0;
    std::int32_t c = 0;
    EXPECT_EQ(in.ReadElement("A", a), KL::NoError);
    EXPECT_EQ(in.ReadElement("Missing", a), KL::ErrXMLMissing);
    EXPECT_EQ(in.ReadElement("B", b), KL::ErrXMLFormat);
    EXPECT_EQ(in.ReadElement("C", c), KL::NoError);
    EXPECT_EQ(in.ReadElement("A", a), KL::ErrXMLMissing); // the cursor only moves forward
    EXPECT_EQ(a, 5);
    EXPECT_EQ(c, 7);
    EXPECT_EQ(in.EndTag("Other"), KL::ErrParam);
    EXPECT_EQ(in.EndTag("Root"), KL::NoError);

    ASSERT_EQ(in.Parse("<Tag version=\"x.1\"/>"), KL::NoError);
    KL::ClassVersion version;
    EXPECT_EQ(in.StartTag("Tag", &version), KL::ErrXMLFormat);

    for (const char* text : {"<a><b></a>", "", "<a></b>", "<a x=1/>", "\xFF\xFE<"})
        EXPECT_EQ(in.Parse(text), KL::ErrXMLFormat) << text;
    EXPECT_FALSE(in.GetParseMessage().empty());
}

TEST(XMLChannel, WriterRefusesUnbalancedTagsAndBadNames) {
    KL::XMLOChannel out;
    EXPECT_EQ(out.EndTag("Nothing"), KL::ErrParam);
    KL::XMLOChannel out2;
    EXPECT_EQ(out2.StartTag("bad name"), KL::ErrParam);
    EXPECT_EQ(out2.GetStatus(), KL::ErrParam);

    KL::XMLOChannel out3;
    out3.StartTag("Part");
    out3.SetAttribute("guid", "G");
    out3.WriteText("body");
    out3.EndTag("Part");
    KL::MemoryOChannel text;
    ASSERT_EQ(out3.WriteTo(text), KL::NoError);
    KL::MemoryIChannel source(text.GetData().data(), text.GetData().size());
    KL::XMLIChannel in;
    ASSERT_EQ(in.ReadFrom(source), KL::NoError);
    ASSERT_EQ(in.StartTag("Part"), KL::NoError);
    KL::UniString attribute;
    KL::UniString body;
    EXPECT_EQ(in.ReadAttribute("guid", attribute), KL::NoError);
    EXPECT_EQ(in.ReadText(body), KL::NoError);
    EXPECT_EQ(attribute, "G");
    EXPECT_EQ(body, "body");
    EXPECT_EQ(in.ReadAttribute("none", attribute), KL::ErrXMLMissing);
}

} // namespace
