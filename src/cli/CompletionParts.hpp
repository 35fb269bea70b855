#pragma once

#include "cli/CommandTree.hpp"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velto::cli {

/// A command with the words that lead to it, each with a space in front: " library add". Empty for the
/// program.
struct Place {
    std::string path;
    const CommandEntry* command; ///< part of the tree that it was made from
};

/// The program and every command below it, each after the one that it belongs to.
[[nodiscard]] std::vector<Place> placesOf(const CommandEntry& program);

/// The names of the options whose value is of one of these kinds.
[[nodiscard]] std::set<std::string> optionsWith(const std::vector<Place>& places,
                                                const std::set<ValueKind>& kinds);

/// The names of the options that take a value at all.
[[nodiscard]] std::set<std::string> optionsWithValue(const std::vector<Place>& places);

/// The paths of all but the program, each between these quotes.
[[nodiscard]] std::vector<std::string> quotedPaths(const std::vector<Place>& places, char quote);

[[nodiscard]] std::string replaced(std::string text, std::string_view what, std::string_view by);

} // namespace velto::cli
