#pragma once

#include "platform/concurrency/Task.hpp"
#include "store/Track.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace velto {

/// Which of some tracks somebody wants tagged. Without more, those that have no tags yet.
struct TaggingWish {
    bool again = false;      ///< tagged ones too
    bool failedOnly = false; ///< only what the last run could not tag, and nobody since
    std::optional<std::size_t> limit = std::nullopt; ///< at most that many
};

/// What the last run was for and could not tag. Of a run that was killed it is all that the run was for; what
/// has been tagged since its start is known by its date.
struct LastRun {
    Date start;
    std::unordered_set<std::string> untagged; ///< canonicalSigs
};

/// What a wish comes to, and what it leaves out, in tracks.
struct TaggingSelection {
    std::vector<TrackRef> tracks; ///< each once; one credit each
    std::size_t repeats = 0;      ///< further files of a song
    std::size_t withoutArtistOrTitle = 0;
    std::size_t taggedAlready = 0; ///< with failedOnly: since the last run's start
    std::size_t notFailed = 0;     ///< with failedOnly
    std::size_t overLimit = 0;
};

/// Whether the backend can be asked for tags: it needs an artist and a title.
[[nodiscard]] bool isTaggable(const Track& track);

/// Works in short turns of the main actor. Deleted tracks count nowhere.
Task<TaggingSelection> selectForTagging(std::vector<TrackRef> tracks, TaggingWish wish, LastRun lastRun);

} // namespace velto
