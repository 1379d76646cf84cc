#include "KLMSections/InitLibPartFile.hpp"

#include "KLMSections/MigrationTable.hpp"

#include "LibPartFile/LibPartFileErrors.hpp"
#include "LibPartFile/SectionTypes.hpp"
#include "QDL/ParamSection.hpp"
#include "QDL/SyCalledMacroItem.hpp"
#include "VectorImage/VectorImage.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/MemoryChannel.hpp"

#include <cstring>

namespace {

// A section's object form: the object read from the section, which it must fill exactly.
template <typename Content>
std::unique_ptr<KL::Object> MakeContent(const char* data, std::uint64_t size, int* error) {
    auto content = std::make_unique<Content>();
    KL::MemoryIChannel channel(data, size);
    *error = content->Read(channel);
    if (*error == KL::NoError && channel.GetAvailable() != 0)
        *error = LPF::CorruptSectionError;
    return *error == KL::NoError ? std::move(content) : nullptr;
}

template <typename Content>
int ConvertObjectSection(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to) {
    return LPF::ConvertByRewriting<Content>(
        data, size, from, to, [](KL::IChannel& channel, Content* content) { return content->Read(channel); },
        [](KL::OChannel& channel, const Content& content) { return content.Write(channel); });
}

} // namespace

int InitLibPartFile(const char* sectionSet) {
    if (sectionSet == nullptr || std::strcmp(sectionSet, "Default_Set") != 0)
        return KL::ErrParam;
    LPF::RegisterSectionType(LPF::Tags::Parameters, LPF::SectionType{ConvertParamSection, nullptr});
    LPF::RegisterSectionType(LPF::Tags::CalledMacros, LPF::SectionType{ConvertCalledMacroSection, nullptr});
    LPF::RegisterSectionType(
        LPF::Tags::MigrationTable,
        LPF::SectionType{ConvertObjectSection<MigrationTableObject>, MakeContent<MigrationTableObject>});
    LPF::RegisterSectionType(LPF::Tags::Drawing2D,
                             LPF::SectionType{ConvertObjectSection<VectorImage>, MakeContent<VectorImage>});
    return KL::NoError;
}
