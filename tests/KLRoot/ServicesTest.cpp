// Preferences, fingerprints, time, locks, threads and process control.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace {

class Preferences : public ::testing::Test {
protected:
    void SetUp() override {
        folder = std::filesystem::temp_directory_path() /
                 ("klpref-" + std::to_string(::getpid()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(folder);
        file = folder / "preferences.json";
        ::setenv(KLPref::FileVariable, file.c_str(), 1);
    }
    void TearDown() override {
        ::unsetenv(KLPref::FileVariable);
        std::filesystem::remove_all(folder);
    }
    std::filesystem::path folder;
    std::filesystem::path file;
};

TEST_F(Preferences, ReadsTypedValuesAndTellsFoundFromDefault) {
    std::ofstream(file) << R"({"Macro Search": {"Allow Compatible Mode": false},
                             "LibraryManager": {"LibraryContainerMaxMemorySize": 1048576, "Name": "Ünï"},
                             "FileFormat": []})";
    KLPref::IRoot* root = KLPref::OpenRootKey(KLPref::UserDomain);
    ASSERT_NE(root, nullptr);
    bool flag = true;
    std::int64_t number = 0;
    KL::UniString text;
    EXPECT_EQ(root->ReadBool("Macro Search", "Allow Compatible Mode", &flag, true, KLPref::UserLevel),
              KL::NoError);
    EXPECT_FALSE(flag);
    EXPECT_EQ(root->ReadInt("LibraryManager", "LibraryContainerMaxMemorySize", &number, 5, KLPref::UserLevel),
              KL::NoError);
    EXPECT_EQ(number, 1048576);
    EXPECT_EQ(root->ReadString("LibraryManager", "Name", &text, "", KLPref::UserLevel), KL::NoError);
    EXPECT_EQ(text, "Ünï");
    // Absent keys, absent or malformed groups and values of another type give the default.
    EXPECT_EQ(root->ReadBool("Macro Search", "Other", &flag, true, KLPref::UserLevel), KL::ErrNoData);
    EXPECT_TRUE(flag);
    EXPECT_EQ(root->ReadInt("FileFormat", "DatabaseLibraryContainerFormat", &number, 3, KLPref::UserLevel),
              KL::ErrNoData);
    EXPECT_EQ(number, 3);
    EXPECT_EQ(root->ReadInt("LibraryManager", "Name", &number, 9, KLPref::UserLevel), KL::ErrNoData);
    EXPECT_EQ(number, 9);
    EXPECT_EQ(root->ReadInt("LibraryManager", "Name", nullptr, 9, KLPref::UserLevel), KL::ErrParam);
    KLPref::CloseRootKey(root);
}

TEST_F(Preferences, AbsentOrBrokenFileMeansDefaults) {
    bool flag = false;
    KLPref::IRoot* root = KLPref::OpenRootKey(KLPref::UserDomain);
    EXPECT_EQ(root->ReadBool("Macro Search", "Allow Compatible Mode", &flag, true, KLPref::UserLevel),
              KL::ErrNoData);
    EXPECT_TRUE(flag);
    KLPref::CloseRootKey(root);

    std::ofstream(file) << "{ not json";
    root = KLPref::OpenRootKey(KLPref::UserDomain);
    EXPECT_EQ(root->ReadBool("Macro Search", "Allow Compatible Mode", &flag, false, KLPref::UserLevel),
              KL::ErrNoData);
    EXPECT_FALSE(flag);
    KLPref::CloseRootKey(root);
}

TEST(FingerPrint, MatchesTheReferenceDigestsPieceByPiece) {
    const std::vector<std::pair<std::string, std::string>> vectors = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"}};
    KL::FingerPrintGenerator generator;
    for (const auto& [text, digest] : vectors) {
        for (std::size_t i = 0; i < text.size(); i += 7)
            generator.Add(text.data() + i, std::min<std::size_t>(7, text.size() - i));
        EXPECT_EQ(generator.Finish().ToString(), digest) << text; // and the generator starts afresh
    }
}

