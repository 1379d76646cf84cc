// The product's version file: every key, the tolerated variations, and where reading stops.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

using testsupport::ScratchFolder;

constexpr KL::Guid Main("6F9619FF-8B86-D011-B42D-00C04FC964FF");
constexpr KL::Guid Old("0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9");
constexpr KL::Guid First("11111111-2222-3333-4444-555555555555");
constexpr KL::Guid Second("AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE");

SU::ProductVersionInfo ReadText(const ScratchFolder& scratch, const std::string& content) {
    scratch.Write("Version.txt", content);
    return SU::ProductVersionInfo(scratch.Location("Version.txt"));
}

TEST(ProductVersionInfo, ReadsEveryKeyAndAppendsToLists) {
    ScratchFolder scratch;
    const SU::ProductVersionInfo info =
        ReadText(scratch, "KLVersionFile 1\n"
                          "Name = Fenêtres = 2024 \n"
                          "Guid = {6f9619ff-8b86-d011-b42d-00c04fc964ff}\n"
                          "Language\t=\tGER\n"
                          "Version = 7\n"
                          "Version = -12\n"
                          "CollapseLongBranches = true\n"
                          "UpdatesLibrary = Old Library\n"
                          "UpdatesGuid = 0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9\n"
                          "NeedsLibrary = Base\n"
                          "NeedsLibrary = Extras\n"
                          "NeedsGuid = 11111111-2222-3333-4444-555555555555\n"
                          "NeedsGuid = AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE\n"
                          "SupersedesLibrary = Legacy\n"
                          "SupersedesGuid = {AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE}");
    EXPECT_EQ(info.GetStatus(), KL::NoError);
    EXPECT_EQ(info.GetErrorLine(), 0);
    EXPECT_EQ(info.GetName(), "Fenêtres = 2024");
    EXPECT_EQ(info.GetGuid(), Main);
    EXPECT_EQ(info.GetKLLanguageCode(), "GER");
    EXPECT_EQ(info.GetVersionNum1(), -12) << "the last of a single-valued key wins";
    EXPECT_TRUE(info.GetCollapseLongBranches());
    EXPECT_EQ(info.GetUpdatesLibrary(), "Old Library");
    EXPECT_EQ(info.GetUpdatesGuid(), Old);
    EXPECT_EQ(info.GetNeedsLibrary(), (KL::Array<KL::UniString>{"Base", "Extras"}));
    EXPECT_EQ(info.GetNeedsGuid(), (KL::Array<KL::Guid>{First, Second}));
    EXPECT_EQ(info.GetSupersedesLibrary(), (KL::Array<KL::UniString>{"Legacy"}));
    EXPECT_EQ(info.GetSupersedesGuid(), (KL::Array<KL::Guid>{Second}));
    EXPECT_EQ(SU::ProductVersionInfo::GetPreferencesPostfix(), "R1");
}

TEST(ProductVersionInfo, ToleratesBomCrlfCommentsAndUnknownKeys) {
    ScratchFolder scratch;
    const SU::ProductVersionInfo info = ReadText(scratch, "\xEF\xBB\xBF\r\n"
                                                          "KLVersionFile 1\r\n"
                                                          "# Name = Commented\r\n"
                                                          "   \t# indented comment\r\n"
                                                          "\r\n"
                                                          "Name = Doors\r\n"
                                                          "FutureKey = {not a guid}\r\n"
                                                          "name = lower case is another key\r\n"
                                                          "CollapseLongBranches = false\r\n"
                                                          "Version = 2147483647\r\n");
    EXPECT_EQ(info.GetStatus(), KL::NoError);
    EXPECT_EQ(info.GetErrorLine(), 0);
    EXPECT_EQ(info.GetName(), "Doors");
    EXPECT_FALSE(info.GetCollapseLongBranches());
    EXPECT_EQ(info.GetVersionNum1(), 2147483647);
}

