// Part files through their reader and writer: what is saved comes back, opening stays lazy, and
// either byte order gives the same sections.
#include "InputOutput/MemoryVFS.hpp"
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using LPF::MakeCode;
using testsupport::ScratchFolder;

constexpr KL::Guid MainGuid("5C1E0A10-2B3C-4D5E-8F60-718293A4B5C6");
constexpr KL::Guid RevisionGuid("5C1E0A10-2B3C-4D5E-8F60-718293A4B5C7");
constexpr LPF::SectionTag Extra = MakeCode("XTRA");

std::string UTF16Bytes(const std::u16string& text) {
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
}

std::string AsString(const std::vector<char>& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

void SetSection(LPF::SymbolFile& part, LPF::SectionTag tag, std::uint16_t index, const std::string& bytes,
                std::uint16_t version = 1, std::uint8_t flags = 0) {
    const LPF::SectionInfo info{tag, index, version, flags};
    ASSERT_EQ(part.SetSection(info, bytes.data(), bytes.size()), KL::NoError);
}

std::string SectionBytes(const LPF::SymbolFile& part, LPF::SectionTag tag, std::uint16_t index) {
    GSHandle data = nullptr;
    const int err = part.GetSectionDataRef(tag, index, &data);
    return err == KL::NoError ? std::string(*data, BMGetHandleSize(data)) : "error " + std::to_string(err);
}

// The directory as "TAG/index vVersion fFlags size;" in enumeration order.
std::string Directory(const LPF::SymbolFile& part) {
    std::string text;
    part.EnumerateSections(
        [](const LPF::SectionInfo& info, void* data) {
            char tag[5];
            LPF::TagToText(info.tag, tag);
            *static_cast<std::string*>(data) +=
                std::string(tag) + "/" + std::to_string(info.subIdent) + " v" + std::to_string(info.version) +
                " f" + std::to_string(info.flags) + " " + std::to_string(info.size) + ";";
            return 0;
        },
        &text);
    return text;
}

// The header in one line, so that a part's identity is checked in one expectation.
std::string Header(const LPF::SymbolFile& part) {
    KL::UniString name;
    KL::UnID id;
    bool placeable = false;
    bool archivable = false;
    LPF::MigrationValue migration = LPF::Normal;
    unsigned owner = 0;
    unsigned type = 0;
    short version = 0;
    short original = 0;
    part.GetDocumentName(&name);
    part.GetOwnUnID(&id);
    part.IsPlaceable(&placeable);
    part.IsArchivable(&archivable);
    part.GetMigrationValue(&migration);
    part.GetOwner(&owner);
    part.GetType(&type);
    part.GetVersion(&version);
    part.GetOriginalVersion(&original);
    char codes[2][5];
    LPF::TagToText(owner, codes[0]);
    LPF::TagToText(type, codes[1]);
    return name.ToUTF8() + " " + id.ToString() + (placeable ? " placeable" : "") +
           (archivable ? " archivable" : "") + " migration " + std::to_string(migration) + " " + codes[0] +
           " " + codes[1] + " " + std::to_string(version) + "/" + std::to_string(original);
}

std::vector<char> Written(const LPF::SymbolFile& part) {
    KL::MemoryOChannel out;
    EXPECT_EQ(part.Write(out), KL::NoError);
    return out.TakeData();
}

bool Contains(const std::vector<char>& bytes, const std::string& part) {
    return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end();
}

TEST(SymbolFile, SavedPartReopensWithItsHeaderAndSections) {
    ScratchFolder scratch;
    LPF::SymbolFile part;
    part.SetDocumentName(KL::UniString("Stuhl Grün"));
    part.SetOwnUnID(KL::UnID(MainGuid, RevisionGuid));
    part.SetPlaceable(true);
    part.SetArchivable(true);
    part.SetArchivable(false);
    part.SetMigrationValue(LPF::Obsolete);
    part.SetOwner(MakeCode("ABCD"));
    part.SetType(MakeCode("KMAC"));
    part.SetVersion(31);
    part.SetOriginalVersion(29);
    SetSection(part, MakeCode("2DSC"), 0, UTF16Bytes(u"LINE2 0, 0, 1, 0\n"));
    SetSection(part, LPF::Tags::Binary3D, 2, "second", 3, 5);
    SetSection(part, LPF::Tags::Binary3D, 1, std::string("fir\0st", 6), 4);
    SetSection(part, Extra, 7, "");
    const IO::Location location = scratch.Location("chair.klm");
    ASSERT_EQ(part.Save(location), KL::NoError);

    const LPF::SymbolFile reopened(location);
    ASSERT_EQ(reopened.GetStatus(), KL::NoError);
    EXPECT_EQ(Header(reopened), "Stuhl Grün " + KL::UnID(MainGuid, RevisionGuid).ToString() +
                                    " placeable migration 2 ABCD KMAC 31/29");
    EXPECT_EQ(Directory(reopened), "2DSC/0 v1 f0 34;3DBN/2 v3 f5 6;3DBN/1 v4 f0 6;XTRA/7 v1 f0 0;");
    EXPECT_EQ(SectionBytes(reopened, MakeCode("2DSC"), 0), UTF16Bytes(u"LINE2 0, 0, 1, 0\n"));
    EXPECT_EQ(SectionBytes(reopened, LPF::Tags::Binary3D, 1), std::string("fir\0st", 6));
    EXPECT_EQ(SectionBytes(reopened, LPF::Tags::Binary3D, 2), "second");
    EXPECT_EQ(SectionBytes(reopened, Extra, 7), "");

    LPF::SectionInfo info;
    ASSERT_EQ(reopened.GetSectionInfo(LPF::Tags::Binary3D, 2, &info), KL::NoError);
    EXPECT_EQ(info.version, 3);
    EXPECT_EQ(info.flags, 5);
    EXPECT_EQ(reopened.GetSectionInfo(LPF::Tags::Binary3D, 3, &info), LPF::SectionNotFoundError);
    GSHandle none = nullptr;
    EXPECT_EQ(reopened.GetSectionDataRef(LPF::Tags::Binary3D, 3, &none), LPF::SectionNotFoundError);
    EXPECT_EQ(none, nullptr);

    // The copy belongs to the caller: changing and killing it leaves the part's bytes alone.
    GSHandle copy = nullptr;
    GSHandle reference = nullptr;
    ASSERT_EQ(reopened.GetSectionData(LPF::Tags::Binary3D, 2, &copy), KL::NoError);
    reopened.GetSectionDataRef(LPF::Tags::Binary3D, 2, &reference);
    EXPECT_NE(copy, reference);
    (*copy)[0] = 'X';
    EXPECT_EQ(BMKillHandle(&copy), KL::NoError);
    EXPECT_EQ(SectionBytes(reopened, LPF::Tags::Binary3D, 2), "second");

    // Edited and saved over the file it was read from.
    LPF::SymbolFile edited(location);
    ASSERT_EQ(edited.SetSectionDataRef(LPF::Tags::Binary3D, 2, KL::BMNewHandleFrom("new", 3), true, -1),
              KL::NoError);
    GSHandle kept = KL::BMNewHandleFrom("v9", 2);
    ASSERT_EQ(edited.SetSectionDataRef(LPF::Tags::Binary3D, 1, kept, false, 9), KL::NoError);
    EXPECT_EQ(BMKillHandle(&kept), KL::NoError);
    EXPECT_EQ(edited.SetSectionDataRef(Extra, 0, nullptr, false, -1), KL::ErrNilHandle);
    EXPECT_EQ(edited.DeleteSection(Extra, 7), KL::NoError);
    EXPECT_EQ(edited.DeleteSection(Extra, 7), LPF::SectionNotFoundError);
    ASSERT_EQ(edited.Save(location), KL::NoError);
    const LPF::SymbolFile saved(location);
    EXPECT_EQ(Directory(saved), "2DSC/0 v1 f0 34;3DBN/2 v3 f5 3;3DBN/1 v9 f0 2;");
    EXPECT_EQ(SectionBytes(saved, LPF::Tags::Binary3D, 1), "v9");
    EXPECT_EQ(SectionBytes(saved, MakeCode("2DSC"), 0), UTF16Bytes(u"LINE2 0, 0, 1, 0\n"));

    const LPF::SymbolFileInfo header(location);
    short version = 0;
    short original = 0;
    KL::UnID id;
    KL::UniString name;
    ASSERT_EQ(header.GetStatus(), KL::NoError);
    header.GetVersion(&version);
    header.GetOriginalVersion(&original);
    header.GetOwnUnID(&id);
    header.GetDocumentName(&name);
    EXPECT_EQ(version, 31);
    EXPECT_EQ(original, 29);
    EXPECT_EQ(id, KL::UnID(MainGuid, RevisionGuid));
    EXPECT_EQ(name, KL::UniString("Stuhl Grün"));
    EXPECT_EQ(LPF::SymbolFileInfo(scratch.Location("none.klm")).GetVersion(&version), IO::NotFoundError);
    EXPECT_EQ(LPF::SymbolFile(scratch.Location("none.klm")).GetVersion(&version), IO::NotFoundError);
}

TEST(SymbolFile, PartHeldInMemoryReadsLikeThePartOnDisk) {
    ScratchFolder scratch;
    LPF::SymbolFile part;
    SetSection(part, MakeCode("3DSC"), 0, UTF16Bytes(u"BLOCK 1, 1, 1"));
    SetSection(part, Extra, 1, "abc", 2, 1);
    const std::vector<char> bytes = Written(part);
    ASSERT_EQ(part.Save(scratch.Location("table.klm")), KL::NoError);
    EXPECT_EQ(scratch.Read("table.klm"), AsString(bytes));
    const LPF::SymbolFile held(bytes);
    EXPECT_EQ(Directory(held), "3DSC/0 v1 f0 26;XTRA/1 v2 f1 3;");
    EXPECT_EQ(Written(held), bytes);

    const LPF::SymbolFile fresh;
    EXPECT_EQ(Header(fresh), " " + KL::NULLUnID.ToString() + " migration 0 KLTX KSYM 30/30");
    EXPECT_EQ(fresh.EnumerateSections([](const LPF::SectionInfo&, void*) { return 0; }, nullptr),
              LPF::SectionNotFoundError);
    EXPECT_EQ(LPF::SymbolFile(Written(fresh)).GetStatus(), KL::NoError);
}

TEST(SymbolFile, OpeningReadsTheHeaderAloneAndSectionsWhenAskedFor) {
    ScratchFolder scratch;
    LPF::SymbolFile part;
    const std::string script = UTF16Bytes(std::u16string(512 * 1024, u'x'));
    SetSection(part, MakeCode("3DSC"), 0, script);
    SetSection(part, Extra, 0, "tail");
    testsupport::MemoryVFS vfs;
    vfs.AddFile("part.klm", AsString(Written(part)));
    const IO::Location mountPoint = scratch.Location("mounted");
    const testsupport::ScopedMount mount(vfs, mountPoint);
    ASSERT_EQ(mount.GetStatus(), KL::NoError);

    const LPF::SymbolFile opened(mountPoint + IO::Name("part.klm"));
    ASSERT_EQ(opened.GetStatus(), KL::NoError);
    EXPECT_LE(vfs.GetBytesRead(), 4096u);
    EXPECT_EQ(vfs.GetConnectedCount(), 0) << "no file stays open between reads";
    EXPECT_EQ(SectionBytes(opened, Extra, 0), "tail");
    EXPECT_LT(vfs.GetBytesRead(), 8192u) << "a small section does not pull the large one in";

    EXPECT_EQ(SectionBytes(opened, MakeCode("3DSC"), 0), script);
    const std::uint64_t afterLoad = vfs.GetBytesRead();
    EXPECT_GE(afterLoad, 1u << 20);
    EXPECT_LT(afterLoad, (1u << 20) + 16384u);
    EXPECT_EQ(SectionBytes(opened, MakeCode("3DSC"), 0), script);
    EXPECT_EQ(vfs.GetBytesRead(), afterLoad) << "a section is read once";
    EXPECT_EQ(vfs.GetConnectedCount(), 0);
}

TEST(SymbolFile, SectionsReadAfterTheFileChangedFail) {
    ScratchFolder scratch;
    LPF::SymbolFile part;
    SetSection(part, Extra, 0, "first");
    SetSection(part, Extra, 1, "second");
    ASSERT_EQ(part.Save(scratch.Location("p.klm")), KL::NoError);

    const LPF::SymbolFile opened(scratch.Location("p.klm"));
    EXPECT_EQ(SectionBytes(opened, Extra, 0), "first");
    std::ofstream(scratch.Path() / "p.klm", std::ios::app | std::ios::binary) << "grown";
    GSHandle data = nullptr;
    EXPECT_EQ(opened.GetSectionDataRef(Extra, 1, &data), LPF::FileChangedError);
    EXPECT_EQ(SectionBytes(opened, Extra, 0), "first") << "what was read before stays";
    KL::MemoryOChannel out;
    EXPECT_EQ(opened.Write(out), LPF::FileChangedError);
    std::filesystem::remove(scratch.Path() / "p.klm");
    EXPECT_EQ(opened.GetSectionDataRef(Extra, 1, &data), IO::NotFoundError);
}

// A catalogue reads the ancestry and migration table of every part it stores; they come with the
// header read, so a part file is opened once. Other sections wait until they are asked for.
TEST(SymbolFile, CatalogueSectionsComeWithTheHeader) {
    ScratchFolder scratch;
    LPF::SymbolFile part;
    SetSection(part, LPF::Tags::Ancestry, 0, std::string(64, '\0'));
    SetSection(part, Extra, 0, "later");
    ASSERT_EQ(part.Save(scratch.Location("p.klm")), KL::NoError);

    const LPF::SymbolFile opened(scratch.Location("p.klm"));
    ASSERT_EQ(opened.GetStatus(), KL::NoError);
    std::filesystem::remove(scratch.Path() / "p.klm");
    EXPECT_EQ(SectionBytes(opened, LPF::Tags::Ancestry, 0), std::string(64, '\0'));
    GSHandle data = nullptr;
    EXPECT_EQ(opened.GetSectionDataRef(Extra, 0, &data), IO::NotFoundError);
}

TEST(SymbolFile, BigEndianPartsGiveTheirSectionsInHostOrder) {
    ScratchFolder scratch;
    ASSERT_EQ(InitLibPartFile("Default_Set"), KL::NoError);
    EXPECT_EQ(InitLibPartFile("Other_Set"), KL::ErrParam);

    const std::string script = UTF16Bytes(u"BLOCK 1, 1, 1\r\n! Grüße");
    SyParSection parameters;
    parameters.header.leftFrame = 0.1F;
    parameters.parameters.push_back({"A", ParLength, ParFlagFixed, KL::UniString("Width"), 0, 0, {0.9}, {}});
    parameters.parameters.push_back({"label", ParString, 0, {}, 2, 0, {}, {KL::UniString("Oak"), {}}});
    parameters.frameExpressions = {"A/2"};
    const KL::ScopedHandle pard(BuildSyParHandle(parameters));
    KL::Array<SyCalledMacroItem> macros;
    macros.PushNew().name = KL::UniString("Chair Leg");
    macros[0].unId = KL::UnID(MainGuid, RevisionGuid);
    MigrationTable table;
    table.Add(MainGuid, {3, true});
    VectorImage drawing;
    ASSERT_TRUE(drawing.Add({VectorImage::Line, 2, 0, {0, 0, 1, 0.5}, {}}));
    KL::MemoryOChannel macroStream, tableStream, drawingStream;
    WriteCalledMacroList(macroStream, macros);
    table.Write(tableStream);
    drawing.Write(drawingStream);
    const std::vector<std::pair<LPF::SectionTag, std::string>> sections = {
        {MakeCode("3DSC"), script},
        {LPF::Tags::Ancestry, AsString(BuildAncestrySection(
                                  {true, {KL::UnID(MainGuid, RevisionGuid), KL::UnID(RevisionGuid, {})}}))},
        {LPF::Tags::Parameters, std::string(pard.GetData(), pard.GetSize())},
        {LPF::Tags::CalledMacros, AsString(macroStream.GetData())},
        {LPF::Tags::MigrationTable, AsString(tableStream.GetData())},
        {LPF::Tags::Drawing2D, AsString(drawingStream.GetData())},
        {Extra, "\x01\x02\x03\x04\x05"},
    };
    LPF::SymbolFile little;
    LPF::SymbolFile big;
    big.SetByteOrder(KL::BigEndianSign);
    for (const auto& [tag, bytes] : sections) {
        SetSection(little, tag, 0, bytes);
        SetSection(big, tag, 0, bytes);
    }
    const std::vector<char> littleBytes = Written(little);
    const std::vector<char> bigBytes = Written(big);
    EXPECT_NE(littleBytes, bigBytes);
    EXPECT_EQ(std::string(bigBytes.data(), 6), "KLMPMM");
    EXPECT_TRUE(Contains(bigBytes, "\x01\x02\x03\x04\x05")) << "unknown sections are carried as they are";
    std::string swapped = script;
    for (std::size_t i = 0; i < swapped.size(); i += 2)
        std::swap(swapped[i], swapped[i + 1]);
    EXPECT_TRUE(Contains(bigBytes, swapped));

    ASSERT_EQ(big.Save(scratch.Location("big.klm")), KL::NoError);
    const LPF::SymbolFile fromDisk(scratch.Location("big.klm"));
    const LPF::SymbolFile fromMemory(littleBytes);
    for (const LPF::SymbolFile* reread : {&fromDisk, &fromMemory}) {
        for (const auto& [tag, bytes] : sections)
            EXPECT_EQ(SectionBytes(*reread, tag, 0), bytes) << tag;
    }
    EXPECT_EQ(fromDisk.GetByteOrder(), KL::BigEndianSign);
    EXPECT_EQ(Written(fromDisk), bigBytes);

    int error = -1;
    const auto tableContent = fromDisk.GetSectionContent(LPF::Tags::MigrationTable, 0, &error);
    ASSERT_NE(dynamic_cast<MigrationTableObject*>(tableContent.get()), nullptr);
    EXPECT_EQ(dynamic_cast<MigrationTableObject&>(*tableContent).GetTable(), table);
    const auto drawingContent = fromDisk.GetSectionContent(LPF::Tags::Drawing2D, 0, &error);
    ASSERT_NE(dynamic_cast<VectorImage*>(drawingContent.get()), nullptr);
    EXPECT_EQ(dynamic_cast<VectorImage&>(*drawingContent), drawing);
    EXPECT_EQ(fromDisk.GetSectionContent(MakeCode("3DSC"), 0, &error), nullptr);
    EXPECT_EQ(error, KL::ErrNotSupported);
    EXPECT_EQ(fromDisk.GetSectionContent(MakeCode("3DSC"), 1, &error), nullptr);
    EXPECT_EQ(error, LPF::SectionNotFoundError);

    // A section that breaks its tag's layout cannot be turned: writing refuses it, reading reports it.
    LPF::SymbolFile odd;
    odd.SetByteOrder(KL::BigEndianSign);
    SetSection(odd, MakeCode("3DSC"), 0, "abc");
    EXPECT_EQ(odd.Save(scratch.Location("odd.klm")), LPF::CorruptSectionError);
    EXPECT_FALSE(std::filesystem::exists(scratch.Path() / "odd.klm"));
    LPF::SymbolFile disguised;
    disguised.SetByteOrder(KL::BigEndianSign);
    SetSection(disguised, MakeCode("XPAR"), 0, "not parameters");
    std::vector<char> disguisedBytes = Written(disguised);
    std::copy_n("PARD", 4, std::search(disguisedBytes.begin(), disguisedBytes.end(), "XPAR", "XPAR" + 4));
    GSHandle data = nullptr;
    EXPECT_EQ(LPF::SymbolFile(disguisedBytes).GetSectionDataRef(LPF::Tags::Parameters, 0, &data),
              LPF::CorruptSectionError);

    // Any one damaged byte gives a clean refusal or readable sections.
    for (std::size_t at = 0; at < bigBytes.size(); ++at) {
        std::vector<char> damaged = bigBytes;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x5A);
        const LPF::SymbolFile reread(damaged);
        for (const auto& [tag, bytes] : sections) {
            const int err = reread.GetSectionDataRef(tag, 0, &data);
            EXPECT_TRUE(err == KL::NoError || err == reread.GetStatus() || err == LPF::CorruptSectionError ||
                        err == LPF::SectionNotFoundError)
                << "byte " << at << ": " << err;
            reread.GetSectionContent(tag, 0, &error);
        }
        KL::MemoryOChannel out;
        reread.Write(out);
    }
}

} // namespace