TEST(Time, EpochCalendarAndMonthArithmetic) {
    EXPECT_EQ(TIDateToTime({2020, 1, 1, 0, 0, 0}), 0);
    EXPECT_EQ(TIToUnixTime(0), 1577836800);
    EXPECT_EQ(TITimeToDate(86400 + 3661), (TIDate{2020, 1, 2, 1, 1, 1}));
    EXPECT_EQ(TITimeToDate(-1), (TIDate{2019, 12, 31, 23, 59, 59}));
    // Past 2038 the unit still counts.
    const TIDate future{2040, 2, 29, 12, 0, 0};
    EXPECT_EQ(TITimeToDate(TIDateToTime(future)), future);
    EXPECT_GT(TIDateToTime(future), TIDateToTime({2038, 1, 19, 3, 14, 8}));
    // Outside the span the time clamps.
    EXPECT_EQ(TIDateToTime({2200, 1, 1, 0, 0, 0}), std::numeric_limits<TITime>::max());
    EXPECT_EQ(TIFromUnixTime(-(std::int64_t{1} << 40)), std::numeric_limits<TITime>::min());

    EXPECT_EQ(TIAddMonths({2026, 1, 15, 8, 0, 0}, -1), (TIDate{2025, 12, 15, 8, 0, 0}));
    EXPECT_EQ(TIAddMonths({2024, 3, 31, 0, 0, 0}, -1), (TIDate{2024, 2, 29, 0, 0, 0}));
    EXPECT_EQ(TIAddMonths({2023, 3, 31, 0, 0, 0}, -1), (TIDate{2023, 2, 28, 0, 0, 0}));
    EXPECT_EQ(TIAddMonths({2025, 12, 1, 0, 0, 0}, 1), (TIDate{2026, 1, 1, 0, 0, 0}));
    // Out-of-range fields carry over instead of giving an unspecified time.
    EXPECT_EQ(TIDateToTime({2026, 1, 32, 0, 0, 0}), TIDateToTime({2026, 2, 1, 0, 0, 0}));
    EXPECT_EQ(TIDateToTime({2026, 13, 1, 0, 0, 0}), TIDateToTime({2027, 1, 1, 0, 0, 0}));
    EXPECT_EQ(TIAddMonths({2026, 1, 1, 0, 0, 0}, std::numeric_limits<int>::min()).month, 1);

    const TITime now = TIGetTime();
    EXPECT_GT(now, TIDateToTime({2026, 1, 1, 0, 0, 0}));
}

TEST(Locks, SpinLockAndReentrantFastLockExcludeOtherThreads) {
    KL::SpinLock spin;
    KL::FastLock fast;
    long spinCounter = 0;
    long fastCounter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                {
                    KL::SpinLockGuard guard(spin);
                    ++spinCounter;
                }
                KL::FastLockGuard outer(fast);
                KL::FastLockGuard inner(fast); // the owner may enter again
                ++fastCounter;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(spinCounter, 80000);
    EXPECT_EQ(fastCounter, 80000);
    EXPECT_TRUE(spin.TryAcquire());
    EXPECT_FALSE(spin.TryAcquire());
    spin.Release();
}

TEST(Thread, IdsAreDistinctAndTheMainThreadIsTheLoader) {
    const KL::Thread::Id mine = KL::Thread::GetCurrent();
    EXPECT_EQ(KL::Thread::GetCurrent(), mine);
    EXPECT_TRUE(KL::Thread::IsMain());
    KL::Thread::Id other = 0;
    bool otherIsMain = true;
    std::thread([&] {
        other = KL::Thread::GetCurrent();
        otherIsMain = KL::Thread::IsMain();
    }).join();
    EXPECT_NE(other, mine);
    EXPECT_FALSE(otherIsMain);
}

class StoppingControl : public KL::ProcessControl {
public:
    int stopAfter = 3;
    int phases = 0;
    bool BreakRequested() override { return GetStep() >= stopAfter; }

protected:
    void PhaseChanged() override { ++phases; }
};

TEST(ProcessControl, KeepsStateAndAsksTheFrontEndForBreaks) {
    StoppingControl control;
    EXPECT_FALSE(control.IsProcessRunning());
    control.StartProcess(84);
    control.SetTitle("Reading libraries");
    control.SetPhaseText("Library A");
    control.SetPhaseProgress(150, 100);
    EXPECT_EQ(control.GetPhaseProgress(), 100); // clamped to the maximum
    EXPECT_FALSE(control.Step());
    EXPECT_FALSE(control.Step());
    EXPECT_TRUE(control.Step());
    EXPECT_EQ(control.GetProcessId(), 84);
    EXPECT_EQ(control.GetPhaseText(), "Library A");
    EXPECT_EQ(control.phases, 1);
    control.EndProcess();
    EXPECT_FALSE(control.IsProcessRunning());

    KL::NonInterruptibleProcessControl quiet;
    for (int i = 0; i < 10; ++i)
        EXPECT_FALSE(quiet.Step());
}

} // namespace
