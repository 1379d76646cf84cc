// The objects of a database container: what each class stores and reads back through a real
// file database, the stored forms' edges, and how database faults reach callers.
#include "support/ScratchFolder.hpp"
#include "support/Sqlite.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using testsupport::RunSql;

using Folder = LM::DatabaseLibraryContainerFolder;
using Header = LM::DatabaseLibraryContainerLibPartHeader;
using SymbolHeader = LM::DatabaseLibraryContainerSymbolHeader;
using Content = LM::DatabaseLibraryContainerLibPartContent;
using Root = LM::DatabaseLibraryContainerRoot;

const std::string doorBytes = "door part bytes: " + std::string(5000, 'd');

KL::Array<LM::InfoData*> Items(std::initializer_list<std::pair<std::uint32_t, std::string>> items) {
    KL::Array<LM::InfoData*> result;
    for (const auto& [type, bytes] : items)
        result.Push(new LM::InfoData(type, static_cast<std::uint32_t>(bytes.size()), bytes.data()));
    return result;
}

std::vector<std::string> ItemTexts(const KL::Array<LM::InfoData*>& items) {
    std::vector<std::string> texts;
    for (const LM::InfoData* item : items)
        texts.push_back(std::to_string(item->GetType()) + ":" +
                        std::string(item->GetData(), item->GetSize()));
    return texts;
}

void DeleteItems(KL::Array<LM::InfoData*>& items) {
    for (LM::InfoData* item : items)
        delete item;
    items.Clear();
}

struct ContainerDatabase {
    ContainerDatabase(const IO::Location& file, int mode) : space("test") {
        ODB::FileDatabase::Parameters parameters;
        parameters.idSpace = &space;
        parameters.errorHandler = &handler;
        parameters.openMode = mode;
        database = std::make_unique<ODB::FileDatabase>(ODB::FileDatabase::Locations{file}, parameters);
    }
    ODB::IdSpace space;
    LM::DatabaseLibraryContainerErrorHandler handler;
    std::unique_ptr<ODB::FileDatabase> database;
};

class DatabaseContainerObjects : public ::testing::Test {
protected:
    // root → top folder → { "Doors" (sub-container) → { door.klm (symbol), readme.txt }, orphan }
    void WriteContainer() {
        ContainerDatabase db(file, ODB::FileDatabase::ReadWrite);
        ODB::Ref<LM::LibraryContainerFileRoot> fileRoot(new LM::LibraryContainerFileRoot);
        db.database->AddObject(fileRoot);
        db.database->SetRootObject(fileRoot);
        ODB::Ref<Root> root(new Root);
        root->SetId(LM::DatabaseLibraryContainerRootId);
        root->SetFileCount(3);
        ASSERT_TRUE(LM::DLCOwnerRootAssociation.Connect(fileRoot, root));
        ODB::Ref<Folder> top(new Folder);
        ASSERT_TRUE(LM::DLCRootFolderAssociation.Connect(root, top));

        ODB::Ref<Folder> doors(new Folder(KL::UniString("Doors")));
        doors->IsSubContainer(true);
        KL::Array<LM::InfoData*> items = Items({{0x454D4248, std::string(24, 'h')}, {7, "seven"}});
        doors->SetInfoData(items);
        DeleteItems(items);
        ODB::Ref<SymbolHeader> door(new SymbolHeader(KL::UniString("door.klm")));
        ODB::Ref<Content> doorContent(
            new Content(KL::UniString("door.klm"), KL::UniString("application/x-part"),
                        OVFS::DateTime(0, 1000), OVFS::DateTime(1, 2000), 0x4B4C4D20, 0x4B4C5458));
        scratch.Write("door.klm", doorBytes);
        ASSERT_EQ(doorContent->SetLibEntry(scratch.Location("door.klm")), 0);
        items = Items({{9, "nine"}});
        doorContent->SetInfoData(items);
        DeleteItems(items);
        ASSERT_TRUE(LM::DLCHeaderContentAssociation.Connect(door, doorContent));
        ODB::Ref<Header> readme(new Header(KL::UniString("readme.txt")));
        ODB::Ref<Content> readmeContent(new Content(KL::UniString("readme.txt"), KL::UniString(),
                                                    OVFS::DateTime(), OVFS::DateTime(), 0x54455854, 0));
        KL::MemoryIChannel text("hello", 5);
        ASSERT_EQ(readmeContent->SetLibEntry(text, 5), 0);
        ASSERT_TRUE(LM::DLCHeaderContentAssociation.Connect(readme, readmeContent));
        ASSERT_TRUE(LM::DLCChildrenAssociation.Connect(doors, door));
        ASSERT_TRUE(LM::DLCChildrenAssociation.Connect(doors, readme));
        ASSERT_TRUE(LM::DLCChildrenAssociation.Connect(top, doors));
        ASSERT_TRUE(
            LM::DLCChildrenAssociation.Connect(top, ODB::Ref<Header>(new Header(KL::UniString("orphan")))));
        db.database->Flush();
        db.database->CompactToMinimum();
    }

