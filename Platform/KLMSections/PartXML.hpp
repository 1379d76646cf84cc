#pragma once

// A part file as XML and back (docs/formats/part-xml.md).
#include "LibPartFile/SymbolFile.hpp"

#include "KLRoot/KLExport.hpp"
#include "KLRoot/XMLIChannel.hpp"
#include "KLRoot/XMLOChannel.hpp"

#include <string>

namespace KLM {

// Writes the whole part. A section whose typed form would not give back its exact bytes is written
// as a raw Section, so that building the dump reproduces every section. On failure `message` says
// what could not be written.
LM_EXPORT int WritePartXML(const LPF::SymbolFile& part, KL::XMLOChannel& channel, std::string* message);

// Fills a new part from a description; guids the description leaves out are made fresh. On failure
// `message` names the element and the rule it broke.
LM_EXPORT int ReadPartXML(KL::XMLIChannel& channel, LPF::SymbolFile* part, std::string* message);

} // namespace KLM
