#include <LibraryManager.hpp>

#include <gtest/gtest.h>

namespace {

TEST(BinFileTypes, LinesFieldsAndCodes) {
    // Runs of tabs separate fields, blank lines vanish, and a last line needs no line end.
    auto lines = LM::ParseBinFileTypes("\t\tSketch\t\tskp;skb\tABCD\tWXYZ\n\n\r\nPlan\tpln\tPLNA\tPLNT");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].name, "Sketch");
    EXPECT_EQ(lines[0].extensions, "skp;skb");
    EXPECT_EQ(lines[0].creator, 0x44434241U);
    EXPECT_EQ(lines[0].type, 0x5A595857U);
    EXPECT_EQ(lines[1].name, "Plan");

    // A line with three fields is skipped; the next is still read. Short codes are zero-filled.
    lines = LM::ParseBinFileTypes("Only\tthree\tfields\nShort\tsh\tAB\tC\r");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].name, "Short");
    EXPECT_EQ(lines[0].creator, 0x4241U);
    EXPECT_EQ(lines[0].type, 0x43U);

    // A line of 300 bytes is cut after 255; its remainder is read as the next line.
    const std::string tail = "Tail\tt\tTTTT\tUUUU";
    const std::string head = "Head\tx\t" + std::string(248, 'y');
    ASSERT_EQ(head.size(), 255U);
    lines = LM::ParseBinFileTypes(head + tail + std::string(45 - tail.size(), '\t'));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].name, "Tail");
    EXPECT_EQ(lines[0].type, 0x55555555U);
    const std::string full = std::string(249, 'n') + "\tx\tA\tB";
    ASSERT_EQ(full.size(), 255U);
    lines = LM::ParseBinFileTypes(full + tail);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].name.size(), 249U);
    EXPECT_EQ(lines[0].type, 0x42U);
    EXPECT_EQ(lines[1].name, "Tail");

    EXPECT_TRUE(LM::ParseBinFileTypes("").empty());
    EXPECT_TRUE(LM::ParseBinFileTypes("\n\r\t\t\n").empty());
}

} // namespace