    testsupport::ScratchFolder scratch;
    IO::Location file = scratch.Location("container.lcf");
};

TEST_F(DatabaseContainerObjects, EveryClassComesBackAsItWasWrittenAndHeadersReadThroughToTheirContent) {
    WriteContainer();
    ContainerDatabase db(file, ODB::FileDatabase::ReadOnly);
    const ODB::RefBase fileRoot = db.database->GetRootObject();
    ASSERT_FALSE(ODB::ConstRef<LM::LibraryContainerFileRoot>::Cast(fileRoot).IsNull());
    const ODB::ConstRef<Root> root(LM::DatabaseLibraryContainerRootId, db.space);
    ASSERT_FALSE(root.IsNull());
    EXPECT_EQ(LM::DLCOwnerRootAssociation.GetRight(fileRoot), root);
    EXPECT_EQ(root->GetTLCMagic(), 0x4B4C4346);
    EXPECT_EQ(root->GetTLCFileType(), 0x65C07A1E);
    EXPECT_EQ(root->GetTLCVersionH(), 1);
    EXPECT_EQ(root->GetTLCVersionL(), 0);
    EXPECT_EQ(root->GetPlatform(), 0x5757);
    EXPECT_EQ(root->GetFileCount(), 3u);

    KL::Array<ODB::Ref<Folder>> folders;
    root->GetConnectedFolderObjects(&folders);
    ASSERT_EQ(folders.GetSize(), 1u);
    const ODB::Ref<Folder> top = folders[0];
    KL::Array<ODB::Ref<Header>> files;
    root->GetConnectedFileObjects(&files);
    EXPECT_TRUE(files.IsEmpty());

    top->GetConnectedFolderObjects(&folders);
    top->GetConnectedFileObjects(&files);
    ASSERT_EQ(folders.GetSize(), 1u);
    ASSERT_EQ(files.GetSize(), 1u);
    const ODB::Ref<Folder> doors = folders[0];
    EXPECT_EQ(doors->GetName(), KL::UniString("Doors"));
    EXPECT_TRUE(doors->IsSubContainer());
    KL::Array<LM::InfoData*> items;
    EXPECT_EQ(doors->GetInfoData(items), 2u);
    EXPECT_EQ(ItemTexts(items), (std::vector<std::string>{"1162691144:" + std::string(24, 'h'), "7:seven"}));
    DeleteItems(items);

    // A header with no content: size 0, zero times and types, and no bytes.
    const ODB::Ref<Header> orphan = files[0];
    EXPECT_EQ(orphan->GetName(), KL::UniString("orphan"));
    EXPECT_EQ(orphan->GetDataSize(), 0u);
    EXPECT_EQ(orphan->GetModificationTime(), OVFS::DateTime());
    EXPECT_EQ(orphan->GetMacType(), 0);
    char byte = 0;
    std::uint32_t read = 99;
    EXPECT_EQ(orphan->GetBinData(&byte, 0, 1, &read), KL::ErrStreamFormat);

    // Children come in link order, and the two header classes stay apart.
    std::vector<std::string> names;
    for (LM::DLCChildrenConstIterator child(doors); !child.IsEnd(); ++child)
        names.push_back(ODB::ConstRef<Header>::Cast(*child)->GetName().ToUTF8());
    EXPECT_EQ(names, (std::vector<std::string>{"door.klm", "readme.txt"}));
    doors->GetConnectedFileObjects(&files);
    ASSERT_EQ(files.GetSize(), 2u);
    EXPECT_FALSE(ODB::ConstRef<SymbolHeader>::Cast(files[0]).IsNull());
    EXPECT_TRUE(ODB::ConstRef<SymbolHeader>::Cast(files[1]).IsNull());

    const ODB::Ref<Header> door = files[0];
    EXPECT_EQ(door->GetDataSize(), doorBytes.size());
    EXPECT_EQ(door->GetCreationTime(), OVFS::DateTime(0, 1000));
    EXPECT_EQ(door->GetModificationTime(), OVFS::DateTime(1, 2000));
    EXPECT_EQ(door->GetMacType(), 0x4B4C4D20);
    EXPECT_EQ(door->GetMacCreator(), 0x4B4C5458);
    const ODB::ConstRef<Content> doorContent = door->GetContent();
    EXPECT_EQ(doorContent->GetMime(), KL::UniString("application/x-part"));
    EXPECT_EQ(doorContent->GetInfoData(items), 1u);
    EXPECT_EQ(ItemTexts(items), std::vector<std::string>{"9:nine"});
    DeleteItems(items);
    // Reading up to the very end works; one byte further reads nothing at all.
    std::string tail(10, '\0');
    EXPECT_EQ(door->GetBinData(tail.data(), doorBytes.size() - 10, 10, &read), 0);
    EXPECT_EQ(read, 10u);
    EXPECT_EQ(tail, doorBytes.substr(doorBytes.size() - 10));
    EXPECT_EQ(door->GetBinData(tail.data(), doorBytes.size() - 9, 10, &read), KL::ErrStreamFormat);
    EXPECT_EQ(read, 0u);
    KL::MemoryOChannel whole;
    EXPECT_EQ(doorContent->WriteToChannel(whole), 0);
    EXPECT_EQ(std::string(whole.GetData().begin(), whole.GetData().end()), doorBytes);
    EXPECT_EQ(files[1]->GetDataSize(), 5u);
    EXPECT_EQ(files[1]->GetContent()->GetMime(), KL::UniString());

    // Built once, never changed through the tree's interface.
    EXPECT_TRUE(doors->CreateFolderObject(IO::Name("new"), false).IsNull());
    EXPECT_TRUE(doors->CreateFileObject(IO::Name("new")).IsNull());
    EXPECT_EQ(door->SetBinData("x", 0, 1, &read), 0);
    EXPECT_EQ(door->GetDataSize(), doorBytes.size());
    for (const KL::ClassInfo* info : {&Root::classInfo, &Folder::classInfo, &Content::classInfo})
        EXPECT_TRUE(ODB::HasClassProperty(*info, Undo::NotUndoableClass::Get()) &&
                    ODB::HasClassProperty(*info, TW::NonTWClass::Get()));
}

