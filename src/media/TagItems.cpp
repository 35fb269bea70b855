#include "media/TagItems.hpp"

#include "id3/ID3Genre.hpp"
#include "platform/text/EncodedText.hpp"
#include "platform/text/Text.hpp"

#include <apetag.h>
#include <id3v1tag.h>
#include <infotag.h>
#include <mp4tag.h>
#include <xiphcomment.h>

#include <algorithm>
#include <charconv>
#include <span>

namespace velto::media {

namespace {

constexpr std::string_view valueSeparator = ", ";

struct Field {
    std::string_view key;
    Meaning meaning;
};

// The keys of each kind of tag. A date field after another counts only if that one is absent.
constexpr Field id3v1Fields[] = {{"artist", Meaning::artist}, {"title", Meaning::title},
                                 {"album", Meaning::album},   {"genre", Meaning::genre},
                                 {"year", Meaning::date},     {"track", Meaning::track}};
constexpr Field apeFields[] = {{"ARTIST", Meaning::artist}, {"TITLE", Meaning::title},
                               {"ALBUM", Meaning::album},   {"GENRE", Meaning::genre},
                               {"YEAR", Meaning::date},     {"TRACK", Meaning::track}};
constexpr Field vorbisFields[] = {{"ARTIST", Meaning::artist}, {"TITLE", Meaning::title},
                                  {"ALBUM", Meaning::album},   {"GENRE", Meaning::genre},
                                  {"DATE", Meaning::date},     {"TRACKNUMBER", Meaning::track}};
constexpr Field infoFields[] = {{"IART", Meaning::artist}, {"INAM", Meaning::title}, {"IPRD", Meaning::album},
                                {"IGNR", Meaning::genre},  {"ICRD", Meaning::date},  {"IPRT", Meaning::track},
                                {"ITRK", Meaning::track}};
constexpr Field iTunesFields[] = {{"©ART", Meaning::artist}, {"©nam", Meaning::title},
                                  {"©alb", Meaning::album},  {"©gen", Meaning::genre},
                                  {"©day", Meaning::date},   {"trkn", Meaning::track}};
constexpr Field userDataFields[] = {{"©ART", Meaning::artist},
                                    {"©nam", Meaning::title},
                                    {"©alb", Meaning::album},
                                    {"©gen", Meaning::genre},
                                    {"©day", Meaning::date}};
constexpr Field quickTimeFields[] = {{"com.apple.quicktime.artist", Meaning::artist},
                                     {"com.apple.quicktime.title", Meaning::title},
                                     {"com.apple.quicktime.album", Meaning::album},
                                     {"com.apple.quicktime.genre", Meaning::genre},
                                     {"com.apple.quicktime.creationdate", Meaning::date}};
constexpr Field aiffFields[] = {{"AUTH", Meaning::artist}, {"NAME", Meaning::title}};

std::optional<Meaning> meaningOf(std::span<const Field> fields, std::string_view key) {
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const Field& f) { return f.key == key; });
    return found == fields.end() ? std::nullopt : std::optional(found->meaning);
}

/// "3" and "3/12" give 3; nothing if no number leads.
std::optional<std::int64_t> leadingNumber(std::string_view text) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} ? std::optional(number) : std::nullopt;
}

void appendText(std::vector<MetadataItem>& items, MetadataItem item, std::string text) {
    if (text.empty()) return;
    setText(item, std::move(text));
    items.push_back(std::move(item));
}

bool isGenre(const MetadataItem& item) {
    return item.commonKey == common_key::type;
}

MetadataItem makeAtomItem(std::string_view key) {
    MetadataItem item = makeItem(key_space::iTunes, key, meaningOf(iTunesFields, key));
    constexpr std::string_view copyright = "©";
    if (key.starts_with(copyright)) item.identifier = "itsk/%A9" + std::string(key.substr(copyright.size()));
    return item;
}

void setNumber(MetadataItem& item, std::int64_t number) {
    item.value = number;
    if (number != 0) item.numberValue = number;
}

std::string joined(const TagLib::StringList& values, bool genres) {
    DistinctTexts texts(genres ? genreSeparator : valueSeparator);
    for (const TagLib::String& value : values) {
        if (texts.isFull()) break;
        texts.add(genres ? id3::namedGenre(utf8(value)) : utf8(value));
    }
    return texts.text();
}

} // namespace

MetadataItem makeItem(std::string_view keySpace, std::string_view key, std::optional<Meaning> meaning) {
    MetadataItem item;
    item.keySpace = keySpace;
    item.key = key;
    item.identifier = std::string(keySpace) + "/" + std::string(key);
    item.description = key;
    if (!meaning) return item;
    switch (*meaning) {
    case Meaning::artist:
        item.commonKey = common_key::artist;
        break;
    case Meaning::title:
        item.commonKey = common_key::title;
        break;
    case Meaning::album:
        item.commonKey = common_key::albumName;
        break;
    case Meaning::date:
        item.commonKey = common_key::creationDate;
        break;
    case Meaning::genre:
        item.commonKey = common_key::type;
        item.description = "genre";
        break;
    case Meaning::track:
        item.identifier = std::string(keySpace) + "/trackNumber";
        break;
    }
    return item;
}

void setText(MetadataItem& item, std::string text) {
    if (text.size() > maximumTextSize) {
        std::size_t end = maximumTextSize;
        while (end > 0 && (text[end] & 0xC0) == 0x80)
            --end;
        text.resize(end);
    }
    item.numberValue = leadingNumber(text);
    item.value = std::move(text);
}

