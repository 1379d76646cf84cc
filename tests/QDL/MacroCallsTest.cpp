// The literal macro names a script line calls.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

namespace {

std::vector<std::string> Calls(const char* line) {
    std::vector<std::string> names;
    for (const KL::UniString& name : FindMacroCallNames(KL::UniString(line)))
        names.push_back(name.ToUTF8());
    return names;
}

TEST(MacroCalls, LiteralNamesAfterTheKeywordInAnyCase) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(Calls("CALL \"Chair Leg\" PARAMETERS A=1"), Names{"Chair Leg"});
    EXPECT_EQ(Calls("IF a THEN call 'Rail/Post' ELSE Call\t\"Sash\""), (Names{"Rail/Post", "Sash"}));
    // Not the keyword, no literal, or a literal that never ends.
    EXPECT_EQ(Calls("RECALL \"x\"  CALLS \"y\"  CALL_2 \"z\""), Names{});
    EXPECT_EQ(Calls("CALL name  CALL \"\"  CALL \"open"), Names{});
    EXPECT_EQ(Calls("CALL"), Names{});
    // A quote of the other kind belongs to the name.
    EXPECT_EQ(Calls("CALL \"it's\""), Names{"it's"});
}

} // namespace
