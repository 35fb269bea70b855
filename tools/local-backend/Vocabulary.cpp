#include "Vocabulary.hpp"

namespace velto::local {

namespace {

using Name = std::string_view;

// Some names hold characters that also separate names in a genre text; that is meant.
constexpr Name house[] = {"House",      "Deep House", "Tech House", "Progressive House",
                          "Acid House", "Afro House", "Nu-Disco",   "Garage/2-Step"};
constexpr Name techno[] = {"Techno",    "Minimal", "Detroit Techno", "Trance",
                           "Psytrance", "Electro", "Hard Techno"};
constexpr Name breaks[] = {"Drum & Bass", "Jungle", "Dubstep", "Breakbeat", "Trip-Hop", "Future Bass"};
constexpr Name downtempo[] = {"Ambient", "Downtempo", "Chill-Out", "Lo-Fi", "Synth-Pop", "Electronic"};
constexpr Name urban[] = {"Hip-Hop", "Trap", "Boom Bap", "R&B/Soul", "Neo-Soul", "Grime"};
constexpr Name groove[] = {"Funk", "Disco", "Boogie", "Soul", "Motown/Northern Soul", "Gospel"};
constexpr Name jazz[] = {"Jazz", "Latin Jazz", "Afro-Cuban Jazz", "Jazz-Funk", "Blues", "Swing/Big Band"};
constexpr Name latin[] = {"Salsa", "Reggaeton", "Cumbia", "Bossa Nova", "Samba", "Merengue"};
constexpr Name island[] = {"Reggae", "Dub", "Dancehall", "Ska", "Soca/Calypso"};
constexpr Name african[] = {"Afrobeat", "Afrobeats", "Amapiano", "Highlife", "Kizomba"};
constexpr Name rock[] = {"Rock", "Indie Rock", "Post-Punk", "Punk", "Metal", "Folk", "Country"};
constexpr Name pop[] = {"Pop", "Dance-Pop", "K-Pop/J-Pop", "Singer-Songwriter"};

constexpr GenreFamily families[] = {
    {"House", house},   {"Techno", techno},   {"Breaks", breaks}, {"Downtempo", downtempo},
    {"Urban", urban},   {"Groove", groove},   {"Jazz", jazz},     {"Latin", latin},
    {"Island", island}, {"African", african}, {"Rock", rock},     {"Pop", pop},
};

constexpr Name regionNames[] = {
    "North America",   "Latin America",   "Caribbean",      "United Kingdom",  "Western Europe",
    "Northern Europe", "Southern Europe", "Eastern Europe", "Balkans",         "Middle East",
    "North Africa",    "West Africa",     "East Africa",    "Southern Africa", "South Asia",
    "Southeast Asia",  "East Asia",       "Central Asia",   "Oceania",         "Asia/Pacific",
};

constexpr Name eraNames[] = {"1950s", "1960s", "1970s", "1980s", "1990s", "2000s", "2010s", "2020s"};

constexpr GenreRule genreWords[] = {
    {"drum and bass", "Drum & Bass"},
    {"drum & bass", "Drum & Bass"},
    {"dnb", "Drum & Bass"},
    {"deep house", "Deep House"},
    {"tech house", "Tech House"},
    {"afro house", "Afro House"},
    {"bossa nova", "Bossa Nova"},
    {"bossa", "Bossa Nova"},
    {"hip hop", "Hip-Hop"},
    {"hip-hop", "Hip-Hop"},
    {"trip hop", "Trip-Hop"},
    {"lo-fi", "Lo-Fi"},
    {"lofi", "Lo-Fi"},
    {"2-step", "Garage/2-Step"},
    {"garage", "Garage/2-Step"},
    {"acid", "Acid House"},
    {"jungle", "Jungle"},
    {"dubstep", "Dubstep"},
    {"amapiano", "Amapiano"},
    {"afrobeat", "Afrobeat"},
    {"techno", "Techno"},
    {"trance", "Trance"},
    {"house", "House"},
    {"electro", "Electro"},
    {"ambient", "Ambient"},
    {"disco", "Disco"},
    {"boogie", "Boogie"},
    {"funk", "Funk"},
    {"funky", "Funk"},
    {"soul", "Soul"},
    {"gospel", "Gospel"},
    {"rap", "Hip-Hop"},
    {"mc", "Hip-Hop"},
    {"rhymes", "Hip-Hop"},
    {"mambo", "Afro-Cuban Jazz"},
    {"habana", "Afro-Cuban Jazz"},
    {"quartet", "Jazz"},
    {"trio", "Jazz"},
    {"jazz", "Jazz"},
    {"blues", "Blues"},
    {"swing", "Swing/Big Band"},
    {"orchestra", "Swing/Big Band"},
    {"salsa", "Salsa"},
    {"cumbia", "Cumbia"},
    {"samba", "Samba"},
    {"reggae", "Reggae"},
    {"riddim", "Dancehall"},
    {"dub", "Dub"},
    {"ska", "Ska"},
    {"punk", "Punk"},
    {"metal", "Metal"},
    {"acoustic", "Folk"},
    {"folk", "Folk"},
    {"country", "Country"},
    {"remix", "House"},
    {"extended mix", "House"},
    {"club mix", "House"},
    {"mix", "Electronic"},
    {"instrumental", "Downtempo"},
    {"chill", "Chill-Out"},
};

constexpr RegionRule regionWords[] = {
    {"london", "United Kingdom"},  {"bristol", "United Kingdom"},    {"berlin", "Western Europe"},
    {"paris", "Western Europe"},   {"stockholm", "Northern Europe"}, {"oslo", "Northern Europe"},
    {"ibiza", "Southern Europe"},  {"napoli", "Southern Europe"},    {"detroit", "North America"},
    {"chicago", "North America"},  {"brooklyn", "North America"},    {"habana", "Caribbean"},
    {"kingston", "Caribbean"},     {"rio", "Latin America"},         {"lima", "Latin America"},
    {"lagos", "West Africa"},      {"accra", "West Africa"},         {"dakar", "West Africa"},
    {"soweto", "Southern Africa"}, {"nairobi", "East Africa"},       {"cairo", "North Africa"},
    {"beirut", "Middle East"},     {"mumbai", "South Asia"},         {"tokyo", "East Asia"},
    {"seoul", "East Asia"},        {"manila", "Southeast Asia"},     {"sydney", "Oceania"},
};

} // namespace

std::span<const GenreFamily> genreFamilies() {
    return families;
}

std::span<const std::string_view> regions() {
    return regionNames;
}

std::span<const std::string_view> eras() {
    return eraNames;
}

std::span<const GenreRule> genreRules() {
    return genreWords;
}

std::span<const RegionRule> regionRules() {
    return regionWords;
}

} // namespace velto::local
