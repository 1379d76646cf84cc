#pragma once

#include "KLRoot/KLExport.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace KL {

// RFC 4648 base64 with padding and no line breaks.
LM_EXPORT std::string Base64Encode(const void* data, std::size_t size);
// False for any character outside the alphabet, wrong padding, or a length not a multiple of 4.
LM_EXPORT bool Base64Decode(std::string_view text, std::vector<char>* bytes);

} // namespace KL
