#include "platform/files/Sha256.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <new>

namespace velto::files {

namespace {

/// Looking an algorithm up costs more than hashing a short text, so that it is done once.
const EVP_MD* algorithm() {
    static const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> fetched(
        EVP_MD_fetch(nullptr, "SHA256", nullptr), &EVP_MD_free);
    return fetched.get();
}

EVP_MD_CTX* context() {
    thread_local const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> own(EVP_MD_CTX_new(),
                                                                                   &EVP_MD_CTX_free);
    return own.get();
}

} // namespace

Sha256Digest sha256(std::string_view bytes) {
    Sha256Digest digest{};
    EVP_MD_CTX* own = context();
    if (own == nullptr || EVP_DigestInit_ex2(own, algorithm(), nullptr) != 1 ||
        EVP_DigestUpdate(own, bytes.data(), bytes.size()) != 1 ||
        EVP_DigestFinal_ex(own, digest.data(), nullptr) != 1)
        throw std::bad_alloc(); // the only way in which hashing memory fails
    return digest;
}

std::string hexadecimal(const Sha256Digest& digest, std::size_t byteCount) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    byteCount = std::min(byteCount, digest.size());
    text.reserve(2 * byteCount);
    for (std::size_t i = 0; i < byteCount; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 0x0f];
    }
    return text;
}

} // namespace velto::files
