#include "platform/media/PlainId3.hpp"

#include "platform/media/FileReader.hpp"
#include "platform/media/TagItems.hpp"
#include "platform/text/Text.hpp"

#include <algorithm>
#include <iterator>
#include <string>

namespace velto::media {

namespace {

constexpr std::size_t tagHeader = 10;

struct FrameName {
    std::string_view inTag;
    std::string_view inVersion4;
};

// Text frames that are a text and nothing else. Those whose meaning hangs on other frames or that TagLib
// gives a type of their own (dates in parts, pairs, descriptions) are not among them.
constexpr FrameName version2[] = {{"TT2", "TIT2"}, {"TP1", "TPE1"}, {"TP2", "TPE2"}, {"TAL", "TALB"},
                                  {"TRK", "TRCK"}, {"TPA", "TPOS"}, {"TCO", "TCON"}, {"TYE", "TDRC"},
                                  {"TCM", "TCOM"}, {"TEN", "TENC"}, {"TSS", "TSSE"}, {"TBP", "TBPM"}};
constexpr std::string_view bothVersions[] = {"TIT2", "TPE1", "TALB", "TRCK", "TCON", "TPE2", "TPOS",
                                             "TCOM", "TSSE", "TENC", "TBPM", "TIT1", "TIT3", "TPE3",
                                             "TPE4", "TPUB", "TCOP", "TLEN", "TKEY", "TSRC", "TLAN"};

/// The frame's name in version 2.4; empty for one that is not plain.
std::string_view plainName(std::string_view name, unsigned version) {
    if (version == 2) {
        const auto found = std::find_if(std::begin(version2), std::end(version2),
                                        [&](const FrameName& frame) { return frame.inTag == name; });
        return found == std::end(version2) ? std::string_view() : found->inVersion4;
    }
    if (name == (version == 3 ? "TYER" : "TDRC")) return "TDRC";
    const auto found = std::find(std::begin(bothVersions), std::end(bothVersions), name);
    return found == std::end(bothVersions) ? std::string_view() : *found;
}

std::optional<std::string> fromLatin1(std::string_view bytes) {
    while (bytes.ends_with('\0'))
        bytes.remove_suffix(1);
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        if (c == '\0') return std::nullopt;
        appendUtf8(text, static_cast<unsigned char>(c));
    }
    return text;
}

std::optional<std::string> fromUtf8(std::string_view bytes) {
    while (bytes.ends_with('\0'))
        bytes.remove_suffix(1);
    if (bytes.find('\0') != std::string_view::npos || !text::isValidUtf8(bytes)) return std::nullopt;
    return std::string(bytes);
}

std::optional<std::string> fromUtf16(std::string_view bytes, bool isLittleEndian) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    while (bytes.ends_with(std::string_view("\0\0", 2)))
        bytes.remove_suffix(2);
    const auto unitAt = [&](std::size_t position) {
        const auto first = static_cast<unsigned char>(bytes[position]);
        const auto second = static_cast<unsigned char>(bytes[position + 1]);
        return static_cast<char32_t>(isLittleEndian ? second << 8 | first : first << 8 | second);
    };
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        const char32_t unit = unitAt(at);
        if (unit == 0) return std::nullopt;
        // Rare enough to be left to TagLib, as a second byte-order mark is.
        if ((unit >= 0xD800 && unit < 0xE000) || unit == 0xFEFF || unit == 0xFFFE) return std::nullopt;
        appendUtf8(text, unit);
    }
    return text;
}

/// The one value of a text frame in any of the four encodings.
std::optional<std::string> plainText(std::string_view content) {
    if (content.size() < 2) return std::nullopt;
    const char encoding = content.front();
    content.remove_prefix(1);
    switch (encoding) {
    case 0:
        return fromLatin1(content);
    case 1:
        if (content.starts_with("\xFF\xFE")) return fromUtf16(content.substr(2), true);
        if (content.starts_with("\xFE\xFF")) return fromUtf16(content.substr(2), false);
        return std::nullopt;
    case 2:
        return fromUtf16(content, false);
    case 3:
        return fromUtf8(content);
    default:
        return std::nullopt;
    }
}

/// Sizes in a view of version 2.4 are always synch-safe.
std::size_t frameSize(std::string_view frames, unsigned version) {
    if (version == 2) return static_cast<std::size_t>(bigEndian(frames, 3, 3));
    const std::uint32_t plain = bigEndian32(frames, 4);
    if (version == 3) return plain;
    return (plain & 0x7F) | (plain >> 1 & 0x3F80) | (plain >> 2 & 0x1FC000) | (plain >> 3 & 0xFE00000);
}

} // namespace

std::optional<std::vector<MetadataItem>> plainId3Items(std::string_view view) {
    if (view.size() <= tagHeader || view[5] != 0) return std::nullopt;
    const auto version = static_cast<unsigned char>(view[3]);
    const std::size_t nameSize = version == 2 ? 3 : 4;
    const std::size_t frameHeader = version == 2 ? 6 : 10;
    std::vector<MetadataItem> items;
    items.reserve(12);
    bool hasGenre = false;
    for (std::string_view frames = view.substr(tagHeader); !frames.empty();) {
        if (frames.size() < frameHeader) return std::nullopt;
        const std::string_view key = plainName(frames.substr(0, nameSize), version);
        const bool hasFlags = version != 2 && (frames[8] != 0 || frames[9] != 0);
        const std::size_t size = frameSize(frames, version);
        if (key.empty() || hasFlags || size > frames.size() - frameHeader) return std::nullopt;
        auto text = plainText(frames.substr(frameHeader, size));
        if (!text) return std::nullopt;
        if (key == "TCON") {
            // Several genres, or one by its number, are a small language of their own.
            if (hasGenre || text->find('(') != std::string::npos) return std::nullopt;
            hasGenre = true;
        }
        appendId3Text(items, key, *std::move(text));
        frames.remove_prefix(frameHeader + size);
    }
    return items;
}

} // namespace velto::media
