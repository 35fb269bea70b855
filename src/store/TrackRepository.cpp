#include "store/TrackRepository.hpp"

#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "store/CanonicalSignature.hpp"
#include "store/GenreTextParser.hpp"

namespace velto {

namespace {

// Time from which a slow step is reported, in seconds.
constexpr double slowLookup = 0.001;

/// Adds the tags that the parser (may be null) recognises in the genre text, if none were given.
TrackMetadata withRecognisedTags(TrackMetadata metadata, const GenreTextParser* parser) {
    if (parser == nullptr || !metadata.genre) return metadata;
    RecognisedTags tags = parser->parse(*metadata.genre);
    if (!metadata.genres && !tags.genres.empty()) metadata.genres = std::move(tags.genres);
    if (!metadata.regions && !tags.regions.empty()) metadata.regions = std::move(tags.regions);
    if (!metadata.era) metadata.era = std::move(tags.era);
    return metadata;
}

/// Each value that is given replaces the stored one. An object that has them all stays unchanged.
void update(const TrackRef& track, TrackMetadata metadata) {
    const auto replace = [&](auto field, auto& value) {
        if (value && (*track).*field != value) track->edit().*field = std::move(value);
    };
    replace(&TrackFields::artist, metadata.artist);
    replace(&TrackFields::title, metadata.title);
    replace(&TrackFields::album, metadata.album);
    replace(&TrackFields::trackNumber, metadata.trackNumber);
    replace(&TrackFields::genre, metadata.genre);
    replace(&TrackFields::bpm, metadata.bpm);
    replace(&TrackFields::durationSec, metadata.durationSec);
    replace(&TrackFields::year, metadata.year);
    replace(&TrackFields::genres, metadata.genres);
    replace(&TrackFields::regions, metadata.regions);
    replace(&TrackFields::era, metadata.era);
    replace(&TrackFields::lastTagged, metadata.lastTagged);
}

} // namespace

TrackRepository::TrackRepository(ModelContext& modelContext, const Clock& clock,
                                 const GenreTextParser* genreTextParser)
    : modelContext_(modelContext)
    , clock_(clock)
    , genreTextParser_(genreTextParser) {}

Task<void> TrackRepository::preloadCache(std::size_t expected) {
    if (cachePreloaded_) co_return;
    log::line("🔄 [CACHE] Pre-loading all existing tracks into cache...");
    const Date start = clock_.now();
    trackCache_.reserve(modelContext_.count<Track>() + expected);
    std::size_t count = 0;
    const auto keep = [&](const TrackRef& track) {
        keepInCache(track);
        ++count;
    };
    co_await model::forEachInTurns<Track>(modelContext_, keep);
    // The first miss asks the context, whose own index is made now rather than in the middle of the scan.
    co_await model::indexInBackground(modelContext_, model::entityDescription<Track>(), expected);
    cachePreloaded_ = true;
    log::line("✅ [CACHE] Pre-loaded {} tracks in {:.2f}s", count, clock_.secondsSince(start));
}

std::size_t TrackRepository::SignatureHash::operator()(std::string_view signature) const {
    return std::hash<std::string_view>()(signature);
}

std::size_t TrackRepository::SignatureHash::operator()(const TrackRef& track) const {
    return (*this)(std::string_view(track->canonicalSig));
}

bool TrackRepository::SameSignature::operator()(const TrackRef& left, const TrackRef& right) const {
    return left->canonicalSig == right->canonicalSig;
}

bool TrackRepository::SameSignature::operator()(std::string_view left, const TrackRef& right) const {
    return left == right->canonicalSig;
}

bool TrackRepository::SameSignature::operator()(const TrackRef& left, std::string_view right) const {
    return left->canonicalSig == right;
}

/// In place of a deleted track of the same signature.
void TrackRepository::keepInCache(const TrackRef& track) {
    const auto [place, isNew] = trackCache_.insert(track);
    if (isNew || *place == track) return;
    trackCache_.erase(place);
    trackCache_.insert(track);
}

/// By the cache, else by a fetch. A cached track that was deleted since counts as a miss.
TrackRef TrackRepository::lookUp(const std::string& canonicalSig) {
    const Date start = clock_.now();
    const auto cached = trackCache_.find(std::string_view(canonicalSig));
    if (cached != trackCache_.end() && !(*cached)->isDeleted()) {
        if (const double time = clock_.secondsSince(start); time > slowLookup)
            log::line("💰 [CACHE HIT] Track lookup for {}... took {:.3f}s", beginningOf(canonicalSig), time);
        return *cached;
    }
    const Date fetchStart = clock_.now();
    TrackRef track = modelContext_.findUnique<Track>("canonicalSig", canonicalSig);
    if (const double time = clock_.secondsSince(fetchStart); time > slowLookup)
        log::line("⚠️ [SLOW FETCH] Track lookup for {}... took {:.3f}s", beginningOf(canonicalSig), time);
    return track;
}

Task<TrackRef> TrackRepository::upsertTrack(TrackMetadata metadata, std::optional<std::string> genreBefore) {
    std::string signature =
        canonicalSig(metadata.artist, metadata.title, metadata.album, metadata.durationSec);
    TrackRef track = lookUp(signature);
    const bool isGenreTheirs = genreBefore && metadata.genre && *genreBefore != *metadata.genre;
    if (track && track->lastTagged && !isGenreTheirs) metadata.genre = std::nullopt;
    metadata = withRecognisedTags(std::move(metadata), genreTextParser_);
    if (track) {
        update(track, std::move(metadata));
    } else {
        track = model::make<Track>(std::move(signature), std::move(metadata));
        modelContext_.insert(track);
    }
    keepInCache(track);
    pendingSaves = true;
    co_return track;
}

Task<void> TrackRepository::linkFile(FileItemRef file, TrackRef track) {
    const bool hadNoFiles = track->files.empty();
    file->edit().track = track; // the track's list follows, and never holds a file twice
    if (file->creationDate && (!track->createdAt || *file->creationDate < *track->createdAt))
        track->edit().createdAt = file->creationDate;
    if (hadNoFiles && track->lastSyncedAt) {
        log::line("🔄 [REPO] Track '{}' was orphaned, clearing lastSyncedAt to force re-sync",
                  track->title.value_or("Unknown Title"));
        track->edit().lastSyncedAt.reset();
    }
    pendingSaves = true;
    co_return;
}

} // namespace velto
