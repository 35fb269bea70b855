#pragma once

#include "media/FileReader.hpp"

#include <optional>
#include <vector>

namespace velto::media {

struct Id3Frame {
    std::string name;        ///< as it stands in the tag: three characters in version 2.2, and maybe
                             ///< filled up with a zero or a blank behind it
    std::uint8_t status = 0; ///< both flag bytes are 0 in version 2.2
    std::uint8_t format = 0;
    std::string content; ///< as it stands in the tag: see readableContent()
};

struct Id3Frames {
    unsigned version = 3;        ///< 2, 3 or 4
    bool unsynchronised = false; ///< each frame by itself, in version 2.4; a whole-tag scheme is undone
    std::vector<Id3Frame> frames;
    /// What the tag takes in the file with header and footer, never beyond its limit.
    std::uint64_t sizeInFile = 0;
};

/// Which frames are wanted. Reading wants the text frames, up to a total that no real ones reach. Writing a
/// tag anew wants every frame; one too large to be held is refused.
enum class Id3Content { texts, everything };

/// The ID3v2 tag that begins at `offset` and may reach to `end`, without extended header and padding. Absent
/// where no tag begins there.
[[nodiscard]] std::optional<Id3Frames> id3FramesAt(FileReader& reader, std::uint64_t offset,
                                                   std::uint64_t end, Id3Content content = Id3Content::texts);

/// A tag of these frames, with its header and without padding; empty without frames.
[[nodiscard]] std::string renderedTag(const Id3Frames& tag);

/// The content without what the frame's flags put in front of it or did to it: inflated, its
/// unsynchronisation undone. Absent where it is encrypted, broken or inflates to more than 64 KiB.
[[nodiscard]] std::optional<std::string> readableContent(const Id3Frames& tag, const Id3Frame& frame);

[[nodiscard]] bool isCompressed(const Id3Frames& tag, const Id3Frame& frame);

} // namespace velto::media
