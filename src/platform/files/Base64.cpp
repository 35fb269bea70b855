#include "platform/files/Base64.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <climits>
#include <stdexcept>

namespace velto::files {

std::string base64(const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() > INT_MAX / 2) throw std::length_error("too many bytes for base64");
    std::vector<unsigned char> text(4 * ((bytes.size() + 2) / 3) +
                                    1); // with the terminator that is written too
    const int length = EVP_EncodeBlock(text.data(), bytes.data(), static_cast<int>(bytes.size()));
    return {text.begin(), text.begin() + length};
}

std::vector<std::uint8_t> fromBase64(std::string_view text) {
    if (text.size() % 4 != 0 || text.size() > INT_MAX) throw std::runtime_error("broken base64");
    std::vector<std::uint8_t> bytes(text.size() / 4 * 3);
    const auto* characters = reinterpret_cast<const unsigned char*>(text.data());
    if (!text.empty() && EVP_DecodeBlock(bytes.data(), characters, static_cast<int>(text.size())) < 0)
        throw std::runtime_error("broken base64");
    const auto padding = text.size() - std::min(text.find_last_not_of('=') + 1, text.size());
    bytes.resize(bytes.size() - std::min(padding, bytes.size())); // was decoded as zero bytes
    if (base64(bytes) != text) throw std::runtime_error("broken base64");
    return bytes;
}

} // namespace velto::files
