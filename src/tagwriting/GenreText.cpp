#include "tagwriting/GenreText.hpp"

#include "platform/core/GenreSeparator.hpp"

#include <algorithm>
#include <set>

namespace velto {

namespace {

std::vector<std::string> splitGenreText(std::string_view text) {
    std::vector<std::string> pieces;
    while (!text.empty()) {
        const auto end = std::min(text.find(genreSeparator), text.size());
        if (end > 0) pieces.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + genreSeparator.size(), text.size()));
    }
    return pieces;
}

std::string joinGenres(const std::vector<std::string>& genres) {
    std::string text;
    bool isFirst = true;
    for (const std::string& genre : std::set<std::string>(genres.begin(), genres.end())) {
        if (!isFirst) text += genreSeparator;
        text += genre;
        isFirst = false;
    }
    return text;
}

} // namespace

std::string mergedGenreText(std::vector<std::string> genres, std::string_view existing, bool append) {
    if (append)
        for (std::string& piece : splitGenreText(existing))
            genres.push_back(std::move(piece));
    return joinGenres(genres);
}

} // namespace velto
