#pragma once

// The default section set of part files: migration tables, the ancestry layout, the registration of
// section types, and the XML form of a whole part.
#include "KLMSections/AncestrySection.hpp"
#include "KLMSections/InitLibPartFile.hpp"
#include "KLMSections/MigrationTable.hpp"
#include "KLMSections/PartXML.hpp"
