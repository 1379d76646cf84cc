#pragma once

// Parameters as XML (docs/formats/part-xml.md): one element per parameter, named by its type.
#include "QDL/ParamSection.hpp"

#include "KLRoot/KLExport.hpp"
#include "KLRoot/XMLIChannel.hpp"
#include "KLRoot/XMLOChannel.hpp"

#include <string>
#include <vector>

// Writes a "Parameters" element with at most `limit` of the parameters in the two handles.
LM_EXPORT int ConvertAddParToXMLChannel(KL::XMLOChannel& channel, const char* const* names,
                                        const char* const* values, int limit);
LM_EXPORT int WriteSyParametersToXML(KL::XMLOChannel& channel, const std::vector<SyParameter>& parameters,
                                     std::size_t limit);
// Reads a "Parameters" element; on failure `message` says which parameter and why.
LM_EXPORT int ReadSyParametersFromXML(KL::XMLIChannel& channel, std::vector<SyParameter>* parameters,
                                      std::string* message);

// Blank-separated names of set bits, with "Bit<n>" for bits that have no name; and back.
struct SyBitName {
    std::uint32_t bit;
    const char* name;
};
LM_EXPORT std::string BitsToNames(std::uint32_t bits, const SyBitName* names, std::size_t count);
LM_EXPORT bool NamesToBits(const std::string& text, const SyBitName* names, std::size_t count,
                           std::uint32_t* bits);
