#include "flows/TaggingState.hpp"

#include <fmt/ranges.h>

#include <string_view>
#include <unordered_map>
#include <utility>

namespace velto {

namespace {
/// More lines than this say nothing to a user that a count does not.
constexpr std::size_t mostLines = 20;
} // namespace

std::string textOfErrors(const std::vector<TaggingErrorLine>& errors) {
    std::vector<std::string> lines;
    if (errors.size() <= mostLines) {
        for (const TaggingErrorLine& error : errors)
            lines.push_back(error.text);
        return fmt::format("{}", fmt::join(lines, "\n"));
    }
    std::vector<std::pair<const TaggingErrorLine*, std::size_t>> counted; // in the order of their first
    std::unordered_map<std::string_view, std::size_t> places;
    for (const TaggingErrorLine& error : errors) {
        const auto [place, isNew] = places.try_emplace(error.common, counted.size());
        if (isNew) counted.emplace_back(&error, 0);
        ++counted[place->second].second;
    }
    std::size_t shown = 0;
    for (std::size_t i = 0; i < std::min(counted.size(), mostLines); ++i) {
        const auto& [error, count] = counted[i];
        lines.push_back(count == 1 ? error->text : fmt::format("{} ({} times)", error->common, count));
        shown += count;
    }
    if (shown < errors.size()) lines.push_back(fmt::format("and {} more", errors.size() - shown));
    return fmt::format("{}", fmt::join(lines, "\n"));
}

} // namespace velto
