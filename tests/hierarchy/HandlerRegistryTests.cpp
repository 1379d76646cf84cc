// The host's registry of part types it handles, on the sample library's type tree.
#include "support/Catalogue.hpp"

#include <gtest/gtest.h>

namespace {

using testsupport::CatalogueTest;

class HandlerRegistry : public CatalogueTest {
protected:
    HandlerRegistry() {
        EXPECT_EQ(AddSampleLibrary(), 0);
        EXPECT_EQ(Set().Enumerate(process), 0);
    }

    const LM::LibPart* Part(const char* name) { return Set().SearchLibPartDocuName(KL::UniString(name)); }
    KL::UnID Id(const char* name) { return Part(name)->GetOwnUnID(); }

    std::string Nearest(const char* name) {
        KL::UnID id;
        LibPartHandlerRegistry::Visibility visibility = LibPartHandlerRegistry::Blocking;
        if (registry.GetImmediateRegisteredAncestor(Part(name), &id, &visibility) != 0)
            return "";
        return Set().SearchSymbolByUnID(id, nullptr)->GetDocumentName().ToUTF8() +
               (visibility == LibPartHandlerRegistry::Blocking ? " (blocking)" : "");
    }

    int Folder(const std::string& relative) {
        const IO::Location wanted(std::string(LM_SAMPLE_LIBRARY_DIR) + "/" + relative);
        for (int i = LM::FolderSet::FirstLibraryFolder; i < Set().GetFolderNumber(); ++i) {
            IO::Location location;
            Set().GetFolderSet()->GetLocation(i, &location);
            if (location == wanted)
                return i;
        }
        return -1;
    }

    LibPartHandlerRegistry registry{&Set()};
    LibPartHandlerRegistry::Modifier modifier{&registry};
};

TEST_F(HandlerRegistry, TheNearestRegisteredTypeAnswersAndABlockingTypeHidesWhatIsAbove) {
    ASSERT_EQ(modifier.Register(Id("Furniture"), LibPartHandlerRegistry::Transparent), 0);
    ASSERT_EQ(modifier.Register(Id("Chair"), LibPartHandlerRegistry::Blocking), 0);
    // Registered again: one entry, and the first visibility.
    ASSERT_EQ(modifier.Register(Id("Chair"), LibPartHandlerRegistry::Transparent), 0);
    EXPECT_EQ(registry.SearchByUnID(Id("Chair")), 1U);
    EXPECT_TRUE(registry.IsBlockingRegisteredAncestor(1));

    EXPECT_EQ(Nearest("Dining Chair"), "Chair (blocking)");
    EXPECT_EQ(Nearest("Round Table"), "Furniture");
    EXPECT_EQ(Nearest("Chair"), "Chair (blocking)");
    EXPECT_EQ(Nearest("Casement Window"), "");
    // The chair is furniture, but its blocking type keeps Furniture out of sight.
    EXPECT_TRUE(Set().IsSymbolTypeOf(Part("Dining Chair"), Id("Furniture")));
    EXPECT_FALSE(registry.IsRegisteredAncestor(Part("Dining Chair"), Id("Furniture")));
    EXPECT_TRUE(registry.IsRegisteredAncestor(Part("Dining Chair"), Id("Chair")));
    EXPECT_TRUE(registry.IsRegisteredAncestor(Part("Round Table"), Id("Furniture")));
    EXPECT_TRUE(registry.IsSymbolTypeOf_InSameClass(Part("Dining Chair"), Part("Chair")));
    EXPECT_FALSE(registry.IsSymbolTypeOf_InSameClass(Part("Dining Chair"), Part("Furniture")));
    // A part outside the catalogue, known by its ancestry alone.
    LM::AncestryInfo chain;
    chain.Append(Id("General Object"));
    chain.Append(Id("Furniture"));
    chain.Append(Id("Chair"));
    EXPECT_TRUE(registry.IsSymbolTypeOf_InSameClass(KL::UnID(), chain, Id("Chair")));

    // A registration change reaches the cached answers: through the chair, furniture is in sight.
    ASSERT_EQ(modifier.UnRegister(Id("Chair")), 0);
    EXPECT_EQ(modifier.UnRegister(Id("Chair")), LM::LibPartFileError);
    EXPECT_EQ(Nearest("Dining Chair"), "Furniture");
    ASSERT_EQ(modifier.Register(Id("Chair"), LibPartHandlerRegistry::Transparent), 0);
    EXPECT_EQ(Nearest("Dining Chair"), "Chair");
    EXPECT_TRUE(registry.IsRegisteredAncestor(Part("Dining Chair"), Id("Furniture")));

    KL::MemoryOChannel printed;
    registry.Print(printed);
    const std::vector<char>& bytes = printed.GetData();
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_NE(text.find("\n\nThe registered UnIds of the LibPartHandlerRegistry:\n"), std::string::npos)
        << text;
    EXPECT_NE(text.find(LM::Paths::IdText(Id("Chair")) + "    Chair\n"), std::string::npos) << text;
    EXPECT_NE(text.find("* = Not accessed yet.\n\n"), std::string::npos) << text;
}

TEST_F(HandlerRegistry, FoldersKnowTheRegisteredSubtypesInThemAcrossEnumerations) {
    ASSERT_EQ(modifier.Register(Id("Chair"), LibPartHandlerRegistry::Transparent), 0);
    ASSERT_EQ(modifier.RefreshFolderCache(nullptr), 0);
    const auto check = [&] {
        const KL::UnID chair = Id("Chair");
        EXPECT_TRUE(registry.IsLibraryManagerFolderContainsRegisteredSubType(
            Folder("Objects/Furniture/Chairs"), chair, true));
        EXPECT_FALSE(registry.IsLibraryManagerFolderContainsRegisteredSubType(Folder("Objects/Furniture"),
                                                                              chair, true));
        EXPECT_TRUE(registry.IsLibraryManagerFolderContainsRegisteredSubType(Folder("Objects/Furniture"),
                                                                             chair, false));
        EXPECT_TRUE(
            registry.IsLibraryManagerFolderContainsRegisteredSubType(Folder("Objects"), chair, false));
        EXPECT_FALSE(
            registry.IsLibraryManagerFolderContainsRegisteredSubType(Folder("Openings"), chair, false));
        // The obsolete chair in its own folder counts for nothing: it is no placeable current part.
        EXPECT_FALSE(registry.IsLibraryManagerFolderContainsRegisteredSubType(
            Folder("Objects/Furniture/Chairs/Obsolete"), chair, true));
        EXPECT_FALSE(registry.IsLibraryManagerFolderContainsRegisteredSubType(Folder("Objects"),
                                                                              Id("Furniture"), false));
        EXPECT_EQ(Nearest("Bar Stool"), "Chair");
    };
    check();
    // A new catalogue: the host refreshes, and the answers hold for the new records.
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(modifier.RefreshCache(), 0);
    ASSERT_EQ(modifier.RefreshFolderCache(nullptr), 0);
    check();
    modifier.Clear();
    EXPECT_FALSE(registry.IsLibraryManagerFolderContainsRegisteredSubType(Folder("Objects/Furniture/Chairs"),
                                                                          Id("Chair"), true));
    EXPECT_EQ(Nearest("Bar Stool"), "");
}

} // namespace