std::vector<char> StateOf(const ODB::Object& object) {
    KL::MemoryOChannel channel;
    EXPECT_EQ(object.WriteIsolatedState(channel), 0);
    return channel.TakeData();
}

TEST_F(DatabaseContainerObjects, StoredFormsKeepTheirEdgesAndIsolatedStatesRefuseForeignRecords) {
    // Frames: 24 bytes each, one per class level.
    Folder bare(KL::UniString("F"));
    Folder withItem(KL::UniString("F"));
    KL::Array<LM::InfoData*> items = Items({{5, "abc"}});
    withItem.SetInfoData(items);
    DeleteItems(items);
    const std::vector<char> bareState = StateOf(bare);
    EXPECT_EQ(StateOf(withItem).size(), bareState.size() + 8 + 3);
    EXPECT_EQ(std::vector<char>(bareState.end() - 4, bareState.end()), std::vector<char>(4, 0));

    Content empty(KL::UniString("e"), KL::UniString(), {}, {}, 0, 0);
    const std::vector<char> emptyState = StateOf(empty);
    EXPECT_EQ(std::vector<char>(emptyState.end() - 8, emptyState.end()), std::vector<char>(8, 0))
        << "no items, then a size of 0 and no bytes";
    KL::MemoryIChannel nothing("", 0);
    EXPECT_EQ(empty.SetLibEntry(nothing, 0), KL::ErrStreamFormat);
    scratch.Write("empty.bin", "");
    KL::MemoryIChannel four("abcd", 4);
    ASSERT_EQ(empty.SetLibEntry(four, 4), 0);
    EXPECT_EQ(empty.SetLibEntry(scratch.Location("empty.bin")), 0);
    EXPECT_EQ(empty.GetLibEntrySize(), 4u) << "an empty file leaves the bytes as they were";

    // A root written at version 1 has no file count; one of an unknown version changes nothing.
    const auto rootStream = [](std::uint16_t major, std::int16_t platform) {
        const KL::ClassInfo writtenAs("DatabaseLibraryContainerRoot", Root::classInfo.GetGuid(), major, 0);
        KL::MemoryOChannel channel;
        KL::OutputFrame frame(channel, writtenAs);
        channel.Write(std::int32_t{1});
        channel.Write(std::int32_t{2});
        channel.Write(std::int16_t{3});
        channel.Write(std::int16_t{4});
        channel.Write(platform);
        frame.Close();
        return channel.TakeData();
    };
    Root root;
    root.SetFileCount(7);
    std::vector<char> stream = rootStream(1, -1);
    KL::MemoryIChannel version1(stream.data(), stream.size());
    ASSERT_EQ(root.ReadIsolatedState(version1), 0);
    EXPECT_EQ(root.GetTLCMagic(), 1);
    EXPECT_EQ(root.GetTLCVersionL(), 4);
    EXPECT_EQ(root.GetPlatform(), -1) << "16 bits, sign-extended";
    EXPECT_EQ(root.GetFileCount(), 7u);
    stream = rootStream(3, 0x5757);
    KL::MemoryIChannel version3(stream.data(), stream.size());
    ASSERT_EQ(root.ReadIsolatedState(version3), 0);
    EXPECT_EQ(root.GetTLCMagic(), 1);
    EXPECT_EQ(root.GetPlatform(), -1);

    // Isolated states copy both ways and refuse a record of another class.
    const std::unique_ptr<ODB::IsolatedState> folderState(withItem.CreateIsolatedState());
    ASSERT_EQ(withItem.StoreIsolatedState(folderState.get()), 0);
    ASSERT_EQ(bare.RestoreIsolatedState(folderState.get()), 0);
    EXPECT_EQ(StateOf(bare), StateOf(withItem));
    const std::unique_ptr<ODB::IsolatedState> rootState(root.CreateIsolatedState());
    EXPECT_EQ(bare.StoreIsolatedState(rootState.get()), KL::ErrStreamFormat);
    EXPECT_EQ(bare.RestoreIsolatedState(rootState.get()), KL::ErrStreamFormat);
    const std::unique_ptr<ODB::IsolatedState> contentState(empty.CreateIsolatedState());
    ASSERT_EQ(empty.StoreIsolatedState(contentState.get()), 0);
    Content restored;
    ASSERT_EQ(restored.RestoreIsolatedState(contentState.get()), 0);
    EXPECT_EQ(StateOf(restored), StateOf(empty));

    EXPECT_EQ(root.GetIsolatedSize(), 48u);
    EXPECT_EQ(LM::DatabaseLibraryContainerEntry().GetIsolatedSize(), 24u);
    EXPECT_EQ(bare.GetIsolatedSize(), 72u);
    EXPECT_EQ(SymbolHeader().GetIsolatedSize(), 40u);
    items = Items({{1, "12345"}});
    empty.SetInfoData(items);
    DeleteItems(items);
    EXPECT_EQ(empty.GetIsolatedSize(), 120u + 4 + 5);
}

