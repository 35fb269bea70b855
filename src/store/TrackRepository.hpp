#pragma once

#include "platform/concurrency/Clock.hpp"
#include "store/Entities.hpp"
#include "store/TrackMetadata.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>

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
    /// what `metadata` holds. But tags that were paid for stay, unless somebody has changed the genre text of
    /// the file since it was `genreBefore` (see FileItemFields::genreText).
    Task<TrackRef> upsertTrack(TrackMetadata metadata, std::optional<std::string> genreBefore = std::nullopt);

    /// Makes the file one of the track's. The track's createdAt becomes the earliest of its files'; a synced
    /// track that had no file left is to be synced again.
    Task<void> linkFile(FileItemRef file, TrackRef track);

    /// Set by every operation that changes an object.
    bool pendingSaves = false;

  private:
    /// By canonicalSig, which a track keeps for life: the cache needs no copy of it.
    struct SignatureHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view signature) const;
        std::size_t operator()(const TrackRef& track) const;
    };
    struct SameSignature {
        using is_transparent = void;
        bool operator()(const TrackRef& left, const TrackRef& right) const;
        bool operator()(std::string_view left, const TrackRef& right) const;
        bool operator()(const TrackRef& left, std::string_view right) const;
    };

    [[nodiscard]] TrackRef lookUp(const std::string& canonicalSig);
    void keepInCache(const TrackRef& track);

    ModelContext& modelContext_;
    const Clock& clock_;
    const GenreTextParser* genreTextParser_;
    std::unordered_set<TrackRef, SignatureHash, SameSignature> trackCache_;
    bool cachePreloaded_ = false;
};

} // namespace velto
