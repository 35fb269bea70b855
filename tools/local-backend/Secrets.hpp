#pragma once

#include <string>
#include <string_view>

namespace velto::local {

/// `bytes` random bytes of the kernel as base64url without padding.
[[nodiscard]] std::string randomToken(std::size_t bytes);

/// SHA-256 as lower-case hexadecimal.
[[nodiscard]] std::string sha256Hex(std::string_view text);

} // namespace velto::local
