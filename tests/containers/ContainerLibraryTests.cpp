// Libraries and containers: a library that is a container file, containers met inside a library
// folder and inside other containers, each enumerating to the catalogue of the same files as
// folders, and mounts that go when the libraries go.
#include "support/Catalogue.hpp"
#include "support/ContainerBytes.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using testsupport::CatalogueTest;
using testsupport::LcfBytes;
using testsupport::LcfNode;
using testsupport::TestId;

class ContainerLibrary : public CatalogueTest {
protected:
    ContainerLibrary() {
        SavePart("Lib/Templates/Furniture.klm", TestId(1), "Furniture", {}, true);
        SavePart("Lib/Objects/Chair.klm", TestId(2), "Chair", {TestId(1)});
        SavePart("Lib/Objects/Tables/Table.klm", TestId(3), "Table", {TestId(1)});
        SavePart("Lib/Objects/Tables/Round Table.klm", TestId(4), "Round Table", {TestId(3)});
        scratch.Write("Lib/Objects/readme.txt", "readme");
    }

    // The library's folders wrapped as its packing tool would: one "LIB" folder around them.
    std::string ContainerOfLib() {
        bool compress = false;
        LcfNode wrapper = LcfNode::FromFolder(scratch.Path() / "Lib", &compress);
        wrapper.name = "Lib.LIB";
        return LcfBytes().Build({wrapper});
    }

    // One line per part: its place below its library, its name, and its ancestry by name.
    std::vector<std::string> CatalogueBelow(const std::vector<IO::Location>& roots) {
        std::vector<std::string> lines;
        for (int i = 0; i < Set().GetLibPartNumber(); ++i) {
            const LM::LibPart* part = Set().GetLibPartByIndex(i);
            if (part->GetState() == LM::LibPartStateDeleted)
                continue;
            // Below the last of the roots that holds it.
            const std::string full = part->GetLocation().ToString();
            std::string place = full;
            for (const IO::Location& root : roots) {
                if (root.IsAncestorOf(part->GetLocation()))
                    place = full.substr(root.ToString().size() + 1);
            }
            LM::AncestryInfo ancestry;
            std::string chain;
            if (Set().GetSymbolAncestryInfo(part, &ancestry) == 0)
                for (unsigned k = 1; k <= ancestry.GetAncestorsCount(); ++k)
                    chain += " < " + ancestry.GetAncestorRef(k).mainGuid.ToString().substr(0, 8);
            lines.push_back(place + " " + part->GetDocumentName().ToUTF8() +
                            (part->IsValid() ? "" : " (dummy)") + chain);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }
};

TEST_F(ContainerLibrary, ALibraryThatIsAContainerEnumeratesLikeItsFolder) {
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    const std::vector<std::string> asFolder = CatalogueBelow({scratch.Location("Lib")});
    const int folders = Set().GetFolderNumber();
    ASSERT_EQ(asFolder.size(), 5U);

    scratch.Write("Shipped/Lib.lcf", ContainerOfLib());
    Set().ResetActiveLibraries();
    AddLibrary("Shipped/Lib.lcf");
    EXPECT_TRUE(Set().IsExistActiveLibrary(0));
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(CatalogueBelow({scratch.Location("Shipped/Lib.lcf")}), asFolder);
    EXPECT_EQ(Set().GetFolderNumber(), folders);

    // The mount goes with the library; a file that is no container is no library.
    EXPECT_TRUE(IO::fileSystem.IsMountPoint(scratch.Location("Shipped/Lib.lcf")));
    Set().ResetActiveLibraries();
    EXPECT_FALSE(IO::fileSystem.IsMountPoint(scratch.Location("Shipped/Lib.lcf")));
    scratch.Write("Shipped/fake.lcf", "not a container at all");
    AddLibrary("Shipped/fake.lcf");
    EXPECT_FALSE(Set().IsExistActiveLibrary(0));
}

TEST_F(ContainerLibrary, ContainersInsideALibraryAndInsideContainersAreWalked) {
    // The library's folders as a container inside another library, and that container once more
    // inside a container of its own.
    const std::string inner = ContainerOfLib();
    scratch.Write("Host/Packed/Lib.lcf", inner);
    scratch.Write("Host/own.txt", "own");
    scratch.Write("Host/Outer.LCF",
                  LcfBytes().Build({LcfNode::Folder(
                      "Outer", {LcfNode::File("Nested.lcf", inner), LcfNode::File("outer.txt", "outer")})}));
    AddLibrary("Host");
    ASSERT_EQ(Set().Enumerate(process), 0);
    // The walk goes by name: the outer container comes first, so the nested copies win and the
    // packed ones are their duplicates.
    const IO::Location nested = scratch.Location("Host/Outer.LCF/Outer/Nested.lcf");
    EXPECT_EQ(
        CatalogueBelow({scratch.Location("Host"), nested}),
        (std::vector<std::string>{
            "Objects/Chair.klm Chair < " + TestId(1).mainGuid.ToString().substr(0, 8),
            "Objects/Tables/Round Table.klm Round Table < " + TestId(3).mainGuid.ToString().substr(0, 8),
            "Objects/Tables/Table.klm Table < " + TestId(1).mainGuid.ToString().substr(0, 8),
            "Objects/readme.txt readme", "Outer.LCF/Outer/outer.txt outer",
            "Templates/Furniture.klm Furniture", "own.txt own"}));
    // Reports come in the walk order of their winners, wherever the records were allocated.
    std::vector<std::string> reported;
    for (const LM::DuplicateReport& report : Reports().GetIdDuplicates())
        reported.push_back(report.name.ToUTF8());
    EXPECT_EQ(reported, (std::vector<std::string>{"Chair", "Round Table", "Table", "Furniture"}));
    EXPECT_EQ(Reports().GetNameDuplicates().GetSize(), 1U);
    EXPECT_TRUE(IO::fileSystem.IsMountPoint(nested));
    const LM::LibPart* chair = Set().GetLibPart(LM::LibPartId(TestId(2), KL::UniString()));
    ASSERT_NE(chair, nullptr);
    EXPECT_TRUE(nested.IsAncestorOf(chair->GetLocation()));
    // A part inside a container opens like any other.
    const LPF::SymbolFile* file = Set().GetSymbolFile(LM::LibPartId(TestId(3), KL::UniString()));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->GetStatus(), 0);

    Set().ResetActiveLibraries();
    EXPECT_FALSE(IO::fileSystem.IsMountPoint(nested));
    EXPECT_FALSE(IO::fileSystem.IsMountPoint(scratch.Location("Host/Outer.LCF")));

    // A container that is cut short is passed over; the rest of the library stands.
    scratch.Write("Host/Outer.LCF", scratch.Read("Host/Outer.LCF").substr(0, 200));
    AddLibrary("Host");
    ASSERT_EQ(Set().Enumerate(process), 0);
    EXPECT_FALSE(IO::fileSystem.IsMountPoint(scratch.Location("Host/Outer.LCF")));
    ASSERT_NE(Set().GetLibPart(LM::LibPartId(TestId(2), KL::UniString())), nullptr);
    EXPECT_TRUE(
        scratch.Location("Host/Packed/Lib.lcf")
            .IsAncestorOf(Set().GetLibPart(LM::LibPartId(TestId(2), KL::UniString()))->GetLocation()));
}

} // namespace
