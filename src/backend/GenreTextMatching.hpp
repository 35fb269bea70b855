#pragma once

#include "backend/UserPreferencesStore.hpp"
#include "store/GenreTextParser.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velto {

/// The names that a genre text may be made of.
struct TagVocabulary {
    std::vector<std::string> userGenres;
    std::vector<std::string> availableGenres;
    std::vector<std::string> userRegions;
    std::vector<std::string> availableRegions;
    std::vector<std::string> availableEras;
};

/// Finds the vocabulary's names in genre texts. A text that tagging wrote ("Hip-Hop - House - 1990s") gives
/// back its genres in their order and its era, also if a name holds a separator itself: a whole name wins
/// over its pieces. Any other text is cut at , - / ; | and names are looked for from the left, the longest
/// first, each taken once; what is in no list is left out. Compared without regard to case; a name comes as
/// it is spelt in the text if some list spells it so, else as in its list, the user's own lists before the
/// backend's.
class GenreTextMatcher {
  public:
    explicit GenreTextMatcher(const TagVocabulary& vocabulary);

    /// Nothing is recognised without eras in the vocabulary, or in a text of over 16 KiB.
    [[nodiscard]] RecognisedTags match(std::string_view genreText) const;

  private:
    enum class Kind { genre, region, era };

    /// What one name, in whatever case, can be.
    struct Entry {
        Kind kind = Kind::genre; ///< of the first list that has it
        std::vector<std::string> genres;
        std::vector<std::string> regions;
        std::vector<std::string> eras;
    };
    struct Step;

    void add(const std::vector<std::string>& names, Kind kind);
    [[nodiscard]] const Entry* find(std::string_view piece) const;
    [[nodiscard]] std::optional<RecognisedTags> matchWritten(std::string_view text) const;
    [[nodiscard]] Step stepFrom(std::size_t from, const std::vector<std::string_view>& pieces,
                                const std::vector<Step>& later) const;
    [[nodiscard]] RecognisedTags matchForeign(std::string_view text) const;

    std::unordered_map<std::string, Entry> entries_;
    std::size_t longestWritten_ = 1; ///< pieces between " - " in one name, at most
    std::size_t longestForeign_ = 1; ///< pieces between separator characters in one name, at most
    bool hasEras_;
};

/// A matcher over the present content of a preferences store, which must outlive it. Main actor.
class PreferencesGenreTextParser final : public GenreTextParser {
  public:
    explicit PreferencesGenreTextParser(UserPreferencesStore& preferences);

    [[nodiscard]] RecognisedTags parse(const std::string& genreText) const override;

  private:
    const UserPreferencesStore& preferences_;
    /// A scan asks for every file: the matcher is built once, and again after the vocabulary has changed.
    mutable std::optional<GenreTextMatcher> matcher_;
    std::vector<Subscription> subscriptions_;
};

} // namespace velto
