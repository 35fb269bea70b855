#include "media/Id3Items.hpp"

#include "platform/text/EncodedText.hpp"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <set>
#include <tuple>

namespace velto::media {

namespace {

constexpr std::string_view valueSeparator = "/"; // the standard's own of version 2.3
constexpr std::string_view described = "TXXX";

/// Of all frames of a tag together. A compressed frame counts as much as it could hold.
constexpr std::size_t maximumContent = 4 * 1024 * 1024;

struct FrameName {
    std::string_view name;
    std::string_view inVersion2;
    std::string_view inVersion4;
    std::optional<Meaning> meaning;
};

constexpr FrameName names[] = {
    {"TPE1", "TP1", "TPE1", Meaning::artist}, {"TIT2", "TT2", "TIT2", Meaning::title},
    {"TALB", "TAL", "TALB", Meaning::album},  {"TCON", "TCO", "TCON", Meaning::genre},
    {"TDRC", "TDRC", "TDRC", Meaning::date},  {"TYER", "TYE", "TDRC", Meaning::date},
    {"TRCK", "TRK", "TRCK", Meaning::track},  {described, "TXX", described, std::nullopt},
};

/// Without what fills up a name of version 2.2 in a later tag.
std::string_view nameOf(const Id3Frame& frame) {
    std::string_view name = frame.name;
    if (name.ends_with('\0') || name.ends_with(' ')) name.remove_suffix(1);
    return name;
}

const FrameName* known(std::string_view name) {
    const auto found = std::find_if(std::begin(names), std::end(names), [&](const FrameName& each) {
        return each.name == name || each.inVersion2 == name;
    });
    return found == std::end(names) ? nullptr : found;
}

text::Encoding encodingOf(char byte, unsigned version) {
    switch (byte) {
    case 0:
        return text::Encoding::latin1;
    case 1:
        return text::Encoding::utf16;
    case 2:
        return text::Encoding::utf16BigEndian;
    case 3:
        return text::Encoding::utf8;
    default:
        return version == 4 ? text::Encoding::utf8 : text::Encoding::latin1;
    }
}

std::string joined(const std::vector<std::string>& values) {
    std::string all;
    for (const std::string& value : values) {
        if (!all.empty()) all += valueSeparator;
        all += value;
    }
    return all;
}

bool isGenreReference(std::string_view text) {
    if (text == "RX" || text == "CR") return true;
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() && number <= 255;
}

/// A value such as "(17)", "(4)(RX)", "(17)Refinement", "((text" or a free text. A text behind a number
/// refines it and stands in its place.
void addGenres(DistinctTexts& genres, std::string_view value) {
    std::string last;
    while (value.starts_with('(') && !value.starts_with("((")) {
        const auto close = value.find(')');
        if (close == value.npos || !isGenreReference(value.substr(1, close - 1))) break;
        genres.add(last);
        last = genreName(std::string(value.substr(1, close - 1)));
        value.remove_prefix(close + 1);
    }
    if (value.starts_with("((")) value.remove_prefix(1);
    genres.add(value.empty() ? last : genreName(std::string(value)));
}

struct FrameText {
    std::string description; ///< of a frame that has one
    std::vector<std::string> values;
};

std::optional<FrameText> textOf(const Id3Frames& tag, const Id3Frame& frame, std::string_view key) {
    if (!key.starts_with('T')) return std::nullopt;
    const auto content = readableContent(tag, frame);
    if (!content || content->empty()) return std::nullopt;
    FrameText text;
    const text::Encoding encoding = encodingOf(content->front(), tag.version);
    std::string_view rest = std::string_view(*content).substr(1);
    if (key == described) {
        std::string_view description;
        std::tie(description, rest) = text::splitAtTerminator(rest, encoding);
        text.description = text::toUtf8(description, encoding);
    }
    text.values = text::terminatedTexts(rest, encoding);
    return text;
}

MetadataItem makeFrameItem(std::string_view key, std::optional<Meaning> meaning) {
    MetadataItem item = makeItem(key_space::id3, key, meaning);
    if (meaning == Meaning::genre) item.identifier = identifier::id3ContentType;
    return item;
}

} // namespace

void appendItems(std::vector<MetadataItem>& items, const Id3Frames& tag, Genre genre) {
    std::set<std::string_view> seen;
    DistinctTexts genres(genreSeparator);
    std::size_t genreItem = 0;
    std::size_t room = maximumContent;
    for (const Id3Frame& frame : tag.frames) {
        const FrameName* name = known(nameOf(frame));
        const std::string_view key = name != nullptr ? name->inVersion4 : nameOf(frame);
        const bool isGenre = name != nullptr && name->meaning == Meaning::genre;
        if (isGenre && genre == Genre::leftOut) continue;
        const bool mayRepeat = isGenre || key == described;
        if (!mayRepeat && seen.contains(key)) continue;
        const std::size_t cost = isCompressed(tag, frame) ? maximumTextSize : frame.content.size();
        if (cost > room) break;
        room -= cost;
        const auto text = textOf(tag, frame, key);
        if (!text || text->values.empty()) continue;
        if (isGenre)
            for (const std::string& value : text->values)
                addGenres(genres, value);
        if (!seen.insert(key).second && isGenre) continue;
        MetadataItem item = makeFrameItem(key, name != nullptr ? name->meaning : std::nullopt);
        if (key == described) item.description = text->description;
        if (isGenre)
            genreItem = items.size();
        else
            setText(item, joined(text->values));
        items.push_back(std::move(item));
    }
    if (!genres.text().empty()) setText(items[genreItem], genres.text());
}

MetadataItem itemOfFrame(const Id3Frames& tag, const Id3Frame& frame) {
    const FrameName* name = known(nameOf(frame));
    const std::string_view key = name != nullptr ? name->inVersion4 : nameOf(frame);
    MetadataItem item = makeFrameItem(key, name != nullptr ? name->meaning : std::nullopt);
    item.value = Binary{};
    if (const auto text = textOf(tag, frame, key)) {
        if (key == described) item.description = text->description;
        setText(item, joined(text->values));
    }
    return item;
}

} // namespace velto::media
