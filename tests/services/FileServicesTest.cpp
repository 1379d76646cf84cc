// The road of a script's macro call through the file services, on part files written for each test
// and on the sample library, from one thread and from many.
#include "support/Catalogue.hpp"
#include "support/TestScriptEngine.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;

struct Call {
    const char* name;
    KL::UnID id;
};

// A part file's list of called macros.
std::function<void(LPF::SymbolFile&)> Calling(std::vector<Call> calls) {
    return [calls](LPF::SymbolFile& file) {
        KL::Array<SyCalledMacroItem> items;
        for (const Call& call : calls)
            items.Push(SyCalledMacroItem{KL::UniString(call.name), call.id, nullptr});
        testsupport::SetStreamSection(file, LPF::Tags::CalledMacros,
                                      [&](KL::OChannel& out) { return WriteCalledMacroList(out, items); });
    };
}

std::function<void(LPF::SymbolFile&)> ReplacingOld(const KL::Guid& oldMain) {
    return [oldMain](LPF::SymbolFile& file) {
        MigrationTable table;
        table.Add(oldMain, {2, true});
        testsupport::SetStreamSection(file, LPF::Tags::MigrationTable,
                                      [&](KL::OChannel& out) { return table.Write(out); });
    };
}

class MacroRoad : public CatalogueTest {
protected:
    MacroRoad() {
        SavePart("Lib/Templates/Macro.klm", TestId(1), "Macro", {}, true);
        SavePart("Lib/Macros/Leg.klm", TestId(10), "Leg", {TestId(1)});
        SavePart("Lib/Macros/Post.klm", TestId(11), "Rails:Post", {TestId(1)});
        SavePart("Lib/Macros/Table Leg.klm", TestId(12), "Table Leg", {TestId(1)});
        // Sash 2 replaces Sash, which no library holds any more.
        SavePart("Lib/Macros/Sash 2.klm", TestId(14), "Sash 2", {TestId(1)}, false,
                 ReplacingOld(TestId(13).mainGuid));
        SavePart("Lib/Macros/Broken.klm", TestId(15), "Broken", {TestId(1)});
        SavePart("Lib/Objects/Chair.klm", TestId(20), "Chair", {TestId(1)}, false,
                 Calling({{"Leg", TestId(10)}, {"Broken", TestId(15)}, {"Sash", TestId(13)}}));
        // Saved by an old version: its calls may take the compatible road.
        SavePart("Lib/Objects/Old Chair.klm", TestId(21), "Old Chair", {TestId(1)}, false,
                 [](LPF::SymbolFile& file) {
                     file.SetOriginalVersion(23);
                     Calling({{"Sash", TestId(13)}})(file);
                 });
        // A part file outside every library, which knows Table Leg by an older name.
        loose = SavePart("Outside/Loose.klm", TestId(30), "Loose", {TestId(1)}, false,
                         Calling({{"Leg Old", TestId(12)}}));
        AddLibrary("Lib");
        EXPECT_EQ(Set().Enumerate(process), 0);
        services = manager.GetFileServices();
    }

    const LM::LibPart* Part(const char* name) { return Set().SearchLibPartDocuName(KL::UniString(name)); }

    // The name of the part a call resolves to, "" for none; `*missing` as the engine sees it.
    std::string Resolve(const char* name, const FileRef* caller, short* missing = nullptr,
                        bool silent = false) {
        short localMissing = 0;
        KL::UnID found;
        QDL::IFileRef* ref =
            services->Macro2File(KL::UniString(name), caller, nullptr,
                                 missing != nullptr ? missing : &localMissing, QDL_3DScript, &found, silent);
        if (ref == nullptr)
            return found.IsNull() ? "" : "(an id without a reference)";
        const LM::LibPart* part = nullptr;
        static_cast<FileRef*>(ref)->GetLibPart(&part);
        std::string result = part != nullptr ? part->GetDocumentName().ToUTF8() : "(no part)";
        if (part != nullptr && found != part->GetOwnUnID())
            result += " (with another id)";
        services->Dispose(&ref);
        return result;
    }

    IO::Location loose;
    FileServices* services = nullptr;
};

TEST_F(MacroRoad, ACallResolvesFromTheCallerOutward) {
    const FileRef chair(Part("Chair"), *services);
    const FileRef outside(loose, *services);

    // The caller's own list: by its recorded id, and through a migration when that id is gone.
    EXPECT_EQ(Resolve("Leg", &chair), "Leg");
    EXPECT_EQ(Resolve("Sash", &chair), "Sash 2");
    EXPECT_EQ(Resolve("Sash", std::make_unique<FileRef>(Part("Old Chair"), *services).get()), "Sash 2");
    // A slash in a name stands for the colon of names in subfolders; no caller goes to the catalogue.
    EXPECT_EQ(Resolve("Rails/Post", nullptr), "Rails:Post");
    EXPECT_EQ(Resolve("Rails/Post", &chair), "Rails:Post");
    // A caller outside the catalogue is read for the id it recorded, by a name of any case.
    EXPECT_EQ(Resolve("Leg Old", &outside), "Table Leg");
    EXPECT_EQ(Resolve("LEG OLD", &outside), "Table Leg");

    // Such a file may call itself by its file name when the caller wants a location back...
    IO::Location where;
    const LM::LibPart* part = Part("Leg");
    bool missing = true;
    KL::UnID id = TestId(99);
    EXPECT_TRUE(services->GetMacroFile(KL::UniString("loose.KLM"), loose, nullptr, &where, &part, &missing,
                                       &id, false));
    EXPECT_EQ(where, loose);
    EXPECT_EQ(part, nullptr);
    EXPECT_TRUE(id.IsNull());
    EXPECT_FALSE(missing);
    // ...which Macro2File does not: it wants no location.
    short macroMissing = 0;
    EXPECT_EQ(Resolve("Loose.klm", &outside, &macroMissing), "");
    EXPECT_EQ(macroMissing, 1);
}

