#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velto {

/// The tags found in a file's genre text. An empty list means that none was recognised.
struct RecognisedTags {
    std::vector<std::string> genres;
    std::vector<std::string> regions;
    std::optional<std::string> era;
};

/// Breaks a file's genre text into tags of the user's vocabulary. Main actor.
class GenreTextParser {
  public:
    virtual ~GenreTextParser() = default;
    [[nodiscard]] virtual RecognisedTags parse(const std::string& genreText) const = 0;
};

} // namespace velto