TEST_F(DatabaseContainerObjects, DatabaseFaultsSurfaceAsTheContainersExceptions) {
    LM::DatabaseLibraryContainerErrorHandler handler;
    try {
        handler.ErrorEncountered(nullptr, ODB::FileDatabase::Operation::Create,
                                 ODB::FileDatabase::Subject::Database,
                                 ODB::FileDatabase::ErrorCode::StorageFailed, 14);
        ADD_FAILURE() << "the handler returned";
    } catch (const LM::DatabaseLibraryContainerOpeningFailedException& failure) {
        EXPECT_EQ(failure.GetErrorCode(), 14);
        EXPECT_EQ(static_cast<const KL::KLException&>(failure).GetErrorCode(), -7003);
        EXPECT_EQ(failure.GetMessage(), "Database opening failed");
        const std::unique_ptr<LM::DatabaseLibraryContainerOpeningFailedException> copy(failure.Clone());
        EXPECT_EQ(copy->GetErrorCode(), 14);
    }
    try {
        handler.ErrorEncountered(nullptr, ODB::FileDatabase::Operation::Load,
                                 ODB::FileDatabase::Subject::Object,
                                 ODB::FileDatabase::ErrorCode::DamagedObject, -39);
        ADD_FAILURE() << "the handler returned";
    } catch (const LM::DatabaseLibraryContainerException& failure) {
        EXPECT_EQ(failure.GetErrorCode(), -39);
        EXPECT_EQ(failure.GetMessage(), "DatabaseLibraryContainer exception");
        EXPECT_EQ(std::unique_ptr<LM::DatabaseLibraryContainerException>(failure.Clone())->GetErrorCode(),
                  -39);
    }

    // Through a real database: a file that is no database, and a content whose stream was cut.
    scratch.Write("not-a-database.lcf", std::string(8192, 'z'));
    EXPECT_THROW(ContainerDatabase(scratch.Location("not-a-database.lcf"), ODB::FileDatabase::ReadOnly),
                 LM::DatabaseLibraryContainerOpeningFailedException);
    WriteContainer();
    // Group 2 is the contents' table: the root's group was made first.
    EXPECT_EQ(RunSql(file, "UPDATE odb_group_2 SET state = substr(state, 1, length(state) - 100) "
                           "WHERE length(state) > 5000"),
              1);
    ContainerDatabase db(file, ODB::FileDatabase::ReadOnly);
    ODB::ConstRef<Root> root(LM::DatabaseLibraryContainerRootId, db.space);
    KL::Array<ODB::Ref<Folder>> folders;
    root->GetConnectedFolderObjects(&folders);
    folders[0]->GetConnectedFolderObjects(&folders);
    KL::Array<ODB::Ref<Header>> files;
    folders[0]->GetConnectedFileObjects(&files);
    ASSERT_EQ(files[0]->GetName(), KL::UniString("door.klm")) << "headers list without their contents";
    EXPECT_THROW(files[0]->GetDataSize(), LM::DatabaseLibraryContainerException);
    EXPECT_EQ(files[1]->GetDataSize(), 5u);
}

} // namespace