TEST_F(MacroRoad, ABadMacroIsRefusedUnlessTheCallersMapAlreadyHoldsIt) {
    const FileRef chair(Part("Chair"), *services);
    EXPECT_EQ(Resolve("Broken", &chair), "Broken"); // builds the chair's map
    FileRef(Part("Broken"), *services).SetBadMacro();

    // The map is looked up by the exact name and knows nothing of the flag.
    EXPECT_EQ(Resolve("Broken", &chair), "Broken");
    // Any other road refuses the part, and does not call it missing.
    services->ResetMissingMacros(true);
    short missing = 1;
    EXPECT_EQ(Resolve("BROKEN", &chair, &missing), "");
    EXPECT_EQ(missing, 0);
    missing = 1;
    EXPECT_EQ(Resolve("Broken", nullptr, &missing), "");
    EXPECT_EQ(missing, 0);
    EXPECT_TRUE(services->GetMissingMacros().IsEmpty());

    // The map is built once per part: it survives until the part's user data goes.
    Set().ClearUserData(LM::LibPartId(Part("Chair")));
    EXPECT_EQ(Resolve("Broken", &chair), "");
}

TEST_F(MacroRoad, EachMissingMacroIsReportedOnceWhileRecording) {
    const FileRef chair(Part("Chair"), *services);
    short missing = 0;
    // Recording is off at first: every miss is a first miss, and nothing is kept.
    EXPECT_EQ(Resolve("Nowhere", &chair, &missing), "");
    EXPECT_EQ(missing, 1);
    EXPECT_EQ(Resolve("Nowhere", &chair, &missing), "");
    EXPECT_EQ(missing, 1);
    EXPECT_TRUE(services->GetMissingMacros().IsEmpty());

    services->ResetMissingMacros(true);
    EXPECT_EQ(Resolve("Nowhere", &chair, &missing), "");
    EXPECT_EQ(missing, 1);
    // Names compare as file names do: without case.
    EXPECT_EQ(Resolve("NOWHERE", &chair, &missing), "");
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(Resolve("Rails/Gone", nullptr, &missing), "");
    EXPECT_EQ(missing, 1);
    // A silent search reports nothing.
    EXPECT_EQ(Resolve("Quiet", nullptr, &missing, true), "");
    EXPECT_EQ(missing, 0);

    // Switching off keeps what was recorded; switching on again reports none of it a second time.
    services->ResetMissingMacros(false);
    EXPECT_EQ(Resolve("Nowhere", &chair, &missing), "");
    EXPECT_EQ(missing, 1);
    services->ResetMissingMacros(true);
    EXPECT_EQ(Resolve("nowhere", &chair, &missing), "");
    EXPECT_EQ(missing, 0);
    std::vector<std::string> recorded;
    for (const KL::UniString& name : services->GetMissingMacros())
        recorded.push_back(name.ToUTF8());
    EXPECT_EQ(recorded, (std::vector<std::string>{"Nowhere", "Rails:Gone"}));
}

TEST_F(MacroRoad, NamesFindPartsAndPictures) {
    scratch.Write("Lib/Pictures/Wood.png", std::string("\x89PNG\r\n\x1a\n", 8) + std::string(32, '\0'));
    EXPECT_EQ(Set().Enumerate(process), 0);
    IO::Location where;
    EXPECT_EQ(services->Name2Location(KL::UniString("Table Leg"), &where), 0);
    EXPECT_EQ(where, scratch.Location("Lib/Macros/Table Leg.klm"));
    EXPECT_EQ(services->Name2Location(KL::UniString("Post.klm"), &where), 0);
    EXPECT_EQ(services->Name2Location(KL::UniString("Nothing"), &where), LM::LibPartFileError);

    // Only pictures are textures.
    const LM::LibPart* picture = nullptr;
    EXPECT_EQ(services->Name2LibPart(KL::UniString("Wood.png"), &picture), 0);
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->GetLocation(), scratch.Location("Lib/Pictures/Wood.png"));
    EXPECT_EQ(services->Name2LibPart(KL::UniString("Leg"), &picture), LM::LibPartFileError);
    short error = 0;
    EXPECT_EQ(services->Texture2File(KL::UniString("Leg"), &error), nullptr);
    EXPECT_EQ(error, 2);
    QDL::IFileRef* any = services->Image3D2File(KL::UniString("Leg"), &error);
    EXPECT_NE(any, nullptr);
    EXPECT_EQ(error, 0);
    services->Dispose(&any);
    EXPECT_EQ(any, nullptr);
}

