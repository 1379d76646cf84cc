// The container writer as a host uses it: which parts go in and where, how libraries become the
// container's top folders, what a nested container keeps, and that a writer killed at any point
// leaves the old container or none at the target.
#include "support/Catalogue.hpp"
#include "support/ContainerBytes.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testsupport::CatalogueTest;
using testsupport::LcfBytes;
using testsupport::LcfInfo;
using testsupport::LcfNode;
using testsupport::TestId;

// What a walk of a written container delivers: "+path" for a folder (with the tags of its info
// items), "path" for a file, in walk order.
class Recorder : public LM::ILibraryContainerProcessor {
public:
    int ProcessFolder(KL::IChannel&, IO::File*, const LM::FolderEntry&, const IO::Location&,
                      const IO::RelativeLocation& relative, bool,
                      const KL::Array<LM::InfoData*>* infos) override {
        std::string line = "+" + relative.ToString();
        for (const LM::InfoData* item : *infos) {
            const std::uint32_t tag = item->GetType();
            line += " " + std::string{char(tag >> 24), char(tag >> 16), char(tag >> 8), char(tag)};
        }
        lines.push_back(line);
        return 0;
    }
    void FolderEntered(const LM::FolderEntry&, const IO::Location&, const IO::RelativeLocation&,
                       bool) override {}
    void FolderExited(const LM::FolderEntry&, const IO::Location&, const IO::RelativeLocation&,
                      bool) override {}
    int ProcessFile(KL::IChannel&, IO::File*, const LM::FileEntry&, const IO::Location&,
                    const IO::RelativeLocation& relative, const KL::Array<LM::InfoData*>*) override {
        lines.push_back(relative.ToString());
        return 0;
    }

    std::vector<std::string> lines;
};

class ContainerWriter : public CatalogueTest {
protected:
    ContainerWriter() {
        SavePart("Lib/Templates/Furniture.klm", TestId(1), "Furniture", {}, true);
        SavePart("Lib/Objects/Chair.klm", TestId(2), "Chair", {TestId(1)});
        SavePart("Lib/Objects/Tables/Table.klm", TestId(3), "Table", {TestId(1)});
    }

    int Write(const std::string& relative, const KL::HashTable<const LM::LibPart*, bool>* selection = nullptr,
              bool topFolder = true) {
        return LM::CreateContainer(process, scratch.Location(relative), &Set(), selection,
                                   LM::ContainerWriteOptions(nullptr, topFolder));
    }

    std::vector<std::string> Walk(const std::string& relative, int* mainCount = nullptr) {
        IO::File file(scratch.Location(relative));
        EXPECT_EQ(file.Open(IO::File::ReadMode), 0);
        Recorder recorder;
        LM::ContainerReader reader(&recorder, false, false, nullptr, false);
        EXPECT_EQ(reader.Read(process, file, scratch.Location("walked")), 0);
        if (mainCount != nullptr)
            *mainCount = reader.GetHeader().partCount;
        return recorder.lines;
    }

    const LM::LibPart* Part(const std::string& relative) {
        return Set().SearchLibPart(scratch.Location(relative), LM::LibrarySet::CurrentLocation);
    }
};

TEST_F(ContainerWriter, OnlySelectedPartsOfTheLibrariesGoIn) {
    scratch.Write("Other/readme.txt", "a text of a library none of whose parts is chosen");
    AddLibrary("Lib");
    AddLibrary("Other");
    ASSERT_EQ(Set().Enumerate(process), 0);

    // A false entry and a missing entry both leave a part out; a library without a chosen part
    // leaves no folder at all.
    KL::HashTable<const LM::LibPart*, bool> selection;
    selection.Put(Part("Lib/Objects/Tables/Table.klm"), true);
    selection.Put(Part("Lib/Objects/Chair.klm"), false);
    ASSERT_EQ(Write("chosen.lcf", &selection), 0);
    int partCount = 0;
    EXPECT_EQ(Walk("chosen.lcf", &partCount),
              (std::vector<std::string>{"+Lib", "+Lib/Objects", "+Lib/Objects/Tables",
                                        "Lib/Objects/Tables/Table.klm"}));
    EXPECT_EQ(partCount, 1);

    // Everything: subfolders before files, libraries in their order; the file is a container.
    ASSERT_EQ(Write("all.lcf"), 0);
    EXPECT_EQ(
        Walk("all.lcf", &partCount),
        (std::vector<std::string>{"+Lib", "+Lib/Objects", "+Lib/Objects/Tables",
                                  "Lib/Objects/Tables/Table.klm", "Lib/Objects/Chair.klm", "+Lib/Templates",
                                  "Lib/Templates/Furniture.klm", "+Other", "Other/readme.txt"}));
    EXPECT_EQ(partCount, 4);
    std::uint32_t type = 0;
    std::uint32_t creator = 0;
    EXPECT_EQ(IO::File(scratch.Location("all.lcf")).GetTypeInfo(&type, &creator), 0);
    EXPECT_EQ(type, FTM::MakeCode(".LCF"));
    EXPECT_EQ(creator, FTM::MakeCode("KLTX"));

    // Without the top folder a reader hides the first library's folder, and only that one.
    ASSERT_EQ(Write("bare.lcf", nullptr, false), 0);
    LM::LibraryContainerExtractor extractor;
    IO::File bare(scratch.Location("bare.lcf"));
    ASSERT_EQ(bare.Open(IO::File::ReadMode), 0);
    ASSERT_EQ(extractor.Extract(process, bare, scratch.Location("bare"), false, false, false), 0);
    EXPECT_TRUE(std::filesystem::exists(scratch.Path() / "bare/Objects/Chair.klm"));
    EXPECT_TRUE(std::filesystem::exists(scratch.Path() / "bare/Other/readme.txt"));
}

