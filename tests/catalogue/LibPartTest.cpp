// Part ids and records as the catalogue and its cache see them.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <thread>
#include <vector>

namespace {

using testsupport::ScratchFolder;

constexpr KL::Guid MainGuid("0A1B2C3D-4E5F-4061-8293-A4B5C6D7E8F9");
constexpr KL::Guid RevisionGuid("0A1B2C3D-4E5F-4061-8293-A4B5C6D7E8FA");
constexpr KL::UnID ChairId(MainGuid, RevisionGuid);

std::vector<char> Written(const LM::LibPart& part, int folderOffset) {
    KL::MemoryOChannel channel;
    EXPECT_EQ(part.Write(channel, folderOffset), 0);
    return channel.TakeData();
}

TEST(LibPartId, GuidsDecideAndNamesOnlyWhenBothAreNull) {
    const LM::LibPartId chair(KL::NULLUnID, KL::UniString("Chair"));
    EXPECT_EQ(chair, LM::LibPartId(KL::NULLUnID, KL::UniString("Chair")));
    EXPECT_NE(chair, LM::LibPartId(KL::NULLUnID, KL::UniString("chair")));
    EXPECT_EQ(chair.GetHashValue(), KL::UniString("Chair").GenerateHashValue());

    EXPECT_EQ(LM::LibPartId(ChairId, KL::UniString("Chair")), LM::LibPartId(ChairId, KL::UniString("Stool")));
    EXPECT_NE(LM::LibPartId(ChairId, KL::UniString("Chair")), chair);
    EXPECT_NE(LM::LibPartId(ChairId, KL::UniString("Chair")),
              LM::LibPartId(KL::UnID(MainGuid, MainGuid), KL::UniString("Chair")));

    // A null main guid with a revision guid still compares and hashes by guids.
    const KL::UnID revisionOnly(KL::NULLGuid, RevisionGuid);
    const LM::LibPartId a(revisionOnly, KL::UniString("A"));
    EXPECT_EQ(a, LM::LibPartId(revisionOnly, KL::UniString("B")));
    EXPECT_EQ(a.GetHashValue(),
              (std::uint32_t(KL::NULLGuid.GetHashValue()) << 16) + RevisionGuid.GetHashValue());

    EXPECT_EQ(LM::LibPartId(static_cast<const LM::LibPart*>(nullptr)), LM::LibPartId());
    EXPECT_EQ(LM::LibPartId().GetHashValue(), 0U);
}

TEST(LibPartId, SurvivesStreamsAndXML) {
    const LM::LibPartId id(ChairId, KL::UniString("Office Chair"));
    KL::MemoryOChannel out;
    ASSERT_EQ(id.Write(out), 0);
    std::vector<char> bytes = out.TakeData();

    LM::LibPartId read;
    KL::MemoryIChannel in(bytes);
    ASSERT_EQ(read.Read(in), 0);
    EXPECT_EQ(read, id);
    EXPECT_EQ(read.GetName(), id.GetName());
    EXPECT_EQ(read.GetHashValue(), id.GetHashValue());

    // A name that claims more than its frame holds: the error comes back, and the hash fits what
    // was read (the guids), not the default id's 0.
    KL::MemoryOChannel shortOut;
    {
        KL::OutputFrame frame(shortOut, LM::LibPartId::classInfo);
        ChairId.mainGuid.Write(shortOut);
        ChairId.revGuid.Write(shortOut);
        shortOut.Write(std::uint32_t{100});
        shortOut.Write(u'x');
        ASSERT_EQ(frame.Close(), 0);
    }
    const std::vector<char> shortBytes = shortOut.TakeData();
    LM::LibPartId truncated;
    KL::MemoryIChannel shortIn(shortBytes);
    EXPECT_NE(truncated.Read(shortIn), 0);
    EXPECT_EQ(truncated.GetUnId(), ChairId);
    EXPECT_EQ(truncated.GetHashValue(), LM::LibPartId(ChairId, KL::UniString()).GetHashValue());
    // A frame cut short fails before anything is read.
    bytes.resize(bytes.size() - 4);
    LM::LibPartId cut;
    KL::MemoryIChannel cutIn(bytes);
    EXPECT_NE(cut.Read(cutIn), 0);
    EXPECT_EQ(cut, LM::LibPartId());

    KL::XMLOChannel xml;
    ASSERT_EQ(id.WriteXML(xml), 0);
    const std::string text = xml.ToString();
    EXPECT_NE(text.find("<Name>Office Chair</Name>"), std::string::npos);
    KL::XMLIChannel xmlIn;
    ASSERT_EQ(xmlIn.Parse(text), 0);
    LM::LibPartId fromXML;
    EXPECT_EQ(fromXML.ReadXML(xmlIn), 0);
    EXPECT_EQ(fromXML, id);
    EXPECT_EQ(fromXML.GetName(), id.GetName());
}

// Records need the registered types and the process-wide ids, as a host has them.
class LibPartRecord : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr), 0);
    }

    IO::Location SavePart(const std::string& relative, const KL::UnID& id, const char* documentName) {
        LPF::SymbolFile file;
        file.SetOwnUnID(id);
        file.SetPlaceable(true);
        file.SetMigrationValue(LPF::MigrationValue(2));
        file.SetDocumentName(KL::UniString(documentName));
        scratch.Write(relative, "");
        EXPECT_EQ(file.Save(scratch.Location(relative)), 0);
        return scratch.Location(relative);
    }

    FTM::GeneralID Symbols() const { return manager.GetPublicIDs().symbolGroup; }

    ScratchFolder scratch;
    LM::LibrarySetSingletonLP manager;
};

