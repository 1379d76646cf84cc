// Bare scripts: every encoding on disk comes to the engine as UTF-16.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

std::u16string ScriptText(const testsupport::ScratchFolder& scratch, const std::string& name,
                          const std::string& bytes) {
    scratch.Write(name, bytes);
    const LPF::ScriptFile script(scratch.Location(name));
    GSHandle data = nullptr;
    if (script.GetStatus() != KL::NoError || script.GetData(&data) != KL::NoError)
        return u"<error>";
    std::u16string units(static_cast<std::size_t>(BMGetHandleSize(data)) / 2, u'\0');
    std::memcpy(units.data(), *data, units.size() * 2);
    BMKillHandle(&data);
    return units;
}

TEST(ScriptFile, ReadsEveryEncodingAsUTF16) {
    testsupport::ScratchFolder scratch;
    const std::u16string text = u"A = 1\r\nB = \"Grüße €\"";
    const std::string utf8 = "A = 1\r\nB = \"Gr\u00FC\u00DFe \u20AC\"";
    EXPECT_EQ(ScriptText(scratch, "plain.qdl", utf8), text);
    EXPECT_EQ(ScriptText(scratch, "bom.qdl", "\xEF\xBB\xBF" + utf8), text);
    std::string little = "\xFF\xFE";
    std::string big = "\xFE\xFF";
    for (const char16_t unit : text) {
        little += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
        big += {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
    }
    EXPECT_EQ(ScriptText(scratch, "little.qdl", little), text);
    EXPECT_EQ(ScriptText(scratch, "big.qdl", big), text);
    EXPECT_EQ(ScriptText(scratch, "latin1.qdl", "Gr\xFC\xDF"), u"Grüß");
    EXPECT_EQ(ScriptText(scratch, "overlong.qdl", "\xC0\xAF"), u"\u00C0\u00AF") << "not shortest form";
    EXPECT_EQ(ScriptText(scratch, "surrogate.qdl", "\xED\xA0\x80"), u"\u00ED\u00A0\u0080");
    EXPECT_EQ(ScriptText(scratch, "empty.qdl", ""), u"");

    KL::UniString name;
    EXPECT_EQ(LPF::ScriptFile(scratch.Location("Door Frame.qdl")).GetStatus(), IO::NotFoundError);
    scratch.Write("Door Frame.qdl", "x");
    scratch.Write("Plain", "x");
    ASSERT_EQ(LPF::ScriptFile(scratch.Location("Door Frame.qdl")).GetDocumentName(&name), KL::NoError);
    EXPECT_EQ(name, KL::UniString("Door Frame"));
    ASSERT_EQ(LPF::ScriptFile(scratch.Location("Plain")).GetDocumentName(&name), KL::NoError);
    EXPECT_EQ(name, KL::UniString("Plain"));
    EXPECT_EQ(LPF::ScriptFile(scratch.Location("Plain")).GetData(nullptr), KL::ErrParam);
}

} // namespace
