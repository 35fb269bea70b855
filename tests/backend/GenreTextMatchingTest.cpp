#include "backend/GenreTextMatching.hpp"

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <random>

namespace velto {
namespace {

using Names = std::vector<std::string>;

std::string shown(const RecognisedTags& tags) {
    return fmt::format("{} | {} | {}", fmt::join(tags.genres, ","), fmt::join(tags.regions, ","),
                       tags.era.value_or(""));
}

std::string written(const Names& genres, const std::optional<std::string>& era) {
    Names parts = genres;
    if (era) parts.push_back(*era);
    return fmt::format("{}", fmt::join(parts, " - "));
}

TEST(GenreTextMatching, GivesBackWhatTaggingWrote) {
    const TagVocabulary vocabulary = {.userGenres = {"hip-hop", "Deep House"},
                                      .availableGenres = {"House", "Hip-Hop", "Hip", "Hop", "R&B/Soul", "R&B",
                                                          "Soul", "Drum - Bass", "Deep House", "Rock; Indie",
                                                          "Pop, Dance", "A|B", "Latin", "Électro", "ELECTRO",
                                                          "80s"},
                                      .userRegions = {"Latin"},
                                      .availableRegions = {"UK"},
                                      .availableEras = {"80s", "1990s", "1990s - Early", "Pre-1960"}};
    const GenreTextMatcher matcher(vocabulary);
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        Names pool = vocabulary.availableGenres;
        std::shuffle(pool.begin(), pool.end(), random);
        pool.resize(1 + random() % 4);
        std::optional<std::string> era;
        if (random() % 3 != 0) era = vocabulary.availableEras[random() % vocabulary.availableEras.size()];
        // A genre that is an era's name too looks like the era at the end of a text.
        if (!era && pool.back() == "80s" && pool.size() > 1) continue;
        const std::string text = written(pool, era);
        const RecognisedTags tags = matcher.match(text);
        EXPECT_EQ(tags.genres, pool) << text;
        EXPECT_EQ(tags.era, era) << text;
        EXPECT_TRUE(tags.regions.empty()) << text;
    }
}

TEST(GenreTextMatching, ReadsTextsOfOthers) {
    const GenreTextMatcher matcher(
        {.userGenres = {"hip-hop"},
         .availableGenres = {"Hip-Hop", "Hip", "House", "R&B/Soul", "Drum - Bass", "Drum"},
         .userRegions = {"Balkan"},
         .availableRegions = {"UK", "Balkan"},
         .availableEras = {"1990s", "2000s"}});
    const std::pair<std::string, const char*> rows[] = {
        {"", " |  | "},
        {"HIP-HOP", "hip-hop |  | "},
        {"Hip-Hop", "Hip-Hop |  | "},
        {"house,uk ; 1990S", "House | UK | 1990s"},
        {"House/Unknown|Balkan", "House | Balkan | "},
        {"1990s - House", "House |  | 1990s"},
        {"Unknown - Drum - Bass - 2000s", "Drum - Bass |  | 2000s"},
        {"Drum -Bass", "Drum |  | "},
        {"r&b/soul/House", "R&B/Soul,House |  | "},
        {"House, house, HOUSE", "House |  | "},
        {"Deep House", " |  | "},
        {" - / ;;| House -", "House |  | "},
        {std::string("\xff\0House", 7), " |  | "},
        {std::string(20'000, '-') + "House", " |  | "},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(shown(matcher.match(text)), expected) << text.substr(0, 60);
}

TEST(GenreTextMatching, FollowsThePreferences) {
    UserPreferencesStore preferences;
    const PreferencesGenreTextParser parser(preferences);
    preferences.availableGenres = Names{"House"};
    EXPECT_TRUE(parser.parse("House").genres.empty()) << "no eras, no tags";
    preferences.availableEras = Names{"1990s"};
    EXPECT_EQ(parser.parse("House - 1990s").era, "1990s");
    preferences.clear();
    EXPECT_TRUE(parser.parse("House - 1990s").genres.empty());
}

} // namespace
} // namespace velto
