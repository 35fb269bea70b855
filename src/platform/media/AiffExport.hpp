#pragma once

#include "platform/media/Asset.hpp"

#include <functional>

namespace velto::media {

/// Edits the ID3 chunk of an AIFF file in place: the frames that `drop` accepts go, the text of `add` becomes
/// the genre. All other frames keep their bytes. A missing chunk is made, one without frames is taken out.
void editAiff(const std::filesystem::path& path, const std::function<bool(const MetadataItem&)>& drop,
              const std::optional<MetadataItem>& add);

} // namespace velto::media
