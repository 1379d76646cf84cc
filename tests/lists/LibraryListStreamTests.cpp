// Library lists as projects store them: the current stream, the older one, and the oldest info
// block, written and read back, and hostile bytes refused.
#include "support/Catalogue.hpp"

#include <gtest/gtest.h>

namespace {

using testsupport::CatalogueTest;

// Every stored field of an item, as one line.
std::string Fields(const LM::LibraryItem& item) {
    return std::to_string(item.GetType()) + "|" + item.GetName().ToUTF8() + "|" +
           item.GetLocation().ToString() + "|" + item.GetUrl().ToUTF8() + "|" +
           (item.IsVital() ? "vital" : "-") + "|" + (item.IsMissing() ? "missing" : "-") + "|" +
           item.GetHostName().ToUTF8() + ":" + std::to_string(item.GetPort()) + "|" +
           item.GetRelLocation().ToString() + "|" + item.GetSourceLocation().ToUTF8() + "|" +
           item.GetGuid().ToString() + "|" + item.GetLangCode().ToUTF8() + "|" +
           (item.GetCollapseLongBranches() ? "collapse" : "-") + "|" + item.GetTWServerUrl().ToUTF8();
}

std::vector<std::string> Fields(const LM::LibraryList& list) {
    std::vector<std::string> lines;
    for (int i = 0; i < list.GetLibraryNum(LM::AllLibraryModes); ++i)
        lines.push_back(Fields(list[static_cast<std::size_t>(i)]));
    return lines;
}

LM::LibraryItem FullItem() {
    LM::LibraryItem item;
    item.SetType(LM::LocalLibrary);
    item.SetName(KL::UniString("Office"));
    item.SetLocation(IO::Location("/libraries/Office"));
    item.SetVital(LM::Vital);
    item.SetMissing(true);
    item.SetTWServerUrl(KL::UniString("tw://server"));
    item.SetHostAddress(KL::UniString("host"), 8080);
    item.SetRelLocation(IO::RelativeLocation("Shared/Office"));
    item.SetSourceLocation(KL::UniString("/source/Office"));
    item.SetGuid(KL::Guid(7, 8, 9, {}));
    item.SetLangCode(KL::UniString("de"));
    item.SetCollapseLongBranches(true);
    return item;
}

std::vector<char> Written(const std::function<int(KL::OChannel&)>& write,
                          KL::PlatformSign order = KL::LittleEndianSign) {
    KL::MemoryOChannel stream(order);
    EXPECT_EQ(write(stream), 0);
    return stream.TakeData();
}

TEST(LibraryItemStream, EachMinorVersionKeepsItsFieldsAndLeavesLaterOnesAtTheirDefaults) {
    const LM::LibraryItem item = FullItem();
    const std::string common = "1|Office|/libraries/Office||vital|missing|";
    const std::map<std::uint16_t, std::string> expected = {
        {0, common + ":0|||" + KL::NULLGuid.ToString() + "||-|"},
        {1, common + ":0|Shared/Office|/source/Office|" + KL::NULLGuid.ToString() + "||-|"},
        {2, common + "host:8080|Shared/Office|/source/Office|" + KL::NULLGuid.ToString() + "||-|"},
        {3, common + "host:8080|Shared/Office|/source/Office|" + item.GetGuid().ToString() + "|de|collapse|"},
        {4, common + "host:8080|Shared/Office|/source/Office|" + item.GetGuid().ToString() + "|de|collapse|"},
        {5, common + "host:8080|Shared/Office|/source/Office|" + item.GetGuid().ToString() +
                "|de|collapse|tw://server"},
    };
    for (const auto& [minor, fields] : expected) {
        const std::vector<char> bytes = Written([&](KL::OChannel& out) {
            return item.WriteAtVersion(out, {1, minor});
        });
        KL::MemoryIChannel in(bytes.data(), bytes.size());
        LM::LibraryItem read;
        ASSERT_EQ(read.Read(in), 0) << "1." << minor;
        EXPECT_EQ(Fields(read), fields) << "1." << minor;
        EXPECT_EQ(in.GetAvailable(), 0U);
    }
    // The current version is 1.5.
    EXPECT_EQ(Written([&](KL::OChannel& out) { return item.Write(out); }), Written([&](KL::OChannel& out) {
                  return item.WriteAtVersion(out, {1, 5});
              }));
}

class LibraryListStream : public CatalogueTest {
protected:
    LibraryListStream() {
        list.Add(FullItem(), LM::LibraryList::NoFilter);
        list.AddLibrary(KL::UniString("https://parts.example/lib/"));
        list.AddLibrary(IO::Location("/builtin/Basic"), LM::BuiltInLibrary, LM::NotVital, KL::NULLGuid,
                        KL::UniString(), false);
        list.AddOtherObject(IO::Location("/objects/Door.klm"));
        list.AddOtherObject(KL::UniString("https://parts.example/door"));
        list.AddLibrary(IO::Location("/embedded/Project"), LM::EmbeddedLibrary, LM::NotVital, KL::NULLGuid,
                        KL::UniString(), false);
    }

