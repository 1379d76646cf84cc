// Symbol records: filled from real part files, streamed as the library cache's record, dumped as
// XML, and their files opened once whatever thread asks first.
#include "support/ReleaseNote.hpp"
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <latch>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace LM {

// The cache record belongs to LibPart; the tests reach it through this one friend.
struct SymbolStreamAccess {
    static int Write(const Symbol& symbol, KL::OChannel& channel) { return symbol.Write(channel); }
    static int Read(Symbol& symbol, KL::IChannel& channel, char*** ancestry,
                    MigrationTableObject* migration) {
        return symbol.Read(channel, ancestry, migration);
    }
};

} // namespace LM

namespace {

using Access = LM::SymbolStreamAccess;
using LPF::MakeCode;
using testsupport::NewReleaseNote;
using testsupport::ScratchFolder;

constexpr KL::Guid MainGuid("3F2A6C10-5D4E-4B7A-9C81-0E2F3A4B5C61");
constexpr KL::Guid RevisionGuid("3F2A6C10-5D4E-4B7A-9C81-0E2F3A4B5C62");
constexpr KL::Guid RootMain("3F2A6C10-5D4E-4B7A-9C81-0E2F3A4B5C63");
constexpr KL::Guid ParentMain("3F2A6C10-5D4E-4B7A-9C81-0E2F3A4B5C64");
constexpr KL::Guid ReplacedMain("3F2A6C10-5D4E-4B7A-9C81-0E2F3A4B5C65");
constexpr KL::Guid OlderMain("3F2A6C10-5D4E-4B7A-9C81-0E2F3A4B5C66");
constexpr KL::UnID ChairId(MainGuid, RevisionGuid);

// Bytes of the record before the ancestry: own id, two flags, migration value, ancestry size.
constexpr std::size_t AncestryOffset = 2 * 16 + 3 + 4;

std::string AncestryBytes() {
    LM::AncestryInfo ancestry;
    ancestry.Append(KL::UnID(RootMain, RevisionGuid));
    ancestry.Append(KL::UnID(ParentMain, RevisionGuid));
    ancestry.MarkAsTemplate();
    const KL::ScopedHandle section(ancestry.GetAncestrySection());
    return std::string(section.GetData(), section.GetSize());
}

MigrationTable Replacements() {
    MigrationTable table;
    table.Add(ReplacedMain, {3, true});
    table.Add(OlderMain, {-2, false});
    return table;
}

std::string MigrationBytes() {
    KL::MemoryOChannel out(KL::HostPlatformSign);
    EXPECT_EQ(Replacements().Write(out), KL::NoError);
    const std::vector<char>& bytes = out.GetData();
    return std::string(bytes.begin(), bytes.end());
}

// Parameters with a header that sets something in every field; `complete` adds frame expressions
// and the orientation texts.
std::string ParameterBytes(bool complete) {
    SyParSection section;
    SyParHeader& header = section.header;
    header.autoHotspots = true;
    header.statusBits = STBit_FixSize | STBit_OneRunVLScript;
    header.leftFrame = 0.25F;
    header.rightFrame = 0.5F;
    header.topFrame = 1.5F;
    header.bottomFrame = -0.75F;
    header.layerFlags = 7;
    header.mirrorThickness = 0.125F;
    header.wallInset = 3.5F;
    header.symbolColor = 9;
    SyParameter width;
    width.name = "A";
    width.type = ParLength;
    width.numbers = {1.5};
    SyParameter material;
    material.name = "legMat";
    material.type = ParString;
    material.texts = {KL::UniString("Oak")};
    section.parameters = {width, material};
    if (complete) {
        section.frameExpressions = {"A/2", "B+1"};
        section.hasOrientation = true;
        section.orientationDef = "x";
        section.orientationMirr = "y";
    }
    const KL::ScopedHandle handle(BuildSyParHandle(section));
    return std::string(handle.GetData(), handle.GetSize());
}

void AddSection(LPF::SymbolFile& part, LPF::SectionTag tag, const std::string& bytes, std::uint16_t version,
                std::uint8_t flags) {
    const LPF::SectionInfo info{tag, 0, version, flags};
    ASSERT_EQ(part.SetSection(info, bytes.data(), bytes.size()), KL::NoError);
}

// One element a line, in document order: "path=text" for a leaf, "path" for an element with children.
void FlattenInto(KL::XMLIChannel& in, const std::string& path, std::vector<std::string>* lines) {
    for (std::string name = in.PeekNextName(); !name.empty(); name = in.PeekNextName()) {
        const std::string child = path.empty() ? name : path + "/" + name;
        in.StartTag(name);
        if (in.PeekNextName().empty()) {
            KL::UniString text;
            in.ReadText(text);
            lines->push_back(child + "=" + text.ToUTF8());
        } else {
            lines->push_back(child);
            FlattenInto(in, child, lines);
        }
        in.EndTag(name);
    }
}

std::vector<std::string> XMLLines(const LM::Symbol& symbol, unsigned detail) {
    KL::XMLOChannel out;
    EXPECT_EQ(symbol.WriteToXML(out, detail), KL::NoError);
    KL::XMLIChannel in;
    EXPECT_EQ(in.Parse(out.ToString()), KL::NoError);
    std::vector<std::string> lines;
    FlattenInto(in, "", &lines);
    return lines;
}

std::vector<std::string> LinesUnder(const std::vector<std::string>& lines, const std::string& path) {
    std::vector<std::string> under;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(under),
                 [&path](const std::string& line) { return line.starts_with(path); });
    return under;
}

