// The object database as its users see it: objects and links that survive a reopen in another
// process, ownership, the memory limit, damaged and foreign files, and a writer killed mid-way.
#include "support/ScratchFolder.hpp"
#include "support/Sqlite.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"
#include "ObjectDatabase/ObjectDatabase.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testsupport::RunSql;

// A small object: a text.
class Note : public ODB::Object {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* Construct() { return new Note; }

    Note() = default;
    explicit Note(std::string text) : text(std::move(text)) {}

    const KL::ClassInfo* GetClassInfo() const override { return &classInfo; }
    // A note of this text cannot be stored, as a full disk would refuse it.
    static constexpr const char* Unstorable = "unstorable";

    int WriteIsolatedState(KL::OChannel& channel) const override {
        if (text == Unstorable)
            return KL::ErrIO;
        KL::OutputFrame frame(channel, classInfo);
        ODB::Object::WriteIsolatedState(channel);
        channel.Write(static_cast<std::uint32_t>(text.size()));
        channel.WriteBin(text.data(), text.size());
        return frame.Close();
    }
    int ReadIsolatedState(KL::IChannel& channel) override {
        KL::InputFrame frame(channel, classInfo);
        std::uint32_t size = 0;
        if (frame.GetStatus() != KL::NoError || channel.Read(size) != KL::NoError)
            return KL::ErrStreamFormat;
        if (size > frame.GetRemaining())
            return KL::ErrStreamFormat;
        text.resize(size);
        channel.ReadBin(text.data(), size);
        return frame.Close();
    }

    std::string text;
};

// A bulky object, kept in a storage group of its own.
class Blob : public ODB::Object {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* Construct() { return new Blob; }

    Blob() = default;
    explicit Blob(std::vector<char> bytes) : bytes(std::move(bytes)) {}

    const KL::ClassInfo* GetClassInfo() const override { return &classInfo; }
    std::uint64_t GetIsolatedSize() const override { return 64 + bytes.size(); }
    int WriteIsolatedState(KL::OChannel& channel) const override {
        KL::OutputFrame frame(channel, classInfo);
        channel.Write(static_cast<std::uint32_t>(bytes.size()));
        channel.WriteBin(bytes.data(), bytes.size());
        return frame.Close();
    }
    int ReadIsolatedState(KL::IChannel& channel) override {
        KL::InputFrame frame(channel, classInfo);
        std::uint32_t size = 0;
        if (frame.GetStatus() != KL::NoError || channel.Read(size) != KL::NoError ||
            size > frame.GetRemaining())
            return KL::ErrStreamFormat;
        bytes.resize(size);
        channel.ReadBin(bytes.data(), size);
        return frame.Close();
    }

    std::vector<char> bytes;
};

const KL::ClassInfo Note::classInfo("Note", KL::Guid("3E1F9A62-0B7D-4C55-8E2A-91D4B6C07F13"), 1, 0,
                                    &ODB::Object::classInfo);
const KL::ClassInfo Blob::classInfo("Blob", KL::Guid("A8C4E217-5D39-4F0E-B6A1-2C7E90D35B84"), 1, 0,
                                    &ODB::Object::classInfo);
const ODB::StorageGroup blobGroup(KL::Guid("5F2B8D40-C61E-4A93-8D07-E3B1A94C2F65"), Blob::classInfo);
const ODB::ClassRegistration noteRegistration(Note::classInfo, Note::Construct);
const ODB::ClassRegistration blobRegistration(Blob::classInfo, Blob::Construct, &blobGroup);

const ODB::Association1N children(KL::Guid("0C6A3E95-7B12-4D8F-A54E-B29F61D07C38"),
                                  {{ODB::AssociationProperty::Ownership, 1},
                                   {ODB::AssociationProperty::Persistency, 1}});
const ODB::Association11 attachment(KL::Guid("E47B1C08-93A5-4E6D-8F21-5A0C3D9B76E2"),
                                    {{ODB::AssociationProperty::Ownership, 1},
                                     {ODB::AssociationProperty::Persistency, 1}});

std::vector<char> Pattern(int seed, std::size_t size) {
    std::vector<char> bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((seed * 131 + i * 7) & 0xFF);
    return bytes;
}

