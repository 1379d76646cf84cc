// Compressed channels: round trips of every size, and damaged streams.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

std::vector<char> Compress(const std::vector<char>& data, const IO::ZipOChannelOptions& options = {}) {
    IO::MemoryOChannel target;
    {
        IO::ZipOChannel zip(target, options);
        EXPECT_EQ(zip.WriteBin(data.data(), data.size()), KL::NoError);
        EXPECT_EQ(zip.Close(), KL::NoError);
    }
    return target.TakeData();
}

// Reads until the stream ends by itself, as extraction does; the status says how it ended.
int Decompress(const std::vector<char>& compressed, std::vector<char>& result) {
    IO::MemoryIChannel source(compressed.data(), compressed.size());
    IO::ZipIChannel zip(source);
    result.clear();
    char block[4096];
    for (;;) {
        std::uint64_t count = 0;
        if (const int err = zip.ReadUpTo(block, sizeof block, &count); err != KL::NoError)
            return err;
        if (count == 0)
            return KL::NoError;
        result.insert(result.end(), block, block + count);
    }
}

std::vector<char> MixedData(std::size_t size) {
    std::mt19937 random(7);
    std::vector<char> data(size);
    for (std::size_t i = 0; i < size; ++i)
        data[i] = (i / 4096) % 2 == 0 ? static_cast<char>(random()) : static_cast<char>('a' + i % 7);
    return data;
}

TEST(ZipChannel, RoundTripsEmptySmallAndLargeData) {
    const std::vector<std::vector<char>> inputs = {
        {}, {'q'}, MixedData(1000), MixedData(5 * 1024 * 1024 + 3)};
    const std::vector<IO::ZipOChannelOptions> options = {{}, {0, 0, 15}, {9, 1, 9}, {1, 3, 12}};
    for (const std::vector<char>& input : inputs) {
        for (const IO::ZipOChannelOptions& option : options) {
            const std::vector<char> compressed = Compress(input, option);
            std::vector<char> output;
            ASSERT_EQ(Decompress(compressed, output), KL::NoError);
            EXPECT_EQ(output, input);
        }
    }
    // Repetitive data does shrink.
    const std::vector<char> text(1 << 20, 'k');
    EXPECT_LT(Compress(text).size(), text.size() / 100);
}

TEST(ZipChannel, CarriesTypedValuesAndEndsBeforeWhatFollows) {
    IO::MemoryOChannel target(KL::BigEndianSign);
    {
        IO::ZipOChannel zip(target);
        zip.Write(std::uint32_t{0x01020304});
        KL::UniString("Fenêtre").Write(zip);
    }
    target.Write(std::uint16_t{0xBEEF});
    const std::vector<char> bytes = target.TakeData();
    IO::MemoryIChannel source(bytes.data(), bytes.size(), KL::BigEndianSign);
    IO::ZipIChannel zip(source, KL::BigEndianSign);
    std::uint32_t word = 0;
    KL::UniString text;
    EXPECT_EQ(zip.Read(word), KL::NoError);
    EXPECT_EQ(text.Read(zip), KL::NoError);
    EXPECT_EQ(word, 0x01020304u);
    EXPECT_EQ(text, "Fenêtre");
    std::uint8_t more = 0;
    EXPECT_EQ(zip.Read(more), KL::ErrEndOfData) << "the stream ends by itself, not at the source's end";
}

TEST(ZipChannel, DamagedStreamsFailWithAStatus) {
    const std::vector<char> input = MixedData(300 * 1024);
    const std::vector<char> compressed = Compress(input);
    std::vector<char> output;
    for (const std::size_t cut :
         {std::size_t{0}, std::size_t{1}, std::size_t{2}, compressed.size() / 2, compressed.size() - 1}) {
        const std::vector<char> truncated(compressed.begin(), compressed.begin() + static_cast<long>(cut));
        EXPECT_EQ(Decompress(truncated, output), KL::ErrStreamFormat) << "cut at " << cut;
    }
    for (const std::size_t at :
         {std::size_t{0}, std::size_t{5}, compressed.size() / 3, compressed.size() - 2}) {
        std::vector<char> corrupt = compressed;
        corrupt[at] = static_cast<char>(corrupt[at] ^ 0x5A);
        EXPECT_NE(Decompress(corrupt, output), KL::NoError) << "flipped at " << at;
    }
    const std::vector<char> garbage(1000, '\x77');
    EXPECT_EQ(Decompress(garbage, output), KL::ErrStreamFormat);

    IO::MemoryOChannel target;
    IO::ZipOChannel bad(target, {10, 0, 15});
    EXPECT_EQ(bad.GetStatus(), KL::ErrParam);
    EXPECT_NE(bad.Write(std::uint8_t{1}), KL::NoError);
}

} // namespace
