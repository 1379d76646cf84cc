// The two reports on the catalogue: chosen parts as XML, and the diagnosis dump.
#include "support/Catalogue.hpp"

#include <gtest/gtest.h>

namespace {

using testsupport::CatalogueTest;

class Reports : public CatalogueTest {
protected:
    // The file names of the parts in the report, in report order.
    std::vector<std::string> Reported(const LM::LibrarySet::WriteToXMLParameters& parameters) {
        KL::XMLOChannel xml;
        Set().WriteToXML(xml, 7, parameters);
        const std::string text = xml.ToString();
        EXPECT_NE(text.find("LibParts"), std::string::npos) << text;
        std::vector<std::string> files;
        for (std::size_t at = text.find("<Location>"); at != std::string::npos;
             at = text.find("<Location>", at + 1)) {
            const std::size_t end = text.find("</Location>", at);
            const std::string path = text.substr(at + 10, end - at - 10);
            files.push_back(path.substr(path.rfind('/') + 1));
        }
        return files;
    }

    KL::UnID Id(const char* name) { return Set().SearchLibPartDocuName(KL::UniString(name))->GetOwnUnID(); }

    std::string Dump() {
        KL::MemoryOChannel text;
        Set().PrintTypeHierarchy(text);
        const std::vector<char>& bytes = text.GetData();
        return std::string(bytes.begin(), bytes.end());
    }
};

TEST_F(Reports, TheXMLReportWritesTheChosenPartsInNameOrder) {
    ASSERT_EQ(AddSampleLibrary(), 0);
    ASSERT_EQ(Set().Enumerate(process), 0);
    using Files = std::vector<std::string>;
    LM::LibrarySet::WriteToXMLParameters parameters;
    EXPECT_EQ(Reported(parameters), Files{});

    // A type and everything of it, the type itself too.
    parameters.typeIds.Push(Id("Chair"));
    EXPECT_EQ(Reported(parameters), (Files{"Bar Stool.klm", "Chair.klm", "Dining Chair.klm",
                                           "Office Chair (old).klm", "Office Chair 2.klm"}));
    parameters.placeableOnly = true;
    parameters.excludedFolders.Push(
        IO::Location(std::string(LM_SAMPLE_LIBRARY_DIR) + "/Objects/Furniture/Chairs/Obsolete"));
    EXPECT_EQ(Reported(parameters), (Files{"Bar Stool.klm", "Dining Chair.klm", "Office Chair 2.klm"}));

    // Direct children only; a part of two named types comes twice.
    LM::LibrarySet::WriteToXMLParameters direct;
    direct.includeSubTypes = false;
    direct.typeIds.Push(Id("Furniture"));
    direct.typeIds.Push(Id("Table"));
    EXPECT_EQ(Reported(direct), (Files{"Bookshelf.klm", "Chair.klm", "Lamp.klm", "Lamp.klm", "Table.klm",
                                       "Wardrobe.klm", "Coffee Table.klm", "Desk.klm", "Round Table.klm"}));
    // The root of the tree has no parent: it is no direct child of anything.
    LM::LibrarySet::WriteToXMLParameters root;
    root.includeSubTypes = false;
    root.typeIds.Push(Id("General Object"));
    const Files children = Reported(root);
    EXPECT_EQ(std::count(children.begin(), children.end(), "General Object.klm"), 0);
}

TEST_F(Reports, TheDumpSaysWhatTheCatalogueHoldsAndNothingAfterCleanUp) {
    const std::string empty = Dump();
    EXPECT_NE(empty.find("LibraryManager enumeration status : false\n"), std::string::npos) << empty;
    EXPECT_NE(empty.find("symbolCount: 0\n"), std::string::npos) << empty;

    ASSERT_EQ(AddSampleLibrary(), 0);
    ASSERT_EQ(Set().Enumerate(process), 0);
    const std::string full = Dump();
    EXPECT_EQ(full.rfind("LibPart type hierarchy in the Library Manager:\n", 0), 0U);
    EXPECT_NE(
        full.find("LibraryManager enumeration status : true\nActiveLibCount: 1\nlibrary\nsymbolCount: "),
        std::string::npos)
        << full;
    const std::size_t first = full.find("\n0 : ");
    ASSERT_NE(first, std::string::npos) << full;
    const std::string line = full.substr(first + 1, full.find('\n', first + 1) - first - 1);
    EXPECT_NE(line.find(" (" + std::string(LM_SAMPLE_LIBRARY_DIR) + "/"), std::string::npos) << line;
    EXPECT_NE(line.find("), isValid: true, modTime: "), std::string::npos) << line;

    Set().CleanUp();
    EXPECT_EQ(Dump(), "");
}

} // namespace
