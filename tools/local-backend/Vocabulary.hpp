#pragma once

#include <span>
#include <string_view>

namespace velto::local {

/// Every tag that the tagger can give. The order is part of the tagger's stability: a new name goes to the
/// end of its family or list, or the tags of known songs change.
struct GenreFamily {
    std::string_view name;
    std::span<const std::string_view> genres;
};

[[nodiscard]] std::span<const GenreFamily> genreFamilies();
[[nodiscard]] std::span<const std::string_view> regions();
/// "1950s" to "2020s".
[[nodiscard]] std::span<const std::string_view> eras();

/// A word (or words) of artist, title or album and the genre that it speaks for.
struct GenreRule {
    std::string_view words; ///< Lower case, single spaces between words.
    std::string_view genre;
};

/// Strongest first.
[[nodiscard]] std::span<const GenreRule> genreRules();

struct RegionRule {
    std::string_view words;
    std::string_view region;
};

[[nodiscard]] std::span<const RegionRule> regionRules();

} // namespace velto::local
