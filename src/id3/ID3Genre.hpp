#pragma once

#include "id3/ID3Tag.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace velto::id3 {

/// The published name of a genre number; empty if the list has none.
[[nodiscard]] std::string_view genreName(ID3Genre genre);

/// The name that `text` means: a number of the list, "RX" or "CR"; any other text itself.
[[nodiscard]] std::string namedGenre(std::string text);

/// The value of a tag's genre frames, whose values these are. Understands "(17)", "(17)Refinement",
/// "(4)(RX)",
/// "((text", "17" and free text; several become one description, each once, joined by genreSeparator.
[[nodiscard]] ID3FrameGenre genreOf(const std::vector<std::string>& values);

/// The published form: number in parentheses (bare in version 2.4), then the description.
[[nodiscard]] std::string genreText(const ID3FrameGenre& genre, ID3Version version);

} // namespace velto::id3
