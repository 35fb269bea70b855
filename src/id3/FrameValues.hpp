#pragma once

#include "id3/FrameIdentifiers.hpp"
#include "id3/ID3Tag.hpp"

#include <string_view>

namespace velto::id3 {

/// Puts a frame's value into `tag`; `identifier` is the one that the file has, `content` is not empty. The
/// first frame of a name wins, and content that makes no sense for its kind is left out. Genres are not for
/// this: those of all frames together make one value.
void addFrame(ID3Tag& tag, std::string_view identifier, const FrameDescription& description,
              ByteView content);

} // namespace velto::id3
