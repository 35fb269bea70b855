#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto::local {

struct Tags {
    std::vector<std::string> genres;  ///< One to three.
    std::vector<std::string> regions; ///< One or two.
    std::optional<std::string> era;
};

/// Tags by fixed rules: words of the texts first, then a stable hash of artist and title, which gives the
/// songs of one artist one family of genres. No AI, no listening; the same texts always get the same tags, on
/// every machine. ASCII case does not matter.
[[nodiscard]] Tags tagByRules(std::string_view artist, std::string_view title, std::string_view album);

} // namespace velto::local
