// The catalogue's own state: active libraries, the enumeration pass, folders and observers.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using testsupport::ScratchFolder;

class Catalogue : public ::testing::Test {
protected:
    Catalogue()
        : binCodes(LM::QdlBinCodesContainer::NoLimit, LM::QdlBinCodesContainer::NoLimit),
          set(&binCodes, handler, nullptr, {}, {}, FTM::UnknownGroup, IO::Location()) {
        LM::LibraryManagerStrings strings;
        strings.rootFolderName = KL::UniString("Libraries");
        LM::InitLibraryManager(LM::LibraryManagerCallBacks{}, strings, FTM::GeneralID(-5), FTM::GeneralID(5));
    }
    ~Catalogue() override { LM::InitLibraryManager({}, {}, FTM::GeneralID(), FTM::GeneralID()); }

    int AddLocal(const std::string& relative, LM::VitalMode vital = LM::NotVital) {
        return set.AddActiveLibrary(process, scratch.Location(relative), LM::LocalLibrary, vital,
                                    KL::NULLGuid, KL::UniString(), false);
    }

    ScratchFolder scratch;
    KL::NonInterruptibleProcessControl process;
    LM::DefLibraryErrorHandler handler;
    LM::QdlBinCodesContainer binCodes;
    LM::LibrarySet set;
};

// Records the order of calls, and may attach or detach others while it is called.
class ScriptedObserver : public LM::LibrarySetObserver {
public:
    ScriptedObserver(std::string name, std::vector<std::string>* log) : name(std::move(name)), log(log) {}
    void SomethingHappened() override {
        log->push_back(name);
        if (onCall)
            std::exchange(onCall, nullptr)();
    }
    std::string name;
    std::vector<std::string>* log;
    std::function<void()> onCall;
};

TEST_F(Catalogue, AnEmptyPassLeavesTheFixedFoldersAndTheNullId) {
    EXPECT_FALSE(set.IsEnumerated());
    EXPECT_EQ(set.GetNumEnumerationPhases(), 1);
    EXPECT_EQ(binCodes.GetAncestryHierarchy(), set.GetAncestryHierarchy());
    EXPECT_EQ(set.Enumerate(process), 0);
    EXPECT_TRUE(set.IsEnumerated());
    EXPECT_EQ(set.GetFolderNumber(), 3);
    EXPECT_EQ(set.GetFolderParent(1), 0);
    EXPECT_EQ(set.GetFolderActLibIndex(2), -1);
    KL::UniString name;
    EXPECT_EQ(set.GetFolderName(0, &name), 0);
    EXPECT_EQ(name, KL::UniString("Libraries"));
    ASSERT_NE(set.GetLibPartSet(), nullptr);
    EXPECT_EQ(set.GetLibPartSet()->GetCount(), 0U);
    const LM::LibPartCache* nullEntry = set.GetLibPartSet()->FindId(LM::LibPartId());
    ASSERT_NE(nullEntry, nullptr);
    EXPECT_EQ(nullEntry->part, nullptr);
    EXPECT_TRUE(nullEntry->resultFlagFirst);
    EXPECT_TRUE(nullEntry->isOwnId);
    EXPECT_EQ(nullEntry->migrationRank, 0x7fffffff);
    EXPECT_EQ(process.GetStep(), 118);
}

