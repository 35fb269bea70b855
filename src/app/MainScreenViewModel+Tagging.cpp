#include "app/MainScreenViewModel.hpp"

#include "app/BackgroundTasks.hpp"
#include "backend/TaggingService.hpp"
#include "platform/core/GenreSeparator.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "tagwriting/MetadataWriter.hpp"

#include <fmt/ranges.h>

#include <unordered_map>

namespace velto {

namespace {

constexpr std::size_t tracksPerBatch = 10;
constexpr std::size_t batchesInFlight = 3;
constexpr Seconds gapBetweenLaunches{0.1};
constexpr std::size_t tracksPerTurn = 2'000; // a millisecond or two of the main actor

bool isPresent(const std::optional<std::string>& text) {
    return text && !text->empty();
}

std::string genreText(const TrackTags& tags) {
    std::vector<std::string> pieces = tags.genres;
    if (tags.era) pieces.push_back(*tags.era);
    return fmt::format("{}", fmt::join(pieces, genreSeparator));
}

std::vector<FileItemRef> filesOf(const TrackRef& track) {
    return track->files.all();
}

/// Holds the state object from before its first step on: nobody else may by then.
Task<void> creditsRefreshed(std::shared_ptr<MainScreenViewModel> viewModel) {
    co_await viewModel->refreshCredits();
}

} // namespace

/// Some tracks of a run with what is asked for them, in the same order.
struct MainScreenViewModel::TaggingBatch {
    std::vector<TrackRef> tracks;
    std::vector<TrackTaggingInput> inputs;
};

/// One run: its batches and their sums. Main actor.
struct MainScreenViewModel::TaggingRun {
    TaggingRun(std::vector<TaggingBatch> all, const Executor& main)
        : batches(std::move(all))
        , batchEnded(std::make_shared<Event>(main)) {}

