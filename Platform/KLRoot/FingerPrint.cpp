#include "KLRoot/FingerPrint.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Exceptions.hpp"

#include <openssl/evp.h>

namespace KL {

struct FingerPrintGenerator::Context {
    EVP_MD_CTX* digest = EVP_MD_CTX_new();
    ~Context() { EVP_MD_CTX_free(digest); }
};

namespace {
void Begin(EVP_MD_CTX* digest) {
    if (digest == nullptr || EVP_DigestInit_ex(digest, EVP_md5(), nullptr) != 1)
        throw OutOfMemoryException("Cannot start an MD5 digest.", __FILE__, __LINE__);
}
} // namespace

FingerPrintGenerator::FingerPrintGenerator() : context(std::make_unique<Context>()) {
    Begin(context->digest);
}

FingerPrintGenerator::~FingerPrintGenerator() = default;

void FingerPrintGenerator::Add(const void* data, std::size_t size) {
    if (size > 0 && EVP_DigestUpdate(context->digest, data, size) != 1)
        throw KLException(ErrIO, "MD5 digest failed.", __FILE__, __LINE__);
}

FingerPrint FingerPrintGenerator::Finish() {
    std::array<std::uint8_t, FingerPrint::Size> bytes{};
    unsigned length = 0;
    if (EVP_DigestFinal_ex(context->digest, bytes.data(), &length) != 1 || length != FingerPrint::Size)
        throw KLException(ErrIO, "MD5 digest failed.", __FILE__, __LINE__);
    Begin(context->digest);
    return FingerPrint(bytes);
}

std::string FingerPrint::ToString() const {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * Size);
    for (const std::uint8_t byte : bytes) {
        text.push_back(Digits[byte >> 4]);
        text.push_back(Digits[byte & 0xF]);
    }
    return text;
}

} // namespace KL
