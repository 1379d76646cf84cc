// Library version files: where the finder looks, which file wins, and what an enumeration takes
// from it into the library's item.
#include "support/Catalogue.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

using testsupport::CatalogueTest;
using testsupport::ScratchFolder;

const std::string Superseding = "KLVersionFile 1\n"
                                "Guid = 11111111-2222-3333-4444-555555555555\n"
                                "Version = 7\n"
                                "CollapseLongBranches = true\n"
                                "SupersedesLibrary = Old One\n"
                                "SupersedesGuid = AAAAAAAA-0000-0000-0000-000000000001\n"
                                "SupersedesLibrary = Old Two\n"
                                "SupersedesGuid = AAAAAAAA-0000-0000-0000-000000000002\n";

TEST(VersionFileFinder, LooksToItsDepthAndTakesTheFirstRealFile) {
    ScratchFolder scratch;
    scratch.Write("Lib/._Lib.version", "not a version file");
    scratch.Write("Lib/Deeper/Inner.version",
                  "KLVersionFile 1\nVersion = 2\nUpdatesGuid = AAAAAAAA-0000-0000-0000-000000000009\n");
    scratch.Write("Lib/Deeper/Deepest/Far.version", "KLVersionFile 1\nVersion = 3\n");
    scratch.Write("Lib/Caps.VERSION", "KLVersionFile 1\nVersion = 4\n");

    EXPECT_FALSE(LM::VersionFileFinder(scratch.Location("Lib"), 1).Do());
    LM::VersionFileFinder two(scratch.Location("Lib"), 2);
    ASSERT_TRUE(two.Do());
    EXPECT_EQ(two.GetVersion(), 2);
    EXPECT_EQ(two.GetLibraryVersionInformation().name, KL::UniString("Inner"));
    EXPECT_TRUE(two.IsMigrationLibrary()); // an update by guid alone
    // No limit reaches every level; the first file found wins, depth first in name order, so the
    // subfolder "Deepest" comes before the file beside it.
    LM::VersionFileFinder all(scratch.Location("Lib"), 0);
    ASSERT_TRUE(all.Do());
    EXPECT_EQ(all.GetVersion(), 3);

    scratch.Write("Lib/Lib.version", Superseding);
    LM::VersionFileFinder top(scratch.Location("Lib"), 1);
    ASSERT_TRUE(top.Do());
    EXPECT_EQ(top.GetVersion(), 7);
    EXPECT_TRUE(top.GetCollapseLongBranches());
    EXPECT_EQ(top.GetSupersedesLibraries().GetSize(), 2U);
    EXPECT_FALSE(top.IsMigrationLibrary());
    EXPECT_FALSE(LM::VersionFileFinder(scratch.Location("Nowhere"), 1).Do());
}

class VersionFileEnumeration : public CatalogueTest {};

TEST_F(VersionFileEnumeration, TheLibraryItemTakesCollapseAndSupersedes) {
    scratch.Write("Lib/Lib.version", Superseding);
    scratch.Write("Uneven/Uneven.version", "KLVersionFile 1\nSupersedesLibrary = A\nSupersedesLibrary = B\n"
                                           "SupersedesGuid = AAAAAAAA-0000-0000-0000-000000000001\n");
    scratch.Write("Plain/readme.txt", "no version file");
    AddLibrary("Lib");
    AddLibrary("Uneven");
    AddLibrary("Plain");
    ASSERT_EQ(Set().Enumerate(process), 0);
    bool collapse = false;
    EXPECT_EQ(Set().GetActiveLibraryCollapseLongBranches(0, &collapse), 0);
    EXPECT_TRUE(collapse);
    KL::Array<KL::UniString> names;
    KL::Array<KL::Guid> guids;
    EXPECT_EQ(Set().GetActiveLibrarySupersedes(0, &names, &guids), 0);
    ASSERT_EQ(names.GetSize(), 2U);
    EXPECT_EQ(names[1], KL::UniString("Old Two"));
    EXPECT_EQ(guids[1], KL::Guid("AAAAAAAA-0000-0000-0000-000000000002"));
    // Lists of different lengths are dropped whole; no file leaves the flag off.
    names.Clear();
    EXPECT_EQ(Set().GetActiveLibrarySupersedes(1, &names, &guids), 0);
    EXPECT_TRUE(names.IsEmpty());
    EXPECT_EQ(Set().GetActiveLibraryCollapseLongBranches(2, &collapse), 0);
    EXPECT_FALSE(collapse);
}

} // namespace