    std::vector<TaggingBatch> batches;
    TaggingState state;
    std::int64_t totalTracks = 0;
    Date startTime;
    std::size_t running = 0;
    std::shared_ptr<Event> batchEnded; ///< set when a batch ends; replaced by who waited for it
};

Task<TaggingSummary> MainScreenViewModel::tagTracks(std::vector<TrackRef> selection) {
    const auto self = shared_from_this();
    if (!taggingService) {
        errorMessage = "Tagging service not initialized";
        co_return TaggingSummary{};
    }
    if (selection.empty()) {
        errorMessage = "No tracks selected";
        co_return TaggingSummary{};
    }
    log::line("🏷️ [VM] Tagging {} tracks", selection.size());
    auto batches = co_await makeBatches(selection);
    const auto run = std::make_shared<TaggingRun>(std::move(batches), services_.executors.main);
    for (const TaggingBatch& batch : run->batches)
        run->totalTracks += static_cast<std::int64_t>(batch.inputs.size());
    if (run->totalTracks == 0) {
        errorMessage = "No valid tracks to tag (artist and title required)";
        co_return TaggingSummary{};
    }
    run->startTime = services_.clock.now();
    taggingProgress = TaggingProgress{run->totalTracks, 0, run->startTime};
    co_await runBatches(run);

    const TaggingState& state = run->state;
    const TaggingSummary summary{state.totalTagged, state.totalCredits, state.allErrors,
                                 state.unwrittenFiles};
    tracksBeingTagged = std::set<model::PersistentIdentifier>{};
    if (state.globalRetryAfter && !state.allErrors.empty())
        log::line("⏱️ [VM] Rate limiting detected. Server requests {:.1f}s delay before retry",
                  static_cast<double>(*state.globalRetryAfter) / 1000.0);
    try {
        co_await model::saveInBackground(modelContext_, services_.executors);
    } catch (const std::exception& error) {
        log::line("❌ [VM] Failed to save tagged tracks: {}", describe(error));
        services_.crashReporter.recordError(error);
        errorMessage = "Failed to save tagged tracks: " + describe(error);
        taggingProgress = std::nullopt;
        co_return summary;
    }
    if (selectedLibrary.get() && librarySyncService)
        background_->start(syncAfterTagging(weak_from_this(), librarySyncService, selectedLibrary));
    if (authManager) background_->start(creditsRefreshed(self));
    taggingProgress = std::nullopt;
    if (state.totalTagged >= 1) {
        if (state.allErrors.empty())
            errorMessage = std::nullopt;
        else
            errorMessage =
                fmt::format("Tagged {} tracks using {} credits, but some failed:\n{}", state.totalTagged,
                            state.totalCredits, fmt::join(state.allErrors, "\n"));
    }
    co_return summary;
}

Task<std::vector<MainScreenViewModel::TaggingBatch>>
MainScreenViewModel::makeBatches(const std::vector<TrackRef>& selection) const {
    std::vector<TaggingBatch> batches;
    for (std::size_t i = 0; i < selection.size(); ++i) {
        if (i > 0 && i % tracksPerTurn == 0) co_await yieldNow();
        const TrackRef& track = selection[i];
        if (!isPresent(track->artist) || !isPresent(track->title)) {
            log::line("⚠️ [VM] Skipping track with missing artist/title: {}",
                      track->title.value_or("Unknown Title"));
            continue;
        }
        if (batches.empty() || batches.back().tracks.size() == tracksPerBatch) batches.emplace_back();
        batches.back().tracks.push_back(track);
        batches.back().inputs.push_back(
            {std::to_string(track->persistentId().hash()), *track->artist, *track->title, track->album});
    }
    co_return batches;
}

Task<void> MainScreenViewModel::runBatches(std::shared_ptr<TaggingRun> run) {
    const auto waitForAnEnd = [&]() -> std::shared_ptr<Event> {
        if (run->batchEnded->isSet()) run->batchEnded = std::make_shared<Event>(services_.executors.main);
        return run->batchEnded;
    };
    for (std::size_t index = 0; index < run->batches.size(); ++index) {
        while (run->running == batchesInFlight) {
            const auto ended = waitForAnEnd();
            co_await ended->wait();
        }
        if (index > 0) co_await services_.clock.sleep(gapBetweenLaunches);
        ++run->running;
        spawn(services_.executors.main, runBatch(shared_from_this(), run, index));
    }
    while (run->running > 0) {
        const auto ended = waitForAnEnd();
        co_await ended->wait();
    }
}

Task<void> MainScreenViewModel::runBatch(std::shared_ptr<MainScreenViewModel> self,
                                         std::shared_ptr<TaggingRun> run, std::size_t index) {
    TaggingBatch& batch = run->batches[index];
    TaggingState& state = run->state;
    const std::size_t number = index + 1;
    log::line("🏷️ [VM] Processing batch {}/{} ({} tracks)", number, run->batches.size(),
              batch.tracks.size());
    self->tracksBeingTagged.mutate([&](auto& busy) {
        for (const TrackRef& track : batch.tracks)
            busy.insert(track->persistentId());
    });
    try {
        co_await self->tagBatch(run, index);
    } catch (const TaggingServiceError& error) {
        switch (error.kind()) {
        case TaggingServiceError::Case::insufficientCredits:
            self->releaseBatch(batch);
            self->errorMessage = fmt::format(
                "Insufficient credits. You need {} but only have {} available. Please purchase more credits.",
                error.needed(), error.available());
            break;
        case TaggingServiceError::Case::authenticationRequired:
            self->releaseBatch(batch);
            self->errorMessage = "Authentication required. Please sign in to tag tracks.";
            break;
        case TaggingServiceError::Case::rateLimitExceeded: {
            self->releaseBatch(batch);
            if (error.retryAfter()) state.foldRetryAfter(*error.retryAfter());
            const std::string text = fmt::format("Rate limit exceeded on batch {}", number);
            state.allErrors.push_back(text);
            log::line("🚦 [VM] {}", text);
            break;
        }
        default:
            self->batchFailed(*run, index, error);
        }
    } catch (const std::exception& error) {
        self->batchFailed(*run, index, error);
    }
    batch = {}; // all at once at the end of a large run would take a while
    --run->running;
    run->batchEnded->set();
}

void MainScreenViewModel::batchFailed(TaggingRun& run, std::size_t index, const std::exception& error) {
    const std::size_t number = index + 1;
    services_.crashReporter.recordError(error);
    releaseBatch(run.batches[index]);
    run.state.allErrors.push_back(fmt::format("Batch {} failed: {}", number, describe(error)));
    log::line("❌ [VM] Batch {} failed: {}", number, describe(error));
}

void MainScreenViewModel::releaseBatch(const TaggingBatch& batch) {
    tracksBeingTagged.mutate([&](auto& busy) {
        for (const TrackRef& track : batch.tracks)
            busy.erase(track->persistentId());
    });
}

Task<void> MainScreenViewModel::tagBatch(std::shared_ptr<TaggingRun> run, std::size_t index) {
    const TaggingBatch& batch = run->batches[index];
    TaggingState& state = run->state;
    const TaggingResult result =
        co_await runOn(services_.executors.pool, taggingService->tagTracks(batch.inputs));
    log::line("🏷️ [VM] Batch {} complete: {} tagged, {} credits used", index + 1, result.tracksTagged,
              result.creditsConsumed);
    std::unordered_map<std::string, TrackRef> trackOf;
    for (std::size_t i = 0; i < batch.tracks.size(); ++i)
        trackOf.emplace(batch.inputs[i].id, batch.tracks[i]);
    for (const TrackTags& tags : result.tags) {
        const auto found = trackOf.find(tags.id);
        if (found == trackOf.end()) {
            log::line("⚠️ [VM] Warning: Received tags for unknown track ID: {}", tags.id);
            continue;
        }
        co_await applyTags(run, found->second, tags);
        ++state.totalTagged;
        state.taggingProgress = TaggingProgress{run->totalTracks, state.totalTagged, run->startTime};
        taggingProgress = state.taggingProgress;
    }
    state.addCredits(result.creditsConsumed);
    for (const TaggingError& error : result.errors)
        state.allErrors.push_back(fmt::format("[{}] {}", label(error.type), error.message));
    if (result.shouldRetry.value_or(false) && result.retryAfter) {
        state.foldRetryAfter(*result.retryAfter);
        log::line("⏱️ [VM] Server suggests retry after {}ms", *result.retryAfter);
    }
}

Task<void> MainScreenViewModel::applyTags(std::shared_ptr<TaggingRun> run, TrackRef track, TrackTags tags) {
    const std::string text = genreText(tags);
    TrackFields& fields = track->edit();
    fields.genre = text;
    fields.genres = tags.genres;
    fields.regions = tags.regions;
    fields.era = tags.era;
    fields.lastTagged = services_.clock.now();
    const std::vector<std::string> genres(1, text); // the finished text is one piece
    for (const FileItemRef& file : filesOf(track)) {
        const std::string path = file->absPath;
        const std::string filename = file->filename;
        try {
            co_await metadataWriter->writeGenreTags(genres, path, false);
        } catch (const std::exception& error) {
            ++run->state.unwrittenFiles;
            log::line("⚠️ [VM] Failed to write genre to file {}: {}", filename, describe(error));
            log::line("⚠️ [VM] Error type: {}", typeName(error));
            log::line("⚠️ [VM] File path: {}", path);
        }
    }
    tracksBeingTagged.mutate([&](auto& busy) { busy.erase(track->persistentId()); });
}

Task<void> MainScreenViewModel::markTracksAsTagged(std::vector<TrackRef> selection) {
    const auto self = shared_from_this();
    if (selection.empty()) co_return;
    const Date now = services_.clock.now();
    for (std::size_t i = 0; i < selection.size(); ++i) {
        if (i > 0 && i % tracksPerTurn == 0) co_await yieldNow();
        selection[i]->edit().lastTagged = now;
    }
    try {
        co_await model::saveInBackground(modelContext_, services_.executors);
    } catch (const std::exception& error) {
        services_.crashReporter.recordError(error);
        errorMessage = "Failed to mark tracks as tagged: " + describe(error);
        co_return;
    }
    co_await loadTracksForSelectedLibrary();
}

Task<std::int64_t> MainScreenViewModel::clearTags(std::vector<TrackRef> selection) {
    const auto self = shared_from_this();
    std::int64_t unwrittenFiles = 0;
    if (selection.empty()) co_return unwrittenFiles;
    log::line("🗑️ Clearing tags from {} track(s)", selection.size());
    TaggingProgress progress{static_cast<std::int64_t>(selection.size()), 0, services_.clock.now()};
    clearingProgress = progress;
    for (const TrackRef& track : selection) {
        TrackFields& fields = track->edit();
        fields.genres = std::nullopt;
        fields.regions = std::nullopt;
        fields.era = std::nullopt;
        fields.lastTagged = std::nullopt;
        for (const FileItemRef& file : filesOf(track)) {
            const std::string path = file->absPath;
            const std::string filename = file->filename;
            try {
                co_await metadataWriter->clearGenreTags(path);
            } catch (const std::exception& error) {
                ++unwrittenFiles;
                log::line("❌ Failed to clear genre from {}: {}", filename, describe(error));
            }
        }
        ++progress.completedTracks;
        clearingProgress = progress;
    }
    try {
        co_await model::saveInBackground(modelContext_, services_.executors);
    } catch (const std::exception& error) {
        clearingProgress = std::nullopt;
        errorMessage = "Failed to clear tags: " + describe(error);
        co_return unwrittenFiles;
    }
    clearingProgress = std::nullopt;
    co_await loadTracksForSelectedLibrary();
    log::line("✅ Successfully cleared tags from {} track(s)", selection.size());
    co_return unwrittenFiles;
}

} // namespace velto
