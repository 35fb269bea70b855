#include "media/Id3Items.hpp"

#include "id3/FrameIdentifiers.hpp"
#include "id3/ID3Genre.hpp"
#include "id3/TextEncoding.hpp"

#include <algorithm>
#include <iterator>
#include <set>

namespace velto::media {

namespace {

constexpr std::string_view described = "TXXX";

/// Of all frames of a tag together. A compressed frame counts as much as it could hold.
constexpr std::size_t maximumContent = 4 * 1024 * 1024;

struct Kind {
    std::string_view key;
    std::optional<Meaning> meaning;
};

/// What a frame is, whatever version its name is from; both ways to give a year count as one.
Kind kindOf(const id3::FrameHeader& header) {
    const std::string_view identifier = header.identifier();
    if (identifier == "TXX") return {described, std::nullopt};
    const id3::FrameDescription* known = id3::frameDescription(identifier);
    if (known == nullptr) return {identifier, std::nullopt};
    switch (known->kind) {
    case id3::FrameName::artist:
        return {known->identifier4, Meaning::artist};
    case id3::FrameName::title:
        return {known->identifier4, Meaning::title};
    case id3::FrameName::album:
        return {known->identifier4, Meaning::album};
    case id3::FrameName::genre:
        return {known->identifier4, Meaning::genre};
    case id3::FrameName::trackPosition:
        return {known->identifier4, Meaning::track};
    case id3::FrameName::recordingYear:
    case id3::FrameName::recordingDateTime:
        return {"TDRC", Meaning::date};
    default:
        return {identifier, std::nullopt};
    }
}

struct FrameText {
    std::string description; ///< of a frame that has one
    id3::TextValues text;
};

std::optional<FrameText> textOf(const Id3Frames& tag, const Id3Frame& frame, std::string_view key) {
    if (!key.starts_with('T')) return std::nullopt;
    id3::FrameContents contents(tag.header, maximumTextSize);
    const auto content = contents.content(frame.content, frame.header.format);
    if (!content || content->empty()) return std::nullopt;
    if (key != described) return FrameText{{}, id3::textValues(*content, tag.version())};
    const id3::TextForm form = id3::textForm(content->front(), tag.version());
    const auto [description, rest] = text::splitAtTerminator(id3::asText(content->subspan(1)), form);
    return FrameText{text::toUtf8(description, form), {form, text::terminatedTexts(rest, form)}};
}

MetadataItem makeFrameItem(std::string_view key, std::optional<Meaning> meaning) {
    MetadataItem item = makeItem(key_space::id3, key, meaning);
    if (meaning == Meaning::genre) item.identifier = identifier::id3ContentType;
    return item;
}

} // namespace

void appendItems(std::vector<MetadataItem>& items, const Id3Frames& tag, Genre genre) {
    std::set<std::string_view> seen;
    std::vector<std::string> genres;
    std::optional<std::size_t> genreItem;
    std::size_t room = maximumContent;
    for (const Id3Frame& frame : tag.frames) {
        const auto [key, meaning] = kindOf(frame.header);
        const bool isGenre = meaning == Meaning::genre;
        if (isGenre && genre == Genre::leftOut) continue;
        const bool mayRepeat = isGenre || key == described;
        if (!mayRepeat && seen.contains(key)) continue;
        const bool isCompressed = id3::FrameContents(tag.header, 0).isCompressed(frame.header.format);
        const std::size_t cost = isCompressed ? maximumTextSize : frame.content.size();
        if (cost > room) break;
        room -= cost;
        auto found = textOf(tag, frame, key);
        if (!found || found->text.values.empty()) continue;
        if (isGenre) {
            std::move(found->text.values.begin(), found->text.values.end(), std::back_inserter(genres));
            if (genreItem) continue;
            genreItem = items.size();
        }
        seen.insert(key);
        MetadataItem item = makeFrameItem(key, meaning);
        if (key == described) item.description = found->description;
        if (!isGenre) setText(item, found->text.joined());
        items.push_back(std::move(item));
    }
    if (!genreItem) return;
    const id3::ID3FrameGenre value = id3::genreOf(genres);
    // A number that has no name is shown as it is.
    setText(items[*genreItem], value.description  ? *value.description
                               : value.identifier ? std::to_string(static_cast<unsigned>(*value.identifier))
                                                  : std::string());
}

MetadataItem itemOfFrame(const Id3Frames& tag, const Id3Frame& frame) {
    const auto [key, meaning] = kindOf(frame.header);
    MetadataItem item = makeFrameItem(key, meaning);
    item.value = Binary{};
    if (const auto found = textOf(tag, frame, key)) {
        if (key == described) item.description = found->description;
        setText(item, found->text.joined());
    }
    return item;
}

} // namespace velto::media
