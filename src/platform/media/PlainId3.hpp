#pragma once

#include "platform/media/Asset.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace velto::media {

/// The items of a tag as id3ViewAt() gives it where every frame of it is a usual text frame with one value,
/// as in nearly all songs; what TagLib would read from it, at a fraction of its time. Absent where anything
/// in the tag is less usual: then TagLib is to be asked.
[[nodiscard]] std::optional<std::vector<MetadataItem>> plainId3Items(std::string_view view);

} // namespace velto::media
