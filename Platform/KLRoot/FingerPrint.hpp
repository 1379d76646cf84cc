#pragma once

#include "KLRoot/KLExport.hpp"

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace KL {

// The MD5 digest of a sequence of bytes.
class LM_EXPORT FingerPrint {
public:
    static constexpr std::size_t Size = 16;

    FingerPrint() = default;
    explicit FingerPrint(const std::array<std::uint8_t, Size>& bytes) : bytes(bytes) {}

    const std::array<std::uint8_t, Size>& GetBytes() const { return bytes; }
    std::string ToString() const; // 32 lowercase hex digits
    bool operator==(const FingerPrint&) const = default;

private:
    std::array<std::uint8_t, Size> bytes{};
};

// Computes a FingerPrint over data added piece by piece.
class LM_EXPORT FingerPrintGenerator {
public:
    FingerPrintGenerator();
    ~FingerPrintGenerator();
    FingerPrintGenerator(const FingerPrintGenerator&) = delete;
    FingerPrintGenerator& operator=(const FingerPrintGenerator&) = delete;

    void Add(const void* data, std::size_t size);
    // The digest of everything added; the generator starts afresh afterwards.
    FingerPrint Finish();

private:
    struct Context;
    std::unique_ptr<Context> context;
};

} // namespace KL
