// The ladder of modifiers, observers that come and go during a notification, compiled code by
// part, and the script threads' operations run from eight threads at once (meant for the thread
// sanitizer build).
#include "support/Catalogue.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;

KL::ConstSharedPtr<BinCode> Code(const std::string& bytes) {
    return KL::ConstSharedPtr<BinCode>(
        new BinCode(KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size()))));
}

std::string BytesOf(const KL::ConstSharedPtr<BinCode>& code) {
    return code == nullptr ? "none" : std::string(*code->GetHandle(), BMGetHandleSize(code->GetHandle()));
}

class Tag : public LM::SymbolUserData {
public:
    explicit Tag(int value) : value(value) {}
    int value;
};

class Counting : public LM::LibrarySetObserver {
public:
    void SomethingHappened() override { ++calls; }
    int calls = 0;
};

// Leaves the set the first time it is told anything.
class LeavingObserver : public Counting {
public:
    explicit LeavingObserver(LM::LibrarySet::ThreadSafeModifier modifier) : modifier(modifier) {}
    void SomethingHappened() override {
        Counting::SomethingHappened();
        modifier.Detach(*this);
    }
    LM::LibrarySet::ThreadSafeModifier modifier;
};

class Modifiers : public CatalogueTest {
protected:
    Modifiers() {
        SavePart("Lib/Furniture.klm", TestId(1), "Furniture", {}, true);
        for (std::uint32_t n = 2; n < 10; ++n)
            SavePart("Lib/Part " + std::to_string(n) + ".klm", TestId(n),
                     ("Part " + std::to_string(n)).c_str(), {TestId(1)});
        AddLibrary("Lib");
        EXPECT_EQ(Set().Enumerate(process), 0);
    }

    const LM::LibPart* Part(std::uint32_t n) {
        return Set().GetLibPart(LM::LibPartId(TestId(n), KL::UniString()));
    }
};

TEST_F(Modifiers, EachRungActsOnTheSetItWasMadeFrom) {
    const LM::LibrarySet::Modifier modifier = manager.GetModifier();
    const LM::LibrarySet::Modifier copy = modifier;
    EXPECT_EQ(copy.GetConstLibrarySet(), &Set());
    const LM::LibrarySet::ThreadSafeModifier forScripts =
        manager.GetFileServices()->GetLibSetThreadSafeModifier();
    EXPECT_EQ(forScripts.GetConstLibrarySet(), &Set());

    // Checking access changes nothing: the modifier's class is the contract.
    LM::LibrarySet::EnableAccessCheck(true);
    const LM::LibrarySet::AccessGuard guard(&Set());
    EXPECT_EQ(guard.GetCreatorThreadId(), 0);
    EXPECT_EQ(copy.Enumerate(process), 0);
    EXPECT_EQ(Set().GetLibPartNumber(), 9);
    LM::LibrarySet::EnableAccessCheck(false);

    const LM::LibrarySet::ISingleThreadedModifier& view = copy;
    const int folder = Part(2)->GetFolderIndex();
    EXPECT_EQ(view.SetFolderExpandState(folder, true), 0);
    EXPECT_TRUE(view.GetFolderExpandState(folder));
    EXPECT_EQ(view.SetFolderTreeItemId(folder, 42), 0);
    EXPECT_EQ(Set().GetFolderTreeItemId(folder), 42);

    const LM::LibrarySet::IModifier& full = copy;
    full.SetValid(LM::LibPartId(TestId(2), KL::UniString()), false);
    EXPECT_FALSE(Part(2)->IsValid());
    copy.AddFlags(Part(3), 0x100);
    EXPECT_EQ(full.ClearAllSymbolFlags(0x100), 0);
    EXPECT_EQ(Part(3)->GetFlags() & 0x100, 0U);
    full.DeleteLibPart(process, Part(4));
    EXPECT_EQ(Part(4), nullptr);
    EXPECT_EQ(full.GetFolderSet(), Set().GetFolderSet());
    full.SetLibpartSearchCompatibility(0);
    EXPECT_EQ(Set().GetLibpartSearchCompatibility(), 0);
}

