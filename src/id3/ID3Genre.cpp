#include "id3/ID3Genre.hpp"

#include "platform/core/GenreSeparator.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <unordered_set>

namespace velto::id3 {

namespace {

// The published list with its later additions; a number is a place in it. Do not change.
// clang-format off
constexpr std::array<std::string_view, 192> names{
    "Blues", "Classic Rock", "Country", "Dance", "Disco", "Funk", "Grunge", "Hip-Hop", "Jazz", "Metal",
    "New Age", "Oldies", "Other", "Pop", "R&B", "Rap", "Reggae", "Rock", "Techno", "Industrial",
    "Alternative", "Ska", "Death Metal", "Pranks", "Soundtrack", "Euro-Techno", "Ambient", "Trip-Hop",
    "Vocal", "Jazz+Funk", "Fusion", "Trance", "Classical", "Instrumental", "Acid", "House", "Game",
    "Sound Clip", "Gospel", "Noise", "Alternative Rock", "Bass", "Soul", "Punk", "Space", "Meditative",
    "Instrumental Pop", "Instrumental Rock", "Ethnic", "Gothic", "Darkwave", "Techno-Industrial",
    "Electronic", "Pop-Folk", "Eurodance", "Dream", "Southern Rock", "Comedy", "Cult", "Gangsta", "Top 40",
    "Christian Rap", "Pop/Funk", "Jungle", "Native American", "Cabaret", "New Wave", "Psychedelic", "Rave",
    "Showtunes", "Trailer", "Lo-Fi", "Tribal", "Acid Punk", "Acid Jazz", "Polka", "Retro", "Musical",
    "Rock & Roll", "Hard Rock", "Folk", "Folk-Rock", "National Folk", "Swing", "Fast Fusion", "Bebop",
    "Latin", "Revival", "Celtic", "Bluegrass", "Avantgarde", "Gothic Rock", "Progressive Rock",
    "Psychedelic Rock", "Symphonic Rock", "Slow Rock", "Big Band", "Chorus", "Easy Listening", "Acoustic",
    "Humour", "Speech", "Chanson", "Opera", "Chamber Music", "Sonata", "Symphony", "Booty Bass", "Primus",
    "Porn Groove", "Satire", "Slow Jam", "Club", "Tango", "Samba", "Folklore", "Ballad", "Power Ballad",
    "Rhythmic Soul", "Freestyle", "Duet", "Punk Rock", "Drum Solo", "A Cappella", "Euro-House",
    "Dance Hall", "Goa", "Drum & Bass", "Club-House", "Hardcore", "Terror", "Indie", "BritPop", "Afro-Punk",
    "Polsk Punk", "Beat", "Christian Gangsta Rap", "Heavy Metal", "Black Metal", "Crossover",
    "Contemporary Christian", "Christian Rock", "Merengue", "Salsa", "Thrash Metal", "Anime", "JPop",
    "Synthpop", "Abstract", "Art Rock", "Baroque", "Bhangra", "Big Beat", "Breakbeat", "Chillout",
    "Downtempo", "Dub", "EBM", "Eclectic", "Electro", "Electroclash", "Emo", "Experimental", "Garage",
    "Global", "IDM", "Illbient", "Industro-Goth", "Jam Band", "Krautrock", "Leftfield", "Lounge",
    "Math Rock", "New Romantic", "Nu-Breakz", "Post-Punk", "Post-Rock", "Psytrance", "Shoegaze",
    "Space Rock", "Trop Rock", "World Music", "Neoclassical", "Audiobook", "Audio Theatre",
    "Neue Deutsche Welle", "Podcast", "Indie Rock", "G-Funk", "Dubstep", "Garage Rock", "Psybient",
};

// clang-format on

struct Reference {
    std::optional<ID3Genre> number;
    std::string_view name; ///< empty for a number that the list does not have
};

std::optional<Reference> reference(std::string_view text) {
    if (text == "RX") return Reference{std::nullopt, "Remix"};
    if (text == "CR") return Reference{std::nullopt, "Cover"};
    unsigned number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || stop != text.data() + text.size() || number > 255) return std::nullopt;
    const auto genre = static_cast<ID3Genre>(number);
    return Reference{genre, genreName(genre)};
}

/// Collects the genres of a frame in order, each once.
struct Collector {
    ID3FrameGenre genre;
    std::vector<std::string_view> pieces;
    std::unordered_set<std::string_view> known;

    void add(std::string_view piece) {
        if (!piece.empty() && known.insert(piece).second) pieces.push_back(piece);
    }

    void addReference(const Reference& found) {
        if (found.number && !genre.identifier) genre.identifier = found.number;
        add(found.name);
    }

    void addValue(std::string_view text) {
        if (const auto bare = reference(text); bare && bare->name != "") return addReference(*bare);
        std::optional<Reference> last;
        while (text.starts_with('(') && !text.starts_with("((")) {
            const auto close = text.find(')');
            const auto found = close == text.npos ? std::nullopt : reference(text.substr(1, close - 1));
            if (!found) break;
            if (last) addReference(*last);
            last = found;
            text.remove_prefix(close + 1);
        }
        if (text.starts_with("((")) text.remove_prefix(1);
        // A text after a number refines it and replaces it.
        if (last && text.empty()) return addReference(*last);
        if (last && last->number && !genre.identifier) genre.identifier = last->number;
        add(text);
    }
};

} // namespace

std::string_view genreName(ID3Genre genre) {
    const auto number = static_cast<std::size_t>(genre);
    return number < names.size() ? names[number] : std::string_view();
}

std::string namedGenre(std::string text) {
    const auto found = reference(text);
    return found && !found->name.empty() ? std::string(found->name) : text;
}

ID3FrameGenre genreOf(const std::vector<std::string>& values) {
    Collector collector;
    for (const std::string& value : values)
        collector.addValue(value);
    std::string description;
    for (const std::string_view piece : collector.pieces) {
        if (!description.empty()) description += genreSeparator;
        description += piece;
    }
    // An empty frame is a genre too: an empty text. Only a number without a name leaves none.
    if (!description.empty() || !collector.genre.identifier)
        collector.genre.description = std::move(description);
    return collector.genre;
}

std::string genreText(const ID3FrameGenre& genre, ID3Version version) {
    const std::string description = genre.description.value_or("");
    if (!genre.identifier)
        return description.starts_with('(') && version != ID3Version::version4 ? "(" + description
                                                                               : description;
    const std::string number = std::to_string(static_cast<unsigned>(*genre.identifier));
    if (version == ID3Version::version4) {
        if (description.empty() || description == genreName(*genre.identifier)) return number;
        return number + '\0' + description;
    }
    // The name of the number itself is not a refinement.
    return "(" + number + ")" + (description == genreName(*genre.identifier) ? "" : description);
}

} // namespace velto::id3