// ---- The sample library, run by the stand-in engine.

class SampleEngine : public CatalogueTest {
protected:
    SampleEngine() {
        EXPECT_EQ(AddSampleLibrary(), 0);
        EXPECT_EQ(Set().Enumerate(process), 0);
        services = manager.GetFileServices();
        for (int i = 0; i < Set().GetLibPartNumber(); ++i) {
            const LM::LibPart* part = Set().GetLibPartByIndex(i);
            if (part->IsValid() && part->IsPlaceable())
                placeable.push_back(LM::LibPartId(part));
        }
    }

    testsupport::TestScriptEngine::Run RunAll() {
        testsupport::TestScriptEngine engine(*services);
        testsupport::TestScriptEngine::Run run;
        for (const LM::LibPartId& id : placeable) {
            FileRef ref(id, *services);
            engine.RunScript(ref, QDL_3DScript, &run);
        }
        return run;
    }

    FileServices* services = nullptr;
    std::vector<LM::LibPartId> placeable;
};

TEST_F(SampleEngine, EightEngineThreadsSeeWhatOneSees) {
    ASSERT_GT(placeable.size(), 10U);
    const auto single = RunAll();
    EXPECT_EQ(single.errors, 0);
    EXPECT_EQ(single.resolved.at("Chair Leg"), 5); // four legs of a chair, one of a stool
    EXPECT_EQ(single.resolved.at("Shared Stair Rail"), 1);
    EXPECT_GT(single.codeWrites, 0);
    Set().ClearAllQdlBinCodes();

    // The owner's thread stays idle while the engine threads run.
    constexpr int Threads = 8;
    std::vector<testsupport::TestScriptEngine::Run> runs(Threads);
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 3; ++round) {
                testsupport::TestScriptEngine::Run run = RunAll();
                EXPECT_TRUE(run.SameWork(single)) << "thread " << t << " round " << round;
                runs[t].codeReads += run.codeReads;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    int reads = 0;
    for (const auto& run : runs)
        reads += run.codeReads;
    EXPECT_GT(reads, 0);
}

TEST_F(SampleEngine, PartsGiveTheirDrawingsParametersAndPictures) {
    FileRef table(Set().SearchLibPartDocuName(KL::UniString("Round Table")), *services);
    KL::ConstSharedPtr<ISymbol2D> drawing;
    ASSERT_EQ(table.GetFragmentHdl(drawing), 0);
    EXPECT_FALSE(drawing->GetImage().IsEmpty());

    FileRef chair(Set().SearchLibPartDocuName(KL::UniString("Dining Chair")), *services);
    KL::ConstSharedPtr<QDLAddParData> params;
    ASSERT_EQ(chair.GetDefaultParams(params), 0);
    ASSERT_NE(params, nullptr);
    EXPECT_NE(params->Find("seatH"), nullptr);
    // Built once, then kept on the part.
    KL::ConstSharedPtr<QDLAddParData> again;
    ASSERT_EQ(FileRef(chair).GetDefaultParams(again), 0);
    EXPECT_EQ(again, params);

    char name[256] = "x";
    char** picture = nullptr;
    ASSERT_EQ(chair.GetImageDataFromFile(1, &picture, name), 0);
    ASSERT_NE(picture, nullptr);
    EXPECT_STREQ(name, "Dining Chair Side.png");
    EXPECT_EQ(std::string(*picture, 4), "\x89PNG");
    BMKillHandle(&picture);
    ASSERT_EQ(chair.GetImageDataFromFile(7, &picture, name), 0);
    EXPECT_EQ(picture, nullptr);

    FileRef shelf(Set().SearchLibPartDocuName(KL::UniString("Bookshelf")), *services);
    short count = 0;
    short indices[4] = {};
    EXPECT_EQ(shelf.GetBINARYCount(&count), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(shelf.WhichBINARY(&count, indices), 0);
    EXPECT_EQ(std::vector<short>(indices, indices + 2), (std::vector<short>{1, 2}));
    EXPECT_EQ(table.GetBINARYCount(&count), LM::NoDataError);
    short version = 0;
    KL::PlatformSign platform = 0;
    char** body = nullptr;
    int size = 0;
    ASSERT_EQ(shelf.GetBinaryHdl(2, &version, &platform, &body, &size), 0);
    EXPECT_GT(version, 0);
    EXPECT_EQ(platform, KL::LittleEndianSign);
    EXPECT_EQ(size, BMGetHandleSize(body));
    EXPECT_GT(size, 0);
    BMKillHandle(&body);
    EXPECT_EQ(shelf.GetBinaryHdl(5, &version, &platform, &body, &size), LM::NoDataError);
}

} // namespace