// The elements below "Symbol", without their content.
std::vector<std::string> SymbolChildren(const std::vector<std::string>& lines) {
    std::vector<std::string> names;
    for (const std::string& line : lines) {
        const std::string name = line.substr(0, line.find('='));
        if (name.starts_with("Symbol/") && name.find('/', 7) == std::string::npos)
            names.push_back(name.substr(7));
    }
    return names;
}

std::string Text(const KL::Guid& guid) {
    return guid.ToString();
}

std::vector<char> Record(const LM::Symbol& symbol) {
    KL::MemoryOChannel out;
    EXPECT_EQ(Access::Write(symbol, out), KL::NoError);
    return out.TakeData();
}

class SymbolRecord : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(InitLibPartFile("Default_Set"), KL::NoError); }

    // A placeable chair that replaces two parts; `complete` gives it its three dumped sections, and
    // frame expressions and orientation among its parameters.
    IO::Location SaveChair(const std::string& relative, const char* name, bool complete) {
        LPF::SymbolFile part;
        part.SetOwnUnID(ChairId);
        part.SetPlaceable(true);
        part.SetMigrationValue(LPF::IncompatiblyChanged);
        part.SetDocumentName(KL::UniString(name));
        part.SetOwner(MakeCode("ABCD"));
        part.SetType(MakeCode("KMAC"));
        if (complete) {
            AddSection(part, LPF::Tags::Ancestry, AncestryBytes(), 3, 5);
            AddSection(part, LPF::Tags::MigrationTable, MigrationBytes(), 1, 0);
        }
        AddSection(part, LPF::Tags::Parameters, ParameterBytes(complete), 2, 1);
        scratch.Write(relative, "");
        EXPECT_EQ(part.Save(scratch.Location(relative)), KL::NoError);
        return scratch.Location(relative);
    }

    LM::Symbol& Filled(LM::Symbol& symbol, const IO::Location& location) {
        int modTime = 0;
        KL::UniString name;
        symbol.FillSymbol(location, &modTime, &name);
        return symbol;
    }

    ScratchFolder scratch;
};

