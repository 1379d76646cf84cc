// Feeds arbitrary bytes to the part file reader and to every section decoder behind it: the
// directory, byte order conversion, parameters, called macros, migration table, drawing, ancestry,
// and the XML dump that visits them all.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

int VisitSection(const LPF::SectionInfo& info, void* userData) {
    const auto& part = *static_cast<const LPF::SymbolFile*>(userData);
    GSHandle data = nullptr;
    if (part.GetSectionDataRef(info.tag, info.subIdent, &data) != KL::NoError)
        return KL::NoError;
    const auto size = static_cast<std::uint64_t>(BMGetHandleSize(data));
    int error = 0;
    part.GetSectionContent(info.tag, info.subIdent, &error);
    SyParSection parameters;
    ParseSyParSection(*data, size, &parameters);
    GSHandle addPar = nullptr;
    if (SplitSyParHandle(data, &addPar) == KL::NoError) {
        const QDLAddParData defaults(addPar);
        BMKillHandle(&addPar);
    }
    AncestrySection ancestry;
    ParseAncestrySection(*data, size, &ancestry);
    KL::MemoryIChannel channel(*data, size);
    KL::Array<SyCalledMacroItem> macros;
    ReadCalledMacroList(channel, &macros);
    return KL::NoError;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int registered = InitLibPartFile("Default_Set");
    (void)registered;
    const LPF::SymbolFile part(std::vector<char>(data, data + size));
    if (part.GetStatus() != KL::NoError)
        return 0;
    part.EnumerateSections(VisitSection, const_cast<LPF::SymbolFile*>(&part));
    KL::XMLOChannel xml;
    KLM::WritePartXML(part, xml, nullptr);
    KL::MemoryOChannel out;
    part.Write(out);
    return 0;
}
