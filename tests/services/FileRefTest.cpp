// What the script engine reads through a file reference: scripts line by line, compiled code, and
// a part that moves or goes between enumerations.
#include "support/Catalogue.hpp"

#include <gtest/gtest.h>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;

std::function<void(LPF::SymbolFile&)>
WithScripts(std::vector<std::pair<LPF::SectionTag, std::u16string>> scripts) {
    return [scripts](LPF::SymbolFile& file) {
        for (const auto& [tag, text] : scripts) {
            ASSERT_EQ(file.SetSectionDataRef(
                          tag, 0,
                          KL::BMNewHandleFrom(text.data(), static_cast<std::int64_t>(text.size() * 2)), true,
                          -1),
                      0);
        }
    };
}

// Every line of the script of `type` as "type:number:text".
std::vector<std::string> Lines(FileRef& ref, QDL_ScriptType type) {
    KL::UniString unused;
    EXPECT_EQ(ref.OpenQDL(nullptr, type, unused), 0);
    std::vector<std::string> lines;
    KL::UniString line;
    int number = 0;
    QDL_ScriptType lineType = QDL_ParameterScript;
    int length = 0;
    while ((length = ref.GetFileLine(line, &number, &lineType)) >= 0) {
        EXPECT_EQ(static_cast<std::size_t>(length), line.GetLength());
        lines.push_back(std::to_string(lineType) + ":" + std::to_string(number) + ":" + line.ToUTF8());
    }
    EXPECT_EQ(length, LM::EndOfScriptError);
    ref.Close();
    return lines;
}

using LineList = std::vector<std::string>;

class FileReference : public CatalogueTest {
protected:
    FileReference() {
        SavePart("Lib/Templates/Object.klm", TestId(1), "Object", {}, true);
        SavePart("Lib/Objects/Chair.klm", TestId(2), "Chair", {TestId(1)}, false,
                 WithScripts({{LPF::Tags::MasterScript, u"m1\nm2\n"},
                              {LPF::Tags::Scripts[QDL_3DScript - 1], u"a\nb\r\nc"},
                              {LPF::Tags::Scripts[QDL_2DScript - 1], u"one line"}}));
        SavePart("Lib/Objects/Plain.klm", TestId(3), "Plain", {TestId(1)}, false,
                 WithScripts({{LPF::Tags::MasterScript, u"x\r\ny\r\n"}}));
        scratch.Write("Lib/Macros/Rail.qdl", "line one\r\nline two");
        AddLibrary("Lib");
        EXPECT_EQ(Set().Enumerate(process), 0);
        services = manager.GetFileServices();
    }

    const LM::LibPart* Part(const char* name) { return Set().SearchLibPartDocuName(KL::UniString(name)); }

    FileServices* services = nullptr;
};

TEST_F(FileReference, ScriptsComeLineByLineAfterTheMasterScript) {
    FileRef chair(Part("Chair"), *services);
    // The master script's lines first, then numbering starts again with the script asked for. A lone
    // LF before the first CR still ends a line where CR and LF both occur.
    EXPECT_EQ(Lines(chair, QDL_3DScript), (LineList{"6:1:m1", "6:2:m2", "3:1:a", "3:2:b", "3:3:c"}));
    EXPECT_EQ(Lines(chair, QDL_2DScript), (LineList{"6:1:m1", "6:2:m2", "2:1:one line"}));
    EXPECT_EQ(Lines(chair, QDL_MasterScript), (LineList{"6:1:m1", "6:2:m2"}));
    // Without the script asked for, everything reads as master script.
    FileRef plain(Part("Plain"), *services);
    EXPECT_EQ(Lines(plain, QDL_3DScript), (LineList{"6:1:x", "6:2:y"}));
    // A bare script file reads as the script asked for, found in the catalogue or by location.
    FileRef rail(Part("Rail"), *services);
    EXPECT_EQ(Lines(rail, QDL_3DScript), (LineList{"3:1:line one", "3:2:line two"}));
    FileRef railByPlace(scratch.Location("Lib/Macros/Rail.qdl"), *services);
    EXPECT_EQ(Lines(railByPlace, QDL_2DScript), (LineList{"2:1:line one", "2:2:line two"}));
    char** names = nullptr;
    int size = -1;
    EXPECT_EQ(rail.GetParamNames(&names, &size), 0);
    EXPECT_EQ(names, nullptr);
    EXPECT_EQ(size, 0);

    // Nothing is read before an open or after a close, and a script type outside the table fails.
    FileRef fresh(Part("Chair"), *services);
    KL::UniString line;
    QDL_ScriptType type = QDL_3DScript;
    EXPECT_EQ(fresh.GetFileLine(line, nullptr, &type), LM::EndOfScriptError);
    KL::UniString unused;
    EXPECT_EQ(fresh.OpenQDL(nullptr, static_cast<QDL_ScriptType>(9), unused), LM::LibPartFileError);
    EXPECT_EQ(fresh.GetFileLine(line, nullptr, &type), LM::EndOfScriptError);

    KL::UniString fileName;
    EXPECT_EQ(chair.GetFileName(&fileName), 0);
    EXPECT_EQ(fileName, KL::UniString("Chair.klm"));
    short mode = 0;
    EXPECT_EQ(chair.GetFileMode(&mode), 0);
    EXPECT_EQ(mode, 5);
    EXPECT_EQ(rail.GetFileMode(&mode), 0);
    EXPECT_EQ(mode, 1);
    EXPECT_EQ(chair.GetFileType(), FileRef::KFPartFile);
    EXPECT_EQ(railByPlace.GetFileType(), FileRef::KFScriptFile);
}