TEST(Symbol, StartsEmptyAndClearKeepsIdentityAndPlace) {
    LM::Symbol symbol;
    EXPECT_EQ(symbol.GetOwnUnID(), KL::NULLUnID);
    EXPECT_EQ(symbol.GetProxy(), -1);
    EXPECT_EQ(symbol.GetAncestryId(), nullptr);
    EXPECT_FALSE(symbol.IsTemplate() || symbol.IsPlaceable() || symbol.IsArchivable());
    EXPECT_EQ(symbol.GetMigrationValue(), LPF::Normal);
    for (int type = 1; type <= 8; ++type)
        EXPECT_EQ(symbol.GetQdlBinCodeIndex(QDL_ScriptType(type)), -1) << type;

    symbol.SetQdlBinCodeIndex(QDL_MasterScript, 17);
    EXPECT_EQ(symbol.GetQdlBinCodeIndex(QDL_MasterScript), 17);
    EXPECT_EQ(symbol.GetQdlBinCodeIndex(QDL_3DScript), -1);
    LM::QdlBinCodeIndexArray indices;
    for (int type = 1; type <= 8; ++type)
        indices.Set(QDL_ScriptType(type), type * 10);
    symbol.SetQdlBinCodeIndex(&indices);
    symbol.SetQdlBinCodeIndex(nullptr);
    for (int type = 1; type <= 8; ++type)
        EXPECT_EQ(symbol.GetQdlBinCodeIndex(QDL_ScriptType(type)), type * 10) << type;
    symbol.ClearQdlBinCodeIndex();
    EXPECT_EQ(symbol.GetQdlBinCodeIndex(QDL_ParameterScript), -1);
    EXPECT_EQ(symbol.GetQdlBinCodeIndex(QDL_BackwardMigrationScript), -1);

    int anchor = 0; // a tree node is only ever compared here, never entered
    auto* node = reinterpret_cast<LM::Paths::TreeEntry*>(&anchor);
    bool released = false;
    symbol.SetOwnUnID(ChairId);
    symbol.SetProxy(12);
    symbol.SetAncestryId(node);
    symbol.SetAsTemplate(true);
    symbol.SetPlaceable(true);
    symbol.SetArchivable(true);
    symbol.SetMigrationValue(LPF::Obsolete);
    symbol.SetQdlBinCodeIndex(QDL_2DScript, 4);
    symbol.SetUserData(MainGuid, NewReleaseNote(&released));
    EXPECT_TRUE(symbol.IsTemplate() && symbol.IsPlaceable() && symbol.IsArchivable());
    EXPECT_EQ(symbol.GetMigrationValue(), LPF::Obsolete);

    symbol.Clear();
    EXPECT_FALSE(symbol.IsTemplate() || symbol.IsPlaceable() || symbol.IsArchivable());
    EXPECT_EQ(symbol.GetMigrationValue(), LPF::Normal);
    EXPECT_EQ(symbol.GetQdlBinCodeIndex(QDL_2DScript), -1);
    EXPECT_TRUE(released);
    EXPECT_EQ(symbol.GetOwnUnID(), ChairId);
    EXPECT_EQ(symbol.GetProxy(), 12);
    EXPECT_EQ(symbol.GetAncestryId(), node);
}

TEST(Symbol, UserDataIsOneCountedEntryPerClient) {
    LM::Symbol symbol;
    symbol.SetUserData(MainGuid, nullptr); // no entry to remove
    EXPECT_TRUE(symbol.GetUserData(MainGuid).IsNull());

    bool firstReleased = false;
    bool secondReleased = false;
    KL::ConstSharedPtr<LM::SymbolUserData> first = NewReleaseNote(&firstReleased);
    symbol.SetUserData(MainGuid, first);
    EXPECT_EQ(symbol.GetUserData(MainGuid).Get(), first.Get());
    EXPECT_TRUE(symbol.GetUserData(RevisionGuid).IsNull());
    EXPECT_EQ(first->GetReferenceCount(), 2U);

    symbol.SetUserData(MainGuid, NewReleaseNote(&secondReleased));
    EXPECT_NE(symbol.GetUserData(MainGuid).Get(), first.Get());
    EXPECT_EQ(first->GetReferenceCount(), 1U); // the replaced entry was let go
    first.Reset();
    EXPECT_TRUE(firstReleased);

    symbol.SetUserData(MainGuid, nullptr);
    EXPECT_TRUE(secondReleased);
    EXPECT_TRUE(symbol.GetUserData(MainGuid).IsNull());

    bool clearedReleased = false;
    bool destroyedReleased = false;
    symbol.SetUserData(RevisionGuid, NewReleaseNote(&clearedReleased));
    symbol.ClearUserData();
    EXPECT_TRUE(clearedReleased);
    {
        LM::Symbol scoped;
        scoped.SetUserData(MainGuid, NewReleaseNote(&destroyedReleased));
    }
    EXPECT_TRUE(destroyedReleased);
}

