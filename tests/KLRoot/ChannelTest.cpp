#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

std::vector<char> Bytes(std::initializer_list<int> values) {
    std::vector<char> bytes;
    for (const int v : values)
        bytes.push_back(static_cast<char>(v));
    return bytes;
}

void WriteAllTypes(KL::OChannel& out) {
    out.Write(true);
    out.Write(std::int8_t{-2});
    out.Write(std::uint16_t{0x0102});
    out.Write(std::int16_t{-3});
    out.Write(std::uint32_t{0x01020304});
    out.Write(std::int32_t{-7003});
    out.Write(std::uint64_t{0x0102030405060708});
    out.Write(std::int64_t{std::numeric_limits<std::int64_t>::min()});
    out.Write(1.5f);
    out.Write(-0.1);
}

TEST(Channel, TypedValuesAreByteExactInBothOrders) {
    KL::MemoryOChannel little(KL::LittleEndianSign);
    KL::MemoryOChannel big(KL::BigEndianSign);
    WriteAllTypes(little);
    WriteAllTypes(big);
    const std::vector<char> le = little.TakeData();
    const std::vector<char> be = big.TakeData();
    ASSERT_EQ(le.size(), 1u + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 4 + 8);
    ASSERT_EQ(be.size(), le.size());

    EXPECT_EQ(std::vector<char>(le.begin(), le.begin() + 6), Bytes({1, 0xFE, 0x02, 0x01, 0xFD, 0xFF}));
    EXPECT_EQ(std::vector<char>(be.begin(), be.begin() + 6), Bytes({1, 0xFE, 0x01, 0x02, 0xFF, 0xFD}));
    EXPECT_EQ(std::vector<char>(le.begin() + 6, le.begin() + 10), Bytes({4, 3, 2, 1}));
    EXPECT_EQ(std::vector<char>(be.begin() + 6, be.begin() + 10), Bytes({1, 2, 3, 4}));
    // -7003 is 0xFFFFE4A5
    EXPECT_EQ(std::vector<char>(be.begin() + 10, be.begin() + 14), Bytes({0xFF, 0xFF, 0xE4, 0xA5}));
    EXPECT_EQ(std::vector<char>(be.begin() + 14, be.begin() + 22), Bytes({1, 2, 3, 4, 5, 6, 7, 8}));
    // 1.5f is 0x3FC00000
    EXPECT_EQ(std::vector<char>(be.begin() + 30, be.begin() + 34), Bytes({0x3F, 0xC0, 0, 0}));
    EXPECT_EQ(std::vector<char>(le.begin() + 30, le.begin() + 34), Bytes({0, 0, 0xC0, 0x3F}));

    for (const auto& [bytes, sign] :
         {std::pair{le, KL::LittleEndianSign}, std::pair{be, KL::BigEndianSign}}) {
        KL::MemoryIChannel in(bytes.data(), bytes.size(), sign);
        bool b = false;
        std::int8_t i8 = 0;
        std::uint16_t u16 = 0;
        std::int16_t i16 = 0;
        std::uint32_t u32 = 0;
        std::int32_t i32 = 0;
        std::uint64_t u64 = 0;
        std::int64_t i64 = 0;
        float f = 0;
        double d = 0;
        in.Read(b);
        in.Read(i8);
        in.Read(u16);
        in.Read(i16);
        in.Read(u32);
        in.Read(i32);
        in.Read(u64);
        in.Read(i64);
        in.Read(f);
        in.Read(d);
        ASSERT_EQ(in.GetStatus(), KL::NoError);
        EXPECT_TRUE(b);
        EXPECT_EQ(i8, -2);
        EXPECT_EQ(u16, 0x0102);
        EXPECT_EQ(i16, -3);
        EXPECT_EQ(u32, 0x01020304u);
        EXPECT_EQ(i32, -7003);
        EXPECT_EQ(u64, 0x0102030405060708u);
        EXPECT_EQ(i64, std::numeric_limits<std::int64_t>::min());
        EXPECT_EQ(f, 1.5f);
        EXPECT_EQ(d, -0.1);
        EXPECT_EQ(in.GetAvailable(), 0);
        EXPECT_EQ(in.GetReadCount(), bytes.size());
    }
}

TEST(Channel, TruncatedInputGivesAStickyStatusNotACrash) {
    const char data[] = {1, 2, 3};
    KL::MemoryIChannel in(data, sizeof data);
    std::uint16_t first = 0;
    std::uint32_t second = 0xDEADBEEF;
    EXPECT_EQ(in.Read(first), KL::NoError);
    EXPECT_EQ(in.Read(second), KL::ErrEndOfData);
    EXPECT_EQ(second, 0xDEADBEEFu);   // a failed read leaves its target alone
    EXPECT_EQ(in.GetReadCount(), 2u); // and consumes nothing
    std::uint8_t third = 0;
    EXPECT_EQ(in.Read(third), KL::ErrEndOfData); // the failure sticks
    in.ResetStatus();
    EXPECT_EQ(in.Read(third), KL::NoError);
    EXPECT_EQ(third, 3);

    char block[8];
    KL::MemoryIChannel empty(nullptr, 0);
    EXPECT_EQ(empty.ReadBin(block, 1), KL::ErrEndOfData);
    KL::MemoryIChannel skip(data, sizeof data);
    EXPECT_EQ(skip.Skip(4), KL::ErrEndOfData);
    EXPECT_EQ(skip.RequireAvailable(3), KL::ErrEndOfData); // the first failure stays
}