TEST_F(Catalogue, ActiveLibrariesAnswerByIndexAndLocation) {
    scratch.Write("Outer/Inner/part.txt", "");
    scratch.Write("Objects/RFS/part.txt", "");
    EXPECT_EQ(AddLocal("Outer", LM::Vital), 0);
    EXPECT_EQ(AddLocal("Outer/Inner"), 1);
    EXPECT_EQ(AddLocal("Objects/RFS"), 2);
    EXPECT_EQ(
        set.AddActiveLibrary(KL::UniString("https://example.org/libs/Doors"), LM::UrlLibrary, LM::NotVital),
        3);
    EXPECT_EQ(set.GetActiveLibraryNum(), 4);
    EXPECT_EQ(set.GetNumEnumerationPhases(), 5);

    EXPECT_EQ(set.GetLibItemLibraryIndex(scratch.Location("Outer/Inner/part.txt")), 1);
    EXPECT_EQ(set.GetLibItemLibraryIndex(scratch.Location("Outer/part.txt")), 0);
    EXPECT_EQ(set.GetLibItemLibraryIndex(scratch.Location("Elsewhere/part.txt")), -1);
    int index = 99;
    EXPECT_EQ(set.GetLibItemLibraryMode(scratch.Location("Elsewhere/part.txt"), &index), LM::AllLibraryModes);
    EXPECT_EQ(index, 99);
    EXPECT_EQ(set.GetLibItemLibraryMode(scratch.Location("Outer/Inner/x"), &index), LM::LocalLibrary);
    EXPECT_EQ(index, 1);

    EXPECT_TRUE(set.IsVitalActiveLibrary(0));
    EXPECT_FALSE(set.IsVitalActiveLibrary(1));
    EXPECT_TRUE(set.IsUrlActiveLibrary(3));
    EXPECT_FALSE(set.IsUrlActiveLibrary(4));
    KL::UniString name;
    EXPECT_EQ(set.GetActiveLibraryName(2, &name), 0);
    EXPECT_EQ(name, KL::UniString("Objects"));
    EXPECT_EQ(set.GetActiveLibraryName(3, &name), 0);
    EXPECT_EQ(name, KL::UniString("Doors"));
    EXPECT_EQ(set.GetActiveLibraryName(4, &name), LM::LibPartFileError);
    EXPECT_EQ(set.GetActiveLibraryIndex(scratch.Location("Outer/Inner")), 1);
    EXPECT_EQ(set.SetActiveLibraryVersion(1, 42), 0);
    EXPECT_EQ(set.GetActiveLibraryVersion(1), 42);
    EXPECT_EQ(set.GetActiveLibraryVersion(-1), 0);
    EXPECT_EQ(set.SetActiveLibraryVersion(7, 1), LM::LibPartFileError);
    KL::Array<KL::UniString> names;
    KL::Array<KL::Guid> guids;
    EXPECT_EQ(set.GetActiveLibrarySupersedes(0, &names, &guids), 0);
    EXPECT_EQ(set.GetActiveLibrarySupersedes(-1, &names, &guids), LM::LibPartFileError);
    EXPECT_FALSE(set.ActiveLibrarySupersedesOther(0, 9));

    // A bad index leaves the list alone, but the catalogue is stale all the same.
    ASSERT_EQ(set.Enumerate(process), 0);
    EXPECT_EQ(set.RemoveActiveLibrary(-1), LM::LibPartFileError);
    EXPECT_FALSE(set.IsEnumerated());
    EXPECT_EQ(set.GetActiveLibraryNum(), 4);
    EXPECT_EQ(set.RemoveActiveLibrary(0), 0);
    EXPECT_EQ(set.GetLibItemLibraryIndex(scratch.Location("Outer/part.txt")), -1);

    // After CleanUp there is no store and no list until the next pass.
    set.CleanUp();
    EXPECT_EQ(set.GetLibPartSet(), nullptr);
    EXPECT_EQ(set.GetFolderSet(), nullptr);
    EXPECT_EQ(set.GetActiveLibraryNum(), 0);
    EXPECT_EQ(set.GetFolderNumber(), 0);
    EXPECT_EQ(set.GetFolderName(0, &name), LM::LibPartFileError);
    ASSERT_EQ(set.Enumerate(process), 0);
    EXPECT_EQ(set.GetFolderNumber(), 3);
}