TEST_F(LibPartRecord, FilesWithoutSymbolAreNamedFromTheirLocation) {
    scratch.Write("Texts/notes.txt", "notes");
    scratch.Write("Pictures/photo.PNG", "png");
    scratch.Write("Texts/data.bin", "data");
    const LM::PublicIDs& ids = manager.GetPublicIDs();

    LM::LibPart text;
    text.FillValid(scratch.Location("Texts/notes.txt"), MainGuid, 4, ids.textType, 0x100);
    EXPECT_TRUE(text.IsValid());
    EXPECT_FALSE(text.IsSymbol());
    EXPECT_EQ(text.GetDocumentName(), KL::UniString("notes"));
    EXPECT_EQ(text.GetFileName(), KL::UniString("notes.txt"));
    EXPECT_NE(text.GetFileModTime(), 0);
    EXPECT_EQ(text.GetGuid(), MainGuid);
    EXPECT_EQ(text.GetFolderIndex(), 4);
    EXPECT_EQ(text.GetFlags(), 0x100U);
    // Without a symbol the forwarders give their neutral values and setters do nothing.
    text.SetOwnUnID(ChairId);
    EXPECT_EQ(text.GetOwnUnID(), KL::NULLUnID);
    EXPECT_EQ(text.GetProxy(), -1);
    EXPECT_EQ(text.GetQdlBinCodeIndex(QDL_ScriptType(1)), -1);
    EXPECT_EQ(text.GetSymbolFile(), nullptr);
    EXPECT_TRUE(text.GetUserData(MainGuid).IsNull());

    LM::LibPart picture; // a group's extension test goes through the group's types
    picture.FillValid(scratch.Location("Pictures/photo.PNG"), KL::NULLGuid, 5, ids.imageGroup, 0);
    EXPECT_EQ(picture.GetDocumentName(), KL::UniString("photo"));

    LM::LibPart foreign;
    foreign.FillValid(scratch.Location("Texts/data.bin"), KL::NULLGuid, 4, ids.textType, 0);
    EXPECT_EQ(foreign.GetDocumentName(), KL::UniString("data.bin"));

    LM::LibPart missing; // a file that cannot be opened is no failure, but gets no name or time
    missing.FillValid(scratch.Location("Texts/gone.txt"), KL::NULLGuid, 4, ids.textType, 0);
    EXPECT_TRUE(missing.IsValid());
    EXPECT_TRUE(missing.GetDocumentName().IsEmpty());
    EXPECT_EQ(missing.GetFileModTime(), 0);

    LM::LibPart nowhere;
    nowhere.FillValid(IO::Location(), KL::NULLGuid, -1, ids.textType, 0);
    EXPECT_FALSE(nowhere.IsValid());
}

