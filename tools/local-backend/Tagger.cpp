#include "Tagger.hpp"

#include "Vocabulary.hpp"

#include <algorithm>
#include <cstdint>

namespace velto::local {

namespace {

constexpr std::size_t mostGenres = 3;
constexpr std::size_t mostRegions = 2;

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

bool isWordByte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || byte >= 0x80;
}

/// FNV-1a with a last mix, so that the low bits are good as well. The values reach users' tags: do not
/// change.
std::uint64_t stableHash(std::string_view text) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    hash ^= hash >> 33;
    hash *= 0xff51afd7ed558ccdULL;
    return hash ^ hash >> 33;
}

/// Whether the words stand in the text with no word going on before or after them.
bool containsWords(std::string_view text, std::string_view words) {
    for (auto at = text.find(words); at != std::string_view::npos; at = text.find(words, at + 1)) {
        const auto end = at + words.size();
        if ((at == 0 || !isWordByte(text[at - 1])) && (end == text.size() || !isWordByte(text[end])))
            return true;
    }
    return false;
}

void add(std::vector<std::string>& names, std::string_view name, std::size_t most) {
    if (names.size() < most && std::find(names.begin(), names.end(), name) == names.end())
        names.emplace_back(name);
}

std::vector<std::string> genresOf(std::string_view text, std::uint64_t artist, std::uint64_t title) {
    std::vector<std::string> genres;
    for (const auto& rule : genreRules())
        if (containsWords(text, rule.words)) add(genres, rule.genre, mostGenres);
    const auto& family = genreFamilies()[artist % genreFamilies().size()].genres;
    if (genres.empty()) add(genres, family[title % family.size()], mostGenres);
    // Every second song gets a neighbour of its artist's family.
    if ((title >> 8) % 2 == 0) add(genres, family[(title >> 16) % family.size()], mostGenres);
    return genres;
}

std::vector<std::string> regionsOf(std::string_view text, std::uint64_t artist) {
    std::vector<std::string> names;
    for (const auto& rule : regionRules())
        if (containsWords(text, rule.words)) add(names, rule.region, mostRegions);
    if (names.empty()) add(names, regions()[(artist >> 20) % regions().size()], mostRegions);
    if ((artist >> 32) % 4 == 0) add(names, regions()[(artist >> 40) % regions().size()], mostRegions);
    return names;
}

/// The decade of the first number from 1950 to 2029 that stands alone ("1999", not "19995").
std::optional<std::size_t> decadeIn(std::string_view text) {
    for (std::size_t i = 0; i + 4 <= text.size(); ++i) {
        const auto digits = text.substr(i, 4);
        const bool alone =
            (i == 0 || !isWordByte(text[i - 1])) && (i + 4 == text.size() || !isWordByte(text[i + 4]));
        if (!alone || !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
            continue;
        const auto year = std::stoul(std::string(digits));
        if (year >= 1950 && year <= 2029) return (year - 1950) / 10;
    }
    return std::nullopt;
}

std::optional<std::string> eraOf(std::string_view text, std::uint64_t artist, std::uint64_t title) {
    if (const auto decade = decadeIn(text)) return std::string(eras()[*decade]);
    // One song in eight is of no particular time.
    if ((title >> 24) % 8 == 0) return std::nullopt;
    return std::string(eras()[(artist >> 48) % eras().size()]);
}

} // namespace

Tags tagByRules(std::string_view artist, std::string_view title, std::string_view album) {
    const auto lowerArtist = lowerCase(artist);
    const auto lowerTitle = lowerCase(title);
    const auto text = lowerTitle + '\n' + lowerCase(album) + '\n' + lowerArtist;
    const auto artistHash = stableHash(lowerArtist);
    const auto titleHash = stableHash(lowerTitle);
    return {genresOf(text, artistHash, titleHash), regionsOf(text, artistHash),
            eraOf(text, artistHash, titleHash)};
}

} // namespace velto::local
