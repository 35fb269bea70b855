#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// The pieces of a genre text, empty ones left out.
[[nodiscard]] std::vector<std::string> splitGenreText(std::string_view text);

/// The genres, each once, in ascending byte order (that of their code points), as one genre text.
[[nodiscard]] std::string joinGenres(const std::vector<std::string>& genres);

/// What a write stores: `genres` and, where it appends, the pieces of `existing` beside them.
[[nodiscard]] std::string mergedGenreText(std::vector<std::string> genres, std::string_view existing,
                                          bool append);

} // namespace velto