struct Database {
    Database(const IO::Location& file, int mode) : space("test") {
        ODB::FileDatabase::Parameters parameters;
        parameters.idSpace = &space;
        parameters.openMode = mode;
        database = std::make_unique<ODB::FileDatabase>(ODB::FileDatabase::Locations{file}, parameters);
    }
    ODB::IdSpace space;
    std::unique_ptr<ODB::FileDatabase> database;
};

std::vector<std::string> TextsOfChildren(const ODB::RefBase& parent) {
    ODB::RefList rights;
    children.EnumerateRight(parent, &rights);
    std::vector<std::string> texts;
    for (const ODB::RefBase& right : rights) {
        const ODB::ConstRef<Note> note = ODB::ConstRef<Note>::Cast(right);
        texts.push_back(note.IsNull() ? "(not a note)" : note->text);
    }
    return texts;
}

// Runs `body` in a child process; its exit code tells the first check that failed, 0 for none.
int InChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        int code = 99;
        try {
            code = body();
        } catch (...) {
            code = 98;
        }
        ::_exit(code);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

class ObjectDatabase : public ::testing::Test {
protected:
    testsupport::ScratchFolder scratch;
    IO::Location file = scratch.Location("objects.odb");
};

TEST_F(ObjectDatabase, ObjectsAndLinksComeBackInAnotherProcessAsTheyWereFlushed) {
    ODB::Id rootId, blobHolderId;
    {
        Database db(file, ODB::FileDatabase::ReadWrite);
        ODB::Ref<Note> root(new Note("root"));
        db.database->AddObject(root);
        db.database->SetRootObject(root);
        rootId = root.GetId();
        // A tree built apart from any database joins it whole when it is linked in.
        ODB::Ref<Note> branch(new Note("branch"));
        for (int i = 0; i < 3; ++i)
            ASSERT_TRUE(children.Connect(branch, ODB::Ref<Note>(new Note("leaf " + std::to_string(i)))));
        ODB::Ref<Blob> blob(new Blob(Pattern(7, 300000)));
        ASSERT_TRUE(attachment.Connect(branch, blob));
        EXPECT_EQ(branch.GetDatabase(), nullptr);
        for (int i = 0; i < 40; ++i)
            ASSERT_TRUE(children.Connect(root, ODB::Ref<Note>(new Note("child " + std::to_string(i)))));
        ASSERT_TRUE(children.Connect(root, branch));
        EXPECT_EQ(blob.GetDatabase(), db.database.get());
        blobHolderId = branch.GetId();
        // One left side per right side, one right side per left side of a one-to-one link.
        EXPECT_FALSE(children.Connect(root, branch));
        EXPECT_FALSE(attachment.Connect(branch, ODB::Ref<Blob>(new Blob(std::vector<char>()))));
        // An id is the database's once.
        ODB::Ref<Note> twin(new Note("twin"));
        twin->SetId(rootId);
        try {
            db.database->AddObject(twin);
            ADD_FAILURE() << "a second object took the root's id";
        } catch (const ODB::DatabaseException& refused) {
            EXPECT_EQ(refused.GetError(), ODB::FileDatabase::ErrorCode::DuplicateId);
        }
        db.database->Flush();
    }

    EXPECT_TRUE(ODB::FileDatabase::IsOwnFile(file));
    const int failedCheck = InChild([&] {
        Database db(file, ODB::FileDatabase::ReadOnly);
        const ODB::RefBase root = db.database->GetRootObject();
        if (root.GetId() != rootId || ODB::ConstRef<Note>::Cast(root)->text != "root")
            return 1;
        std::vector<std::string> expected;
        for (int i = 0; i < 40; ++i)
            expected.push_back("child " + std::to_string(i));
        expected.push_back("branch");
        if (TextsOfChildren(root) != expected)
            return 2;
        const ODB::ConstRef<Note> branch(blobHolderId, db.space);
        if (TextsOfChildren(branch) != std::vector<std::string>{"leaf 0", "leaf 1", "leaf 2"})
            return 3;
        const ODB::RefBase attached = attachment.GetRight(branch);
        if (!ODB::ConstRef<Note>::Cast(attached).IsNull() || ODB::ConstRef<Blob>::Cast(attached).IsNull())
            return 4;
        if (ODB::ConstRef<Blob>::Cast(attached)->bytes != Pattern(7, 300000))
            return 5;
        if (attachment.IsConnectedAsLeft(root) || !children.IsConnectedAsLeft(branch))
            return 6;
        return 0;
    });
    EXPECT_EQ(failedCheck, 0);
}