TEST_F(LibPartRecord, SymbolsAndScriptsReadTheirOwnFiles) {
    const IO::Location chair = SavePart("Objects/chair.klm", ChairId, "Office Chair");
    LM::LibPart part;
    part.FillValid(chair, KL::NULLGuid, 3, Symbols(), 0);
    ASSERT_TRUE(part.IsSymbol());
    EXPECT_TRUE(part.IsValid());
    EXPECT_EQ(part.GetDocumentName(), KL::UniString("Office Chair"));
    EXPECT_EQ(part.GetOwnUnID(), ChairId);
    EXPECT_TRUE(part.IsPlaceable());
    EXPECT_FALSE(part.IsArchivable());
    EXPECT_EQ(part.GetMigrationValue(), LPF::MigrationValue(2));
    EXPECT_NE(part.GetFileModTime(), 0);
    EXPECT_EQ(LM::LibPartId(&part), LM::LibPartId(ChairId, KL::UniString("Office Chair")));
    EXPECT_EQ(part.GetSymbolFile(), LM::LibPart::GetSymbolFile(part));
    EXPECT_EQ(part.GetProxy(), -1);
    part.SetProxy(7);

    // Reloading keeps the proxy and reads the file afresh.
    SavePart("Objects/chair.klm", ChairId, "Chair Renamed");
    part.Reload();
    EXPECT_EQ(part.GetDocumentName(), KL::UniString("Chair Renamed"));
    EXPECT_EQ(part.GetProxy(), 7);

    // A file that is not a part still gives a symbol record, with a null id and its file's name.
    scratch.Write("Objects/broken.klm", "not a part at all");
    LM::LibPart broken;
    broken.FillValid(scratch.Location("Objects/broken.klm"), KL::NULLGuid, 3, Symbols(), 0);
    EXPECT_TRUE(broken.IsSymbol());
    EXPECT_EQ(broken.GetOwnUnID(), KL::NULLUnID);
    EXPECT_EQ(broken.GetDocumentName(), KL::UniString("broken"));

    scratch.Write("Macros/Shared Rail.qdl", "! rail\nEND\n");
    LM::LibPart script;
    script.FillValid(scratch.Location("Macros/Shared Rail.qdl"), KL::NULLGuid, 3,
                     manager.GetPublicIDs().scriptType, 0);
    EXPECT_TRUE(script.IsSymbol());
    EXPECT_EQ(script.GetDocumentName(), KL::UniString("Shared Rail"));
    EXPECT_NE(script.GetScriptFile(), nullptr);
    // Asked for as a part file, a script opens as one and says it is none.
    ASSERT_NE(script.GetSymbolFile(), nullptr);
    EXPECT_NE(script.GetSymbolFile()->GetStatus(), 0);
}