TEST(Channel, ReadUpToStopsQuietlyAtTheEnd) {
    const char data[] = {'x', 'y', 'z'};
    KL::MemoryIChannel in(data, sizeof data);
    char block[8] = {};
    std::uint64_t count = 0;
    ASSERT_EQ(in.ReadUpTo(block, 2, &count), KL::NoError);
    EXPECT_EQ(count, 2u);
    ASSERT_EQ(in.ReadUpTo(block, sizeof block, &count), KL::NoError);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(block[0], 'z');
    EXPECT_EQ(in.GetStatus(), KL::NoError);
}

// A sink that accepts data but cannot go back, like a compressed stream or a pipe.
class StreamingChannel : public KL::OChannel {
public:
    using KL::OChannel::OChannel;
    ~StreamingChannel() override { Flush(); }
    std::vector<char> sunk;
    int writes = 0;

protected:
    int WriteToSink(const char* data, std::uint64_t size) override {
        sunk.insert(sunk.end(), data, data + size);
        ++writes;
        return KL::NoError;
    }
};

// The same sink, failing on its second write.
class FailingChannel : public StreamingChannel {
protected:
    int WriteToSink(const char* data, std::uint64_t size) override {
        return writes == 1 ? KL::ErrIO : StreamingChannel::WriteToSink(data, size);
    }
};

TEST(Channel, LargeWritesReachTheSinkInOrderAndFailuresStick) {
    std::vector<char> expected;
    StreamingChannel out;
    for (std::uint32_t i = 0; i < 100000; ++i) {
        out.Write(i);
        for (int k = 0; k < 4; ++k)
            expected.push_back(static_cast<char>(i >> (8 * k)));
    }
    out.Flush();
    EXPECT_EQ(out.sunk, expected);
    EXPECT_GT(out.writes, 1); // it streams rather than holding everything
    EXPECT_EQ(out.GetWrittenCount(), expected.size());

    FailingChannel failing;
    std::vector<char> block(200 * 1024, 'x');
    failing.WriteBin(block.data(), block.size());
    failing.WriteBin(block.data(), block.size());
    failing.Flush();
    EXPECT_EQ(failing.GetStatus(), KL::ErrIO);
    EXPECT_EQ(failing.Write(std::int32_t{1}), KL::ErrIO);
}

TEST(Channel, TextOperatorsWriteReadableText) {
    KL::MemoryOChannel out;
    out << "count " << 42 << ", ok " << true << ", ratio " << 0.25 << ", name " << KL::UniString("Straße")
        << '\n';
    const std::vector<char> bytes = out.TakeData();
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "count 42, ok true, ratio 0.25, name Straße\n");
}

// A source delivered in windows of three bytes that can also seek, as a file channel does.
class SmallWindowChannel : public KL::IChannel {
public:
    explicit SmallWindowChannel(std::vector<char> data) : data(std::move(data)) {
        SetWindowAt(nullptr, nullptr, 0);
    }
    void Seek(std::uint64_t position) {
        next = position;
        SetWindowAt(nullptr, nullptr, position);
    }

protected:
    int Underflow() override {
        const std::size_t start = static_cast<std::size_t>(std::min<std::uint64_t>(next, data.size()));
        const std::size_t end = std::min(start + 3, data.size());
        next = end;
        SetWindow(data.data() + start, data.data() + end);
        return KL::NoError;
    }
    std::int64_t GetAvailableBeyondWindow() const override {
        return static_cast<std::int64_t>(data.size() - std::min<std::uint64_t>(next, data.size()));
    }

private:
    std::vector<char> data;
    std::uint64_t next = 0;
};

TEST(Channel, ValuesSpanWindowsAndSeeksKeepThePosition) {
    KL::MemoryOChannel out(KL::BigEndianSign);
    for (std::uint32_t i = 0; i < 10; ++i)
        out.Write(i * 0x01010101u);
    SmallWindowChannel in(out.TakeData());
    in.SetProtocol(KL::BigEndianSign);
    std::uint32_t value = 0;
    for (std::uint32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(in.Read(value), KL::NoError);
        EXPECT_EQ(value, i * 0x01010101u);
    }
    EXPECT_EQ(in.GetReadCount(), 40u);
    EXPECT_EQ(in.Read(value), KL::ErrEndOfData);
    in.ResetStatus();

    in.Seek(8);
    EXPECT_EQ(in.GetReadCount(), 8u);
    EXPECT_EQ(in.GetAvailable(), 32);
    ASSERT_EQ(in.Read(value), KL::NoError);
    EXPECT_EQ(value, 0x02020202u);
    ASSERT_EQ(in.Skip(20), KL::NoError);
    ASSERT_EQ(in.Read(value), KL::NoError);
    EXPECT_EQ(value, 0x08080808u);
}

TEST(Channel, ProtocolOnlyTakesKnownSigns) {
    KL::MemoryOChannel out;
    EXPECT_EQ(out.SetProtocol(0x1234), KL::ErrParam);
    EXPECT_EQ(out.GetProtocol(), KL::LittleEndianSign);
    EXPECT_EQ(out.SetProtocol(KL::BigEndianSign), KL::NoError);
    EXPECT_EQ(out.GetProtocol(), KL::BigEndianSign);
}

} // namespace
