#pragma once

#include "id3/ID3Tag.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace velto::id3 {

/// The published name of a genre number; empty where the list has none.
[[nodiscard]] std::string_view genreName(ID3Genre genre);

/// Between the content of a genre frame and its value.
struct ID3GenreStringAdapter {
    /// Understands "(17)", "(17)Refinement", "(4)(RX)", "((text", "17" and free text; several values (also of
    /// a version 2.4 frame) become one description, joined by genreSeparator.
    [[nodiscard]] static ID3FrameGenre adapt(const std::vector<std::string>& values);

    /// The published form: number in parentheses (bare in version 2.4), then the description.
    [[nodiscard]] static std::string content(const ID3FrameGenre& genre, ID3Version version);
};

} // namespace velto::id3
