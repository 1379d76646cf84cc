// A host's view of the manager: only the umbrella header, start-up to shut-down.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

namespace {

using testsupport::ScratchFolder;

class CountingObserver : public LM::LibrarySetObserver {
public:
    void SomethingHappened() override { ++somethingHappened; }
    void LibraryListChanged() override { ++listChanged; }
    int somethingHappened = 0;
    int listChanged = 0;
};

class CountingInitializer : public LM::DefaultFileTypeInitializer {
public:
    explicit CountingInitializer(int* destroyed) : destroyed(destroyed) {}
    ~CountingInitializer() override { ++*destroyed; }

private:
    int* destroyed;
};

std::vector<IO::Location> ActiveLocations(const LM::LibrarySet& set) {
    std::vector<IO::Location> locations;
    for (int i = 0; i < set.GetActiveLibraryNum(); ++i) {
        IO::Location location;
        EXPECT_EQ(set.GetActiveLibraryLocation(i, &location), 0);
        locations.push_back(location);
    }
    return locations;
}

TEST(StartUp, HostAddsEnumeratesReadsBackRemovesAndExits) {
    ScratchFolder scratch;
    scratch.Write("Office/Chairs/readme.txt", "chairs");
    scratch.Write("Garden/readme.txt", "garden");
    KL::NonInterruptibleProcessControl process;

    LM::LibrarySetSingletonLP manager;
    LM::FileServices* services = nullptr;
    ASSERT_EQ(manager.InitLibraryManager(LM::BinaryCachingInMemory, &services, nullptr, nullptr), 0);
    ASSERT_NE(services, nullptr);
    const LM::LibrarySet& set = *manager.GetLibrarySet();
    EXPECT_EQ(services->GetLibrarySet(), &set);
    CountingObserver observer;
    manager.GetModifier().GetFolderSet(); // a modifier reaches the same set
    const_cast<LM::LibrarySet&>(set).Attach(observer);

    KL::Array<IO::Location> libraries;
    libraries.Push(scratch.Location("Office"));
    libraries.Push(scratch.Location("Garden"));
    EXPECT_EQ(manager.AddLibraries(process, libraries), 0);
    EXPECT_TRUE(set.IsEnumerated());
    EXPECT_EQ(ActiveLocations(set),
              (std::vector<IO::Location>{scratch.Location("Office"), scratch.Location("Garden")}));
    EXPECT_EQ(observer.listChanged, 2);
    EXPECT_EQ(observer.somethingHappened, 1);
    EXPECT_EQ(set.GetNumEnumerationPhases(), 3);
    KL::UniString name;
    EXPECT_EQ(set.GetActiveLibraryName(1, &name), 0);
    EXPECT_EQ(name, KL::UniString("Garden"));
    EXPECT_TRUE(set.IsLocalActiveLibrary(0));
    EXPECT_TRUE(set.IsExistActiveLibrary(0));
    EXPECT_FALSE(set.IsVitalActiveLibrary(0));
    EXPECT_EQ(set.GetLibItemLibraryIndex(scratch.Location("Office/Chairs/readme.txt")), 0);

    // The three fixed folders, named by the start-up strings, then each library's folders sorted
    // by library and location; every text file is a part in its folder.
    ASSERT_EQ(set.GetFolderNumber(), 6);
    EXPECT_EQ(set.GetFolderName(0, &name), 0);
    EXPECT_EQ(name, KL::UniString("Libraries"));
    EXPECT_EQ(set.GetFolderName(2, &name), 0);
    EXPECT_EQ(name, KL::UniString("Temporarily Missing"));
    EXPECT_EQ(set.GetFolderName(3, &name), 0);
    EXPECT_EQ(name, KL::UniString("Office"));
    EXPECT_EQ(set.GetFolderName(4, &name), 0);
    EXPECT_EQ(name, KL::UniString("Chairs"));
    EXPECT_EQ(set.GetFolderParent(4), 3);
    EXPECT_EQ(set.GetFolderActLibIndex(5), 1);
    EXPECT_EQ(set.GetFolderName(6, &name), LM::LibPartFileError);
    // Two files without an id and with one file name in two libraries: the first found stays and
    // the second is reported as its duplicate.
    ASSERT_EQ(set.GetLibPartNumber(), 1);
    const LM::LibPart* chairsText = set.GetLibPart(LM::LibPartId(KL::NULLUnID, KL::UniString("readme.txt")));
    ASSERT_NE(chairsText, nullptr);
    EXPECT_EQ(chairsText->GetFolderIndex(), 4);
    EXPECT_EQ(chairsText->GetDocumentName(), KL::UniString("readme"));
    ASSERT_EQ(manager.GetLibraryErrorHandler()->GetNameDuplicates().GetSize(), 1U);
    EXPECT_EQ(manager.GetLibraryErrorHandler()->GetNameDuplicates()[0].count, 2);

    EXPECT_EQ(manager.RemoveLibrary(process, scratch.Location("Office")), 0);
    EXPECT_EQ(ActiveLocations(set), (std::vector<IO::Location>{scratch.Location("Garden")}));
    EXPECT_TRUE(set.IsEnumerated());
    EXPECT_EQ(observer.somethingHappened, 2);

    // An unknown library is refused without a new enumeration.
    EXPECT_EQ(manager.RemoveLibrary(process, scratch.Location("Office")), LM::LibPartFileError);
    EXPECT_EQ(observer.somethingHappened, 2);

    // A library that is not there is still accepted, and skipped by the walk.
    EXPECT_EQ(manager.AddLibrary(process, scratch.Location("Nowhere"), true), 0);
    EXPECT_EQ(set.GetActiveLibraryNum(), 2);
    EXPECT_FALSE(set.IsExistActiveLibrary(1));
    EXPECT_TRUE(set.IsEnumerated());

    EXPECT_EQ(manager.RemoveAllLibraries(process), 0);
    EXPECT_EQ(set.GetActiveLibraryNum(), 0);
    const_cast<LM::LibrarySet&>(set).Detach(observer);
    manager.ExitLibraryManager();
    EXPECT_EQ(manager.GetLibrarySet(), nullptr);
}

// A host's own picture types whose registration fails with something that is no exception class.
class ThrowingInitializer : public LM::IFileTypeInitializer {
public:
    void InitImageFileTypes(LM::PublicIDs&, FTM::FileTypeManager*) override { throw 42; }
    void DestructImageFileTypes(LM::PublicIDs&, FTM::FileTypeManager*) override {}
};

// A host that gets its order wrong, or whose start-up fails, gets error codes, never a crash; the
// names it writes without a namespace are there.
TEST(StartUp, CallsOutsideAStartedManagerAnswerWithCodes) {
    ScratchFolder scratch;
    KL::NonInterruptibleProcessControl process;
    LibrarySetSingletonLP manager;
    const KL::Array<IO::Location> none;
    EXPECT_EQ(manager.AddLibrary(process, scratch.Location(), true), LM::LibPartFileError);
    EXPECT_EQ(manager.AddLibraries(process, none), LM::LibPartFileError);
    EXPECT_EQ(manager.RemoveLibrary(process, scratch.Location()), LM::LibPartFileError);
    EXPECT_EQ(manager.RemoveAllLibraries(process), LM::LibPartFileError);

    FileServices* services = nullptr;
    EXPECT_EQ(
        manager.InitLibraryManager(LM::BinaryCachingInMemory, &services, nullptr, new ThrowingInitializer),
        LM::LibPartFileError);
    EXPECT_EQ(services, nullptr);
    EXPECT_EQ(manager.AddLibrary(process, scratch.Location(), true), LM::LibPartFileError);
    manager.ExitLibraryManager();

    ASSERT_EQ(manager.InitLibraryManager(LM::BinaryCachingInMemory, &services, nullptr, nullptr), 0);
    EXPECT_EQ(manager.AddLibrary(process, scratch.Location(), true), 0);
    manager.ExitLibraryManager();
    EXPECT_EQ(manager.RemoveAllLibraries(process), LM::LibPartFileError);
}

TEST(StartUp, RegistersTheFileTypesAndTakesThemAwayAgain) {
    ScratchFolder scratch;
    scratch.Write("home/config/libmgr/BinFileTypes.txt",
                  "Sketch\tskp\tSKTC\tSKPF\r\n\r\nBroken\tbrk\tBRKN\nSurvey\tsvy\t\tSURVPLAN\tignored");
    scratch.Write("part.klm", "");
    scratch.Write("door.DOR", "");
    scratch.Write("notes.txt", "");
    scratch.Write("site.skp", "");

    LM::LibrarySetSingletonLP manager;
    FTM::FileTypeManager& types = *manager.GetFileTypeManager();
    const FTM::TypeID knownBitmap = types.AddType(
        FTM::FileType(KL::UniString("Host Bitmap"), KL::UniString("bmp"), 0, 0, -1, nullptr, "image/bmp"));
    int destroyed = 0;
    ASSERT_EQ(manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr,
                                         new CountingInitializer(&destroyed)),
              0);
    const LM::PublicIDs& ids = manager.GetPublicIDs();

