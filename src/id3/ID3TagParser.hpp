#pragma once

#include "id3/ID3Tag.hpp"

#include <optional>
#include <string_view>

namespace velto::id3 {

struct ID3TagVersionParser {
    /// The major version byte where it is 2, 3 or 4; nothing for less than 4 bytes.
    [[nodiscard]] static std::optional<ID3Version> parse(ByteView data);
};

struct ID3TagPresence {
    /// Whether `data` begins with the five header bytes of `version`.
    [[nodiscard]] static bool isPresent(ByteView data, std::optional<ID3Version> version);
};

struct ID3TagSizeParser {
    /// The declared bytes behind the header, of data that holds a whole header.
    [[nodiscard]] static std::uint32_t parse(ByteView data);
};

struct ID3TagParser {
    /// The tag that `data` (header, frames, anything behind) begins with; nothing where there is none. Throws
    /// corruptedFile where the data is shorter than the tag says. Time and memory are linear in the tag.
    [[nodiscard]] static std::optional<ID3Tag> parse(ByteView data);
};

/// Walks the frames of a tag body (undone from tag-wide unsynchronisation, extended header skipped) and puts
/// the known ones into `tag`. Padding, or bytes that are no frame, end the walk; unknown and empty frames are
/// passed over. Compressed frames are inflated, in all to 64 MiB a tag; a known frame beyond that, a broken
/// or an encrypted one puts its kind among the tag's unreadable ones.
struct ID3FramesParser {
    static void parse(ByteView body, bool everyFrameUnsynchronised, ID3Tag& tag);
};

/// One frame's content to its value, by the frame's kind; the first frame of a name wins. Content that makes
/// no sense for its kind is left out.
struct ID3FrameParser {
    static void parse(std::string_view identifier, ByteView content, ID3Tag& tag);
};

/// Takes out the zero byte that stands behind every 0xFF.
[[nodiscard]] Bytes undoUnsynchronisation(ByteView bytes);

} // namespace velto::id3