TEST(ProductVersionInfo, StopsAtTheFirstMalformedLineAndKeepsWhatCameBefore) {
    ScratchFolder scratch;
    const std::string head = "KLVersionFile 1\nName = Kept\nVersion = 5\nNeedsLibrary = Base\n";
    for (const char* bad :
         {"Guid = 6F9619FF-8B86-D011-B42D", "NeedsGuid = {zz9619FF-8B86-D011-B42D-00C04FC964FF}",
          "UpdatesGuid =", "Version = 12a", "Version = 2147483648", "Version = 0x10",
          "Version = ", "CollapseLongBranches = True", "CollapseLongBranches = 1", "Name Without Equals",
          "= value without key", "Name = bad \xC3\x28 byte", "# overlong \xC0\xAF in a comment"}) {
        const SU::ProductVersionInfo info =
            ReadText(scratch, head + "\n" + bad + "\nName = Too late\nNeedsLibrary = Too late\n");
        EXPECT_EQ(info.GetStatus(), SU::VersionFileFormatError) << bad;
        EXPECT_EQ(info.GetErrorLine(), 6) << bad;
        EXPECT_EQ(info.GetName(), "Kept") << bad;
        EXPECT_EQ(info.GetVersionNum1(), 5) << bad;
        EXPECT_TRUE(info.GetGuid().IsNull()) << bad;
        EXPECT_TRUE(info.GetNeedsGuid().IsEmpty()) << bad;
        EXPECT_FALSE(info.GetCollapseLongBranches()) << bad;
        EXPECT_EQ(info.GetNeedsLibrary(), (KL::Array<KL::UniString>{"Base"})) << bad;
    }
}

TEST(ProductVersionInfo, RequiresTheSignatureFirst) {
    ScratchFolder scratch;
    const struct {
        const char* content;
        int line;
    } cases[] = {
        {"Name = No signature\n", 1},
        {"\n  \nKLVersionFile 2\nName = Newer format\n", 3},
        {"# comment\nKLVersionFile 1\n", 1},
        {"klversionfile 1\n", 1},
        {"KLVersionFile 1 extra\n", 1},
        {"", 1},
        {"\xEF\xBB\xBF\n\n", 3},
    };
    for (const auto& [content, line] : cases) {
        const SU::ProductVersionInfo info = ReadText(scratch, content);
        EXPECT_EQ(info.GetStatus(), SU::VersionFileFormatError) << content;
        EXPECT_EQ(info.GetErrorLine(), line) << content;
        EXPECT_TRUE(info.GetName().IsEmpty()) << content;
    }
    // A blank line may come before the signature.
    EXPECT_EQ(ReadText(scratch, "\n \t\nKLVersionFile 1").GetStatus(), KL::NoError);
}

TEST(ProductVersionInfo, FilesThatCannotBeReadGiveTheFileLayersStatus) {
    ScratchFolder scratch;
    const SU::ProductVersionInfo missing(scratch.Location("Missing.txt"));
    EXPECT_EQ(missing.GetStatus(), IO::NotFoundError);
    EXPECT_EQ(missing.GetErrorLine(), 0);
    EXPECT_TRUE(missing.GetName().IsEmpty());

    scratch.Write("Folder/inside", "");
    EXPECT_NE(SU::ProductVersionInfo(scratch.Location("Folder")).GetStatus(), KL::NoError);

    std::string large = "KLVersionFile 1\n";
    large.append(1024 * 1024, '#');
    const SU::ProductVersionInfo tooLarge = ReadText(scratch, large);
    EXPECT_EQ(tooLarge.GetStatus(), SU::VersionFileFormatError);
    EXPECT_EQ(tooLarge.GetErrorLine(), 0);
}

TEST(ProductVersionInfo, ASignatureAloneGivesTheDefaults) {
    ScratchFolder scratch;
    const SU::ProductVersionInfo info = ReadText(scratch, "KLVersionFile 1\n");
    EXPECT_EQ(info.GetStatus(), KL::NoError);
    EXPECT_TRUE(info.GetName().IsEmpty());
    EXPECT_TRUE(info.GetGuid().IsNull());
    EXPECT_TRUE(info.GetKLLanguageCode().IsEmpty());
    EXPECT_EQ(info.GetVersionNum1(), 0);
    EXPECT_FALSE(info.GetCollapseLongBranches());
    EXPECT_TRUE(info.GetUpdatesLibrary().IsEmpty());
    EXPECT_TRUE(info.GetUpdatesGuid().IsNull());
    EXPECT_TRUE(info.GetNeedsLibrary().IsEmpty());
    EXPECT_TRUE(info.GetNeedsGuid().IsEmpty());
    EXPECT_TRUE(info.GetSupersedesLibrary().IsEmpty());
    EXPECT_TRUE(info.GetSupersedesGuid().IsEmpty());
}

} // namespace
