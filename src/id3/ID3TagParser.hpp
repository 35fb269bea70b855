#pragma once

#include "id3/ID3Tag.hpp"

#include <optional>

namespace velto::id3 {

/// The tag that `data` (header, frames, anything after them) begins with; nothing if there is none. Throws
/// corruptedFile if the data is shorter than the tag says. Time and memory are linear in the tag.
///
/// Padding, or bytes that are not a frame, end the walk; unknown and empty frames are passed over. Compressed
/// frames are inflated, in all to 64 MiB a tag; a known frame beyond that, a broken or an encrypted one puts
/// its kind among the tag's unreadable ones, and so does the name of a carried frame in what
/// the walk did not reach.
[[nodiscard]] std::optional<ID3Tag> parseTag(ByteView data);

} // namespace velto::id3
