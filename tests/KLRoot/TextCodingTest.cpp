// Base64 and the number texts of the XML forms: what is written reads back exactly.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

TEST(Base64, RoundTripsEveryPaddingAndRefusesMalformedText) {
    const char* const expected[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE="};
    const std::string binary("\xFF\x00\x80\x7F\xFE", 5);
    for (std::size_t size = 0; size <= 5; ++size) {
        EXPECT_EQ(KL::Base64Encode("fooba", size), expected[size]);
        std::vector<char> decoded = {'s', 't', 'a', 'l', 'e'};
        ASSERT_TRUE(KL::Base64Decode(expected[size], &decoded)) << size;
        EXPECT_EQ(std::string(decoded.begin(), decoded.end()), std::string("fooba", size));
        ASSERT_TRUE(KL::Base64Decode(KL::Base64Encode(binary.data(), size), &decoded));
        EXPECT_EQ(std::string(decoded.begin(), decoded.end()), binary.substr(0, size));
    }
    EXPECT_EQ(KL::Base64Encode("\xFB\xFF", 2), "+/8=");
    std::vector<char> bytes;
    for (const char* bad :
         {"Zg=", "Zg", "Zm9v\n", " Zm9", "Zm9*", "Zg=a", "====", "Zg==Zm9v", "Z===", "Zm 9v"})
        EXPECT_FALSE(KL::Base64Decode(bad, &bytes)) << bad;
}

TEST(NumberText, ShortestTextReadsBackAsTheSameNumber) {
    EXPECT_EQ(KL::FormatDouble(1), "1");
    EXPECT_EQ(KL::FormatDouble(0.9), "0.9");
    EXPECT_EQ(KL::FormatDouble(-2.5), "-2.5");
    EXPECT_EQ(KL::FormatDouble(1e-07), "1e-07");
    EXPECT_EQ(KL::FormatDouble(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(KL::FormatFloat(0.1F), "0.1");
    for (const double value :
         {0.0, -0.0, 1.0 / 3, 6.02214076e23, std::numeric_limits<double>::max(),
          std::numeric_limits<double>::denorm_min(), -std::numeric_limits<double>::min()}) {
        double read = 42;
        ASSERT_TRUE(KL::ParseDouble(KL::FormatDouble(value), &read)) << value;
        EXPECT_EQ(read, value);
        EXPECT_EQ(std::signbit(read), std::signbit(value));
    }
    float single = 0;
    ASSERT_TRUE(KL::ParseFloat(KL::FormatFloat(0.3F), &single));
    EXPECT_EQ(single, 0.3F);

    double number = 0;
    EXPECT_TRUE(KL::ParseDouble("1e3", &number));
    EXPECT_EQ(number, 1000);
    for (const char* bad : {"", " 1", "1 ", "+1", "1x", "0x10", ","})
        EXPECT_FALSE(KL::ParseDouble(bad, &number)) << bad;
    std::uint32_t count = 0;
    EXPECT_TRUE(KL::ParseUInt32("4294967295", &count));
    EXPECT_EQ(count, 4294967295u);
    EXPECT_FALSE(KL::ParseUInt32("4294967296", &count));
    EXPECT_FALSE(KL::ParseUInt32("-1", &count));
    std::int32_t whole = 0;
    EXPECT_TRUE(KL::ParseInt32("-2147483648", &whole));
    EXPECT_EQ(whole, std::numeric_limits<std::int32_t>::min());
    EXPECT_FALSE(KL::ParseInt32("2.5", &whole));
}

} // namespace
