#pragma once

#include "media/Mp4Atoms.hpp"

namespace velto::media {

struct QuickTimeItem {
    MetadataItem item;
    std::uint64_t nameOffset; ///< of the atom's four-byte name, which "free" replaces to take the item out
};

/// What QuickTime's writers say beside the tag list of an MP4 file: texts in the user data and keyed
/// metadata.
[[nodiscard]] std::vector<QuickTimeItem> quickTimeItems(FileReader& reader, const AtomTree& tree);

} // namespace velto::media