TEST_F(SymbolRecord, FillReadsThePartFileAndKeepsWhatTheCatalogueOwns) {
    const IO::Location chair = SaveChair("Objects/chair.klm", "Office Chair", true);
    LM::Symbol symbol;
    int anchor = 0;
    auto* node = reinterpret_cast<LM::Paths::TreeEntry*>(&anchor);
    bool released = false;
    symbol.SetProxy(4);
    symbol.SetAncestryId(node);
    symbol.SetAsTemplate(true);
    symbol.SetQdlBinCodeIndex(QDL_3DScript, 12);
    symbol.SetUserData(MainGuid, NewReleaseNote(&released));

    int modTime = 0;
    KL::UniString name;
    symbol.FillSymbol(chair, &modTime, &name);
    EXPECT_EQ(symbol.GetOwnUnID(), ChairId);
    EXPECT_TRUE(symbol.IsPlaceable());
    EXPECT_FALSE(symbol.IsArchivable());
    EXPECT_EQ(symbol.GetMigrationValue(), LPF::IncompatiblyChanged);
    EXPECT_EQ(name, KL::UniString("Office Chair"));
    EXPECT_NE(modTime, 0);
    EXPECT_FALSE(symbol.IsTemplate());
    EXPECT_EQ(symbol.GetQdlBinCodeIndex(QDL_3DScript), -1);
    EXPECT_TRUE(released);
    EXPECT_EQ(symbol.GetProxy(), 4);
    EXPECT_EQ(symbol.GetAncestryId(), node);

    // The file that filling opened is the one given out, whatever location a later call names.
    const LPF::SymbolFile* file = symbol.GetSymbolFile(IO::Location());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->GetStatus(), KL::NoError);
    EXPECT_EQ(std::as_const(symbol).GetSymbolFile(chair), file);

    // A reload reads the changed file and leaves the tree node to the next rebuild.
    SaveChair("Objects/chair.klm", "Chair Renamed", false);
    symbol.ReloadSymbol(chair, &modTime, &name);
    EXPECT_EQ(name, KL::UniString("Chair Renamed"));
    EXPECT_EQ(symbol.GetAncestryId(), nullptr);
    EXPECT_EQ(symbol.GetProxy(), 4);
    EXPECT_FALSE(symbol.GetSymbolFile(chair)->HasSection(LPF::Tags::Ancestry, 0));

    // A file that is no part leaves the values of Clear, a null id, and the outputs as they were.
    scratch.Write("Objects/broken.klm", "not a part at all");
    int brokenTime = 77;
    KL::UniString brokenName("kept");
    symbol.FillSymbol(scratch.Location("Objects/broken.klm"), &brokenTime, &brokenName);
    EXPECT_EQ(symbol.GetOwnUnID(), KL::NULLUnID);
    EXPECT_FALSE(symbol.IsPlaceable());
    EXPECT_EQ(symbol.GetMigrationValue(), LPF::Normal);
    EXPECT_EQ(brokenTime, 77);
    EXPECT_EQ(brokenName, KL::UniString("kept"));
    ASSERT_NE(symbol.GetSymbolFile(chair), nullptr);
    EXPECT_NE(symbol.GetSymbolFile(chair)->GetStatus(), KL::NoError);
}

TEST_F(SymbolRecord, ScriptsGiveTheirTimeAndFileName) {
    scratch.Write("Macros/Shared Rail.qdl", "! rail\nEND\n");
    const IO::Location rail = scratch.Location("Macros/Shared Rail.qdl");
    LM::Symbol script;
    script.SetOwnUnID(ChairId);
    int anchor = 0;
    script.SetAncestryId(reinterpret_cast<LM::Paths::TreeEntry*>(&anchor));

    int modTime = 0;
    KL::UniString name;
    script.FillScript(rail, &modTime, &name);
    EXPECT_EQ(name, KL::UniString("Shared Rail"));
    EXPECT_NE(modTime, 0);
    EXPECT_EQ(script.GetOwnUnID(), KL::NULLUnID);
    EXPECT_NE(script.GetAncestryId(), nullptr);
    const LPF::ScriptFile* file = script.GetScriptFile(IO::Location());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::as_const(script).GetScriptFile(rail), file);

    script.ReloadScript(rail, &modTime, &name);
    EXPECT_EQ(script.GetAncestryId(), nullptr);

    int missingTime = 5;
    KL::UniString missingName("kept");
    script.FillScript(scratch.Location("Macros/gone.qdl"), &missingTime, &missingName);
    EXPECT_EQ(missingTime, 5);
    EXPECT_EQ(missingName, KL::UniString("kept"));

    // Nothing to dump for a symbol without a part file.
    KL::XMLOChannel out;
    EXPECT_EQ(script.WriteToXML(out, 0), KL::NoError);
    EXPECT_EQ(out.ToString(), KL::XMLOChannel().ToString());
}