void DistinctTexts::add(std::string text) {
    if (text.empty() || isFull() || !seen_.insert(text).second) return;
    if (!text_.empty()) text_ += separator_;
    text_ += text;
}

std::string utf8(const TagLib::String& text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (auto it = text.begin(); it != text.end(); ++it) {
        auto c = static_cast<char32_t>(*it);
        const auto next = std::next(it);
        if (c >= 0xD800 && c < 0xDC00 && next != text.end() && *next >= 0xDC00 && *next < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(*next) - 0xDC00);
            it = next;
        }
        if (c != 0) text::appendUtf8(bytes, c);
    }
    return bytes;
}

void appendItems(std::vector<MetadataItem>& items, const TagLib::ID3v1::Tag& tag, Genre genre) {
    const TagLib::String texts[] = {
        tag.artist(),
        tag.title(),
        tag.album(),
        tag.genre(),
        tag.year() == 0 ? TagLib::String() : TagLib::String::number(static_cast<int>(tag.year())),
        tag.track() == 0 ? TagLib::String() : TagLib::String::number(static_cast<int>(tag.track()))};
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        const Field& field = id3v1Fields[i];
        if (field.meaning == Meaning::genre && genre == Genre::leftOut) continue;
        appendText(items, makeItem(key_space::id3v1, field.key, field.meaning), utf8(texts[i]));
    }
}

void appendItems(std::vector<MetadataItem>& items, const TagLib::APE::Tag& tag, Genre genre) {
    for (const auto& [name, value] : tag.itemListMap()) {
        const std::string key = utf8(name);
        MetadataItem item = makeItem(key_space::ape, key, meaningOf(apeFields, key));
        if (isGenre(item) && genre == Genre::leftOut) continue;
        if (value.type() == TagLib::APE::Item::Text) {
            const bool genres = isGenre(item);
            appendText(items, std::move(item), joined(value.values(), genres));
        } else {
            item.value = Binary{};
            items.push_back(std::move(item));
        }
    }
}

void appendItems(std::vector<MetadataItem>& items, const TagLib::Ogg::XiphComment& tag) {
    for (const auto& [name, values] : tag.fieldListMap()) {
        const std::string key = utf8(name);
        std::optional<Meaning> meaning = meaningOf(vorbisFields, key);
        if (key == "YEAR" && !tag.contains("DATE")) meaning = Meaning::date;
        MetadataItem item = makeItem(key_space::vorbis, key, meaning);
        const bool genres = isGenre(item);
        appendText(items, std::move(item), joined(values, genres));
    }
}

void appendItems(std::vector<MetadataItem>& items, const TagLib::RIFF::Info::Tag& tag, Genre genre) {
    for (const auto& [name, value] : tag.fieldListMap()) {
        const std::string_view key(name.data(), name.size());
        MetadataItem item = makeItem(key_space::riffInfo, key, meaningOf(infoFields, key));
        if (isGenre(item) && genre == Genre::leftOut) continue;
        appendText(items, std::move(item), utf8(value));
    }
}

void appendAtomText(std::vector<MetadataItem>& items, std::string_view key, std::string text) {
    MetadataItem item = makeAtomItem(key);
    if (isGenre(item)) text = id3::namedGenre(std::move(text));
    appendText(items, std::move(item), std::move(text));
}

void appendTrackNumber(std::vector<MetadataItem>& items, std::int64_t number) {
    MetadataItem item = makeAtomItem("trkn");
    setNumber(item, number);
    items.push_back(std::move(item));
}

MetadataItem itemOfAtom(const TagLib::String& name, const TagLib::MP4::Item& atom) {
    constexpr std::string_view freeForm = "----:";
    std::string key = utf8(name);
    if (key.starts_with(freeForm)) {
        key.erase(0, freeForm.size());
        std::replace(key.begin(), key.end(), ':', '.');
        MetadataItem item = makeItem("itlk", key, std::nullopt);
        const std::string text = joined(atom.toStringList(), false);
        if (text.empty())
            item.value = Binary{};
        else
            setText(item, text);
        return item;
    }
    MetadataItem item = makeAtomItem(key);
    const TagLib::StringList texts = atom.toStringList();
    if (!texts.isEmpty()) {
        setText(item, joined(texts, isGenre(item)));
    } else if (key == "trkn" || key == "disk") {
        setNumber(item, atom.toIntPair().first);
    } else {
        item.value = Binary{};
    }
    return item;
}

MetadataItem itemOfUserData(std::string_view key, std::string text) {
    MetadataItem item = makeItem(key_space::userData, key, meaningOf(userDataFields, key));
    setText(item, std::move(text));
    return item;
}

MetadataItem itemOfQuickTimeKey(std::string_view key, std::optional<std::string> text) {
    MetadataItem item = makeItem(key_space::quickTimeMetadata, key, meaningOf(quickTimeFields, key));
    if (text)
        setText(item, *std::move(text));
    else
        item.value = Binary{};
    return item;
}

void appendItems(std::vector<MetadataItem>& items, const TagLib::MP4::Tag& tag) {
    for (const auto& [name, atom] : tag.itemMap()) {
        MetadataItem item = itemOfAtom(name, atom);
        if (item.text() == nullptr || !item.text()->empty()) items.push_back(std::move(item));
    }
}

void appendAiffText(std::vector<MetadataItem>& items, std::string_view chunk, std::string_view bytes) {
    std::string text = text::toUtf8OrLatin1(bytes);
    std::erase(text, '\0');
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    appendText(items, makeItem(key_space::aiffText, chunk, meaningOf(aiffFields, chunk)), std::move(text));
}

} // namespace velto::media
