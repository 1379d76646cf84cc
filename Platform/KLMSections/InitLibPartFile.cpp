#include "KLMSections/InitLibPartFile.hpp"

#include "KLMSections/MigrationTable.hpp"

#include "LibPartFile/LibPartFileErrors.hpp"
#include "LibPartFile/SectionTypes.hpp"
#include "QDL/ParamSection.hpp"
#include "QDL/SyCalledMacroItem.hpp"
#include "VectorImage/VectorImage.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <cstring>

namespace {

// A section's object form: the object read from the section, which it must fill exactly.
template <typename Content>
std::unique_ptr<KL::Object> MakeContent(const char* data, std::uint64_t size, int* error) {
    auto content = std::make_unique<Content>();
    *error = LPF::ReadWholeSection(data, size, KL::HostPlatformSign, content.get());
    return *error == KL::NoError ? std::move(content) : nullptr;
}

} // namespace

int InitLibPartFile(const char* sectionSet) {
    if (sectionSet == nullptr || std::strcmp(sectionSet, "Default_Set") != 0)
        return KL::ErrParam;
    LPF::RegisterSectionType(LPF::Tags::Parameters, LPF::SectionType{ConvertParamSection, nullptr});
    LPF::RegisterSectionType(LPF::Tags::CalledMacros, LPF::SectionType{ConvertCalledMacroSection, nullptr});
    LPF::RegisterSectionType(
        LPF::Tags::MigrationTable,
        LPF::SectionType{LPF::ConvertByRewriting<MigrationTableObject>, MakeContent<MigrationTableObject>});
    LPF::RegisterSectionType(LPF::Tags::Drawing2D, LPF::SectionType{LPF::ConvertByRewriting<VectorImage>,
                                                                    MakeContent<VectorImage>});
    return KL::NoError;
}