TEST_F(SymbolRecord, XMLGivesTheHeaderAndTheDumpsThatDetailLeavesOn) {
    LM::Symbol unopened;
    KL::XMLOChannel nothing;
    EXPECT_EQ(unopened.WriteToXML(nothing, 0), KL::NoError);
    EXPECT_EQ(nothing.ToString(), KL::XMLOChannel().ToString());

    LM::Symbol symbol;
    Filled(symbol, SaveChair("chair.klm", "Office Chair", true));
    const std::vector<std::string> header = {
        "Symbol",
        "Symbol/IsArchivable=false",
        "Symbol/IsPlaceable=true",
        "Symbol/MainGuid=" + Text(MainGuid),
        "Symbol/MigrationValue=IncompatiblyChanged",
        "Symbol/Owner=" + std::to_string(MakeCode("ABCD")),
        "Symbol/Signature=" + std::to_string(MakeCode("KMAC")),
        "Symbol/DocumentName=Office Chair",
    };
    EXPECT_EQ(XMLLines(symbol, 7), header);

    // Bit 1 switches off the ancestry, 2 the parameters, 4 the migration table.
    const std::pair<unsigned, const char*> Dumps[] = {
        {1, "Ancestry"}, {2, "ParamSection"}, {4, "MigrationTable"}};
    const std::vector<std::string> headerNames = SymbolChildren(header);
    for (unsigned detail = 0; detail < 8; ++detail) {
        std::vector<std::string> expected = headerNames;
        for (const auto& [bit, dump] : Dumps) {
            if ((detail & bit) == 0)
                expected.emplace_back(dump);
        }
        EXPECT_EQ(SymbolChildren(XMLLines(symbol, detail)), expected) << detail;
    }

    const std::vector<std::string> lines = XMLLines(symbol, 0);
    EXPECT_EQ(LinesUnder(lines, "Symbol/Ancestry"), (std::vector<std::string>{
                                                        "Symbol/Ancestry",
                                                        "Symbol/Ancestry/SectVersion=3",
                                                        "Symbol/Ancestry/SectionFlags=5",
                                                        "Symbol/Ancestry/SubIdent=0",
                                                        "Symbol/Ancestry/Template=true",
                                                        "Symbol/Ancestry/MainGUID=" + Text(RootMain),
                                                        "Symbol/Ancestry/MainGUID=" + Text(ParentMain),
                                                    }));
    EXPECT_EQ(LinesUnder(lines, "Symbol/MigrationTable"),
              (std::vector<std::string>{
                  "Symbol/MigrationTable",
                  "Symbol/MigrationTable/SectVersion=1",
                  "Symbol/MigrationTable/SectionFlags=0",
                  "Symbol/MigrationTable/SubIdent=0",
                  "Symbol/MigrationTable/MigrationTableElement",
                  "Symbol/MigrationTable/MigrationTableElement/MainGUID=" + Text(ReplacedMain),
                  "Symbol/MigrationTable/MigrationTableElement/Version=3",
                  "Symbol/MigrationTable/MigrationTableElement",
                  "Symbol/MigrationTable/MigrationTableElement/MainGUID=" + Text(OlderMain),
                  "Symbol/MigrationTable/MigrationTableElement/Version=-2",
              }));

    // The parameters themselves are the engine's dump; around them stand the header and the texts.
    std::vector<std::string> parameters = LinesUnder(lines, "Symbol/ParamSection");
    const std::vector<std::string> values = LinesUnder(parameters, "Symbol/ParamSection/Parameters/");
    EXPECT_NE(std::find(values.begin(), values.end(), "Symbol/ParamSection/Parameters/String/Value=Oak"),
              values.end());
    std::erase_if(parameters, [](const std::string& line) {
        return line.starts_with("Symbol/ParamSection/Parameters/");
    });
    const std::string head = "Symbol/ParamSection/ParamSectHeader";
    const std::vector<std::string> parameterDump = {
        "Symbol/ParamSection",
        "Symbol/ParamSection/SectVersion=2",
        "Symbol/ParamSection/SectionFlags=1",
        "Symbol/ParamSection/SubIdent=0",
        head,
        head + "/Version=" + std::to_string(CurrentParHeaderVersion),
        head + "/AutoHotspots=true",
        head + "/StatBits",
        head + "/StatBits/STBit_FixSize=",
        head + "/StatBits/STBit_OneRunVLScript=",
        head + "/WDLeftFrame=0.25",
        head + "/WDRightFrame=0.5",
        head + "/WDTopFrame=1.5",
        head + "/WDBotFrame=-0.75",
        head + "/LayFlags=7",
        head + "/WDMirrorThickness=0.125",
        head + "/WDWallInset=3.5",
        head + "/SymbolColor=9",
        "Symbol/ParamSection/Parameters",
        "Symbol/ParamSection/WDFrameExpression",
        "Symbol/ParamSection/WDFrameExpression/F=A/2",
        "Symbol/ParamSection/WDFrameExpression/F=B+1",
        "Symbol/ParamSection/WDOrientation",
        "Symbol/ParamSection/WDOrientation/Def=x",
        "Symbol/ParamSection/WDOrientation/Mirr=y",
    };
    EXPECT_EQ(parameters, parameterDump);

    // A value outside the three known ones has no name.
    symbol.SetMigrationValue(LPF::MigrationValue(5));
    EXPECT_EQ(XMLLines(symbol, 7)[4], "Symbol/MigrationValue=");

    // Without frame expressions and orientation their elements stay out; without the sections, so
    // do their dumps.
    LM::Symbol plain;
    Filled(plain, SaveChair("plain.klm", "Plain Chair", false));
    const std::vector<std::string> plainLines = XMLLines(plain, 0);
    EXPECT_EQ(SymbolChildren(plainLines),
              (std::vector<std::string>{"IsArchivable", "IsPlaceable", "MainGuid", "MigrationValue", "Owner",
                                        "Signature", "DocumentName", "ParamSection"}));
    EXPECT_EQ(LinesUnder(plainLines, "Symbol/ParamSection/W"), std::vector<std::string>());
}

