#pragma once

#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <vector>

// The "ANCS" section in the host's order: a 32-byte header (template mark, ancestor count, 24
// reserved bytes) and a main and a revision guid per ancestor, root first.
struct AncestrySection {
    bool isTemplate = false;
    std::vector<KL::UnID> ancestors;
};

// Only the exact layout is accepted: a mark of 0 or 1 and a size that fits the count.
LM_EXPORT int ParseAncestrySection(const char* data, std::uint64_t size, AncestrySection* section);
LM_EXPORT std::vector<char> BuildAncestrySection(const AncestrySection& section);
