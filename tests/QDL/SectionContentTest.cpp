// The streamed section contents: migration table, 2D drawing and called macros, in their streams
// and in XML, and refused when hostile.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr KL::Guid First("5C1E0A10-2B3C-4D5E-8F60-718293A4B5C6");
constexpr KL::Guid Second("0B94D6E2-3A7C-4F15-8D2E-6C1A9F5B3E08");
// Behind a frame's class guid, version and length.
constexpr std::size_t CountOffset = 24;

template <typename Content>
std::vector<char> Streamed(const Content& content) {
    KL::MemoryOChannel out;
    EXPECT_EQ(content.Write(out), KL::NoError);
    return out.TakeData();
}

std::vector<char> With32(std::vector<char> bytes, std::size_t at, std::uint32_t value) {
    KL::StoreInOrder(bytes.data() + at, value, KL::LittleEndianSign);
    return bytes;
}

// Every strict prefix of a stream fails, and leaves the object as it was.
template <typename Content>
void ExpectEveryTruncationRefused(const std::vector<char>& bytes, const Content& before) {
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        Content content = before;
        KL::MemoryIChannel in(bytes.data(), length);
        EXPECT_NE(content.Read(in), KL::NoError) << length;
        EXPECT_TRUE(content == before) << length;
    }
}

TEST(MigrationTable, KeepsOneValuePerGuidInAddingOrderThroughItsStream) {
    MigrationTable table;
    table.Add(First, {3, true});
    table.Add(Second, {1, false});
    table.Add(First, {5, false});
    ASSERT_EQ(table.GetCount(), 2u);
    EXPECT_EQ(table.BeginPairs()->first, First);
    EXPECT_EQ(*table.Find(First), (MigrationTable::Value{5, false}));
    EXPECT_EQ(table.Find(KL::Guid::Generate()), nullptr);

    const std::vector<char> bytes = Streamed(table);
    MigrationTable read;
    KL::MemoryIChannel in(bytes.data(), bytes.size());
    ASSERT_EQ(read.Read(in), KL::NoError);
    EXPECT_EQ(read, table);

    MigrationTable kept;
    kept.Add(Second, {7, true});
    KL::MemoryIChannel hostile(With32(bytes, CountOffset, 0xFFFFFFFF));
    EXPECT_EQ(kept.Read(hostile), KL::ErrStreamFormat);
    EXPECT_EQ(kept.GetCount(), 1u);
    ExpectEveryTruncationRefused(bytes, kept);
}

