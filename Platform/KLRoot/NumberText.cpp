#include "KLRoot/NumberText.hpp"

#include <charconv>

namespace KL {

namespace {

template <typename T>
bool ParseWhole(const std::string& text, T* value) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value);
    return !text.empty() && result.ec == std::errc() && result.ptr == text.data() + text.size();
}

template <typename T>
std::string FormatShortest(T value) {
    char text[40];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

} // namespace

std::string FormatDouble(double value) {
    return FormatShortest(value);
}

std::string FormatFloat(float value) {
    return FormatShortest(value);
}

bool ParseFloat(const std::string& text, float* value) {
    return ParseWhole(text, value);
}

bool ParseDouble(const std::string& text, double* value) {
    return ParseWhole(text, value);
}

bool ParseUInt32(const std::string& text, std::uint32_t* value) {
    return ParseWhole(text, value);
}

bool ParseInt32(const std::string& text, std::int32_t* value) {
    return ParseWhole(text, value);
}

} // namespace KL
