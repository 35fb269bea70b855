#pragma once

#include "media/FileReader.hpp"

#include <functional>
#include <optional>

namespace velto::media {

/// Writes the AIFF file `source` to the empty file `output`, with a new ID3 chunk: the frames that `drop`
/// accepts are gone, the text of `add` is the genre. All other frames and chunks keep their bytes. A missing
/// chunk is added after the last one, one that has no frame any more is left out.
void exportAiff(FileReader& source, int output, const std::function<bool(const MetadataItem&)>& drop,
                const std::optional<MetadataItem>& add);

} // namespace velto::media
