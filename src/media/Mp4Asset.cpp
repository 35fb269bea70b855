#include "media/Containers.hpp"
#include "media/Mp4Atoms.hpp"
#include "media/QuickTimeItems.hpp"
#include "media/TagItems.hpp"
#include "media/TagLibStreams.hpp"
#include "platform/text/Text.hpp"

#include <mp4file.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <optional>

namespace velto::media {

namespace {

constexpr std::string_view plainTexts[] = {"\xA9"
                                           "nam",
                                           "\xA9"
                                           "ART",
                                           "\xA9"
                                           "alb",
                                           "\xA9"
                                           "gen",
                                           "\xA9"
                                           "day",
                                           "\xA9"
                                           "too",
                                           "\xA9"
                                           "wrt",
                                           "\xA9"
                                           "cmt",
                                           "aART"};

int count(const AtomTree& tree, std::initializer_list<std::string_view> path) {
    return static_cast<int>(std::count_if(tree.atoms.begin(), tree.atoms.end(),
                                          [&](const Atom& atom) { return tree.isAt(atom, path); }));
}

const Atom& atomAt(const AtomTree& tree, std::initializer_list<std::string_view> path) {
    return tree.atoms[static_cast<std::size_t>(tree.find(path))];
}

/// To the millisecond, if the file has one track and it is sound.
std::optional<double> plainDuration(FileReader& reader, const AtomTree& tree) {
    if (count(tree, {"moov", "trak"}) != 1 || count(tree, {"moov", "trak", "mdia", "hdlr"}) != 1 ||
        count(tree, {"moov", "trak", "mdia", "mdhd"}) != 1)
        return std::nullopt;
    if (reader.at(atomAt(tree, {"moov", "trak", "mdia", "hdlr"}).content + 8, 4) != "soun")
        return std::nullopt;
    const std::string_view header = reader.at(atomAt(tree, {"moov", "trak", "mdia", "mdhd"}).content, 20);
    const std::uint32_t unit = bigEndian32(header, 12);
    const std::uint32_t length = bigEndian32(header, 16);
    if (header.size() < 20 || header[0] != 0 || unit == 0 || length == 0) return std::nullopt;
    const double milliseconds = std::floor(length * 1000.0 / unit + 0.5);
    return milliseconds >= 1 && milliseconds < 1e9 ? std::optional(milliseconds / 1000) : std::nullopt;
}

/// The content of an entry's only "data" atom, of this type.
std::optional<std::string> onlyData(FileReader& reader, const Atom& entry, std::uint32_t type) {
    constexpr std::uint64_t header = 16;
    constexpr std::uint64_t maximumText = 8 * 1024;
    const std::uint64_t size = entry.end - entry.content;
    if (size < header || size > maximumText) return std::nullopt;
    const std::string data(reader.at(entry.content, static_cast<std::size_t>(size)));
    if (data.size() != size || bigEndian32(data) != size || data.compare(4, 4, "data") != 0 ||
        bigEndian32(data, 8) != type)
        return std::nullopt;
    return data.substr(header);
}

/// What TagLib would read of a tag list that holds texts and a track number and nothing else, each once; in
/// its order, that of the names.
std::optional<std::vector<MetadataItem>> plainItems(FileReader& reader, const AtomTree& tree) {
    std::map<std::string, const Atom*> entries;
    if (count(tree, {"moov", "udta"}) > 1 || count(tree, {"moov", "udta", "meta"}) > 1 ||
        count(tree, {"moov", "udta", "meta", "ilst"}) > 1)
        return std::nullopt;
    const int list = tree.find({"moov", "udta", "meta", "ilst"});
    for (const Atom& atom : tree.atoms)
        if (list >= 0 && atom.parent == list && !entries.emplace(reader.at(atom.offset + 4, 4), &atom).second)
            return std::nullopt;
    std::vector<MetadataItem> items;
    items.reserve(entries.size());
    for (const auto& [name, atom] : entries) {
        if (name == "trkn") {
            const auto pair = onlyData(reader, *atom, 0);
            if (!pair || pair->size() != 8 || (*pair)[2] != 0) return std::nullopt;
            appendTrackNumber(items, static_cast<std::int64_t>(bigEndian(*pair, 2, 2)));
            continue;
        }
        const bool isPlain =
            std::find(std::begin(plainTexts), std::end(plainTexts), name) != std::end(plainTexts);
        auto text = isPlain ? onlyData(reader, *atom, 1) : std::nullopt;
        if (!text || text->find('\0') != std::string::npos || !text::isValidUtf8(*text)) return std::nullopt;
        appendAtomText(items, name.front() == '\xA9' ? "©" + name.substr(1) : name, *std::move(text));
    }
    return items;
}

} // namespace

Asset openMp4(FileReader& reader) {
    const AtomTree tree = atomsOf(reader);
    if (tree.find({"moov"}) < 0) reader.fail(MediaError::Case::damaged, "its description is missing");
    Asset asset{{}, std::numeric_limits<double>::quiet_NaN()};
    for (QuickTimeItem& each : quickTimeItems(reader, tree))
        asset.items.push_back(std::move(each.item));
    if (tree.consistent && count(tree, {"moov"}) == 1) {
        const auto duration = plainDuration(reader, tree);
        auto items = duration ? plainItems(reader, tree) : std::nullopt;
        if (items) {
            std::move(items->begin(), items->end(), std::back_inserter(asset.items));
            asset.durationSeconds = *duration;
            return asset;
        }
    }
    FileViewStream stream(reader);
    TagLib::MP4::File file(&stream, true);
    const auto* properties = file.audioProperties();
    if (!file.isValid() || properties == nullptr ||
        (properties->sampleRate() == 0 && properties->lengthInMilliseconds() == 0))
        reader.fail(MediaError::Case::notAudio, "it has no sound track");
    if (properties->lengthInMilliseconds() > 0)
        asset.durationSeconds = properties->lengthInMilliseconds() / 1000.0;
    if (file.tag() != nullptr) appendItems(asset.items, *file.tag());
    return asset;
}

} // namespace velto::media
