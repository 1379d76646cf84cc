// Heads of files read ahead of a walk on a second thread: what a reader gets must be what opening
// the file would have given, and whatever the helper cannot read is left to the reader.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using testsupport::ScratchFolder;

std::string HeadText(const IO::FileHead& head) {
    return std::string(head.bytes.begin(), head.bytes.end());
}

TEST(FileHeadPrefetcher, HeadsMatchTheFilesAndWhatCannotBeReadIsLeftToTheReader) {
    ScratchFolder scratch;
    const std::string large(10000, 'x');
    scratch.Write("F/empty", "");
    scratch.Write("F/small", "small part");
    scratch.Write("F/large", large);
    scratch.Write("F/gone", "deleted before it is read");
    std::filesystem::create_directories(scratch.Path() / "F/folder");
    ASSERT_EQ(::mkfifo((scratch.Path() / "F/fifo").c_str(), 0600), 0);
    std::filesystem::remove(scratch.Path() / "F/gone");

    IO::FileHeadPrefetcher prefetcher;
    EXPECT_EQ(IO::FileHeadPrefetcher::GetCurrent(), nullptr);
    {
        const IO::FileHeadPrefetcher::Scope scope(prefetcher);
        EXPECT_EQ(IO::FileHeadPrefetcher::GetCurrent(), &prefetcher);
    }
    EXPECT_EQ(IO::FileHeadPrefetcher::GetCurrent(), nullptr);

    std::vector<IO::Location> files;
    for (const char* name : {"empty", "fifo", "folder", "gone", "small", "large", "skipped", "folder/last"})
        files.push_back(scratch.Location(std::string("F/") + name));
    scratch.Write("F/skipped", "never asked for");
    // Announced with its folder though it lies deeper: it is found by its whole path.
    scratch.Write("F/folder/last", "last");
    prefetcher.Announce(scratch.Location("F"), files);

    IO::FileHead head;
    ASSERT_TRUE(prefetcher.Take(files[0], &head));
    EXPECT_EQ(head.length, 0U);
    EXPECT_TRUE(head.bytes.empty());
    // A fifo, a folder and a missing file: the reader opens them itself and meets what it meets.
    EXPECT_FALSE(prefetcher.Take(files[1], &head));
    EXPECT_FALSE(prefetcher.Take(files[2], &head));
    EXPECT_FALSE(prefetcher.Take(files[3], &head));
    ASSERT_TRUE(prefetcher.Take(files[4], &head));
    EXPECT_EQ(HeadText(head), "small part");
    IO::File small(files[4]);
    ASSERT_EQ(small.Open(IO::File::ReadMode), KL::NoError);
    TITime time = 0;
    ASSERT_EQ(small.GetModificationTime(&time), KL::NoError);
    EXPECT_EQ(head.modificationTime, time);
    ASSERT_TRUE(prefetcher.Take(files[5], &head));
    EXPECT_EQ(head.length, large.size());
    EXPECT_EQ(HeadText(head), large.substr(0, IO::FileHeadPrefetcher::HeadSize));
    // Taking a later file passes over the one between, which then has no head; nor has a file
    // taken twice, nor one never announced.
    ASSERT_TRUE(prefetcher.Take(files[7], &head));
    EXPECT_EQ(HeadText(head), "last");
    EXPECT_FALSE(prefetcher.Take(files[6], &head));
    EXPECT_FALSE(prefetcher.Take(files[7], &head));
    EXPECT_FALSE(prefetcher.Take(scratch.Location("F/other"), &head));
}

// A walk goes depth first: the folder announced last is served first, and a folder left behind
// is withdrawn, after which its parent's files are served again.
TEST(FileHeadPrefetcher, NestedFoldersAreServedDepthFirstAndManyUnreadHeadsDoNotHoldTheHelper) {
    ScratchFolder scratch;
    std::vector<IO::Location> outer;
    std::vector<IO::Location> inner;
    for (int i = 0; i < 3 * static_cast<int>(IO::FileHeadPrefetcher::Window); ++i) {
        scratch.Write("A/a" + std::to_string(i), "a" + std::to_string(i));
        outer.push_back(scratch.Location("A/a" + std::to_string(i)));
    }
    for (int i = 0; i < 3; ++i) {
        scratch.Write("A/B/b" + std::to_string(i), "b" + std::to_string(i));
        inner.push_back(scratch.Location("A/B/b" + std::to_string(i)));
    }
    IO::FileHeadPrefetcher prefetcher;
    prefetcher.Announce(scratch.Location("A"), outer);
    IO::FileHead head;
    ASSERT_TRUE(prefetcher.Take(outer[0], &head));
    prefetcher.Announce(scratch.Location("A/B"), inner);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(prefetcher.Take(inner[i], &head));
        EXPECT_EQ(HeadText(head), "b" + std::to_string(i));
    }
    // The outer folder is not the one being walked until the inner one is withdrawn.
    EXPECT_FALSE(prefetcher.Take(outer[1], &head));
    prefetcher.Withdraw(scratch.Location("A/B"));
    // Far past the window of heads that wait: the helper reads on for what is asked.
    const std::size_t far = outer.size() - 1;
    ASSERT_TRUE(prefetcher.Take(outer[far], &head));
    EXPECT_EQ(HeadText(head), "a" + std::to_string(far));
    // Announced and never taken: the destructor stops the helper all the same.
    prefetcher.Announce(scratch.Location("A"), outer);
}

} // namespace
