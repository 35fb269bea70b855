#pragma once

#include "store/Track.hpp"

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velto {

/// Which of some tracks somebody wants tagged. Without more, those that have no tags yet.
struct TaggingWish {
    bool again = false;                              ///< tagged ones too
    bool failedOnly = false;                         ///< only what the last run could not; tagged ones too
    std::optional<std::size_t> limit = std::nullopt; ///< at most that many
};

/// What a wish comes to, and what it leaves out, in tracks.
struct TaggingSelection {
    std::vector<TrackRef> tracks; ///< each once; one credit each
    std::size_t repeats = 0;      ///< further files of a song
    std::size_t withoutArtistOrTitle = 0;
    std::size_t taggedAlready = 0;
    std::size_t notFailed = 0; ///< with failedOnly
    std::size_t overLimit = 0;
};

/// Whether the backend can be asked for tags: it needs an artist and a title.
[[nodiscard]] bool isTaggable(const Track& track);

/// `failed` holds the canonicalSigs of the tracks that the last run could not tag (TaggingJournal).
[[nodiscard]] TaggingSelection selectForTagging(const std::vector<TrackRef>& tracks, const TaggingWish& wish,
                                                const std::set<std::string>& failed);

} // namespace velto