TEST_F(Catalogue, SortingFoldersKeepsEveryParentOnItsFolder) {
    ASSERT_EQ(set.Enumerate(process), 0);
    LM::FolderSet& folders = *set.GetFolderSet();
    // Stored out of order: library 1 before library 0, and "b" before "a".
    const int lib1 = folders.StoreFolder(scratch.Location("L1"), KL::NULLGuid, KL::UniString("L1"), 0, 1);
    const int lib0 = folders.StoreFolder(scratch.Location("L0"), KL::NULLGuid, KL::UniString("L0"), 0, 0);
    const int b = folders.StoreFolder(scratch.Location("L0/b"), KL::NULLGuid, KL::UniString("b"), lib0, 0);
    const int a = folders.StoreFolder(scratch.Location("L0/a"), KL::NULLGuid, KL::UniString("a"), lib0, 0);
    const int ab = folders.StoreFolder(scratch.Location("L0/a/x"), KL::NULLGuid, KL::UniString("x"), a, 0);
    (void)lib1;
    (void)b;
    (void)ab;
    set.FinishFolderSet();

    std::vector<std::string> order;
    for (int i = 0; i < folders.GetFolderCount(); ++i) {
        KL::UniString name;
        folders.GetName(i, &name);
        const int parent = folders.GetParent(i);
        KL::UniString parentName;
        if (parent >= 0)
            folders.GetName(parent, &parentName);
        order.push_back(name.ToUTF8() + "<" + parentName.ToUTF8());
        // The fixed folders keep the scratch number they were given: their own index.
        EXPECT_EQ(folders.GetTreeItemId(i), i < 3 ? i : 0);
    }
    EXPECT_EQ(order, (std::vector<std::string>{"Libraries<", "<Libraries", "<Libraries", "L0<Libraries",
                                               "a<L0", "x<a", "b<L0", "L1<Libraries"}));
}

TEST_F(Catalogue, ObserversJoiningOrLeavingDuringACallAreNeitherRepeatedNorLost) {
    std::vector<std::string> log;
    ScriptedObserver first("first", &log), second("second", &log), third("third", &log), late("late", &log);
    set.Attach(first);
    set.Attach(second);
    set.Attach(third);
    // Called from the last attached: third detaches second and attaches late.
    third.onCall = [&] {
        set.Detach(second);
        set.Attach(late);
    };
    set.SendSomethingHappened();
    EXPECT_EQ(log, (std::vector<std::string>{"third", "first"}));

    log.clear();
    late.onCall = [&] { set.Detach(late); };
    set.SendSomethingHappened();
    EXPECT_EQ(log, (std::vector<std::string>{"late", "third", "first"}));
    set.Detach(first);
    set.Detach(third);
}

int afterEnumerateCalls = 0;
bool batchDuringAfterEnumerate = false;
const LM::LibrarySet* observedSet = nullptr;

TEST_F(Catalogue, AfterEnumerateRunsInsideABatch) {
    LM::LibraryManagerCallBacks callBacks;
    callBacks.afterEnumerate = [](int argument) {
        EXPECT_EQ(argument, 0);
        ++afterEnumerateCalls;
        batchDuringAfterEnumerate = observedSet->IsInBatchLibPartAdd() && observedSet->IsEnumerated();
    };
    LM::InitLibraryManager(callBacks, LM::GetLibraryManagerStrings(), LM::GetSymbolFileGroup(),
                           LM::GetScriptFileType());
    observedSet = &set;
    ASSERT_EQ(set.Enumerate(process), 0);
    EXPECT_EQ(afterEnumerateCalls, 1);
    EXPECT_TRUE(batchDuringAfterEnumerate);
    EXPECT_FALSE(set.IsInBatchLibPartAdd());

    set.StartBatchLibPartAdd();
    EXPECT_TRUE(set.IsInBatchLibPartAdd());
    set.EndBatchLibPartAdd(process);
    set.EndBatchLibPartAdd(process); // a second end is harmless
    EXPECT_FALSE(set.IsInBatchLibPartAdd());
}

TEST_F(Catalogue, UnreachableLibrariesAreSkippedAndContainerOptionsAreKept) {
    // Without a walker, a library that cannot be opened is skipped without a word, and a pass over
    // reachable ones still finishes; the container options default to the temporary folder.
    AddLocal("Missing");
    EXPECT_FALSE(set.IsExistActiveLibrary(0));
    EXPECT_EQ(set.Enumerate(process), 0);
    EXPECT_TRUE(set.IsEnumerated());
    EXPECT_EQ(set.GetLibraryContainerVFSOptions().GetUnzipTempFolderLoc(), scratch.Location("home/tmp"));
    set.SetLibraryContainerVFSOptions(LM::LibraryContainerVFSOptions(scratch.Location("unzip")));
    EXPECT_EQ(set.GetLibraryContainerVFSOptions().GetUnzipTempFolderLoc(), scratch.Location("unzip"));
}

} // namespace