TEST_F(ObjectDatabase, DeletingAnOwnerTakesWhatItOwnsAndOnlyFlushedWorkSurvives) {
    ODB::Id keptId, goneId, goneBlobId;
    {
        Database db(file, ODB::FileDatabase::ReadWrite);
        ODB::Ref<Note> root(new Note("root"));
        db.database->SetRootObject(root);
        ODB::Ref<Note> gone(new Note("gone"));
        ODB::Ref<Note> kept(new Note("kept"));
        ODB::Ref<Blob> goneBlob(new Blob(Pattern(1, 1000)));
        children.Connect(root, gone);
        children.Connect(root, kept);
        children.Connect(gone, ODB::Ref<Note>(new Note("grandchild")));
        attachment.Connect(gone, goneBlob);
        keptId = kept.GetId();
        goneId = gone.GetId();
        goneBlobId = goneBlob.GetId();
        db.database->Flush();

        gone.Delete();
        EXPECT_FALSE(gone.IsLive());
        EXPECT_FALSE(goneBlob.IsLive());
        EXPECT_TRUE(ODB::RefBase(goneBlobId, db.space).IsNull());
        EXPECT_EQ(TextsOfChildren(root), std::vector<std::string>{"kept"});
        // A released link leaves both sides; relinking appends.
        children.Connect(root, ODB::Ref<Note>(new Note("late")));
        ASSERT_TRUE(children.Release(root, kept));
        ASSERT_TRUE(children.Connect(root, kept));
        EXPECT_EQ(TextsOfChildren(root), (std::vector<std::string>{"late", "kept"}));
        // Owners that own each other in a circle are deleted once each.
        ODB::Ref<Note> first(new Note("first"));
        ODB::Ref<Note> second(new Note("second"));
        children.Connect(first, second);
        children.Connect(second, first);
        children.Connect(root, first);
        first.Delete();
        EXPECT_FALSE(second.IsLive());
        db.database->Flush();
        kept->text = "kept, renamed after the last flush";
        children.Connect(root, ODB::Ref<Note>(new Note("never flushed")));
    }
    Database db(file, ODB::FileDatabase::ReadOnly);
    EXPECT_EQ(TextsOfChildren(db.database->GetRootObject()), (std::vector<std::string>{"late", "kept"}));
    EXPECT_TRUE(ODB::RefBase(goneId, db.space).IsNull());
    EXPECT_TRUE(ODB::RefBase(goneBlobId, db.space).IsNull());
    EXPECT_EQ(ODB::ConstRef<Note>(keptId, db.space)->text, "kept");
    // A read-only database refuses changes.
    EXPECT_THROW(children.Connect(db.database->GetRootObject(), ODB::Ref<Note>(new Note("x"))),
                 ODB::DatabaseException);
}

