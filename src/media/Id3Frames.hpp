#pragma once

#include "id3/TagFrames.hpp"
#include "media/FileReader.hpp"

#include <optional>
#include <vector>

namespace velto::media {

struct Id3Frame {
    id3::FrameHeader header;
    id3::Bytes content; ///< as it is in the tag: id3::FrameContents undoes what the flags say
};

struct Id3Frames {
    id3::TagHeader header; ///< without a size if the tag is new
    std::vector<Id3Frame> frames;
    /// What the tag takes in the file with header and footer, never beyond its limit.
    std::uint64_t sizeInFile = 0;

    /// Not to be asked of a tag without frames, whose version may be any.
    [[nodiscard]] id3::ID3Version version() const { return static_cast<id3::ID3Version>(header.version); }
};

/// Which frames are wanted. Reading wants the text frames, up to a total that no real ones reach; all others,
/// such as pictures, are never read. Writing a tag anew wants every frame; one too large to be held is
/// refused.
enum class Id3Content { texts, everything };

/// The ID3v2 tag that begins at `offset` and may reach to `end`, without extended header and padding. Absent
/// if no tag begins there.
[[nodiscard]] std::optional<Id3Frames> id3FramesAt(FileReader& reader, std::uint64_t offset,
                                                   std::uint64_t end, Id3Content content = Id3Content::texts);

/// A tag of these frames, with its header and without padding; empty without frames.
[[nodiscard]] id3::Bytes renderedTag(const Id3Frames& tag);

} // namespace velto::media
