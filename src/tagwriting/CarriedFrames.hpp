#pragma once

#include "id3/ID3Tag.hpp"

#include <map>

namespace velto {

/// What a rewrite carries over from the old tag: title, artist, album, album artist, track and disc position
/// and front cover, if they are there.
[[nodiscard]] std::map<id3::FrameName, id3::ID3Frame> carriedFrames(const id3::ID3Tag& old);

/// Whether the old tag may hold one of them that cannot be read: a rewrite would lose it.
[[nodiscard]] bool hidesCarriedFrames(const id3::ID3Tag& old);

} // namespace velto
