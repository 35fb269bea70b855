#pragma once

#include "media/Asset.hpp"

#include <functional>

namespace velto::media {

/// Makes `output` (replaced if it exists) a copy of `source` without re-encoding, with the items gone that
/// `drop` accepts and with `add` in their place. MP4 (m4a, mp4, aac in an MP4 container) and AIFF only.
/// `add`'s value must be text; in an MP4 it becomes the iTunes user genre, in an AIFF the content type of the
/// ID3 chunk. Covers, free-form atoms, chapters and other chunks stay. On return the tags have been read
/// back, and the content has been handed to the system but not synced; prove the sound with sameAudio. Throws
/// MediaError; `output` is then removed. `source` is never written.
void exportPassthrough(const std::filesystem::path& source, const std::filesystem::path& output,
                       const std::function<bool(const MetadataItem&)>& drop,
                       const std::optional<MetadataItem>& add);

/// Whether two MP4 or two AIFF files carry the same audio: in an MP4 the media data byte for byte and every
/// chunk offset pointing at the same bytes of it, in an AIFF the common and sound-data chunks. Reads both
/// files once with a small buffer. Throws MediaError if a file cannot be read or its structure is broken.
[[nodiscard]] bool sameAudio(const std::filesystem::path& left, const std::filesystem::path& right);

} // namespace velto::media
