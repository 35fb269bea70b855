#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// What a write stores: `genres` and, if it appends, the pieces of `existing` beside them (empty ones left
/// out), each once, in ascending byte order (that of their code points), as one genre text.
[[nodiscard]] std::string mergedGenreText(std::vector<std::string> genres, std::string_view existing,
                                          bool append);

} // namespace velto
