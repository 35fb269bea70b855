#pragma once

#include "platform/concurrency/Clock.hpp"
#include "store/Entities.hpp"
#include "store/TrackMetadata.hpp"

#include <cstddef>
#include <string>
#include <unordered_map>

namespace velto {

class GenreTextParser;

/// The tracks of the store, for a scan: whoever runs it saves, and clears the mark that changes are pending.
/// Main actor; what is given to the constructor outlives the object.
class TrackRepository {
  public:
    /// `genreTextParser` may be null: then no tags are recognised in a file's genre text.
    TrackRepository(ModelContext& modelContext, const Clock& clock, const GenreTextParser* genreTextParser);

    /// Puts every track of the store into the cache, in turns that give way to the main actor, and makes
    /// room for `expected` more; does nothing the second time.
    Task<void> preloadCache(std::size_t expected = 0);

    /// The track of the signature that the metadata makes: made if there is none, else brought up to date by
    /// what `metadata` holds.
    Task<TrackRef> upsertTrack(TrackMetadata metadata);

    /// Makes the file one of the track's. The track's createdAt becomes the earliest of its files'; a synced
    /// track that had no file left is to be synced again.
    Task<void> linkFile(FileItemRef file, TrackRef track);

    /// Set by every operation that changes an object.
    bool pendingSaves = false;

  private:
    [[nodiscard]] TrackRef lookUp(const std::string& canonicalSig);

    ModelContext& modelContext_;
    const Clock& clock_;
    const GenreTextParser* genreTextParser_;
    std::unordered_map<std::string, TrackRef> trackCache_; ///< by canonicalSig
    bool cachePreloaded_ = false;
};

} // namespace velto
