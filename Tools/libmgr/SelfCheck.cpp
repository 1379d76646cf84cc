#include "SelfCheck.hpp"

#include <LibraryManager.hpp>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace libmgr {

namespace {

const KL::ClassInfo checkClass("libmgr::SelfCheck", KL::Guid("3F2B8C1D-9A4E-4E6B-8D27-51C0A9E4B713"), 1, 2);

bool FrameRoundTrip(KL::PlatformSign sign) {
    KL::MemoryOChannel out(sign);
    {
        KL::OutputFrame frame(out, checkClass);
        KL::UniString("Straße").Write(out);
        out.Write(std::int32_t{-7003});
        KL::Guid("E666B724-587D-447A-B9A8-6248E3368E70").Write(out);
    }
    const std::vector<char> bytes = out.TakeData();
    KL::MemoryIChannel in(bytes.data(), bytes.size(), sign);
    KL::InputFrame frame(in, checkClass);
    KL::UniString text;
    std::int32_t number = 0;
    KL::Guid guid;
    text.Read(in);
    in.Read(number);
    guid.Read(in);
    return frame.Close() == KL::NoError && text == "Straße" && number == -7003 &&
           guid.ToString() == "E666B724-587D-447A-B9A8-6248E3368E70" && in.GetAvailable() == 0;
}

bool CaseFolding() {
    return KL::UniString("Straße").IsEqual("STRASSE", KL::CaseInsensitive) &&
           KL::UniString("ÄBC").IsEqual("äbc", KL::CaseInsensitive) &&
           !KL::UniString("ÄBC").IsEqual("äbc", KL::CaseSensitive);
}

bool Fingerprint() {
    KL::FingerPrintGenerator generator;
    generator.Add("abc", 3);
    return generator.Finish().ToString() == "900150983cd24fb0d6963f7d28e17f72";
}

bool XmlRoundTrip() {
    KL::XMLOChannel out;
    out.StartTag("LibPartId", KL::ClassVersion{1, 0});
    out.WriteElement("Name", KL::UniString("Fenêtre"));
    out.EndTag("LibPartId");
    KL::XMLIChannel in;
    KL::ClassVersion version;
    KL::UniString name;
    return in.Parse(out.ToString()) == KL::NoError && in.StartTag("LibPartId", &version) == KL::NoError &&
           in.ReadElement("Name", name) == KL::NoError && name == "Fenêtre" &&
           version == KL::ClassVersion{1, 0};
}

} // namespace

bool RunSelfCheck(std::ostream& out) {
    const std::vector<std::pair<std::string, std::function<bool()>>> checks = {
        {"little-endian frame round trip", [] { return FrameRoundTrip(KL::LittleEndianSign); }},
        {"big-endian frame round trip", [] { return FrameRoundTrip(KL::BigEndianSign); }},
        {"Unicode case folding", CaseFolding},
        {"MD5 fingerprint", Fingerprint},
        {"XML round trip", XmlRoundTrip},
    };
    bool allPassed = true;
    for (const auto& [name, check] : checks) {
        const bool passed = check();
        allPassed = allPassed && passed;
        out << (passed ? "  ok    " : "  FAIL  ") << name << '\n';
    }
    return allPassed;
}

} // namespace libmgr