TEST_F(FileReference, AReferenceLooksItsPartUpAgainAndSaysWhenItIsGone) {
    FileRef chair(Part("Chair"), *services);
    FileRef copy(chair);
    EXPECT_TRUE(chair.EqualFile(&copy));
    EXPECT_FALSE(chair.EqualFile(nullptr));
    EXPECT_NE(chair, FileRef(Part("Plain"), *services));

    // A new catalogue holds new records; the reference finds its part by id.
    EXPECT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(Lines(chair, QDL_2DScript), (LineList{"6:1:m1", "6:2:m2", "2:1:one line"}));

    std::filesystem::remove(scratch.Path() / "Lib/Objects/Chair.klm");
    EXPECT_EQ(Set().Enumerate(process), 0);
    KL::UniString unused;
    EXPECT_EQ(chair.OpenQDL(nullptr, QDL_3DScript, unused), LM::LibPartFileError);
    KL::UniString name;
    EXPECT_EQ(chair.GetFileName(&name), LM::LibPartFileError);
    KL::ConstSharedPtr<QDLAddParData> params;
    EXPECT_EQ(chair.GetDefaultParams(params), LM::LibPartFileError);
    // Code has nowhere to go, which is no error; there is none to read.
    short written = 1;
    const KL::ConstSharedPtr<BinCode> code(new BinCode(KL::BMNewHandleFrom("x", 1)));
    EXPECT_EQ(chair.WriteCode(code, QDL_3DScript, &written), 0);
    EXPECT_EQ(written, 0);
    KL::ConstSharedPtr<BinCode> read;
    EXPECT_EQ(chair.ReadCode(read, QDL_3DScript), LM::LibPartFileError);
    EXPECT_EQ(read, nullptr);
}

TEST_F(FileReference, CodeWrittenThroughOneReferenceIsReadThroughAnotherUntilTheAncestryChanges) {
    FileRef writer(Part("Chair"), *services);
    FileRef reader(LM::LibPartId(Part("Chair")), *services);
    const KL::ConstSharedPtr<BinCode> code(new BinCode(KL::BMNewHandleFrom("compiled", 8)));
    short written = 0;
    ASSERT_EQ(writer.WriteCode(code, QDL_3DScript, &written), 0);
    KL::ConstSharedPtr<BinCode> read;
    ASSERT_EQ(reader.ReadCode(read, QDL_3DScript), 0);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(std::string(*read->GetHandle(), 8), "compiled");
    EXPECT_EQ(reader.ReadCode(read, QDL_2DScript), LM::LibPartFileError);
    EXPECT_EQ(read, nullptr);

    // The same part file under a new parent: the code was compiled against the old chain.
    EXPECT_EQ(Set().Enumerate(process), 0);
    ASSERT_EQ(reader.ReadCode(read, QDL_3DScript), 0);
    EXPECT_NE(read, nullptr);
    SavePart("Lib/Templates/Seat.klm", TestId(4), "Seat", {TestId(1)}, true);
    SavePart("Lib/Objects/Chair.klm", TestId(2), "Chair", {TestId(1), TestId(4)}, false,
             WithScripts({{LPF::Tags::MasterScript, u"m1\nm2\n"}}));
    EXPECT_EQ(Set().Enumerate(process), 0);
    // The stale code is dropped: the part has a slot for it, and nothing in it.
    EXPECT_EQ(reader.ReadCode(read, QDL_3DScript), 0);
    EXPECT_EQ(read, nullptr);

    // A file by location keeps no code.
    FileRef byPlace(scratch.Location("Lib/Objects/Chair.klm"), *services);
    EXPECT_EQ(byPlace.WriteCode(code, QDL_3DScript, &written), LM::LibPartFileError);
    EXPECT_EQ(byPlace.ReadCode(read, QDL_3DScript), LM::LibPartFileError);
}

TEST_F(FileReference, PicturesComeWithoutTheirNames) {
    const std::string bytes = std::string("Glass.png") + '\0' + "PIXELS";
    SavePart("Lib/Objects/Window.klm", TestId(5), "Window", {TestId(1)}, false, [](LPF::SymbolFile& file) {
        const char onlyName[] = "Only.png";
        file.SetSectionDataRef(LPF::Tags::Preview, 0, KL::BMNewHandleFrom(onlyName, sizeof onlyName), true,
                               -1);
    });
    LPF::SymbolFile window(scratch.Location("Lib/Objects/Window.klm"));
    ASSERT_EQ(window.SetSectionDataRef(
                  LPF::Tags::Picture, 1,
                  KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size())), true, -1),
              0);
    ASSERT_EQ(window.Save(scratch.Location("Lib/Objects/Window.klm")), 0);
    EXPECT_EQ(Set().Enumerate(process), 0);

    FileRef ref(Part("Window"), *services);
    char name[256] = "x";
    char** data = nullptr;
    ASSERT_EQ(ref.GetImageDataFromFile(1, &data, name), 0);
    EXPECT_STREQ(name, "Glass.png");
    EXPECT_EQ(std::string(*data, static_cast<std::size_t>(BMGetHandleSize(data))), "PIXELS");
    BMKillHandle(&data);
    ASSERT_EQ(ref.GetImageDataFromFile(0, &data, name), 0);
    EXPECT_STREQ(name, "Only.png");
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(BMGetHandleSize(data), 0);
    BMKillHandle(&data);
    // The whole file, for a negative index.
    ASSERT_EQ(ref.GetImageDataFromFile(-1, &data, nullptr), 0);
    EXPECT_EQ(BMGetHandleSize(data), static_cast<std::int64_t>(std::filesystem::file_size(
                                         scratch.Path() / "Lib/Objects/Window.klm")));
    BMKillHandle(&data);
}

} // namespace