TEST(VectorImage, PrimitivesComeBackFromStreamAndXML) {
    VectorImage image;
    EXPECT_TRUE(image.IsEmpty());
    EXPECT_TRUE(image.GetBounds().empty);
    EXPECT_TRUE(image.Add({VectorImage::Hotspot, 1, 0, {-1, 0.5}, {}}));
    EXPECT_TRUE(image.Add({VectorImage::Line, 2, 0, {0, 0, 1, 0}, {}}));
    EXPECT_TRUE(image.Add({VectorImage::Arc, 1, 0, {3, 3, -0.5, 0, 3.14159}, {}}));
    EXPECT_TRUE(image.Add({VectorImage::Polygon, 1, 3, {0, 0, 1, 0, 1, 1}, {}}));
    EXPECT_TRUE(image.Add({VectorImage::Text, 4, 0, {0.5, -2, 2.5}, KL::UniString("Seat <1> & ü")}));
    EXPECT_FALSE(image.Add({VectorImage::Line, 1, 0, {0, 0, 1}, {}}));
    EXPECT_FALSE(image.Add({VectorImage::Polygon, 1, 0, {0, 0, 1, 0, 1}, {}}));
    EXPECT_FALSE(image.Add({VectorImage::Polygon, 1, 0, {0, 0}, {}}));
    EXPECT_FALSE(image.Add({VectorImage::Hotspot, 1, 0, {0, 0}, KL::UniString("text")}));
    EXPECT_FALSE(image.Add({static_cast<VectorImage::Kind>(9), 1, 0, {0, 0}, {}}));
    ASSERT_EQ(image.GetPrimitives().size(), 5u);
    const VectorImage::Box box = image.GetBounds();
    EXPECT_FALSE(box.empty);
    EXPECT_EQ(box.minX, -1);
    EXPECT_EQ(box.minY, -2);
    EXPECT_EQ(box.maxX, 3.5) << "an arc counts as its full circle";
    EXPECT_EQ(box.maxY, 3.5);

    const std::vector<char> bytes = Streamed(image);
    VectorImage read;
    KL::MemoryIChannel in(bytes.data(), bytes.size());
    ASSERT_EQ(read.Read(in), KL::NoError);
    EXPECT_EQ(read, image);

    KL::XMLOChannel xml;
    ASSERT_EQ(image.WriteXML(xml), KL::NoError);
    const std::string text = xml.ToString();
    EXPECT_EQ(text.find("size="), std::string::npos) << "the default text size is left out";
    KL::XMLIChannel xmlIn;
    ASSERT_EQ(xmlIn.Parse(text), KL::NoError);
    VectorImage fromXML;
    ASSERT_EQ(fromXML.ReadXML(xmlIn), KL::NoError) << fromXML.GetXMLMessage();
    EXPECT_EQ(fromXML, image);

    const auto xmlMessage = [](const std::string& document) {
        KL::XMLIChannel channel;
        EXPECT_EQ(channel.Parse(document), KL::NoError);
        VectorImage target;
        EXPECT_EQ(target.ReadXML(channel), KL::ErrXMLFormat) << document;
        return target.GetXMLMessage();
    };
    EXPECT_NE(xmlMessage("<Drawing2D><Circle/></Drawing2D>").find("Circle"), std::string::npos);
    EXPECT_NE(xmlMessage("<Drawing2D><Line x1=\"0\" y1=\"0\" x2=\"a\" y2=\"0\"/></Drawing2D>").find("x2"),
              std::string::npos);
    EXPECT_NE(
        xmlMessage("<Drawing2D><Polygon><Point x=\"0\" y=\"0\"/></Polygon></Drawing2D>").find("Polygon"),
        std::string::npos);
    EXPECT_NE(xmlMessage("<Drawing2D><Hotspot x=\"0\" y=\"0\" pen=\"red\"/></Drawing2D>").find("pen"),
              std::string::npos);

    KL::MemoryIChannel hugeCount(With32(bytes, CountOffset, 0xFFFFFFFF));
    EXPECT_EQ(read.Read(hugeCount), KL::ErrStreamFormat);
    std::vector<char> unknownKind = bytes;
    unknownKind[CountOffset + 4] = 9;
    KL::MemoryIChannel unknown(unknownKind);
    EXPECT_EQ(read.Read(unknown), KL::ErrStreamFormat);
    KL::MemoryIChannel hugeNumbers(With32(bytes, CountOffset + 9, 0x7FFFFFFF));
    EXPECT_EQ(read.Read(hugeNumbers), KL::ErrStreamFormat);
    EXPECT_EQ(read, image);
    ExpectEveryTruncationRefused(bytes, image);
}

TEST(CalledMacroList, NamesAndIdsComeBackButNotTheResolvedPart) {
    KL::Array<SyCalledMacroItem> items;
    items.PushNew().name = KL::UniString("Chair Leg");
    items[0].unId = KL::UnID(First, Second);
    items[0].libPart = reinterpret_cast<const LM::LibPart*>(&items);
    items.PushNew().name = KL::UniString("Rückenlehne");
    KL::MemoryOChannel out;
    ASSERT_EQ(WriteCalledMacroList(out, items), KL::NoError);
    const std::vector<char> bytes = out.TakeData();

    KL::Array<SyCalledMacroItem> read;
    KL::MemoryIChannel in(bytes.data(), bytes.size());
    ASSERT_EQ(ReadCalledMacroList(in, &read), KL::NoError);
    ASSERT_EQ(read.GetSize(), 2u);
    EXPECT_EQ(read[0].name, items[0].name);
    EXPECT_EQ(read[0].unId, items[0].unId);
    EXPECT_EQ(read[0].libPart, nullptr);
    EXPECT_EQ(read[1].name, items[1].name);
    EXPECT_TRUE(read[1].unId.IsNull());

    KL::MemoryIChannel hostile(With32(bytes, CountOffset, 0xFFFFFFFF));
    EXPECT_EQ(ReadCalledMacroList(hostile, &read), KL::ErrStreamFormat);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        KL::MemoryIChannel cut(bytes.data(), length);
        EXPECT_NE(ReadCalledMacroList(cut, &read), KL::NoError) << length;
    }
}

} // namespace
