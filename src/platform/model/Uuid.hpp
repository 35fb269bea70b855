#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// A 128-bit identity. Any thread.
struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    /// A new version 4 value from the system's random source.
    [[nodiscard]] static Uuid random();

    /// Reads the 36-character form in either case; nothing if the text is not one.
    [[nodiscard]] static std::optional<Uuid> fromText(std::string_view text);

    /// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"
    [[nodiscard]] std::string text() const;

    auto operator<=>(const Uuid&) const = default;
};

} // namespace velto