    EXPECT_EQ(LM::GetSymbolFileGroup(), ids.symbolGroup);
    EXPECT_EQ(LM::GetScriptFileType(), ids.scriptType);
    EXPECT_EQ(LM::GetLibraryManagerStrings().binCodeFileName, KL::UniString("Tectonix QdlBinCode"));
    EXPECT_EQ(LM::GetLibraryManagerCallBacks().afterEnumerate, nullptr);
    EXPECT_TRUE(types.Match(scratch.Location("part.klm"), ids.symbolGroup));
    EXPECT_TRUE(types.Match(scratch.Location("door.DOR"), ids.symbolGroup));
    EXPECT_FALSE(types.Match(scratch.Location("notes.txt"), ids.symbolGroup));
    EXPECT_EQ(types.GetMacType(ids.scriptType), FTM::MakeCode("TEXT"));
    EXPECT_EQ(types.GetMacType(ids.listCriteriaType), FTM::MakeCode("CRIT"));
    EXPECT_EQ(FTM::GeneralID(ids.textGroup), FTM::GeneralID(FTM::GroupID()));
    // The host's bitmap type is reused, not registered again.
    EXPECT_EQ(types.GetFirstTypeChild(ids.imageGroup), knownBitmap);

    // Extra types come from the configuration folder; their codes are read little-endian, a run
    // of tabs is one separator, and a line with a field missing registers nothing.
    const LM::LibrarySet& set = *manager.GetLibrarySet();
    const auto& storable = set.GetStorableFileTypes();
    ASSERT_EQ(storable.GetSize(), 8U);
    EXPECT_EQ(storable[0], FTM::GeneralID(ids.symbolGroup));
    EXPECT_EQ(storable[5], FTM::GeneralID(ids.packageType));
    const FTM::TypeID sketch(storable[6].GetValue());
    EXPECT_EQ(types.Identify(scratch.Location("site.skp")), sketch);
    EXPECT_EQ(types.GetMacCreator(sketch), 0x43544B53U);
    EXPECT_EQ(types.GetMacType(FTM::TypeID(storable[7].GetValue())),
              FTM::MakeCode("ongi") /* "igno" read backwards */);

