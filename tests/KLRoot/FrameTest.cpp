#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <vector>

namespace {

const KL::ClassInfo version1("Test::Record", KL::Guid("A1B2C3D4-0001-4000-8000-00000000F001"), 1, 0);
const KL::ClassInfo version1_2("Test::Record", KL::Guid("A1B2C3D4-0001-4000-8000-00000000F001"), 1, 2);
const KL::ClassInfo otherClass("Test::Other", KL::Guid("A1B2C3D4-0002-4000-8000-00000000F002"), 1, 0);

// A record whose minor version 2 appended a field that version 1.0 does not know.
void WriteRecord(KL::OChannel& out, const KL::ClassInfo& info, std::int32_t value) {
    KL::OutputFrame frame(out, info);
    out.Write(value);
    if (frame.GetVersion().minor >= 2)
        KL::UniString("tail field").Write(out);
}

TEST(Frame, HeaderIsGuidVersionAndPatchedLength) {
    for (const KL::PlatformSign sign : {KL::LittleEndianSign, KL::BigEndianSign}) {
        KL::MemoryOChannel out(sign);
        WriteRecord(out, version1, 0x11223344);
        const std::vector<char> bytes = out.TakeData();
        ASSERT_EQ(bytes.size(), KL::OutputFrame::HeaderSize + 4);
        char guid[16];
        version1.GetGuid().ToRaw(guid, sign);
        EXPECT_EQ(std::vector<char>(bytes.begin(), bytes.begin() + 16), std::vector<char>(guid, guid + 16));
        KL::MemoryIChannel header(bytes.data() + 16, 8, sign);
        std::uint16_t major = 0;
        std::uint16_t minor = 9;
        std::uint32_t length = 0;
        header.Read(major);
        header.Read(minor);
        header.Read(length);
        EXPECT_EQ(major, 1);
        EXPECT_EQ(minor, 0);
        EXPECT_EQ(length, 4u);
    }
}

TEST(Frame, OlderReaderSkipsTailFieldsOfNewerWriter) {
    for (const KL::PlatformSign sign : {KL::LittleEndianSign, KL::BigEndianSign}) {
        KL::MemoryOChannel out(sign);
        WriteRecord(out, version1_2, 7);
        out.Write(std::int32_t{99}); // what follows the frame
        const std::vector<char> bytes = out.TakeData();

        KL::MemoryIChannel in(bytes.data(), bytes.size(), sign);
        std::int32_t value = 0;
        {
            KL::InputFrame frame(in, version1);
            ASSERT_EQ(frame.GetStatus(), KL::NoError);
            EXPECT_EQ(frame.GetVersion(), (KL::ClassVersion{1, 2}));
            in.Read(value);
            EXPECT_GT(frame.GetRemaining(), 0u);
        } // closing lands behind the frame
        std::int32_t after = 0;
        EXPECT_EQ(in.Read(after), KL::NoError);
        EXPECT_EQ(value, 7);
        EXPECT_EQ(after, 99);
    }
}

TEST(Frame, NestedFramesOnAStreamThatCannotSeek) {
    class Streaming : public KL::OChannel {
    public:
        ~Streaming() override { Flush(); }
        std::vector<char> sunk;

    protected:
        int WriteToSink(const char* data, std::uint64_t size) override {
            sunk.insert(sunk.end(), data, data + size);
            return KL::NoError;
        }
    };

    KL::MemoryOChannel reference(KL::BigEndianSign);
    Streaming streaming;
    streaming.SetProtocol(KL::BigEndianSign);
    for (KL::OChannel* out :
         {static_cast<KL::OChannel*>(&reference), static_cast<KL::OChannel*>(&streaming)}) {
        KL::OutputFrame outer(*out, otherClass);
        std::vector<char> big(300 * 1024, 'b'); // more than the channel's block, inside open frames
        out->WriteBin(big.data(), big.size());
        WriteRecord(*out, version1_2, 5);
        out->WriteBin(big.data(), big.size());
    }
    streaming.Flush();
    EXPECT_EQ(streaming.sunk, reference.GetData());

    KL::MemoryIChannel in(streaming.sunk.data(), streaming.sunk.size(), KL::BigEndianSign);
    KL::InputFrame outer(in, otherClass);
    ASSERT_EQ(in.Skip(300 * 1024), KL::NoError);
    std::int32_t value = 0;
    {
        KL::InputFrame inner(in, version1);
        in.Read(value);
    }
    EXPECT_EQ(value, 5);
    EXPECT_EQ(outer.Close(), KL::NoError);
    EXPECT_EQ(in.GetAvailable(), 0);
}

TEST(Frame, ForeignTruncatedOrOverrunFramesAreFormatErrors) {
    KL::MemoryOChannel out;
    WriteRecord(out, version1, 1);
    std::vector<char> bytes = out.TakeData();

    KL::MemoryIChannel foreign(bytes.data(), bytes.size());
    KL::InputFrame wrongClass(foreign, otherClass);
    EXPECT_EQ(wrongClass.GetStatus(), KL::ErrStreamFormat);
    std::int32_t value = 0;
    EXPECT_EQ(foreign.Read(value), KL::ErrStreamFormat); // nothing reads after a broken frame

    // The body is one byte shorter than the frame claims.
    KL::MemoryIChannel truncated(bytes.data(), bytes.size() - 1);
    KL::InputFrame shortFrame(truncated, version1);
    EXPECT_EQ(shortFrame.GetStatus(), KL::ErrStreamFormat);

    // The header itself is cut.
    KL::MemoryIChannel cut(bytes.data(), 20);
    KL::InputFrame cutFrame(cut, version1);
    EXPECT_EQ(cutFrame.GetStatus(), KL::ErrEndOfData);

    // A length of zero: no read may pass the frame's end, though the data go on.
    bytes[20] = bytes[21] = bytes[22] = bytes[23] = 0;
    KL::MemoryIChannel overrun(bytes.data(), bytes.size());
    KL::InputFrame zeroFrame(overrun, version1);
    ASSERT_EQ(zeroFrame.GetStatus(), KL::NoError);
    EXPECT_EQ(overrun.GetAvailable(), 0);
    value = 17;
    EXPECT_EQ(overrun.Read(value), KL::ErrStreamFormat);
    EXPECT_EQ(value, 17);
    EXPECT_EQ(zeroFrame.Close(), KL::ErrStreamFormat);
}

TEST(Frame, InnerLengthsAreCheckedAgainstTheEnclosingFrame) {
    // A frame whose body holds a text claiming more units than the frame has, with plenty of
    // data behind the frame: the text must not read into what follows.
    KL::MemoryOChannel out;
    {
        KL::OutputFrame frame(out, version1);
        out.Write(std::uint32_t{8}); // a count of 8 units, and no units
    }
    for (int i = 0; i < 8; ++i)
        out.Write(std::uint16_t{'x'});
    const std::vector<char> bytes = out.TakeData();

    KL::MemoryIChannel in(bytes.data(), bytes.size());
    KL::InputFrame frame(in, version1);
    KL::UniString text("unchanged");
    EXPECT_EQ(text.Read(in), KL::ErrStreamFormat);
    EXPECT_EQ(text, "unchanged");

    // Nested limits never reach past the outer one.
    KL::MemoryIChannel nested(bytes.data(), bytes.size());
    nested.PushLimit(30);
    nested.PushLimit(1000);
    EXPECT_EQ(nested.GetAvailable(), 30);
    nested.PopLimit();
    nested.PopLimit();
    EXPECT_EQ(nested.GetAvailable(), static_cast<std::int64_t>(bytes.size()));
}

class Point : public KL::Object {
public:
    static const KL::ClassInfo classInfo;
    std::int32_t x = 0;
    std::int32_t y = 0;

