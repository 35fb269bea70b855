#pragma once

#include "id3/ID3Tag.hpp"

namespace velto::id3 {

/// Header and frames of a tag, no padding. Texts come first, then pictures, the genre last, so that a
/// rewrite that changes only the genre leaves everything in front of it where it was. Throws tagTooBig from
/// 2^28 bytes on, and invalidTagData if a frame does not fit its name or the version has no such frame.
[[nodiscard]] Bytes tagBytes(const ID3Tag& tag);

} // namespace velto::id3