    manager.ExitLibraryManager();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(types.GetType(knownBitmap), nullptr);
    EXPECT_FALSE(types.Match(scratch.Location("part.klm"), ids.symbolGroup));
    EXPECT_EQ(types.GetType(sketch) != nullptr, true); // extra types outlive the catalogue
    EXPECT_NE(types.GetType(ids.packageType), nullptr);

    // A second start-up after a shut-down works as the first.
    ASSERT_EQ(manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(types.Match(scratch.Location("part.klm"), manager.GetPublicIDs().symbolGroup));
}

TEST(StartUp, CachingOnDiskPutsTheLibraryCacheInTheUserCacheFolder) {
    ScratchFolder scratch;
    KL::NonInterruptibleProcessControl process;
    LM::LibrarySetSingletonLP manager;
    IO::Location data = scratch.Location("data");
    ASSERT_EQ(manager.InitLibraryManager(LM::BinaryCachingOnDisk, nullptr, &data, nullptr), 0);
    const std::string cache = "home/cache/Kestrelane/KFLibPartCache/" +
                              SU::ProductVersionInfo::GetPreferencesPostfix().ToUTF8() + "/LibraryCache";
    EXPECT_FALSE(std::filesystem::exists(scratch.Path() / cache));
    manager.GetModifier().Enumerate(process);
    EXPECT_TRUE(std::filesystem::is_directory(scratch.Path() / cache / "Data"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch.Path() / cache / "FolderSet"));
    IO::Location servicesData;
    EXPECT_EQ(manager.GetFileServices()->GetDataFolder(&servicesData), 0);
    EXPECT_EQ(servicesData, data);

    LM::LibrarySetSingletonLP inMemory;
    ASSERT_EQ(inMemory.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(inMemory.GetLibrarySet()->GetBinCodes()->GetBinCodeFolder().IsEmpty());
    EXPECT_EQ(inMemory.GetFileServices()->GetDataFolder(&servicesData), 0);
    EXPECT_EQ(servicesData, scratch.Location("home/data/KFLibPartData"));
}

} // namespace