TEST_F(Modifiers, ObserversThatLeaveDuringANotificationDoNotDisturbTheOthers) {
    LM::LibrarySet::ThreadSafeModifier modifier(&Set());
    Counting before, after;
    LeavingObserver leaving(modifier);
    modifier.Attach(before);
    modifier.Attach(leaving);
    modifier.Attach(after);
    Set().SendSomethingHappened();
    Set().SendSomethingHappened();
    EXPECT_EQ(before.calls, 2);
    EXPECT_EQ(leaving.calls, 1);
    EXPECT_EQ(after.calls, 2);
    modifier.Detach(before);
    modifier.Detach(after);
}

// Throws the foundation's exception at the first `failures` notifications it gets.
class FailingObserver : public LM::LibrarySetObserver {
public:
    explicit FailingObserver(int failures = 1) : failures(failures) {}
    void SomethingHappened() override {
        if (calls++ < failures)
            throw KL::OutOfMemoryException();
    }
    int failures;
    int calls = 0;
};

TEST_F(Modifiers, AFaultDuringEnumerationLeavesAnEmptyCatalogueAndNoLibraries) {
    FailingObserver failing;
    Set().Attach(failing);
    EXPECT_NE(Set().Enumerate(process), 0);
    Set().Detach(failing);
    EXPECT_EQ(failing.calls, 2);
    EXPECT_EQ(Set().GetActiveLibraryNum(), 0);
    EXPECT_TRUE(Set().IsEnumerated());
    EXPECT_EQ(Set().GetLibPartNumber(), 0);
    EXPECT_EQ(Set().SearchSymbolByUnID(TestId(2), nullptr), nullptr);
    // The set works on as before.
    AddLibrary("Lib");
    EXPECT_EQ(Set().Enumerate(process), 0);
    EXPECT_EQ(Set().GetLibPartNumber(), 9);

    // The empty pass after a fault may fail as well: the host still gets a code, not the exception,
    // and the recovery stops there.
    FailingObserver always(1000);
    Set().Attach(always);
    EXPECT_EQ(Set().Enumerate(process), KL::OutOfMemoryException().GetErrorCode());
    Set().Detach(always);
    EXPECT_EQ(always.calls, 2);
    EXPECT_EQ(Set().GetActiveLibraryNum(), 0);
    EXPECT_EQ(Set().GetLibPartNumber(), 0);
    EXPECT_EQ(Set().Enumerate(process), 0);
    EXPECT_TRUE(Set().IsEnumerated());
}