    LM::LibraryList list;
};

TEST_F(LibraryListStream, TheCurrentStreamReadsBackEveryStoredItem) {
    const std::vector<char> bytes = Written([&](KL::OChannel& out) { return list.Write(out, true); });
    KL::MemoryIChannel in(bytes.data(), bytes.size());
    LM::LibraryList read;
    read.AddLibrary(IO::Location("/stale"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, KL::UniString(),
                    false);
    ASSERT_EQ(read.Read(in), 0);
    // Embedded libraries are never stored; what was in the list before is gone.
    std::vector<std::string> expected = Fields(list);
    expected.pop_back();
    EXPECT_EQ(Fields(read), expected);

    // Without built-in libraries the count is one lower.
    const std::vector<char> withoutBuiltIn =
        Written([&](KL::OChannel& out) { return list.Write(out, false); });
    KL::MemoryIChannel in2(withoutBuiltIn.data(), withoutBuiltIn.size());
    ASSERT_EQ(read.Read(in2), 0);
    EXPECT_EQ(read.GetLibraryNum(LM::AllLibraryModes), 4);
    EXPECT_EQ(read.GetLibraryNum(LM::BuiltInLibrary), 0);
}

TEST_F(LibraryListStream, TheOlderStreamKeepsWhatItsItemsCanHold) {
    LM::LibraryList withServer = list;
    withServer.AddServerLibrary(IO::Location("/server/id"), IO::RelativeLocation("Team"),
                                KL::UniString("src"), IO::Location("/mirror/Team"), 3);
    std::vector<char> bytes = Written([&](KL::OChannel& out) {
        return withServer.WriteAtVersion(out, true, {1, 0});
    });
    // Any list tag passes; it sits behind the 24 bytes of the frame header.
    std::copy_n("ABCD", 4, bytes.begin() + KL::OutputFrame::HeaderSize);
    KL::MemoryIChannel in(bytes.data(), bytes.size());
    LM::LibraryList read;
    read.AddLibrary(IO::Location("/kept"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, KL::UniString(),
                    false);
    ASSERT_EQ(read.Read(in), 0);
    const std::vector<std::string> fields = Fields(read);
    ASSERT_EQ(fields.size(), 7U);
    // This form appends; a local library keeps name, place and flags only.
    EXPECT_EQ(fields[0].rfind("1|kept|/kept|", 0), 0U) << fields[0];
    EXPECT_EQ(fields[1],
              "1|Office|/libraries/Office||vital|missing|:0|||" + KL::NULLGuid.ToString() + "||-|");
    EXPECT_EQ(read[2].GetType(), LM::UrlLibrary);
    EXPECT_EQ(read[2].GetUrl(), KL::UniString("https://parts.example/lib/"));
    EXPECT_EQ(read[3].GetType(), LM::BuiltInLibrary);
    EXPECT_EQ(read[4].GetType(), LM::OtherObjectByLocation);
    EXPECT_EQ(read[5].GetType(), LM::OtherObjectByUrl);
    // A server library comes back as a local library at its place.
    EXPECT_EQ(read[6].GetType(), LM::LocalLibrary);
    EXPECT_EQ(read[6].GetLocation(), IO::Location("/mirror/Team"));

    // The version tag must be right.
    std::copy_n("V101", 4, bytes.begin() + KL::OutputFrame::HeaderSize + 4);
    KL::MemoryIChannel wrongVersion(bytes.data(), bytes.size());
    EXPECT_EQ(read.Read(wrongVersion), LM::LibPartFileError);
}

TEST_F(LibraryListStream, HostileStreamsAreRefused) {
    const std::vector<char> bytes = Written([&](KL::OChannel& out) { return list.Write(out, true); });
    // A frame of an unknown major version.
    KL::MemoryOChannel thirdOut;
    EXPECT_EQ(list.WriteAtVersion(thirdOut, true, {3, 0}), LM::LibPartFileError);
    const std::vector<char> third = thirdOut.TakeData();
    EXPECT_EQ(third.size(), KL::OutputFrame::HeaderSize);
    KL::MemoryIChannel thirdIn(third.data(), third.size());
    LM::LibraryList read;
    EXPECT_EQ(read.Read(thirdIn), LM::LibPartFileError);
    // Every cut of a good stream fails without a crash; none reads as complete.
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        KL::MemoryIChannel in(bytes.data(), size);
        LM::LibraryList cut;
        EXPECT_NE(cut.Read(in), 0) << size;
    }
    // A count far past the end runs into the end of the stream.
    std::vector<char> counted = bytes;
    const std::uint32_t huge = 0x7FFFFFFF;
    std::memcpy(counted.data() + KL::OutputFrame::HeaderSize + 1, &huge, 4);
    KL::MemoryIChannel countedIn(counted.data(), counted.size());
    EXPECT_NE(read.Read(countedIn), 0);
}

// The oldest generation, written as its programs wrote it.
std::vector<char> InfoBlock(KL::PlatformSign order) {
    KL::MemoryOChannel out(order);
    out.Write(std::int32_t{0x4C323036});
    out.Write(true);
    IO::Location("/first").Write(out);
    IO::Location("/second").Write(out);
    out.Write(std::int32_t{4});
    for (const auto& [vital, builtIn] : {std::pair{true, false}, std::pair{false, true}}) {
        out.Write(vital);
        out.Write(builtIn);
        out.Write(false);
        IO::Location(builtIn ? "/lib/Basic/RFS" : "/lib/Office").Write(out);
    }
    for (const char* url : {"https://parts.example/shared/", "https://parts.example/a/b"}) {
        out.Write(false);
        out.Write(false);
        out.Write(true);
        KL::String(url).Write(out);
    }
    out.Write(std::int32_t{2});
    IO::Location("/objects/Door.klm").Write(out);
    KL::String("").Write(out);
    IO::Location().Write(out);
    KL::String("https://parts.example/window").Write(out);
    out.Write(std::int32_t{0});
    return out.TakeData();
}

TEST_F(LibraryListStream, OldInfoBlocksConvertInEitherByteOrder) {
    for (const KL::PlatformSign order : {KL::LittleEndianSign, KL::BigEndianSign}) {
        const std::vector<char> bytes = InfoBlock(order);
        KL::ScopedHandle info(KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size())));
        LM::LibraryList read;
        read.AddLibrary(IO::Location("/embedded"), LM::EmbeddedLibrary, LM::NotVital, KL::NULLGuid,
                        KL::UniString(), false);
        read.AddLibrary(IO::Location("/old"), LM::LocalLibrary, LM::NotVital, KL::NULLGuid, KL::UniString(),
                        false);
        ASSERT_EQ(Set().GetLibraryListFromInfo(info.Get(), order, &read), 0) << order;
        std::vector<std::string> names;
        for (int i = 0; i < read.GetLibraryNum(LM::AllLibraryModes); ++i)
            names.push_back(std::to_string(read[static_cast<std::size_t>(i)].GetType()) + " " +
                            read[static_cast<std::size_t>(i)].GetName().ToUTF8());
        // Embedded libraries stay; a resource folder takes the name above it; a URL its last
        // segment after its last character is dropped, even when that is no slash.
        EXPECT_EQ(names, (std::vector<std::string>{"5 embedded", "1 Office", "3 Basic", "2 shared", "2 ",
                                                   "4 Door.klm", "6 window"}))
            << order;
        EXPECT_TRUE(read[1].IsVital());

        char** converted = nullptr;
        EXPECT_EQ(Set().ConvertInfoToCurrent(info.Get(), &converted, order), 0);
        EXPECT_EQ(BMGetHandleSize(converted), static_cast<std::int64_t>(bytes.size()));
        BMKillHandle(&converted);
    }
    // Too short, or another magic: refused, and the list holds only what stays.
    KL::ScopedHandle shortInfo(KL::BMNewHandleFrom("L20", 3));
    LM::LibraryList read;
    EXPECT_EQ(Set().GetLibraryListFromInfo(shortInfo.Get(), KL::LittleEndianSign, &read),
              LM::LibPartFileError);
    const std::vector<char> little = InfoBlock(KL::LittleEndianSign);
    KL::ScopedHandle wrongOrder(KL::BMNewHandleFrom(little.data(), static_cast<std::int64_t>(little.size())));
    char** converted = nullptr;
    EXPECT_EQ(Set().ConvertInfoToCurrent(wrongOrder.Get(), &converted, KL::BigEndianSign),
              LM::LibPartFileError);
    EXPECT_EQ(converted, nullptr);
    // Cut anywhere after its magic, a block gives what it holds, and 0.
    for (std::size_t size = 4; size < little.size(); size += 3) {
        KL::ScopedHandle cut(KL::BMNewHandleFrom(little.data(), static_cast<std::int64_t>(size)));
        LM::LibraryList partial;
        EXPECT_EQ(Set().GetLibraryListFromInfo(cut.Get(), KL::LittleEndianSign, &partial), 0) << size;
    }
}

} // namespace