TEST_F(ObjectDatabase, MemoryStaysNearTheLimitWhateverTheDatabaseHolds) {
    constexpr int Count = 2000;
    constexpr std::size_t BlobSize = 100 * 1024;
    constexpr std::uint64_t Limit = 4u << 20;
    std::uint64_t mostLoaded = 0;
    {
        Database db(file, ODB::FileDatabase::ReadWrite);
        db.database->SetMaxMemorySize(4);
        ODB::Ref<Note> root(new Note("root"));
        db.database->SetRootObject(root);
        for (int i = 0; i < Count; ++i) {
            ASSERT_TRUE(children.Connect(root, ODB::Ref<Blob>(new Blob(Pattern(i, BlobSize)))));
            mostLoaded = std::max(mostLoaded, db.database->GetLoadedSize());
        }
        db.database->Flush();
    }
    EXPECT_LE(mostLoaded, Limit + BlobSize + 4096);
    {
        Database db(file, ODB::FileDatabase::ReadOnly);
        db.database->SetMaxMemorySize(4);
        ODB::RefList blobs;
        children.EnumerateRight(db.database->GetRootObject(), &blobs);
        ASSERT_EQ(blobs.size(), static_cast<std::size_t>(Count));
        int wrong = 0;
        for (int i = 0; i < Count; ++i) {
            // Letting go of each reference is what lets the database unload it again.
            const ODB::ConstRef<Blob> blob = ODB::ConstRef<Blob>::Cast(std::exchange(blobs[i], {}));
            wrong += blob->bytes != Pattern(i, BlobSize);
            mostLoaded = std::max(mostLoaded, db.database->GetLoadedSize());
        }
        EXPECT_EQ(wrong, 0);
    }
    EXPECT_LE(mostLoaded, Limit + BlobSize + 4096);

    // An object used once leaves memory with its last reference, whatever room is left.
    {
        Database db(file, ODB::FileDatabase::ReadWrite);
        ODB::Ref<Blob> blob(new Blob(Pattern(7, BlobSize)));
        const ODB::Id id = blob->GetId();
        db.database->AddObject(blob);
        ASSERT_GE(db.database->GetLoadedSize(), BlobSize);
        blob.ClearAndUnload();
        EXPECT_EQ(db.database->GetLoadedSize(), 0U);
        EXPECT_EQ(ODB::ConstRef<Blob>(id, db.space)->bytes, Pattern(7, BlobSize)) << "written out first";
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // 200 MiB went through; the process never held more than a small part of it.
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    EXPECT_LT(usage.ru_maxrss, 80 * 1024) << "peak resident KiB";
#endif
}

// Opens a damaged or foreign file and reads all it can: it either works or throws the
// database's exception, and nothing else happens.
std::string ReadEverything(const IO::Location& file) {
    try {
        Database db(file, ODB::FileDatabase::ReadOnly);
        const ODB::ConstRef<Note> root = ODB::ConstRef<Note>::Cast(db.database->GetRootObject());
        ODB::RefList rights;
        children.EnumerateRight(root, &rights);
        int notes = 0;
        for (const ODB::RefBase& right : rights) {
            right.Load();
            notes += !ODB::ConstRef<Note>::Cast(right).IsNull();
        }
        return (root.IsNull() ? "no root" : root->text) + " and " + std::to_string(notes) + " notes";
    } catch (const ODB::DatabaseException& fault) {
        return "fault " + std::to_string(fault.GetError());
    }
}

TEST_F(ObjectDatabase, AStoreThatFailsAsAReferenceGoesIsReportedByTheNextFlush) {
    Database db(file, ODB::FileDatabase::ReadWrite);
    db.database->SetMaxMemorySize(0);
    ODB::Ref<Note> root(new Note("root"));
    db.database->SetRootObject(root);
    // The last reference goes in a destructor, where the eviction's fault cannot be thrown.
    EXPECT_NO_THROW(children.Connect(root, ODB::Ref<Note>(new Note(Note::Unstorable))));
    EXPECT_THROW(db.database->Flush(), ODB::DatabaseException);
    // Used once and let go on purpose, the fault is thrown at once.
    ODB::Ref<Note> again(new Note(Note::Unstorable));
    children.Connect(root, again);
    EXPECT_THROW(again.ClearAndUnload(), ODB::DatabaseException);
}

TEST_F(ObjectDatabase, DamagedOrForeignFilesAreRefusedThroughTheDatabasesFaults) {
    const auto fault = [](ODB::FileDatabase::ErrorCode::Value error) {
        return "fault " + std::to_string(error);
    };
    const auto makeDatabase = [&](const IO::Location& at) {
        Database db(at, ODB::FileDatabase::ReadWrite);
        ODB::Ref<Note> root(new Note("root"));
        db.database->SetRootObject(root);
        for (int i = 0; i < 200; ++i)
            children.Connect(root,
                             ODB::Ref<Note>(new Note(std::string(300, static_cast<char>('a' + i % 26)))));
        db.database->Flush();
    };
    makeDatabase(file);
    ASSERT_EQ(ReadEverything(file), "root and 200 notes");

    // Cut short anywhere: a clean refusal or whatever survived, never a crash.
    const auto size = std::filesystem::file_size(file.ToString());
    for (const std::uintmax_t keep :
         {std::uintmax_t{0}, std::uintmax_t{50}, std::uintmax_t{100}, size / 3, size / 2, size - 4096}) {
        const IO::Location cut = scratch.Location("cut-" + std::to_string(keep) + ".odb");
        std::filesystem::copy_file(file.ToString(), cut.ToString());
        std::filesystem::resize_file(cut.ToString(), keep);
        const std::string result = ReadEverything(cut);
        EXPECT_TRUE(result.starts_with("fault") || result.starts_with("root")) << keep << ": " << result;
    }

    // Not ours: a text, another program's SQLite file, an empty file.
    scratch.Write("text.odb", std::string(4096, 'x'));
    EXPECT_FALSE(ODB::FileDatabase::IsOwnFile(scratch.Location("text.odb")));
    EXPECT_EQ(ReadEverything(scratch.Location("text.odb")),
              fault(ODB::FileDatabase::ErrorCode::StorageFailed));
    RunSql(scratch.Location("foreign.db"), "CREATE TABLE t(x); INSERT INTO t VALUES(1);");
    EXPECT_FALSE(ODB::FileDatabase::IsOwnFile(scratch.Location("foreign.db")));
    EXPECT_EQ(ReadEverything(scratch.Location("foreign.db")),
              fault(ODB::FileDatabase::ErrorCode::NotOwnFile));
    scratch.Write("empty.odb", "");
    EXPECT_EQ(ReadEverything(scratch.Location("empty.odb")), fault(ODB::FileDatabase::ErrorCode::NotOwnFile));

    // Our schema with rows that lie.
    const auto tampered = [&](const std::string& name, const std::string& sql) {
        const IO::Location copy = scratch.Location(name);
        std::filesystem::copy_file(file.ToString(), copy.ToString());
        RunSql(copy, sql);
        return ReadEverything(copy);
    };
    const std::string noteRows = "rowid IN (SELECT rowid FROM odb_object WHERE rowid > 1 LIMIT 5)";
    // A note that claims the blob's class is no note, and does not read as a blob.
    EXPECT_EQ(tampered("class.odb",
                       "UPDATE odb_object SET class = x'A8C4E2175D394F0EB6A12C7E90D35B84' WHERE " + noteRows),
              fault(ODB::FileDatabase::ErrorCode::DamagedObject));
    EXPECT_EQ(tampered("unknown.odb", "UPDATE odb_object SET class = zeroblob(16) WHERE " + noteRows),
              fault(ODB::FileDatabase::ErrorCode::UnknownClass));
    EXPECT_EQ(tampered("short.odb", "UPDATE odb_object SET state = substr(state, 1, 30) WHERE " + noteRows),
              fault(ODB::FileDatabase::ErrorCode::DamagedObject));
    // The text's length (after the 24-byte frame header) says far more than the frame holds.
    EXPECT_EQ(tampered("lying.odb", "UPDATE odb_object SET state = substr(state, 1, 24) || x'FFFFFF7F' || "
                                    "substr(state, 29) WHERE " +
                                        noteRows),
              fault(ODB::FileDatabase::ErrorCode::DamagedObject));
    EXPECT_EQ(tampered("trailing.odb", "UPDATE odb_object SET state = state || x'00' WHERE " + noteRows),
              fault(ODB::FileDatabase::ErrorCode::DamagedObject));
    EXPECT_EQ(tampered("storage.odb", "UPDATE odb_object SET storage = 77 WHERE " + noteRows),
              fault(ODB::FileDatabase::ErrorCode::StorageFailed));
    EXPECT_EQ(tampered("badid.odb", "UPDATE odb_object SET id = substr(id, 1, 15) WHERE " + noteRows),
              fault(ODB::FileDatabase::ErrorCode::DamagedObject));
}

TEST_F(ObjectDatabase, AWriterKilledAtAnyPointLeavesTheLastFlushedState) {
    constexpr int Batch = 25;
    std::mt19937 random(20261124);
    for (int round = 0; round < 25; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            Database db(file, ODB::FileDatabase::ReadWrite);
            ODB::RefBase root = db.database->GetRootObject();
            if (root.IsNull()) {
                root = ODB::Ref<Note>(new Note("root"));
                db.database->SetRootObject(root);
                db.database->Flush();
            }
            for (int batch = 0;; ++batch) {
                for (int i = 0; i < Batch; ++i) {
                    children.Connect(root, ODB::Ref<Note>(new Note("batch " + std::to_string(batch))));
                    children.Connect(root, ODB::Ref<Blob>(new Blob(Pattern(i, 20000))));
                }
                db.database->Flush();
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 150000));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);

        // Before the first flush there is no database yet, and nothing to find.
        if (!ODB::FileDatabase::IsOwnFile(file))
            continue;
        // A reader rolls back what the killed writer left half done.
        Database db(file, ODB::FileDatabase::ReadOnly);
        ODB::RefList rights;
        children.EnumerateRight(db.database->GetRootObject(), &rights);
        ASSERT_EQ(rights.size() % (2 * Batch), 0u) << "round " << round;
        for (const ODB::RefBase& right : rights)
            ASSERT_TRUE(right.Load());
    }
}

} // namespace