TEST_F(Modifiers, CompiledCodeIsKeptByPartAndScriptTypeUntilTheAncestryChanges) {
    LM::LibrarySet::ThreadSafeModifier modifier(&Set());
    KL::ConstSharedPtr<BinCode> code;
    EXPECT_EQ(modifier.GetSymbolQdlBinCode(Part(2), QDL_3DScript, &code), LM::LibPartFileError);
    EXPECT_EQ(modifier.SetSymbolQdlBinCode(nullptr, QDL_3DScript, Code("x")), LM::LibPartFileError);
    EXPECT_EQ(modifier.SetSymbolQdlBinCode(Part(2), QDL_3DScript, Code("three d")), 0);
    EXPECT_EQ(modifier.SetSymbolQdlBinCode(Part(2), QDL_2DScript, Code("two d")), 0);
    EXPECT_EQ(modifier.GetSymbolQdlBinCode(Part(2), QDL_3DScript, &code), 0);
    EXPECT_EQ(BytesOf(code), "three d");
    EXPECT_EQ(modifier.GetSymbolQdlBinCode(Part(2), QDL_2DScript, &code), 0);
    EXPECT_EQ(BytesOf(code), "two d");
    const int index = Part(2)->GetQdlBinCodeIndex(QDL_3DScript);
    EXPECT_EQ(manager.GetLibrarySet()->GetBinCodes()->GetUsedCount(index), 2);

    // The part is saved below another type: its code no longer fits and is compiled anew, in the
    // same place of the store.
    SavePart("Lib/Part 2.klm", TestId(2), "Part 2", {TestId(3)});
    ASSERT_EQ(
        Set().StoreLibPart(process, scratch.Location("Lib/Part 2.klm"), -1, nullptr, nullptr, false, nullptr),
        Part(2));
    EXPECT_EQ(modifier.GetSymbolQdlBinCode(Part(2), QDL_3DScript, &code), 0);
    EXPECT_EQ(code, nullptr);
    EXPECT_EQ(modifier.SetSymbolQdlBinCode(Part(2), QDL_3DScript, Code("again")), 0);
    EXPECT_EQ(Part(2)->GetQdlBinCodeIndex(QDL_3DScript), index);
    EXPECT_EQ(modifier.GetSymbolQdlBinCode(Part(2), QDL_3DScript, &code), 0);
    EXPECT_EQ(BytesOf(code), "again");

    // Clearing the store drops every symbol's indices with it.
    EXPECT_EQ(manager.GetModifier().ClearAllQdlBinCodes(), 0);
    EXPECT_EQ(Part(2)->GetQdlBinCodeIndex(QDL_3DScript), -1);
    EXPECT_EQ(modifier.GetSymbolQdlBinCode(Part(2), QDL_3DScript, &code), LM::LibPartFileError);
}

// What script threads do while the engine runs: flags, user data and compiled code on shared parts.
TEST_F(Modifiers, ScriptThreadOperationsFromEightThreadsAtOnce) {
    constexpr int Threads = 8;
    constexpr int Rounds = 200;
    const LM::LibrarySet::ThreadSafeModifier modifier =
        manager.GetFileServices()->GetLibSetThreadSafeModifier();
    std::vector<const LM::LibPart*> parts;
    for (std::uint32_t n = 2; n < 10; ++n)
        parts.push_back(Part(n));
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&, t] {
            const KL::Guid client(100 + static_cast<std::uint32_t>(t), 0, 0, {});
            LM::LibrarySet::ThreadSafeModifier own = modifier;
            for (int round = 0; round < Rounds; ++round) {
                // Observers come and go on every thread while the first one sends notifications.
                Counting observer;
                own.Attach(observer);
                if (t == 0)
                    Set().SendSomethingHappened();
                own.Detach(observer);
                const LM::LibPart* part = parts[static_cast<std::size_t>(round) % parts.size()];
                modifier.AddFlags(part, 0x100u << t);
                modifier.SetUserData(part, client, KL::ConstSharedPtr<LM::SymbolUserData>(new Tag(round)));
                const auto data = part->GetUserData(client);
                if (data == nullptr || static_cast<const Tag*>(data.Get())->value != round)
                    ++failures;
                const auto type = static_cast<QDL_ScriptType>(1 + (round + t) % 8);
                if (modifier.SetSymbolQdlBinCode(part, type, Code("code " + std::to_string(t))) != 0)
                    ++failures;
                KL::ConstSharedPtr<BinCode> code;
                if (modifier.GetSymbolQdlBinCode(part, type, &code) != 0 || code == nullptr)
                    ++failures;
                if (part->GetSymbolFile() == nullptr)
                    ++failures;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
    for (const LM::LibPart* part : parts) {
        EXPECT_EQ(part->GetFlags() & 0xFF00u, 0xFF00u) << part->GetDocumentName().ToUTF8();
        modifier.ClearUserData(LM::LibPartId(part));
        EXPECT_EQ(part->GetUserData(KL::Guid(100, 0, 0, {})), nullptr);
    }
}

} // namespace
