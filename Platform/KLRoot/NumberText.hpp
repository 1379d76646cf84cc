#pragma once

#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <string>

namespace KL {

// The shortest decimal text that reads back as the same double ("1", "0.9", "1e-07").
LM_EXPORT std::string FormatDouble(double value);
LM_EXPORT std::string FormatFloat(float value);
// The whole text must be a number; no leading '+' or blanks.
LM_EXPORT bool ParseDouble(const std::string& text, double* value);
LM_EXPORT bool ParseFloat(const std::string& text, float* value);
LM_EXPORT bool ParseUInt32(const std::string& text, std::uint32_t* value);
LM_EXPORT bool ParseInt32(const std::string& text, std::int32_t* value);

} // namespace KL
