// Damaged and hostile part files: every one is refused with the code of the rule it breaks (these
// run under the sanitizers too).
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using LPF::MakeCode;

// Header 72 bytes, directory of two entries at 72, sections "12345678" at 120 and "abcdefgh" at 128.
std::vector<char> SmallPart() {
    LPF::SymbolFile part;
    LPF::SectionInfo info;
    info.tag = MakeCode("AAAA");
    part.SetSection(info, "12345678", 8);
    info.tag = MakeCode("BBBB");
    part.SetSection(info, "abcdefgh", 8);
    KL::MemoryOChannel out;
    part.Write(out);
    return out.TakeData();
}

std::vector<char> With32(std::vector<char> bytes, std::size_t at, std::uint32_t value) {
    KL::StoreInOrder(bytes.data() + at, value, KL::LittleEndianSign);
    return bytes;
}

int StatusOf(std::vector<char> bytes) {
    return LPF::SymbolFile(std::move(bytes)).GetStatus();
}

TEST(HostilePartFile, EachBrokenRuleHasItsCode) {
    const std::vector<char> valid = SmallPart();
    ASSERT_EQ(valid.size(), 136u);
    ASSERT_EQ(StatusOf(valid), KL::NoError);
    constexpr std::size_t A = 72;
    constexpr std::size_t B = 96;

    EXPECT_EQ(StatusOf({}), LPF::NotAPartFileError);
    EXPECT_EQ(StatusOf({'K', 'L', 'M'}), LPF::NotAPartFileError);
    EXPECT_EQ(StatusOf(std::vector<char>(200, 'x')), LPF::NotAPartFileError);
    std::vector<char> mark = valid;
    mark[4] = 'X';
    EXPECT_EQ(StatusOf(mark), LPF::NotAPartFileError);
    std::vector<char> format = valid;
    format[6] = 2;
    EXPECT_EQ(StatusOf(format), LPF::UnsupportedVersionError);

    EXPECT_EQ(StatusOf(std::vector<char>(valid.begin(), valid.begin() + 40)), LPF::CorruptHeaderError);
    EXPECT_EQ(StatusOf(With32(valid, 8, 1000)), LPF::CorruptHeaderError) << "header size past the end";
    EXPECT_EQ(StatusOf(With32(valid, 8, 8)), LPF::CorruptHeaderError) << "header size below the fixed part";
    EXPECT_EQ(StatusOf(With32(valid, 68, 0xFFFFFFFF)), LPF::CorruptHeaderError) << "name length";
    EXPECT_EQ(StatusOf(With32(valid, 68, 30)), LPF::CorruptHeaderError) << "name longer than the header";

    EXPECT_EQ(StatusOf(With32(valid, 12, 0xFFFFFFFF)), LPF::CorruptDirectoryError) << "section count";
    EXPECT_EQ(StatusOf(With32(valid, 12, 3)), LPF::CorruptDirectoryError) << "one entry too many";
    EXPECT_EQ(StatusOf(With32(valid, B + 20, 9)), LPF::CorruptDirectoryError) << "size past the end";
    EXPECT_EQ(StatusOf(With32(With32(valid, A + 16, 0xFFFFFFF8), A + 20, 16)), LPF::CorruptDirectoryError)
        << "offset and size wrapping around";
    EXPECT_EQ(StatusOf(With32(valid, A + 20, 9)), LPF::CorruptDirectoryError) << "overlapping sections";
    EXPECT_EQ(StatusOf(With32(valid, A + 16, 100)), LPF::CorruptDirectoryError) << "offset in the directory";
    EXPECT_EQ(StatusOf(With32(valid, A + 16, 8)), LPF::CorruptDirectoryError) << "offset in the header";
    const std::vector<char> twice = With32(valid, B, MakeCode("AAAA"));
    EXPECT_EQ(StatusOf(twice), LPF::CorruptDirectoryError) << "same tag and index twice";
    std::vector<char> otherIndex = twice;
    otherIndex[B + 4] = 1;
    EXPECT_EQ(StatusOf(otherIndex), KL::NoError) << "same tag, other index";

    // A part that did not open answers every question with its status.
    const LPF::SymbolFile broken(With32(valid, 12, 0xFFFFFFFF));
    short version = 7;
    GSHandle data = nullptr;
    KL::MemoryOChannel out;
    EXPECT_EQ(broken.GetVersion(&version), LPF::CorruptDirectoryError);
    EXPECT_EQ(version, 7);
    EXPECT_EQ(broken.GetSectionCount(), 0u);
    EXPECT_EQ(broken.GetSectionDataRef(MakeCode("AAAA"), 0, &data), LPF::CorruptDirectoryError);
    EXPECT_EQ(broken.Write(out), LPF::CorruptDirectoryError);

    for (const int code : {LPF::SectionNotFoundError, LPF::NotAPartFileError, LPF::UnsupportedVersionError,
                           LPF::CorruptHeaderError, LPF::CorruptDirectoryError, LPF::CorruptSectionError,
                           LPF::FileChangedError, LPF::NoFileError})
        EXPECT_STRNE(LPF::DescribeError(code), LPF::DescribeError(-12345)) << code;
}

TEST(HostilePartFile, EveryTruncationIsRefused) {
    testsupport::ScratchFolder scratch;
    LPF::SymbolFile part;
    part.SetDocumentName(KL::UniString("Cut"));
    LPF::SectionInfo info;
    for (const LPF::SectionTag tag : {MakeCode("2DSC"), MakeCode("XTRA"), MakeCode("3DBN")}) {
        info.tag = tag;
        part.SetSection(info, "0123456789", 10);
    }
    KL::MemoryOChannel out;
    ASSERT_EQ(part.Write(out), KL::NoError);
    const std::vector<char> bytes = out.TakeData();
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        const int status = StatusOf(std::vector<char>(bytes.begin(), bytes.begin() + length));
        const int expected = length < 4    ? LPF::NotAPartFileError
                             : length < 72 ? LPF::CorruptHeaderError
                                           : status;
        EXPECT_NE(status, KL::NoError) << length;
        EXPECT_EQ(status, expected) << length;
    }
    // The same through a file on disk.
    scratch.Write("cut.klm", std::string(bytes.begin(), bytes.end() - 1));
    EXPECT_EQ(LPF::SymbolFile(scratch.Location("cut.klm")).GetStatus(), LPF::CorruptDirectoryError);
    EXPECT_EQ(LPF::SymbolFileInfo(scratch.Location("cut.klm")).GetStatus(), KL::NoError)
        << "the header alone is intact";
}

} // namespace
