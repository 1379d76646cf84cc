// Library items and lists: identity, adding with the name filters, naming, deleting, sorting,
// comparing, and handing a list to a library set.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using LM::LibraryItem;
using LM::LibraryList;
using testsupport::ScratchFolder;

constexpr KL::Guid LibraryGuid("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
constexpr KL::Guid OtherGuid("11111111-2222-3333-4444-555555555555");

IO::Location Loc(const char* path) {
    return IO::Location(path);
}

LibraryItem Item(LM::LibraryMode mode, const char* path, const char* name = "") {
    LibraryItem item;
    item.SetType(mode);
    item.SetLocation(Loc(path));
    item.SetName(name);
    return item;
}

LibraryItem ServerItem(const char* serverUrl, const char* relLocation, const char* location) {
    LibraryItem item = Item(LM::ServerLibrary, location);
    item.SetTWServerUrl(serverUrl);
    item.SetRelLocation(IO::RelativeLocation(relLocation));
    item.SetSourceLocation("src");
    return item;
}

std::vector<std::string> Names(const LibraryList& list) {
    std::vector<std::string> names;
    for (int i = 0; i < list.GetLibraryNum(LM::AllLibraryModes); ++i)
        names.push_back(list[static_cast<std::size_t>(i)].GetName().ToUTF8());
    return names;
}

// Server ids under "/servers" are known to the host, which shows them as they are.
LM::LibraryManagerCallBacks ServerCallBacks() {
    LM::LibraryManagerCallBacks callBacks;
    callBacks.isServerIdValid = [](const IO::Location& id) { return Loc("/servers").IsAncestorOf(id); };
    callBacks.serverIdDisplayName = [](const IO::Location& id) { return id.ToUniString(); };
    return callBacks;
}

// Installs host callbacks for one test and puts the process records back afterwards.
class ScopedCallBacks {
public:
    explicit ScopedCallBacks(const LM::LibraryManagerCallBacks& callBacks)
        : savedCallBacks(LM::GetLibraryManagerCallBacks()), savedStrings(LM::GetLibraryManagerStrings()),
          savedGroup(LM::GetSymbolFileGroup()), savedScriptType(LM::GetScriptFileType()) {
        LM::InitLibraryManager(callBacks, savedStrings, savedGroup, savedScriptType);
    }
    ~ScopedCallBacks() { LM::InitLibraryManager(savedCallBacks, savedStrings, savedGroup, savedScriptType); }

private:
    LM::LibraryManagerCallBacks savedCallBacks;
    LM::LibraryManagerStrings savedStrings;
    FTM::GeneralID savedGroup;
    FTM::GeneralID savedScriptType;
};

// Writes every call it gets as one line, so a test compares the whole sequence at once.
class RecordingModifier : public LM::ILibrarySetModifier {
public:
    int ResetActiveLibraries() const override { return Record("reset"); }
    int AddActiveLibrary(const KL::UniString& url, LM::LibraryMode mode, LM::VitalMode vital) const override {
        return Record("url " + url.ToUTF8() + " mode " + std::to_string(mode) + " vital " +
                      std::to_string(vital));
    }
    int AddActiveLibrary(KL::ProcessControl&, const IO::Location& location, LM::LibraryMode mode,
                         LM::VitalMode vital, const KL::Guid& guid, const KL::UniString& langCode,
                         bool collapse) const override {
        return Record("library " + location.ToString() + " mode " + std::to_string(mode) + " vital " +
                      std::to_string(vital) + " " + guid.ToString() + " '" + langCode.ToUTF8() + "' " +
                      (collapse ? "collapse" : "keep"));
    }
    int AddServerActiveLibrary(const IO::Location&, const IO::Location&, const IO::RelativeLocation&,
                               const KL::UniString&, std::int64_t, int) const override {
        return Record("server");
    }
    int RemoveActiveLibrary(int) const override { return Record("remove"); }
    void AddStorableFileType(FTM::GeneralID) const override { Record("storable"); }
    void StartBatchLibPartAdd() const override { Record("start batch"); }
    void EndBatchLibPartAdd(KL::ProcessControl&) const override { Record("end batch"); }
    int SetActiveLibraryVersion(int, std::int64_t) const override { return Record("version"); }
    int Enumerate(KL::ProcessControl&) const override { return Record("enumerate"); }
    void Reset(KL::ProcessControl&) const override { Record("reset set"); }
    void CleanUp() const override { Record("clean up"); }
    void SetLibpartSearchCompatibility(LM::LibpartSearchCompatibility) const override {
        Record("compatibility");
    }
    LM::FolderSet* GetFolderSet() const override { return nullptr; }
    // A list never reaches the store, the type tree or compiled code.
    int ReloadQdlBinCodes() const override { return Record("reload code"); }
    void RebuildTypeHierarchy(KL::ProcessControl&, bool) const override { Record("rebuild tree"); }
    const LM::LibPart* GetSymbolAnyhow(const LM::LibPartId&, bool*, bool*, bool*, bool,
                                       KL::Array<const LM::LibPart*>*) const override {
        Record("search");
        return nullptr;
    }
    const LM::LibPart* StoreLibPart(KL::ProcessControl&, const IO::Location&, int, const LM::LibPart*, bool*,
                                    bool, const LM::LibPart**) const override {
        Record("store");
        return nullptr;
    }
    const LM::LibPart* StoreDummyLibPart(KL::ProcessControl&, const KL::UniString&, const KL::UnID&,
                                         const FTM::GeneralID&, const LM::AncestryInfo&,
                                         bool) const override {
        Record("store dummy");
        return nullptr;
    }
    void DeleteLibPart(KL::ProcessControl&, const LM::LibPart*) const override { Record("delete"); }
    void DeleteDuplicateLibPart(const IO::Location&) const override { Record("delete duplicate"); }
    void ResetIdToLibPartTable() const override { Record("reset ids"); }
    int ClearAllSymbolFlags(unsigned) const override { return Record("clear flags"); }
    void SetValid(const LM::LibPartId&, bool) const override { Record("set valid"); }
    int ClearAllQdlBinCodes() const override { return Record("clear code"); }
    void SetTempLocationForLibPart(const LM::LibPart*, const IO::Location&) const override {
        Record("temp location");
    }

    mutable std::vector<std::string> calls;

private:
    int Record(const std::string& call) const {
        calls.push_back(call);
        return 0;
    }
};

// What confirmLibraryList was given; reaches the callback through the host data.
struct Confirmation {
    int calls = 0;
    std::vector<std::string> names;
    const LM::ILibrarySetModifier* modifier = nullptr;
};

void RecordConfirmation(const LibraryList& list, const LM::ILibrarySetModifier& modifier, void* hostData) {
    auto* confirmation = static_cast<Confirmation*>(hostData);
    ++confirmation->calls;
    confirmation->names = Names(list);
    confirmation->modifier = &modifier;
}

TEST(LibraryItem, FieldsDefaultsAndVitalMode) {
    LibraryItem item;
    EXPECT_EQ(item.GetType(), LM::AllLibraryModes);
    EXPECT_TRUE(item.GetGuid().IsNull());
    EXPECT_FALSE(item.IsVital());
    EXPECT_FALSE(item.IsMissing());
    EXPECT_TRUE(item.IsReachable());
    EXPECT_EQ(item.GetPartEstimate(), 0);
    EXPECT_EQ(item.GetVersion(), 0);
    EXPECT_EQ(item.GetClassInfo(), &LibraryItem::classInfo);
    EXPECT_STREQ(LibraryItem::classInfo.GetName(), "LM::LibraryItem");
    EXPECT_EQ(LibraryItem::classInfo.GetVersion(), (KL::ClassVersion{1, 5}));
    EXPECT_STREQ(LibraryList::classInfo.GetName(), "LM::LibraryList");
    EXPECT_EQ(LibraryList::classInfo.GetVersion(), (KL::ClassVersion{2, 0}));

    item.SetVital(LM::Vital);
    EXPECT_TRUE(item.IsVital());
    EXPECT_EQ(item.GetVitalMode(), LM::Vital);
    item.SetVital(2);
    EXPECT_FALSE(item.IsVital());
    EXPECT_EQ(item.GetVitalMode(), LM::NotVital);

    item.SetHostAddress("old.host", 8080);
    item.SetTWServerUrl("tw://server");
    EXPECT_TRUE(item.GetHostName().IsEmpty());
    EXPECT_EQ(item.GetPort(), 0);

    for (LM::LibraryMode mode : {LM::UrlLibrary, LM::OtherObjectByUrl}) {
        item.SetType(mode);
        EXPECT_TRUE(item.IsUrl());
    }
    for (LM::LibraryMode mode : {LM::LocalLibrary, LM::OtherObjectByLocation, LM::ServerLibrary}) {
        item.SetType(mode);
        EXPECT_FALSE(item.IsUrl());
    }
}

TEST(LibraryItem, EqualityFollowsTheModesIdentity) {
    EXPECT_EQ(Item(LM::LocalLibrary, "/a", "One"), Item(LM::LocalLibrary, "/a", "Two"));
    EXPECT_NE(Item(LM::LocalLibrary, "/a"), Item(LM::BuiltInLibrary, "/a"));
    EXPECT_NE(Item(LM::LocalLibrary, "/a"), Item(LM::LocalLibrary, "/b"));

    LibraryItem url = Item(LM::UrlLibrary, "/cache/x");
    url.SetUrl("http://host/x");
    LibraryItem otherUrl = url;
    otherUrl.SetUrl("http://host/y");
    EXPECT_NE(url, otherUrl);
    LibraryItem movedUrl = url;
    movedUrl.SetLocation(Loc("/cache/elsewhere"));
    EXPECT_NE(url, movedUrl);

    // Where a server library's copy lies takes no part; the server URL is compared ignoring case.
    const LibraryItem server = ServerItem("tw://Server", "team/lib", "/copy/one");
    EXPECT_EQ(server, ServerItem("TW://server", "team/lib", "/copy/two"));
    EXPECT_NE(server, ServerItem("tw://server", "team/other", "/copy/one"));
    LibraryItem otherSource = server;
    otherSource.SetSourceLocation("elsewhere");
    EXPECT_NE(server, otherSource);

    LibraryItem newer = server;
    newer.SetVersion(2);
    EXPECT_EQ(server, newer);
    EXPECT_FALSE(server.IsEqualWithVersions(newer));
    LibraryItem newerLocal = Item(LM::LocalLibrary, "/a");
    newerLocal.SetVersion(2);
    EXPECT_TRUE(Item(LM::LocalLibrary, "/a").IsEqualWithVersions(newerLocal));
}

TEST(LibraryItem, SupersedesByNameOrNonNullGuid) {
    LibraryItem item;
    item.SetSupersedes({"Old Library"}, {LibraryGuid, KL::NULLGuid});
    EXPECT_TRUE(item.Supersedes("OLD library", OtherGuid));
    EXPECT_TRUE(item.Supersedes("Unrelated", LibraryGuid));
    EXPECT_FALSE(item.Supersedes("Unrelated", OtherGuid));
    EXPECT_FALSE(item.Supersedes("Unrelated", KL::NULLGuid));

    KL::Array<KL::UniString> names{"kept"};
    KL::Array<KL::Guid> guids;
    item.GetSupersedes(&names, &guids);
    EXPECT_EQ(names, (KL::Array<KL::UniString>{"kept", "Old Library"}));
    EXPECT_EQ(guids, (KL::Array<KL::Guid>{LibraryGuid, KL::NULLGuid}));

    LibraryList list;
    list.Add(item, LibraryList::NoFilter);
    LibraryItem old = Item(LM::LocalLibrary, "/old", "Old Library");
    list.Add(old, LibraryList::NoFilter);
    EXPECT_TRUE(list.LibrarySupersedesOther(0, 1));
    EXPECT_FALSE(list.LibrarySupersedesOther(1, 0));
    EXPECT_FALSE(list.LibrarySupersedesOther(0, 2));
    EXPECT_FALSE(list.LibrarySupersedesOther(-1, 1));
}

TEST(LibraryList, AddWithoutFilterKeepsOneItemPerTarget) {
    LibraryList list;
    EXPECT_EQ(list.AddLibrary(Loc("/libs/A"), LM::LocalLibrary, 2, LibraryGuid, "ENG", true), 0);
    EXPECT_FALSE(list[0].IsVital());
    EXPECT_EQ(list[0].GetGuid(), LibraryGuid);
    EXPECT_EQ(list[0].GetLangCode(), KL::UniString("ENG"));
    EXPECT_TRUE(list[0].GetCollapseLongBranches());
    EXPECT_EQ(list.AddLibrary(Loc("/libs/A"), LM::LocalLibrary, LM::Vital, OtherGuid, "", false), 0);
    EXPECT_FALSE(list[0].IsVital()) << "the item already there is kept as it was";
    EXPECT_EQ(list.AddLibrary(Loc("/libs/A"), LM::BuiltInLibrary, LM::Vital, KL::NULLGuid, "", false), 1);
    EXPECT_TRUE(list[1].IsVital());

    EXPECT_EQ(list.AddLibrary(KL::UniString("http://host/Remote")), 2);
    EXPECT_EQ(list.AddLibrary(KL::UniString("HTTP://HOST/remote")), 2);
    EXPECT_EQ(list.AddOtherObject(KL::UniString("http://host/Remote")), 3);
    EXPECT_EQ(list.AddOtherObject(Loc("/objects/door.klm")), 4);

    // Nothing to compare by: both are kept.
    EXPECT_EQ(list.Add(Item(LM::LocalLibrary, ""), LibraryList::NoFilter), 5);
    EXPECT_EQ(list.Add(Item(LM::LocalLibrary, ""), LibraryList::NoFilter), 6);

    EXPECT_EQ(list.AddServerLibrary(Loc("/servers/main"), IO::RelativeLocation("team/Shared"), "src",
                                    Loc("/copy/one"), 3),
              7);
    EXPECT_EQ(list.AddServerLibrary(Loc("/servers/main"), IO::RelativeLocation("team/Other"), "src",
                                    Loc("/copy/two"), 4),
              7)
        << "the same source location";

    EXPECT_EQ(list.GetLibraryNum(LM::AllLibraryModes), 8);
    EXPECT_EQ(list.GetLibraryNum(LM::LocalLibrary), 3);
    EXPECT_EQ(list.GetLibraryNum(LM::UrlLibrary), 1);
    EXPECT_EQ(list.GetLibraryNum(LM::OtherObjectByUrl), 1);
    EXPECT_EQ(list.GetLibraryNum(LM::EmbeddedLibrary), 0);
    EXPECT_EQ(list.GetIndex(Loc("/objects/door.klm")), 4);
    EXPECT_EQ(list.GetIndex(Loc("/nowhere")), -1);
    EXPECT_EQ(list.GetIndex(IO::Location()), -1);
}

TEST(LibraryList, NameFiltersDecideBetweenItemsOfTheSameName) {
    LibraryList list;
    list.Add(Item(LM::LocalLibrary, "/one", "Lib"), LibraryList::NoFilter);
    list.Add(Item(LM::LocalLibrary, "/two", "Other"), LibraryList::NoFilter);

    EXPECT_EQ(list.Add(Item(LM::LocalLibrary, "/three", "Lib"), LibraryList::KeepExistingName), 0);
    EXPECT_EQ(list[0].GetLocation(), Loc("/one"));
    EXPECT_EQ(list.Add(Item(LM::LocalLibrary, "/three", "lib"), LibraryList::KeepExistingName), 2)
        << "names are compared in case";
    EXPECT_EQ(list.Add(Item(LM::LocalLibrary, "/three", "Lib"), LibraryList::NoFilter), 2);

    list[0].SetMissing(true);
    EXPECT_EQ(list.Add(Item(LM::LocalLibrary, "/four", "Lib"), LibraryList::KeepExistingName), 2);
    EXPECT_EQ(Names(list), (std::vector<std::string>{"Other", "lib", "Lib"}));
    EXPECT_EQ(list[2].GetLocation(), Loc("/four"));

    EXPECT_EQ(list.Add(Item(LM::BuiltInLibrary, "/five", "Other"), LibraryList::ReplaceExistingName), 2);
    EXPECT_EQ(Names(list), (std::vector<std::string>{"lib", "Lib", "Other"}));
    EXPECT_EQ(list[2].GetType(), LM::BuiltInLibrary);
}

TEST(LibraryList, UnnamedItemsAreNamedAfterWhatTheyPointTo) {
    ScopedCallBacks callBacks(ServerCallBacks());
    LibraryList list;
    list.AddLibrary(Loc("/libs/Objects/RFS"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    list.AddLibrary(Loc("/more/Doors/rfs"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    list.AddLibrary(Loc("/libs/Windows"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    list.AddLibrary(KL::UniString("http://host/path/Remote"));
    list.AddOtherObject(KL::UniString("no-slash"));
    list.AddServerLibrary(Loc("/servers/main"), IO::RelativeLocation("team/Shared"), "src", Loc("/copy"), 1);
    list.Add(Item(LM::LocalLibrary, "/libs/Given", "Given Name"), LibraryList::NoFilter);
    EXPECT_EQ(Names(list), (std::vector<std::string>{"Objects", "Doors", "Windows", "Remote", "", "Shared",
                                                     "Given Name"}));
    EXPECT_EQ(list[5].GetTWServerUrl(), KL::UniString("/servers/main"));

    // The mode of the added item picks the URL rule, even when another item stands for it.
    list[2].SetName("");
    LibraryItem url;
    url.SetType(LM::UrlLibrary);
    url.SetUrl("http://host/Named");
    EXPECT_EQ(list.Add(url, LibraryList::KeepExistingName), 2);
    EXPECT_TRUE(list[2].GetName().IsEmpty());
}

TEST(LibraryList, ServerUrlComesOnlyFromAValidServerId) {
    LibraryList list;
    list.AddServerLibrary(Loc("/servers/main"), IO::RelativeLocation("a"), "a", Loc("/copy/a"), 1);
    EXPECT_TRUE(list[0].GetTWServerUrl().IsEmpty());
    {
        ScopedCallBacks callBacks(ServerCallBacks());
        list.AddServerLibrary(Loc("/elsewhere/main"), IO::RelativeLocation("b"), "b", Loc("/copy/b"), 2);
        EXPECT_TRUE(list[1].GetTWServerUrl().IsEmpty());
    }
    LM::LibraryManagerCallBacks nameOnly;
    nameOnly.serverIdDisplayName = ServerCallBacks().serverIdDisplayName;
    ScopedCallBacks callBacks(nameOnly);
    list.AddServerLibrary(Loc("/servers/main"), IO::RelativeLocation("c"), "c", Loc("/copy/c"), 3);
    EXPECT_TRUE(list[2].GetTWServerUrl().IsEmpty());
    EXPECT_EQ(list[2].GetVersion(), 3);
    EXPECT_EQ(list[2].GetLocation(), Loc("/copy/c"));
}

TEST(LibraryList, MergeAddsWhatIsNewInOrder) {
    LibraryList list;
    list.AddLibrary(Loc("/a"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    list.AddLibrary(KL::UniString("http://host/b"));
    EXPECT_EQ(list.Merge(list), 0);
    EXPECT_EQ(Names(list), (std::vector<std::string>{"a", "b"}));

    LibraryList other;
    other.AddLibrary(Loc("/c"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    other.AddLibrary(Loc("/a"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    other.AddLibrary(Loc("/d"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    EXPECT_EQ(list.Merge(other), 0);
    EXPECT_EQ(Names(list), (std::vector<std::string>{"a", "b", "c", "d"}));
}

TEST(LibraryList, DeletionsAndTheirSkippedNeighbour) {
    LibraryList list;
    list.Add(Item(LM::LocalLibrary, "/x", "1"), LibraryList::NoFilter);
    list.Add(Item(LM::BuiltInLibrary, "/x", "2"), LibraryList::NoFilter);
    list.Add(Item(LM::LocalLibrary, "/y", "3"), LibraryList::NoFilter);
    list.Add(Item(LM::EmbeddedLibrary, "/x", "4"), LibraryList::NoFilter);
    list.Delete(Loc("/x"));
    EXPECT_EQ(Names(list), (std::vector<std::string>{"2", "3"}));

    LibraryItem first = Item(LM::UrlLibrary, "/one", "u1");
    first.SetUrl("http://host/u");
    LibraryItem second = Item(LM::OtherObjectByUrl, "/two", "u2");
    second.SetUrl("http://host/u");
    list.Add(first, LibraryList::NoFilter);
    list.Add(second, LibraryList::NoFilter);
    list.Delete(KL::UniString("http://host/u"));
    EXPECT_EQ(Names(list), (std::vector<std::string>{"2", "3", "u2"}));

    EXPECT_EQ(list.Delete(3U), LM::LibPartFileError);
    EXPECT_EQ(list.Delete(0U), 0);
    EXPECT_EQ(Names(list), (std::vector<std::string>{"3", "u2"}));

    list.Add(Item(LM::LocalLibrary, "", "e1"), LibraryList::NoFilter);
    list.Add(Item(LM::LocalLibrary, "", "e2"), LibraryList::NoFilter);
    EXPECT_EQ(list.Delete(Item(LM::LocalLibrary, "")), 0);
    EXPECT_EQ(Names(list), (std::vector<std::string>{"3", "u2", "e2"}));
    EXPECT_EQ(list.Delete(Item(LM::BuiltInLibrary, "/y")), LM::LibPartFileError);

    list.Add(Item(LM::EmbeddedLibrary, "/emb", "emb"), LibraryList::NoFilter);
    LibraryList keepAny = list;
    list.DeleteAll(LibraryList::KeepEmbedded);
    EXPECT_EQ(Names(list), (std::vector<std::string>{"emb"}));
    keepAny.DeleteAll(static_cast<LibraryList::DeleteEmbeddedLibraries>(7));
    EXPECT_EQ(Names(keepAny), (std::vector<std::string>{"emb"}));
    list.DeleteAll(LibraryList::DeleteEmbedded);
    EXPECT_EQ(list.GetLibraryNum(LM::AllLibraryModes), 0);
}

TEST(LibraryList, SortPutsBuiltInEmbeddedAndLocalFirstThenByName) {
    LibraryList list;
    list.Add(Item(LM::OtherObjectByLocation, "/o/beta", "beta"), LibraryList::NoFilter);
    list.Add(Item(LM::LocalLibrary, "/l/Zeta", "Zeta"), LibraryList::NoFilter);
    list.Add(Item(LM::EmbeddedLibrary, "/e/emb", "emb"), LibraryList::NoFilter);
    list.Add(Item(LM::UrlLibrary, "/u/Alpha", "Alpha"), LibraryList::NoFilter);
    list.Add(Item(LM::LocalLibrary, "/l/alpha", "alpha"), LibraryList::NoFilter);
    list.Add(Item(LM::BuiltInLibrary, "/b/zz", "zz"), LibraryList::NoFilter);
    list.Add(Item(LM::LocalLibrary, "/l/ALPHA", "ALPHA"), LibraryList::NoFilter);
    list.Add(Item(LM::LocalLibrary, "/l/Middle/rfs", "Middle"), LibraryList::NoFilter);
    // Unnamed, it sorts by the folder above "rfs" and keeps its place before the named "Middle".
    list[7].SetName("");
    list.Add(Item(LM::LocalLibrary, "/l/m2/Middle", "Middle"), LibraryList::NoFilter);
    list.SortByTypeAndName();
    EXPECT_EQ(Names(list), (std::vector<std::string>{"zz", "emb", "alpha", "ALPHA", "", "Middle", "Zeta",
                                                     "Alpha", "beta"}));
    EXPECT_EQ(list[4].GetLocation(), Loc("/l/Middle/rfs"));
}

TEST(LibraryList, EqualityIgnoresOrderAndLeavesEmbeddedOutOfTheCount) {
    LibraryList one;
    one.Add(Item(LM::LocalLibrary, "/a"), LibraryList::NoFilter);
    one.Add(Item(LM::LocalLibrary, "/b"), LibraryList::NoFilter);
    LibraryList two;
    two.Add(Item(LM::LocalLibrary, "/b"), LibraryList::NoFilter);
    two.Add(Item(LM::LocalLibrary, "/a"), LibraryList::NoFilter);
    EXPECT_TRUE(one == two);
    two.Add(Item(LM::EmbeddedLibrary, "/e"), LibraryList::NoFilter);
    EXPECT_TRUE(one == two);
    EXPECT_FALSE(two == one) << "each embedded item is still looked for";
    EXPECT_TRUE(two != one);

    LibraryList embeddedOnly;
    embeddedOnly.Add(Item(LM::EmbeddedLibrary, "/e"), LibraryList::NoFilter);
    EXPECT_FALSE(embeddedOnly == LibraryList());
    EXPECT_TRUE(LibraryList() == embeddedOnly);

    // Two items with no location are alike, so the test is one-sided with duplicates.
    LibraryList duplicates;
    duplicates.Add(Item(LM::LocalLibrary, ""), LibraryList::NoFilter);
    duplicates.Add(Item(LM::LocalLibrary, ""), LibraryList::NoFilter);
    LibraryList mixed;
    mixed.Add(Item(LM::LocalLibrary, ""), LibraryList::NoFilter);
    mixed.Add(Item(LM::LocalLibrary, "/a"), LibraryList::NoFilter);
    EXPECT_TRUE(duplicates == mixed);
    EXPECT_FALSE(mixed == duplicates);
}

TEST(LibraryList, IsEqualWithBuiltInEmbeddedAndVersions) {
    LibraryList base;
    base.Add(Item(LM::LocalLibrary, "/a"), LibraryList::NoFilter);
    base.Add(ServerItem("tw://s", "lib", "/copy"), LibraryList::NoFilter);
    LibraryList withBuiltIn = base;
    withBuiltIn.Add(Item(LM::BuiltInLibrary, "/builtin"), LibraryList::NoFilter);

    for (bool ignored : {false, true}) {
        EXPECT_TRUE(base.IsEqual(withBuiltIn, ignored, false, false, false));
        EXPECT_TRUE(withBuiltIn.IsEqual(base, ignored, false, false, false));
        EXPECT_FALSE(base.IsEqual(withBuiltIn, ignored, true, false, false));
        EXPECT_FALSE(withBuiltIn.IsEqual(base, ignored, true, false, false));
    }

    LibraryList withEmbedded = base;
    withEmbedded.Add(Item(LM::EmbeddedLibrary, "/emb"), LibraryList::NoFilter);
    EXPECT_TRUE(withEmbedded.IsEqual(base, false, true, false, false));
    EXPECT_FALSE(withEmbedded.IsEqual(base, false, true, true, false));
    EXPECT_TRUE(base.IsEqual(withEmbedded, false, true, true, false))
        << "only this side's items are looked for";
    EXPECT_FALSE(withEmbedded.IsEqual(withEmbedded, false, false, true, false));
    EXPECT_FALSE(base.IsEqual(withEmbedded, false, false, true, false));
    EXPECT_TRUE(base.IsEqual(base, false, false, true, false));

    LibraryList newer = base;
    newer[1].SetVersion(7);
    EXPECT_TRUE(base.IsEqual(newer, false, true, true, false));
    EXPECT_FALSE(base.IsEqual(newer, false, true, true, true));
    EXPECT_TRUE(base.IsEqual(base, false, true, true, true));
}

TEST(LibraryList, FirstWritableLibraryIsALocalFolderThatCanBeWritten) {
    ScratchFolder scratch;
    std::filesystem::create_directories(scratch.Path() / "builtin");
    std::filesystem::create_directories(scratch.Path() / "locked");
    std::filesystem::create_directories(scratch.Path() / "open");
    std::filesystem::permissions(scratch.Path() / "locked",
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    LibraryList list;
    IO::Location found = Loc("/unchanged");
    EXPECT_EQ(list.GetFirstWritableLibrary(&found), LM::LibPartFileError);
    EXPECT_EQ(found, Loc("/unchanged"));

    list.AddLibrary(scratch.Location("builtin"), LM::BuiltInLibrary, LM::NotVital, KL::NULLGuid, "", false);
    list.AddLibrary(scratch.Location("absent"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    if (testsupport::PermissionsAreEnforced())
        list.AddLibrary(scratch.Location("locked"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    EXPECT_EQ(list.GetFirstWritableLibrary(&found), LM::LibPartFileError);
    list.AddLibrary(scratch.Location("open"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    EXPECT_EQ(list.GetFirstWritableLibrary(&found), 0);
    EXPECT_EQ(found, scratch.Location("open"));
    EXPECT_EQ(list.GetFirstWritableLibrary(nullptr), 0);
}

class ActivatedList : public ::testing::Test {
protected:
    ActivatedList() {
        LibraryItem local = Item(LM::LocalLibrary, "/l/Zeta");
        local.SetVital(LM::Vital);
        local.SetGuid(LibraryGuid);
        local.SetLangCode("ENG");
        local.SetCollapseLongBranches(true);
        list.Add(local, LibraryList::NoFilter);
        LibraryItem url = Item(LM::UrlLibrary, "");
        url.SetUrl("http://host/Remote");
        list.Add(url, LibraryList::NoFilter);
        list.AddOtherObject(Loc("/o/door.klm"));
        LibraryItem embedded = Item(LM::EmbeddedLibrary, "/e/Emb");
        embedded.SetGuid(OtherGuid);
        embedded.SetLangCode("GER");
        embedded.SetCollapseLongBranches(true);
        list.Add(embedded, LibraryList::NoFilter);
        list.AddLibrary(Loc("/b/BuiltIn"), LM::BuiltInLibrary, LM::Vital, KL::NULLGuid, "", false);
        list.AddLibrary(Loc("/l/alpha"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, "", false);
    }

    std::vector<std::string> ExpectedCalls() const {
        const std::string null = KL::NULLGuid.ToString();
        return {"reset",
                "library /b/BuiltIn mode 3 vital 1 " + null + " '' keep",
                "library /e/Emb mode 5 vital 0 " + null + " '' keep",
                "library /l/alpha mode 1 vital 0 " + null + " '' keep",
                "library /l/Zeta mode 1 vital 1 " + LibraryGuid.ToString() + " 'ENG' collapse",
                "url http://host/Remote mode 1 vital 0"};
    }

    KL::NonInterruptibleProcessControl process;
    RecordingModifier modifier;
    LibraryList list;
};

TEST_F(ActivatedList, LibrariesGoInByGroupWithoutServerLibraries) {
    Confirmation confirmation;
    LM::LibraryManagerCallBacks callBacks;
    callBacks.confirmLibraryList = RecordConfirmation;
    ScopedCallBacks scoped(callBacks);
    EXPECT_FALSE(list.SetActiveLibraries(process, modifier, true, &confirmation));
    EXPECT_EQ(modifier.calls, ExpectedCalls());
    EXPECT_EQ(confirmation.calls, 0);
    EXPECT_EQ(list[0].GetName(), KL::UniString("Zeta")) << "the list itself stays unsorted";
}

TEST_F(ActivatedList, ServerLibrariesAreLeftToTheHost) {
    list.Add(ServerItem("tw://s", "team/Shared", "/copy"), LibraryList::NoFilter);
    EXPECT_TRUE(list.SetActiveLibraries(process, modifier, true));
    EXPECT_EQ(modifier.calls, ExpectedCalls());

    Confirmation confirmation;
    LM::LibraryManagerCallBacks callBacks;
    callBacks.confirmLibraryList = RecordConfirmation;
    ScopedCallBacks scoped(callBacks);
    modifier.calls.clear();
    EXPECT_FALSE(list.SetActiveLibraries(process, modifier, false, &confirmation));
    EXPECT_EQ(modifier.calls, ExpectedCalls());
    EXPECT_EQ(confirmation.calls, 1);
    EXPECT_EQ(confirmation.modifier, &modifier);
    EXPECT_EQ(confirmation.names,
              (std::vector<std::string>{"BuiltIn", "Emb", "alpha", "Zeta", "door.klm", "Remote", "Shared"}));
    EXPECT_TRUE(list.SetActiveLibraries(process, modifier, true, &confirmation));
    EXPECT_EQ(confirmation.calls, 2);
}

TEST(LibraryListFromSet, OneItemPerActiveLibrary) {
    ScopedCallBacks callBacks(ServerCallBacks());
    LM::DefLibraryErrorHandler handler;
    LM::LibrarySet set(nullptr, handler, nullptr, {}, {}, FTM::UnknownGroup, IO::Location());
    KL::NonInterruptibleProcessControl process;
    LibraryList list;
    list.AddLibrary(Loc("/l/Local"), LM::LocalLibrary, LM::Vital, LibraryGuid, "ENG", true);
    list.AddLibrary(Loc("/b/BuiltIn"), LM::BuiltInLibrary, LM::NotVital, KL::NULLGuid, "", false);
    list.AddLibrary(Loc("/e/Emb"), LM::EmbeddedLibrary, LM::NotVital, KL::NULLGuid, "", false);
    list.AddLibrary(KL::UniString("http://host/Remote"));
    list.SetActiveLibraries(process, LM::LibrarySet::Modifier(&set), false);
    set.AddServerActiveLibrary(Loc("/copy"), Loc("/servers/main"), IO::RelativeLocation("team/Shared"), "src",
                               5, LM::NotVital);

    const LibraryList fromSet(set);
    ASSERT_EQ(fromSet.GetLibraryNum(LM::AllLibraryModes), 5);
    EXPECT_EQ(fromSet[0].GetType(), LM::BuiltInLibrary);
    EXPECT_EQ(fromSet[1].GetType(), LM::EmbeddedLibrary);
    const LibraryItem& local = fromSet[2];
    EXPECT_EQ(local.GetType(), LM::LocalLibrary);
    EXPECT_EQ(local.GetName(), KL::UniString("Local"));
    EXPECT_TRUE(local.IsVital());
    EXPECT_EQ(local.GetGuid(), LibraryGuid);
    EXPECT_EQ(local.GetLangCode(), KL::UniString("ENG"));
    EXPECT_TRUE(local.GetCollapseLongBranches());
    EXPECT_EQ(fromSet[3].GetType(), LM::UrlLibrary);
    EXPECT_EQ(fromSet[3].GetUrl(), KL::UniString("http://host/Remote"));
    const LibraryItem& server = fromSet[4];
    EXPECT_EQ(server.GetType(), LM::ServerLibrary);
    EXPECT_EQ(server.GetTWServerUrl(), KL::UniString("/servers/main"));
    EXPECT_EQ(server.GetRelLocation(), IO::RelativeLocation("team/Shared"));
    EXPECT_EQ(server.GetSourceLocation(), KL::UniString("src"));
    EXPECT_EQ(server.GetVersion(), 5);

    list.AddServerLibrary(Loc("/servers/main"), IO::RelativeLocation("team/Shared"), "src", Loc("/copy"), 5);
    EXPECT_TRUE(fromSet.IsEqual(list, false, true, true, true));
}

} // namespace