TEST_F(LibPartRecord, CacheRecordKeepsTheFirstPlaceAndMovesFolders) {
    const IO::Location chair = SavePart("Objects/chair.klm", ChairId, "Office Chair");
    LM::LibPart part;
    part.FillValid(scratch.Location("Temp/copy.klm"), MainGuid, 8, Symbols(), 0x40);
    part.SetOwnUnID(ChairId);
    part.SetOrigLocation(chair);
    EXPECT_EQ(part.GetOrigLocation(), chair);

    const std::vector<char> bytes = Written(part, 5);
    LM::LibPart read;
    char** ancestry = nullptr;
    KL::MemoryIChannel in(bytes);
    ASSERT_EQ(read.Read(in, 5, &ancestry, nullptr), 0);
    EXPECT_EQ(ancestry, nullptr); // no file was open, so no ancestry went into the record
    EXPECT_EQ(read.GetLocation(), chair);
    EXPECT_EQ(read.GetOrigLocation(), chair);
    EXPECT_EQ(read.GetFolderIndex(), 8);
    EXPECT_EQ(read.GetFlags(), 0x40U);
    EXPECT_EQ(read.GetOwnUnID(), ChairId);
    EXPECT_EQ(read.GetGuid(), MainGuid);
    EXPECT_EQ(read.GetDocumentName(), part.GetDocumentName());
    EXPECT_EQ(read.IsValid(), part.IsValid());
    EXPECT_EQ(Written(read, 5), bytes);

    // The folder is stored relative to the offset: 8 - 5 reads back as 3 + 10.
    LM::LibPart moved;
    KL::MemoryIChannel again(bytes);
    ASSERT_EQ(moved.Read(again, 10, nullptr, nullptr), 0);
    EXPECT_EQ(moved.GetFolderIndex(), 13);

    // A record of a lying cache: a folder at the top of the range wraps instead of overflowing,
    // and a state byte no record can have is refused.
    LM::LibPart wild;
    wild.FillValid(chair, MainGuid, std::numeric_limits<std::int32_t>::max(), Symbols(), 0);
    const std::vector<char> wildBytes = Written(wild, 0);
    LM::LibPart wrapped;
    KL::MemoryIChannel wildIn(wildBytes);
    char** wildAncestry = nullptr;
    ASSERT_EQ(wrapped.Read(wildIn, 3, &wildAncestry, nullptr), 0);
    BMKillHandle(&wildAncestry);
    EXPECT_EQ(wrapped.GetFolderIndex(), std::numeric_limits<std::int32_t>::min() + 2);
    // The state byte follows the name (count and UTF-16 units) and the flags.
    std::vector<char> badState = bytes;
    badState.at(4 + 2 * part.GetDocumentName().GetLength() + 4) = 7;
    LM::LibPart refused;
    KL::MemoryIChannel badStateIn(badState);
    EXPECT_EQ(refused.Read(badStateIn, 0, nullptr, nullptr), KL::ErrStreamFormat);

    // Every cut of the record fails cleanly.
    for (std::size_t size = 0; size < bytes.size(); size += 3) {
        LM::LibPart cut;
        KL::MemoryIChannel shortIn(bytes.data(), size);
        EXPECT_NE(cut.Read(shortIn, 0, &ancestry, nullptr), 0) << size;
        BMKillHandle(&ancestry);
    }
}

TEST_F(LibPartRecord, DummiesSwapsMovesFlagsAndUserData) {
    LM::LibPart dummy;
    dummy.SetLocation(scratch.Location("kept.klm"));
    dummy.FillDummy(KL::UniString("Lost Chair"), ChairId, 1, Symbols(), 2);
    EXPECT_FALSE(dummy.IsValid());
    EXPECT_EQ(dummy.GetOwnUnID(), ChairId);
    EXPECT_EQ(dummy.GetDocumentName(), KL::UniString("Lost Chair"));
    EXPECT_EQ(dummy.GetLocation(), scratch.Location("kept.klm"));
    dummy.SetValid(true);
    EXPECT_TRUE(dummy.IsValid());

    LM::LibPart other;
    other.FillDummy(KL::UniString("Picture"), ChairId, 2, manager.GetPublicIDs().imageGroup, 0);
    EXPECT_FALSE(other.IsSymbol());
    dummy.Swap(&other);
    EXPECT_EQ(dummy.GetDocumentName(), KL::UniString("Picture"));
    EXPECT_FALSE(dummy.IsSymbol());
    EXPECT_TRUE(other.IsSymbol());
    EXPECT_EQ(other.GetFolderIndex(), 1);

    LM::LibPart target;
    other.MoveAssignment(&target);
    EXPECT_EQ(target.GetOwnUnID(), ChairId);
    EXPECT_EQ(target.GetLocation(), scratch.Location("kept.klm"));
    EXPECT_EQ(other.GetState(), LM::LibPartStateDeleted);
    EXPECT_EQ(other.GetFolderIndex(), -1);
    EXPECT_FALSE(other.IsSymbol());
    EXPECT_TRUE(other.GetDocumentName().IsEmpty());

    // Flags and user data may come from any thread.
    std::vector<std::thread> threads;
    for (std::uint32_t bit = 0; bit < 8; ++bit)
        threads.emplace_back([&target, bit] {
            for (int i = 0; i < 1000; ++i)
                target.AddFlags(1U << (bit + 8));
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(target.GetFlags(), 0xFF02U);

    const auto data = KL::MakeShared<LM::SymbolUserData>();
    target.SetUserData(MainGuid, data);
    EXPECT_EQ(target.GetUserData(MainGuid).Get(), data.Get());
    target.SetUserData(MainGuid, nullptr);
    EXPECT_TRUE(target.GetUserData(MainGuid).IsNull());
}

} // namespace
