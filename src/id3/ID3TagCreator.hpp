#pragma once

#include "id3/ID3Tag.hpp"

namespace velto::id3 {

/// The header in front of `framesLength` bytes (frames and padding). Throws tagTooBig from 2^28 on.
struct ID3TagHeaderCreator {
    [[nodiscard]] static Bytes create(ID3Version version, std::size_t framesLength);
};

/// The bytes of every frame of a tag: texts first, then pictures, the genre last, so that a rewrite that
/// changes only the genre leaves everything in front of it where it was.
struct ID3FramesCreator {
    [[nodiscard]] static Bytes create(const ID3Tag& tag);
};

struct ID3TagCreator {
    /// Header and frames, no padding. Throws tagTooBig from 2^28 bytes on, and invalidTagData where a frame
    /// does not fit its name or the version has no such frame.
    [[nodiscard]] static Bytes create(const ID3Tag& tag);
};

} // namespace velto::id3