// An ancestry section that cannot be read as a chain still shows that it is there.
TEST_F(SymbolRecord, XMLNamesADamagedAncestrySection) {
    LPF::SymbolFile part;
    part.SetOwnUnID(ChairId);
    part.SetDocumentName(KL::UniString("Broken Chair"));
    AddSection(part, LPF::Tags::Ancestry, std::string(32, '\xff'), 2, 1);
    scratch.Write("broken.klm", "");
    ASSERT_EQ(part.Save(scratch.Location("broken.klm")), KL::NoError);
    LM::Symbol symbol;
    Filled(symbol, scratch.Location("broken.klm"));
    EXPECT_EQ(LinesUnder(XMLLines(symbol, 6), "Symbol/Ancestry"),
              (std::vector<std::string>{"Symbol/Ancestry", "Symbol/Ancestry/SectVersion=2",
                                        "Symbol/Ancestry/SectionFlags=1", "Symbol/Ancestry/SubIdent=0",
                                        "Symbol/Ancestry/Template=false"}));
}

TEST_F(SymbolRecord, CacheRecordCarriesTheOpenFilesAncestryAndMigrationTable) {
    LM::Symbol symbol;
    Filled(symbol, SaveChair("chair.klm", "Office Chair", true));
    const std::vector<char> bytes = Record(symbol);
    ASSERT_GT(bytes.size(), AncestryOffset);
    EXPECT_EQ(KL::LoadInOrder<std::uint32_t>(bytes.data() + AncestryOffset - 4, KL::LittleEndianSign),
              AncestryBytes().size());

    LM::Symbol read;
    char** ancestry = nullptr;
    MigrationTableObject migration;
    KL::MemoryIChannel in(bytes);
    ASSERT_EQ(Access::Read(read, in, &ancestry, &migration), KL::NoError);
    const KL::ScopedHandle readAncestry(ancestry);
    EXPECT_EQ(in.GetAvailable(), 0);
    EXPECT_EQ(read.GetOwnUnID(), ChairId);
    EXPECT_TRUE(read.IsPlaceable());
    EXPECT_FALSE(read.IsArchivable());
    EXPECT_EQ(read.GetMigrationValue(), LPF::IncompatiblyChanged);
    ASSERT_NE(readAncestry.Get(), nullptr);
    EXPECT_EQ(std::string(readAncestry.GetData(), readAncestry.GetSize()), AncestryBytes());
    EXPECT_EQ(migration.GetTable(), Replacements());

    // A record read from the cache has no file: written again it loses ancestry and table.
    const std::vector<char> rewritten = Record(read);
    ASSERT_EQ(rewritten.size(), AncestryOffset + 1);
    EXPECT_TRUE(std::equal(rewritten.begin(), rewritten.begin() + AncestryOffset - 4, bytes.begin()));
    EXPECT_EQ(KL::LoadInOrder<std::uint32_t>(rewritten.data() + AncestryOffset - 4, KL::LittleEndianSign),
              0U);
    EXPECT_EQ(rewritten.back(), 0);

    // Reading such a record hands out no ancestry and leaves no table from before.
    char* unrelated = nullptr;
    char** none = &unrelated;
    MigrationTableObject stale(Replacements());
    LM::Symbol reread;
    KL::MemoryIChannel rereadIn(rewritten);
    ASSERT_EQ(Access::Read(reread, rereadIn, &none, &stale), KL::NoError);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(stale.GetTable().GetCount(), 0U);

    // Without a place for the table it is still read past.
    LM::Symbol skipping;
    char** skippedAncestry = nullptr;
    KL::MemoryIChannel skipIn(bytes);
    ASSERT_EQ(Access::Read(skipping, skipIn, &skippedAncestry, nullptr), KL::NoError);
    BMKillHandle(&skippedAncestry);
    EXPECT_EQ(skipIn.GetAvailable(), 0);

    // The record of a part without those sections says so.
    LM::Symbol plain;
    Filled(plain, SaveChair("plain.klm", "Plain Chair", false));
    EXPECT_EQ(Record(plain).size(), AncestryOffset + 1);
}

