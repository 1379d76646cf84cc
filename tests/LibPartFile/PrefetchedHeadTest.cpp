// A part file's reader with its head read ahead by a walk.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using testsupport::ScratchFolder;

// A part reader takes the head and opens the file only for a read past it: an unchanged file
// lends its rest, a file replaced meanwhile refuses, and the next visit reads the new one whole.
TEST(FileHeadPrefetcher, AReaderNeverJoinsTheHeadOfOneFileToTheRestOfAnother) {
    ScratchFolder scratch;
    scratch.Write("F/part", std::string(5000, 'a') + std::string(3000, 'b'));
    scratch.Write("F/other", std::string(8000, 'c'));
    IO::FileHeadPrefetcher prefetcher;
    const IO::FileHeadPrefetcher::Scope scope(prefetcher);
    prefetcher.Announce(scratch.Location("F"), {scratch.Location("F/other"), scratch.Location("F/part")});

    char bytes[4] = {};
    LPF::FileByteSource other(scratch.Location("F/other"));
    ASSERT_EQ(other.Open(), KL::NoError);
    ASSERT_EQ(other.ReadAt(6000, bytes, 4), KL::NoError);
    EXPECT_EQ(std::string(bytes, 4), "cccc");
    other.Close();

    LPF::FileByteSource part(scratch.Location("F/part"));
    ASSERT_EQ(part.Open(), KL::NoError);
    ASSERT_EQ(part.ReadAt(0, bytes, 4), KL::NoError);
    EXPECT_EQ(std::string(bytes, 4), "aaaa");
    scratch.Write("F/part.new", std::string(9000, 'd'));
    std::filesystem::rename(scratch.Path() / "F/part.new", scratch.Path() / "F/part");
    EXPECT_EQ(part.ReadAt(6000, bytes, 4), IO::ChangedError);
    part.Close();
    ASSERT_EQ(part.Open(), KL::NoError);
    EXPECT_EQ(part.GetLength(), 9000U);
    ASSERT_EQ(part.ReadAt(6000, bytes, 4), KL::NoError);
    EXPECT_EQ(std::string(bytes, 4), "dddd");
}

} // namespace
