#include "Secrets.hpp"

#include "platform/core/Error.hpp"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <array>
#include <cerrno>
#include <sys/random.h>
#include <vector>

namespace velto::local {

std::string randomToken(std::size_t bytes) {
    std::vector<unsigned char> random(bytes);
    for (std::size_t filled = 0; filled < bytes;) {
        const ssize_t got = getrandom(random.data() + filled, bytes - filled, 0);
        if (got < 0 && errno != EINTR) throw SystemError(errno, "read", "random bytes");
        if (got > 0) filled += static_cast<std::size_t>(got);
    }
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    unsigned buffer = 0;
    int bits = 0;
    for (const unsigned char byte : random) {
        buffer = (buffer << 8 | byte) & 0xffffU;
        bits += 8;
        for (; bits >= 6; bits -= 6)
            text += alphabet[buffer >> (bits - 6) & 63U];
    }
    if (bits > 0) text += alphabet[buffer << (6 - bits) & 63U];
    return text;
}

std::string sha256Hex(std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1)
        throw Error("SHA-256 is not available");
    std::string hex;
    for (unsigned int i = 0; i < length; ++i)
        hex += fmt::format("{:02x}", digest[i]);
    return hex;
}

} // namespace velto::local
