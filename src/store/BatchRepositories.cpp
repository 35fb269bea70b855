#include "store/BatchRepositories.hpp"

#include "platform/concurrency/Executors.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "store/CanonicalSignature.hpp"
#include "store/RepositoryRules.hpp"

namespace velto {

namespace {

// Times from which a slow step is reported, in seconds.
constexpr double slowLookup = 0.001;
constexpr double slowFile = 0.01;

} // namespace

BatchOptimizedFileRepository::BatchOptimizedFileRepository(ModelContext& modelContext, const Clock& clock,
                                                           Executors executors)
    : modelContext_(modelContext)
    , underlying_(modelContext, clock, std::move(executors))
    , clock_(clock) {}

/// The index is of one library at a time. What others did to the list shows in its size or at the file found.
FileItemRef BatchOptimizedFileRepository::lookUp(const LibraryRef& library, const std::string& relPath) {
    const auto rebuild = [&] {
        indexedLibrary_ = library;
        index_.clear();
        index_.reserve(2 * library->files.size()); // a scan that finds as many again does not rehash
        for (const auto& file : library->files)
            index_.try_emplace(file->relPath, file);
        indexedCount_ = library->files.size();
    };
    if (indexedLibrary_ != library) rebuild();
    auto found = index_.find(relPath);
    const bool isStale = found != index_.end()
                             ? found->second->library != library || found->second->relPath != relPath
                             : library->files.size() != indexedCount_;
    if (isStale) {
        rebuild();
        found = index_.find(relPath);
    }
    return found != index_.end() ? found->second : nullptr;
}

Task<FileItemRef> BatchOptimizedFileRepository::ensureFile(LibraryRef library, FileSystemInfo info) {
    const Date start = clock_.now();
    FileItemRef file = lookUp(library, info.relPath);
    const double lookupTime = clock_.secondsSince(start);
    const bool isNew = !file;
    if (isNew) {
        file = rules::makeFile(library, info, clock_.now());
        rules::fetchCreationDate(file);
        log::line("📅 [FILE DATE] New file {}, fetched creationDate: {}", info.filename,
                  rules::dateText(file->creationDate));
        index_.try_emplace(info.relPath, file);
        indexedCount_ += 1;
    } else {
        log::line("📅 [FILE DATE] Found existing file {}, current creationDate: {}", info.filename,
                  rules::dateText(file->creationDate));
        if (!file->creationDate) {
            rules::fetchCreationDate(file);
            log::line("📅 [FILE DATE] Fetched creationDate from filesystem: {}",
                      rules::dateText(file->creationDate));
        } else {
            log::line("📅 [FILE DATE] File already has creationDate, skipping");
        }
        rules::refresh(file, info, clock_.now());
    }
    if (const double time = clock_.secondsSince(start); time > slowFile)
        log::line(
            "⚠️ [SLOW FILE] ensureFile {}took {:.4f}s (lookup: {:.4f}s) for {} [library {} {} files]",
            isNew ? "" : "(update) ", time, lookupTime, info.filename, isNew ? "had" : "has",
            library->files.size() - (isNew ? 1 : 0));
    pendingSaves = true;
    co_return file;
}

Task<FileItemRef> BatchOptimizedFileRepository::findFile(LibraryRef library, std::string relPath) {
    co_return lookUp(library, relPath);
}

Task<void> BatchOptimizedFileRepository::updateAudioProperties(FileItemRef file,
                                                               std::optional<double> durationSec,
                                                               std::optional<std::int64_t> bitrateKbps,
                                                               std::optional<std::int64_t> samplerateHz,
                                                               std::optional<std::int64_t> channels) {
    rules::setAudioProperties(file, durationSec, bitrateKbps, samplerateHz, channels, clock_.now());
    pendingSaves = true;
    co_return;
}

Task<void> BatchOptimizedFileRepository::markMissing(LibraryRef library,
                                                     const std::unordered_set<std::string>& seen) {
    pendingSaves = true;
    const auto mark = [&](const FileItemRef& file) {
        if (file->library == library) rules::markIfMissing(file, seen);
    };
    co_await model::forEachInTurns<FileItem>(modelContext_, mark);
}

Task<void> BatchOptimizedFileRepository::updateStatus(FileItemRef file, FileStatus status,
                                                      std::optional<std::string> message) {
    rules::setStatus(file, status, std::move(message));
    pendingSaves = true;
    co_return;
}

Task<void> BatchOptimizedFileRepository::updateSignatures(FileItemRef file,
                                                          std::optional<std::string> quickSig,
                                                          std::optional<std::string> fileHash) {
    rules::setSignatures(file, std::move(quickSig), std::move(fileHash));
    pendingSaves = true;
    co_return;
}

Task<std::vector<FileItemRef>> BatchOptimizedFileRepository::filesNeedingProcessing(LibraryRef library) {
    co_return co_await underlying_.filesNeedingProcessing(library);
}

BatchOptimizedTrackRepository::BatchOptimizedTrackRepository(ModelContext& modelContext, const Clock& clock,
                                                             const GenreTextParser* genreTextParser)
    : modelContext_(modelContext)
    , clock_(clock)
    , genreTextParser_(genreTextParser) {}

Task<void> BatchOptimizedTrackRepository::preloadCache(std::size_t expected) {
    if (cachePreloaded_) co_return;
    log::line("🔄 [CACHE] Pre-loading all existing tracks into cache...");
    const Date start = clock_.now();
    trackCache_.reserve(modelContext_.count<Track>() + expected);
    std::size_t count = 0;
    const auto keep = [&](const TrackRef& track) {
        trackCache_.insert_or_assign(track->canonicalSig, track);
        ++count;
    };
    co_await model::forEachInTurns<Track>(modelContext_, keep);
    // The first miss asks the context, whose own index is made now rather than in the middle of the scan.
    co_await model::indexInBackground(modelContext_, model::entityDescription<Track>(), expected);
    cachePreloaded_ = true;
    log::line("✅ [CACHE] Pre-loaded {} tracks in {:.2f}s", count, clock_.secondsSince(start));
}

/// By the cache, else by a fetch. A cached track that was deleted since counts as a miss.
TrackRef BatchOptimizedTrackRepository::lookUp(const std::string& canonicalSig) {
    const Date start = clock_.now();
    const auto cached = trackCache_.find(canonicalSig);
    if (cached != trackCache_.end() && !cached->second->isDeleted()) {
        if (const double time = clock_.secondsSince(start); time > slowLookup)
            log::line("💰 [CACHE HIT] Track lookup for {}... took {:.3f}s", beginningOf(canonicalSig), time);
        return cached->second;
    }
    const Date fetchStart = clock_.now();
    TrackRef track = modelContext_.findUnique<Track>("canonicalSig", canonicalSig);
    if (const double time = clock_.secondsSince(fetchStart); time > slowLookup)
        log::line("⚠️ [SLOW FETCH] Track lookup for {}... took {:.3f}s", beginningOf(canonicalSig), time);
    return track;
}

Task<TrackRef> BatchOptimizedTrackRepository::upsertTrack(TrackMetadata metadata, std::string canonicalSig) {
    metadata = rules::withRecognisedTags(std::move(metadata), genreTextParser_);
    TrackRef track = lookUp(canonicalSig);
    if (track) {
        rules::update(track, std::move(metadata));
    } else {
        track = model::make<Track>(canonicalSig, std::move(metadata));
        modelContext_.insert(track);
    }
    trackCache_.insert_or_assign(std::move(canonicalSig), track);
    pendingSaves = true;
    co_return track;
}

Task<TrackRef> BatchOptimizedTrackRepository::upsertTrack(TrackMetadata metadata) {
    std::string signature =
        canonicalSig(metadata.artist, metadata.title, metadata.album, metadata.durationSec);
    co_return co_await upsertTrack(std::move(metadata), std::move(signature));
}

Task<void> BatchOptimizedTrackRepository::linkFile(FileItemRef file, TrackRef track) {
    rules::link(file, track);
    pendingSaves = true;
    co_return;
}

} // namespace velto
