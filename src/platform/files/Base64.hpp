#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velto::files {

/// The usual alphabet, with padding, on one line.
[[nodiscard]] std::string base64(const std::vector<std::uint8_t>& bytes);

/// Throws std::runtime_error if `text` is not what base64() writes.
[[nodiscard]] std::vector<std::uint8_t> fromBase64(std::string_view text);

} // namespace velto::files
