// Names and locations: validity, path arithmetic, order and stream forms.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <vector>

namespace {

std::vector<char> Bytes(const std::function<void(KL::OChannel&)>& write,
                        KL::PlatformSign sign = KL::LittleEndianSign) {
    KL::MemoryOChannel channel(sign);
    write(channel);
    return channel.TakeData();
}

TEST(Name, RefusesWhatCouldLeaveAFolderAndSplitsExtensions) {
    for (const char* bad : {"", ".", "..", "a/b", "/"})
        EXPECT_FALSE(IO::Name(bad).IsValid()) << bad;
    EXPECT_FALSE(IO::Name(KL::UniString(u"a\0b", 3)).IsValid());
    EXPECT_FALSE(IO::Name(KL::UniString(std::u16string(IO::Name::MaxLength + 1, u'x'))).IsValid());
    EXPECT_TRUE(IO::Name("...").IsValid());
    EXPECT_TRUE(IO::Name("a\\b").IsValid());

    const IO::Name part("Door.Frame.klm");
    EXPECT_EQ(part.GetExtension(), "klm");
    EXPECT_EQ(part.GetBase(), "Door.Frame");
    const IO::Name hidden(".klm");
    EXPECT_TRUE(hidden.HasExtension());
    EXPECT_EQ(hidden.GetExtension(), "klm");
    EXPECT_TRUE(hidden.GetBase().IsEmpty());
    const IO::Name plain("README");
    EXPECT_FALSE(plain.HasExtension());
    EXPECT_EQ(plain.GetBase(), "README");
}

TEST(Name, StreamFormRoundTripsInBothOrdersAndRefusesHostileInput) {
    const IO::Name original("Fenêtre ✓.klm");
    for (const KL::PlatformSign sign : {KL::LittleEndianSign, KL::BigEndianSign}) {
        const std::vector<char> bytes = Bytes([&](KL::OChannel& c) { original.Write(c); }, sign);
        ASSERT_EQ(bytes.size(), 4 + 2 * original.GetLength());
        KL::MemoryIChannel in(bytes.data(), bytes.size(), sign);
        IO::Name read;
        EXPECT_EQ(read.Read(in), KL::NoError);
        EXPECT_EQ(read, original);
    }

    const auto hostile = [](std::uint32_t count, std::u16string units) {
        return Bytes([&](KL::OChannel& c) {
            c.Write(count);
            for (char16_t unit : units)
                c.Write(unit);
        });
    };
    const std::vector<std::vector<char>> cases = {
        hostile(2, u".."),   hostile(3, u"a/b"),    hostile(3, std::u16string(u"a\0b", 3)),
        hostile(0, u""),     hostile(1, u"."),      hostile(0xFFFFFFFF, u"abc"),
        hostile(1025, u"x"), hostile(10, u"short"),
    };
    for (const std::vector<char>& bytes : cases) {
        KL::MemoryIChannel in(bytes.data(), bytes.size());
        IO::Name name("unchanged");
        EXPECT_NE(name.Read(in), KL::NoError);
        EXPECT_NE(in.GetStatus(), KL::NoError);
        EXPECT_EQ(name, IO::Name("unchanged"));
    }
}

TEST(Location, ParsesPathsAndDoesPathArithmetic) {
    const IO::Location location("//library/./Doors/../Windows//Casement.klm");
    ASSERT_TRUE(location.IsValid());
    EXPECT_EQ(location.ToString(), "/library/Windows/Casement.klm");
    EXPECT_EQ(location.GetLength(), 3u);
    IO::Name name;
    EXPECT_EQ(location.GetLocalName(1, &name), KL::NoError);
    EXPECT_EQ(name, IO::Name("Windows"));
    EXPECT_EQ(location.GetLocalName(3, &name), KL::ErrParam);
    EXPECT_EQ(location.GetLastLocalName(&name), KL::NoError);
    EXPECT_EQ(name, IO::Name("Casement.klm"));
    // The last name's text and extension, as the name itself would give them.
    for (const char* path :
         {"/library/Windows/Casement.klm", "/a.b/README", "/a/.klm", "/a/b.", "/", "/x.y.z"}) {
        const IO::Location place(path);
        IO::Name last;
        const bool named = place.GetLastLocalName(&last) == KL::NoError;
        EXPECT_EQ(KL::UniString(place.GetLastLocalNameText()), named ? last.GetText() : KL::UniString())
            << path;
        EXPECT_EQ(place.GetLastExtension(), named ? last.GetExtension() : KL::UniString()) << path;
    }

    EXPECT_TRUE(IO::Location("relative/path").IsEmpty());
    EXPECT_TRUE(IO::Location("").IsEmpty());
    EXPECT_EQ(IO::Location("/../..").ToString(), "/");
    EXPECT_EQ(IO::Location("/"), IO::Location::Root());
    EXPECT_NE(IO::Location(), IO::Location::Root());

    IO::Location parent = location;
    EXPECT_EQ(parent.DeleteLastLocalName(), KL::NoError);
    EXPECT_EQ(parent.ToString(), "/library/Windows");
    EXPECT_TRUE(parent.IsAncestorOf(location));
    EXPECT_TRUE(IO::Location::Root().IsAncestorOf(location));
    EXPECT_FALSE(location.IsAncestorOf(location));
    EXPECT_FALSE(IO::Location("/library/Win").IsAncestorOf(location));
    EXPECT_FALSE(location.IsAncestorOf(parent));

    IO::RelativeLocation difference;
    EXPECT_EQ(location.GetDifference(IO::Location("/library"), &difference), KL::NoError);
    EXPECT_EQ(difference.ToString(), "Windows/Casement.klm");
    EXPECT_EQ(difference.GetLength(), 2u);
    EXPECT_EQ(location.GetDifference(location, &difference), KL::NoError);
    EXPECT_TRUE(difference.IsEmpty());
    EXPECT_EQ(location.GetDifference(IO::Location("/other"), &difference), KL::ErrParam);

    IO::Location rebuilt("/library");
    EXPECT_EQ(rebuilt.Append(IO::RelativeLocation("Windows/Casement.klm")), KL::NoError);
    EXPECT_EQ(rebuilt, location);
    EXPECT_EQ(rebuilt.Append(IO::Name("..")), KL::ErrParam);
    EXPECT_TRUE((location + IO::Name("a/b")).IsEmpty());
    EXPECT_EQ(IO::Location().Append(IO::Name("a")), KL::ErrParam);
    EXPECT_TRUE(IO::RelativeLocation("a/../b").IsEmpty());
}

TEST(Location, OrderIsTotalAndKeepsSubtreesTogether) {
    const std::vector<std::string> paths = {"/a/b", "/a-b", "/a", "/a/b/c", "/a.b", "/", "/A", "/a/c", "/b"};
    std::set<IO::Location> sorted;
    for (const std::string& path : paths)
        sorted.insert(IO::Location(path));
    sorted.insert(IO::Location());
    ASSERT_EQ(sorted.size(), paths.size() + 1);
    std::vector<std::string> order;
    for (const IO::Location& location : sorted)
        order.push_back(location.ToString());
    // The empty location first, then each location right before everything below it.
    EXPECT_EQ(order, (std::vector<std::string>{"", "/", "/A", "/a", "/a/b", "/a/b/c", "/a/c", "/a-b", "/a.b",
                                               "/b"}));
}

TEST(Location, StreamFormRoundTripsAndRefusesHostileCounts) {
    for (const IO::Location& original :
         {IO::Location("/lib/Doors/Door ✓.klm"), IO::Location::Root(), IO::Location()}) {
        const std::vector<char> bytes = Bytes([&](KL::OChannel& c) { original.Write(c); }, KL::BigEndianSign);
        KL::MemoryIChannel in(bytes.data(), bytes.size(), KL::BigEndianSign);
        IO::Location read("/before");
        EXPECT_EQ(read.Read(in), KL::NoError);
        EXPECT_EQ(read, original);
    }
    const IO::RelativeLocation relative("Doors/Door.klm");
    const std::vector<char> relativeBytes = Bytes([&](KL::OChannel& c) { relative.Write(c); });
    KL::MemoryIChannel relativeIn(relativeBytes.data(), relativeBytes.size());
    IO::RelativeLocation relativeRead;
    EXPECT_EQ(relativeRead.Read(relativeIn), KL::NoError);
    EXPECT_EQ(relativeRead, relative);

    for (const std::int32_t count : {-2, 5000, 0x7FFFFFFF, 3}) {
        const std::vector<char> bytes = Bytes([&](KL::OChannel& c) {
            c.Write(count);
            IO::Name("a").Write(c);
        });
        KL::MemoryIChannel in(bytes.data(), bytes.size());
        IO::Location read("/kept");
        EXPECT_NE(read.Read(in), KL::NoError) << count;
        EXPECT_EQ(read, IO::Location("/kept"));
    }
    // A valid count with a name that would climb out.
    const std::vector<char> climbing = Bytes([&](KL::OChannel& c) {
        c.Write(std::int32_t{2});
        IO::Name("a").Write(c);
        c.Write(std::uint32_t{2});
        c.Write(u'.');
        c.Write(u'.');
    });
    KL::MemoryIChannel in(climbing.data(), climbing.size());
    IO::Location read("/kept");
    EXPECT_EQ(read.Read(in), KL::ErrStreamFormat);
    EXPECT_EQ(read, IO::Location("/kept"));
}

} // namespace
