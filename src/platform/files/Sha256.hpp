#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velto::files {

using Sha256Digest = std::array<std::uint8_t, 32>;

/// SHA-256 of `bytes`. Any thread; made for many short inputs.
[[nodiscard]] Sha256Digest sha256(std::string_view bytes);

/// The first `byteCount` bytes of a digest as lower-case hexadecimal digits, two for each byte.
[[nodiscard]] std::string hexadecimal(const Sha256Digest& digest, std::size_t byteCount);

} // namespace velto::files