TEST_F(ContainerWriter, ALibraryThatIsAContainerLosesItsOwnLevelWhenAlone) {
    bool compress = true;
    LcfNode objects = LcfNode::FromFolder(scratch.Path() / "Lib/Objects", &compress);
    LcfNode templates = LcfNode::FromFolder(scratch.Path() / "Lib/Templates", &compress);
    scratch.Write("Packed.LCF", LcfBytes().Build({objects, templates}));
    Set().AddActiveLibrary(process, scratch.Location("Packed.LCF"), LM::LocalLibrary, LM::NotVital,
                           KL::NULLGuid, KL::UniString(), false);
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(Write("alone.lcf"), 0);
    EXPECT_EQ(Walk("alone.lcf"),
              (std::vector<std::string>{"+Objects", "+Objects/Tables", "Objects/Tables/Table.klm",
                                        "Objects/Chair.klm", "+Templates", "Templates/Furniture.klm"}));

    // Beside another library it keeps its folder, under the name it has.
    scratch.Write("Second/notes.txt", "notes");
    AddLibrary("Second");
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(Write("two.lcf"), 0);
    const std::vector<std::string> two = Walk("two.lcf");
    ASSERT_FALSE(two.empty());
    EXPECT_EQ(two.front(), "+Packed.LCF");
    EXPECT_EQ(two.back(), "Second/notes.txt");
}

TEST_F(ContainerWriter, EmbeddedLibrariesAndNestedContainersKeepWhatReadersNeed) {
    // A container inside the library keeps its header and the header's own items.
    LcfBytes inner;
    inner.headerInfos = {LcfInfo{LcfBytes::Tag("VERS"), "2.5"}};
    scratch.Write("Lib/Inner.lcf",
                  inner.Build({LcfNode::Folder("Doors", {LcfNode::File("Door.txt", "door")})}));
    scratch.Write("Embedded/Chair Copy.txt", "a part of the project itself");
    AddLibrary("Lib");
    Set().AddActiveLibrary(process, scratch.Location("Embedded"), LM::EmbeddedLibrary, LM::NotVital,
                           KL::NULLGuid, KL::UniString(), false);
    ASSERT_EQ(Set().Enumerate(process), 0);

    // The embedded library goes under the process's default name, whatever the call's options say.
    const KL::UniString previous = LM::DefaultContainerWriteOptions->GetEmbeddedName();
    LM::DefaultContainerWriteOptions->SetEmbeddedName(KL::UniString("Project Parts"));
    LM::ContainerWriteOptions options;
    options.SetEmbeddedName(KL::UniString("Ignored"));
    const int written =
        LM::CreateContainer(process, scratch.Location("nested.lcf"), &Set(), nullptr, options);
    LM::DefaultContainerWriteOptions->SetEmbeddedName(previous);
    ASSERT_EQ(written, 0);
    const std::vector<std::string> lines = Walk("nested.lcf");
    EXPECT_NE(std::find(lines.begin(), lines.end(), "+Lib/Inner.lcf EMBH VERS"), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "Lib/Inner.lcf/Doors/Door.txt"), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "Project Parts/Chair Copy.txt"), lines.end());
}

TEST_F(ContainerWriter, AWriterKilledAtAnyPointLeavesTheOldContainerOrNone) {
    for (int i = 0; i < 200; ++i)
        scratch.Write("Lib/Many/Text " + std::to_string(i) + ".txt",
                      std::string(64 * 1024, char('a' + i % 26)));
    AddLibrary("Lib");
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(Write("old.lcf"), 0);
    const std::string old = scratch.Read("old.lcf");
    scratch.Write("Lib/Many/Text 0.txt", "changed, so that a new container differs from the old");
    ASSERT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(Write("new.lcf"), 0);
    int newParts = 0;
    const std::vector<std::string> whole = Walk("new.lcf", &newParts);

    std::mt19937 random(11);
    for (int round = 0; round < 30; ++round) {
        const bool fromNothing = round % 3 == 0;
        if (fromNothing)
            std::filesystem::remove(scratch.Path() / "target.lcf");
        else
            std::filesystem::copy_file(scratch.Path() / "old.lcf", scratch.Path() / "target.lcf",
                                       std::filesystem::copy_options::overwrite_existing);
        const pid_t child = ::fork();
        if (child == 0) {
            const bool compress = round % 2 == 0;
            const IO::ZipOChannelOptions zip;
            for (;;)
                LM::CreateContainer(process, scratch.Location("target.lcf"), &Set(), nullptr,
                                    LM::ContainerWriteOptions(compress ? &zip : nullptr, true));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        if (!std::filesystem::exists(scratch.Path() / "target.lcf")) {
            EXPECT_TRUE(fromNothing) << "round " << round << ": the old container is gone";
            continue;
        }
        const std::string found = scratch.Read("target.lcf");
        if (found == old)
            continue;
        // A new container is whole: it walks to the end with every file.
        int parts = 0;
        EXPECT_EQ(Walk("target.lcf", &parts), whole) << "round " << round;
        EXPECT_EQ(parts, newParts) << "round " << round;
    }
}

} // namespace
