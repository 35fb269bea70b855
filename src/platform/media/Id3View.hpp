#pragma once

#include "platform/media/FileReader.hpp"

#include <optional>

namespace velto::media {

struct Id3View {
    /// A tag with the frames of the one in the file: no extended header, no padding, no whole-tag
    /// unsynchronisation. Empty where no frame is left.
    std::string bytes;
    /// What the tag takes in the file with header and footer, never beyond its limit.
    std::uint64_t sizeInFile = 0;
};

/// What a view holds. Reading wants the text frames, up to a total that no real ones reach. Writing a tag
/// anew wants every frame; one too large to be held is refused.
enum class Id3Content { texts, everything };

/// The ID3v2 tag that begins at `offset` and may reach to `end`, in a form that TagLib reads rightly: it
/// counts a version 2.3 extended header four bytes short and then takes its remains for padding. Absent where
/// no tag begins there.
[[nodiscard]] std::optional<Id3View> id3ViewAt(FileReader& reader, std::uint64_t offset, std::uint64_t end,
                                               Id3Content content = Id3Content::texts);

} // namespace velto::media