    const KL::ClassInfo* GetClassInfo() const override { return &classInfo; }
    int Write(KL::OChannel& out) const override {
        KL::OutputFrame frame(out, classInfo);
        out.Write(x);
        out.Write(y);
        return frame.Close();
    }
    int Read(KL::IChannel& in) override {
        KL::InputFrame frame(in, classInfo);
        in.Read(x);
        in.Read(y);
        return frame.Close();
    }
};
const KL::ClassInfo Point::classInfo("Test::Point", KL::Guid("A1B2C3D4-0003-4000-8000-00000000F003"), 1, 0,
                                     &KL::Object::classInfo);

TEST(Frame, ObjectsStreamThroughTheChannel) {
    Point p;
    p.x = -1;
    p.y = 65536;
    KL::MemoryOChannel out(KL::BigEndianSign);
    ASSERT_EQ(out.Write(p), KL::NoError);
    const std::vector<char> bytes = out.TakeData();
    KL::MemoryIChannel in(bytes.data(), bytes.size(), KL::BigEndianSign);
    Point q;
    ASSERT_EQ(in.Read(q), KL::NoError);
    EXPECT_EQ(q.x, -1);
    EXPECT_EQ(q.y, 65536);
    EXPECT_TRUE(Point::classInfo.IsCompatibleWith(KL::Object::classInfo));
    EXPECT_FALSE(KL::Object::classInfo.IsCompatibleWith(Point::classInfo));

    KL::MemoryOChannel text;
    q.Print(text);
    const std::vector<char> printed = text.TakeData();
    EXPECT_EQ(std::string(printed.begin(), printed.end()), "Test::Point");
}

} // namespace
