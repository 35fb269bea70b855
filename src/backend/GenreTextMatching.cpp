#include "backend/GenreTextMatching.hpp"

#include "platform/core/GenreSeparator.hpp"
#include "platform/text/Text.hpp"

#include <algorithm>
#include <utility>

namespace velto {

namespace {

constexpr std::string_view separators = ",-/;|";

/// A genre field may hold anything at all; no text of tags is as long.
constexpr std::size_t maximumText = std::size_t{16} << 10;
/// No name is tried over more pieces than this, whatever a vocabulary says: it bounds the work on a text.
constexpr std::size_t maximumPieces = 16;

std::vector<std::string_view> writtenPieces(std::string_view text) {
    std::vector<std::string_view> pieces;
    for (std::size_t at = text.find(genreSeparator); at != std::string_view::npos;
         at = text.find(genreSeparator)) {
        pieces.push_back(text.substr(0, at));
        text.remove_prefix(at + genreSeparator.size());
    }
    pieces.push_back(text);
    return pieces;
}

std::vector<std::string_view> foreignPieces(std::string_view text) {
    std::vector<std::string_view> pieces;
    for (std::size_t at = text.find_first_of(separators); at != std::string_view::npos;
         at = text.find_first_of(separators)) {
        pieces.push_back(text.substr(0, at));
        text.remove_prefix(at + 1);
    }
    pieces.push_back(text);
    return pieces;
}

/// The text from the start of one piece to the end of a later one.
std::string_view joined(std::string_view first, std::string_view last) {
    return {first.data(), static_cast<std::size_t>(last.data() + last.size() - first.data())};
}

const std::string& spelling(const std::vector<std::string>& names, std::string_view asWritten) {
    const auto exact = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
        return text::trimmedView(name) == asWritten;
    });
    return exact != names.end() ? *exact : names.front();
}

void addOnce(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

} // namespace

/// How the rest of a written text reads from some piece on: `length` pieces are one name, then the rest.
struct GenreTextMatcher::Step {
    std::size_t length = 0; ///< 0: it cannot be read
    bool isEra = false;
};

GenreTextMatcher::GenreTextMatcher(const TagVocabulary& vocabulary)
    : hasEras_(!vocabulary.availableEras.empty()) {
    add(vocabulary.userGenres, Kind::genre);
    add(vocabulary.userRegions, Kind::region);
    add(vocabulary.availableGenres, Kind::genre);
    add(vocabulary.availableRegions, Kind::region);
    add(vocabulary.availableEras, Kind::era);
}

void GenreTextMatcher::add(const std::vector<std::string>& names, Kind kind) {
    for (const std::string& name : names) {
        const std::string_view trimmed = text::trimmedView(name);
        if (trimmed.empty()) continue;
        const auto [place, isNew] = entries_.try_emplace(text::lowercased(trimmed));
        Entry& entry = place->second;
        if (isNew) entry.kind = kind;
        (kind == Kind::genre    ? entry.genres
         : kind == Kind::region ? entry.regions
                                : entry.eras)
            .push_back(name);
        longestWritten_ = std::clamp(writtenPieces(trimmed).size(), longestWritten_, maximumPieces);
        longestForeign_ = std::clamp(foreignPieces(trimmed).size(), longestForeign_, maximumPieces);
    }
}

const GenreTextMatcher::Entry* GenreTextMatcher::find(std::string_view piece) const {
    if (piece.empty()) return nullptr;
    const auto found = entries_.find(text::lowercased(piece));
    return found == entries_.end() ? nullptr : &found->second;
}

RecognisedTags GenreTextMatcher::match(std::string_view genreText) const {
    const std::string_view trimmed = text::trimmedView(genreText);
    if (!hasEras_ || trimmed.empty() || trimmed.size() > maximumText) return {};
    if (auto written = matchWritten(trimmed)) return *std::move(written);
    return matchForeign(trimmed);
}

GenreTextMatcher::Step GenreTextMatcher::stepFrom(std::size_t from,
                                                  const std::vector<std::string_view>& pieces,
                                                  const std::vector<Step>& later) const {
    const std::size_t left = pieces.size() - from;
    for (std::size_t length = std::min(longestWritten_, left); length > 0; --length) {
        const Entry* entry = find(text::trimmedView(joined(pieces[from], pieces[from + length - 1])));
        if (entry == nullptr) continue;
        const bool isLast = length == left;
        const bool isGenre = !entry->genres.empty();
        // A lone name that is both is a genre: tagging gives an era beside genres, not instead of them.
        if (isLast && !entry->eras.empty() && (from > 0 || !isGenre)) return {length, true};
        if (isGenre && (isLast || later[from + length].length > 0)) return {length, false};
    }
    return {};
}

/// Reads the text as tagging writes it: genres to the end, or genres and one era at the end, nothing left
/// over.
std::optional<RecognisedTags> GenreTextMatcher::matchWritten(std::string_view text) const {
    const auto pieces = writtenPieces(text);
    std::vector<Step> steps(pieces.size());
    for (std::size_t i = pieces.size(); i-- > 0;)
        steps[i] = stepFrom(i, pieces, steps);
    if (steps.front().length == 0) return std::nullopt;
    RecognisedTags tags;
    for (std::size_t at = 0; at < pieces.size(); at += steps[at].length) {
        const std::string_view name =
            text::trimmedView(joined(pieces[at], pieces[at + steps[at].length - 1]));
        const Entry* entry = find(name);
        if (steps[at].isEra)
            tags.era = spelling(entry->eras, name);
        else
            tags.genres.push_back(spelling(entry->genres, name));
    }
    return tags;
}

RecognisedTags GenreTextMatcher::matchForeign(std::string_view text) const {
    RecognisedTags tags;
    const auto pieces = foreignPieces(text);
    for (std::size_t at = 0; at < pieces.size();) {
        std::size_t length = std::min(longestForeign_, pieces.size() - at);
        const Entry* entry = nullptr;
        std::string_view name;
        for (; length > 0; --length) {
            name = text::trimmedView(joined(pieces[at], pieces[at + length - 1]));
            entry = find(name);
            if (entry != nullptr) break;
        }
        at += std::max<std::size_t>(length, 1);
        if (entry == nullptr) continue;
        switch (entry->kind) {
        case Kind::genre:
            addOnce(tags.genres, spelling(entry->genres, name));
            break;
        case Kind::region:
            addOnce(tags.regions, spelling(entry->regions, name));
            break;
        case Kind::era:
            if (!tags.era) tags.era = spelling(entry->eras, name);
            break;
        }
    }
    return tags;
}

PreferencesGenreTextParser::PreferencesGenreTextParser(UserPreferencesStore& preferences)
    : preferences_(preferences) {
    for (auto* names : {&preferences.userGenres, &preferences.userRegions, &preferences.availableGenres,
                        &preferences.availableRegions, &preferences.availableEras})
        subscriptions_.push_back(names->subscribe([this](const auto&) { matcher_.reset(); }));
}

RecognisedTags PreferencesGenreTextParser::parse(const std::string& genreText) const {
    if (!matcher_)
        matcher_.emplace(TagVocabulary{preferences_.userGenres, preferences_.availableGenres,
                                       preferences_.userRegions, preferences_.availableRegions,
                                       preferences_.availableEras});
    return matcher_->match(genreText);
}

} // namespace velto