TEST_F(SymbolRecord, CutOrOverstatedCacheRecordsFail) {
    LM::Symbol symbol;
    Filled(symbol, SaveChair("chair.klm", "Office Chair", true));
    std::vector<char> bytes = Record(symbol);

    // Fewer ancestry bytes than stated is a format fault, and no handle is handed out.
    for (std::size_t size = AncestryOffset; size < AncestryOffset + AncestryBytes().size(); ++size) {
        LM::Symbol read;
        char** ancestry = nullptr;
        KL::MemoryIChannel in(bytes.data(), size);
        EXPECT_EQ(Access::Read(read, in, &ancestry, nullptr), LM::LibPartFileError) << size;
        EXPECT_EQ(ancestry, nullptr);
    }
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        LM::Symbol read;
        char** ancestry = nullptr;
        MigrationTableObject migration;
        KL::MemoryIChannel in(bytes.data(), size);
        EXPECT_NE(Access::Read(read, in, &ancestry, &migration), KL::NoError) << size;
        BMKillHandle(&ancestry);
    }

    KL::StoreInOrder(bytes.data() + AncestryOffset - 4, std::uint32_t{0xFFFFFFF0}, KL::LittleEndianSign);
    LM::Symbol read;
    char** ancestry = nullptr;
    KL::MemoryIChannel in(bytes);
    EXPECT_EQ(Access::Read(read, in, &ancestry, nullptr), LM::LibPartFileError);
    EXPECT_EQ(ancestry, nullptr);
}

TEST_F(SymbolRecord, FilesOpenOnceWhicheverThreadAsksFirst) {
    const IO::Location chair = SaveChair("chair.klm", "Office Chair", true);
    scratch.Write("rail.qdl", "END\n");
    const IO::Location rail = scratch.Location("rail.qdl");
    const LM::Symbol symbol;

    constexpr int ThreadCount = 8;
    std::vector<const LPF::SymbolFile*> symbolFiles(ThreadCount);
    std::vector<const LPF::ScriptFile*> scriptFiles(ThreadCount);
    std::latch start(ThreadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < ThreadCount; ++i)
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            symbolFiles[i] = symbol.GetSymbolFile(chair);
            scriptFiles[i] = symbol.GetScriptFile(rail);
        });
    for (std::thread& thread : threads)
        thread.join();

    ASSERT_NE(symbolFiles[0], nullptr);
    ASSERT_NE(scriptFiles[0], nullptr);
    EXPECT_EQ(symbolFiles[0]->GetStatus(), KL::NoError);
    EXPECT_EQ(scriptFiles[0]->GetStatus(), KL::NoError);
    for (int i = 1; i < ThreadCount; ++i) {
        EXPECT_EQ(symbolFiles[i], symbolFiles[0]) << i;
        EXPECT_EQ(scriptFiles[i], scriptFiles[0]) << i;
    }

    // A file opened on demand is the one the cache record takes its ancestry from.
    const std::vector<char> bytes = Record(symbol);
    EXPECT_EQ(KL::LoadInOrder<std::uint32_t>(bytes.data() + AncestryOffset - 4, KL::LittleEndianSign),
              AncestryBytes().size());
}

} // namespace
