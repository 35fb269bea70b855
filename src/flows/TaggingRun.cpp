#include "flows/TaggingRun.hpp"

#include "backend/TaggingService.hpp"
#include "flows/TaggingSelection.hpp"
#include "platform/core/GenreSeparator.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "tagwriting/MetadataWriter.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace velto {

namespace {

constexpr std::size_t tracksPerBatch = 10;
constexpr std::size_t batchesInFlight = 3;
constexpr Seconds gapBetweenLaunches{0.1};
constexpr std::size_t tracksPerTurn = 2'000; // a millisecond or two of the main actor
/// More lines than this say nothing to a user that a count does not.
constexpr std::size_t errorLines = 20;

constexpr auto noTagsText = "The tagging service found no tags for a track";
constexpr auto notAnsweredText = "The tagging service did not answer for a track";

std::string nameOf(const Track& track) {
    return track.artist.value_or("Unknown Artist") + " – " + track.title.value_or("Unknown Title");
}

} // namespace

std::string genreText(const TrackTags& tags) {
    std::vector<std::string> pieces = tags.genres;
    if (tags.era) pieces.push_back(*tags.era);
    return fmt::format("{}", fmt::join(pieces, genreSeparator));
}

std::string textOfErrors(const std::vector<std::string>& errors) {
    if (errors.size() <= errorLines) return fmt::format("{}", fmt::join(errors, "\n"));
    std::vector<std::pair<std::string_view, std::size_t>> counted; // in the order of their first
    std::unordered_map<std::string_view, std::size_t> places;
    for (const std::string& error : errors) {
        const auto [place, isNew] = places.try_emplace(error, counted.size());
        if (isNew) counted.emplace_back(error, 0);
        ++counted[place->second].second;
    }
    std::vector<std::string> lines;
    std::size_t shown = 0;
    for (std::size_t i = 0; i < std::min(counted.size(), errorLines); ++i) {
        const auto& [text, count] = counted[i];
        lines.push_back(count == 1 ? std::string(text) : fmt::format("{} ({} times)", text, count));
        shown += count;
    }
    if (shown < errors.size()) lines.push_back(fmt::format("and {} more", errors.size() - shown));
    return fmt::format("{}", fmt::join(lines, "\n"));
}

/// Some tracks with what is asked for them, in the same order.
struct TaggingRun::Batch {
    std::vector<TrackRef> tracks;
    std::vector<TrackTaggingInput> inputs;
    std::optional<TaggingJournal::BatchNumber> journalled; ///< while it is in flight
};

TaggingRun::TaggingRun(Services services)
    : ended(services.context.executors.main)
    , services_(std::move(services))
    , context_(services_.context)
    , batchEnded_(std::make_shared<Event>(context_.executors.main)) {}

TaggingRun::~TaggingRun() = default;

Task<void> TaggingRun::prepare(std::vector<TrackRef> selection) {
    std::unordered_set<TrackRef> seen;
    for (std::size_t i = 0; i < selection.size(); ++i) {
        if (i > 0 && i % tracksPerTurn == 0) co_await yieldNow();
        const TrackRef& track = selection[i];
        if (track->isDeleted()) continue;
        if (!seen.insert(track).second) {
            ++summary_.repeats;
            continue;
        }
        if (!isTaggable(*track)) {
            log::line("⚠️ [VM] Skipping track with missing artist/title: {}",
                      track->title.value_or("Unknown Title"));
            ++summary_.withoutArtistOrTitle;
            continue;
        }
        if (batches_.empty() || batches_.back().tracks.size() == tracksPerBatch) batches_.emplace_back();
        batches_.back().tracks.push_back(track);
        batches_.back().inputs.push_back(
            {std::to_string(track->persistentId().hash()), *track->artist, *track->title, track->album});
        ++summary_.requested;
    }
    startTime_ = context_.clock.now();
}

Task<void> TaggingRun::run() {
    context_.state.taggingProgress = TaggingProgress{summary_.requested, 0, startTime_};
    const auto waitForAnEnd = [&]() -> std::shared_ptr<Event> {
        if (batchEnded_->isSet()) batchEnded_ = std::make_shared<Event>(context_.executors.main);
        return batchEnded_;
    };
    for (std::size_t index = 0; index < batches_.size(); ++index) {
        while (running_ == batchesInFlight) {
            const auto end = waitForAnEnd();
            co_await end->wait();
        }
        if (index > 0 && !isStopping_) co_await context_.clock.sleep(gapBetweenLaunches);
        if (isStopping_) {
            summary_.wasStopped = true;
            refuse(batches_[index], "The run was stopped");
            continue;
        }
        ++running_;
        spawn(context_.executors.main, runBatch(context_.owner.lock(), this, index));
    }
    while (running_ > 0) {
        const auto end = waitForAnEnd();
        co_await end->wait();
    }
    summary_.tagged = state_.totalTagged;
    summary_.credits = state_.totalCredits;
    summary_.errors = state_.allErrors;
}

Task<void> TaggingRun::runBatch(std::shared_ptr<void> owner, TaggingRun* run, std::size_t index) {
    const auto alive = std::move(owner);
    Batch& batch = run->batches_[index];
    const std::size_t number = index + 1;
    log::line("🏷️ [VM] Processing batch {}/{} ({} tracks)", number, run->batches_.size(),
              batch.tracks.size());
    run->context_.state.tracksBeingTagged.mutate([&](auto& busy) {
        for (const TrackRef& track : batch.tracks)
            busy.insert(track->persistentId());
    });
    co_await run->requestBatch(batch, number);
    run->release(batch);
    batch = {}; // all at once at the end of a large run would take a while
    --run->running_;
    run->batchEnded_->set();
}

/// Nobody pays for a track that went while the run was on its way to it.
void TaggingRun::dropDeleted(Batch& batch) {
    for (std::size_t i = batch.tracks.size(); i-- > 0;) {
        if (!batch.tracks[i]->isDeleted()) continue;
        batch.tracks.erase(batch.tracks.begin() + static_cast<std::ptrdiff_t>(i));
        batch.inputs.erase(batch.inputs.begin() + static_cast<std::ptrdiff_t>(i));
        --summary_.requested;
    }
}

Task<void> TaggingRun::requestBatch(Batch& batch, std::size_t number) {
    dropDeleted(batch);
    if (batch.tracks.empty()) co_return;
    const auto size = static_cast<std::int64_t>(batch.tracks.size());
    std::vector<TaggingJournal::Entry> entries;
    for (const TrackRef& track : batch.tracks)
        entries.push_back({track->canonicalSig, nameOf(*track)});
    std::optional<TaggingResult> result;
    try {
        batch.journalled = co_await services_.journal.begin(std::move(entries));
        tracksInFlight_ += size;
        result = co_await runOn(context_.executors.pool, services_.tagging->tagTracks(batch.inputs));
    } catch (const TaggingServiceError& error) {
        switch (error.kind()) {
        case TaggingServiceError::Case::insufficientCredits: {
            const std::string text = fmt::format(
                "Insufficient credits. You need {} but only have {} available. Please purchase more credits.",
                error.needed(), error.available());
            context_.state.errorMessage = text;
            refuse(batch, text);
            break;
        }
        case TaggingServiceError::Case::authenticationRequired: {
            const std::string text = "Authentication required. Please sign in to tag tracks.";
            context_.state.errorMessage = text;
            refuse(batch, text);
            break;
        }
        case TaggingServiceError::Case::rateLimitExceeded: {
            if (error.retryAfter()) state_.foldRetryAfter(*error.retryAfter());
            const std::string text = fmt::format("Rate limit exceeded on batch {}", number);
            state_.allErrors.push_back(text);
            log::line("🚦 [VM] {}", text);
            refuse(batch, text);
            break;
        }
        default:
            failed(batch, number, error);
        }
    } catch (const std::exception& error) {
        failed(batch, number, error);
    }
    if (result) {
        co_await takeIn(batch, number, *std::move(result));
    } else if (batch.journalled) {
        tracksInFlight_ -= size;
        try {
            co_await services_.journal.end(*batch.journalled);
        } catch (const std::exception& error) { // named once more at the next start
            context_.crashReporter.recordError(error);
        }
    }
}

Task<void> TaggingRun::takeIn(Batch& batch, std::size_t number, TaggingResult result) {
    log::line("🏷️ [VM] Batch {} complete: {} tagged, {} credits used", number, result.tracksTagged,
              result.creditsConsumed);
    std::unordered_map<std::string, TrackRef> trackOf;
    for (std::size_t i = 0; i < batch.tracks.size(); ++i)
        trackOf.emplace(batch.inputs[i].id, batch.tracks[i]);
    std::vector<TrackRef> tagged;
    std::int64_t empty = 0;
    for (const TrackTags& tags : result.tags) {
        const auto found = trackOf.find(tags.id);
        if (found == trackOf.end()) {
            log::line("⚠️ [VM] Warning: Received tags for unknown track ID: {}", tags.id);
            continue;
        }
        const TrackRef track = found->second;
        trackOf.erase(found);
        if (apply(track, tags)) {
            tagged.push_back(track);
        } else {
            ++empty;
            untagged_.push_back(track);
            state_.allErrors.emplace_back(noTagsText);
        }
    }
    co_await store(batch);
    for (const TrackRef& track : tagged) {
        co_await writeFiles(track);
        ++state_.totalTagged;
        state_.taggingProgress = TaggingProgress{summary_.requested, state_.totalTagged, startTime_};
        context_.state.taggingProgress = state_.taggingProgress;
    }
    state_.addCredits(result.creditsConsumed);
    for (const TaggingError& error : result.errors)
        state_.allErrors.push_back(fmt::format("[{}] {}", label(error.type), error.message));
    if (result.shouldRetry.value_or(false) && result.retryAfter) {
        state_.foldRetryAfter(*result.retryAfter);
        log::line("⏱️ [VM] Server suggests retry after {}ms", *result.retryAfter);
    }
    if (empty > 0) summary_.refused.push_back({empty, noTagsText});
    if (trackOf.empty()) co_return;
    // The server's own words for these, if it had any, stand in the errors.
    std::string reason = result.errors.empty() ? std::string(notAnsweredText) : result.errors.front().message;
    for (const auto& [id, track] : trackOf) {
        untagged_.push_back(track);
        if (result.errors.empty()) state_.allErrors.emplace_back(notAnsweredText);
    }
    summary_.refused.push_back({static_cast<std::int64_t>(trackOf.size()), std::move(reason)});
}

/// False if there is nothing to apply: a genre that somebody gave the song is worth more than none.
bool TaggingRun::apply(const TrackRef& track, const TrackTags& tags) {
    if (tags.genres.empty() && !tags.era) return false;
    if (track->isDeleted()) {
        log::line("⚠️ [VM] The tags of a track that was deleted meanwhile are dropped: {}",
                  nameOf(*track));
        return false;
    }
    TrackFields& fields = track->edit();
    fields.genre = genreText(tags);
    fields.genres = tags.genres;
    fields.regions = tags.regions;
    fields.era = tags.era;
    fields.lastTagged = context_.clock.now();
    return true;
}

/// What was paid for, before anything else happens to it. If that fails the tags are still in memory, and the
/// save at the run's end tries again.
Task<void> TaggingRun::store(Batch& batch) {
    try {
        co_await model::saveInBackground(context_.modelContext, context_.executors);
        tracksInFlight_ -= static_cast<std::int64_t>(batch.tracks.size());
        co_await services_.journal.end(batch.journalled.value());
    } catch (const std::exception& error) {
        log::line("❌ [VM] Failed to save the tags of a batch: {}", describe(error));
        context_.crashReporter.recordError(error);
        unstored_.push_back(batch.journalled.value());
    }
}

Task<void> TaggingRun::everythingIsStored() {
    for (const TaggingJournal::BatchNumber batch : unstored_) {
        try {
            co_await services_.journal.end(batch);
        } catch (const std::exception& error) { // named once more at the next start
            context_.crashReporter.recordError(error);
        }
    }
    unstored_.clear();
    tracksInFlight_ = 0;
}

Task<void> TaggingRun::writeFiles(TrackRef track) {
    if (track->isDeleted()) co_return;
    const std::vector<std::string> genres(1, track->genre.value_or("")); // the finished text is one piece
    for (const FileItemRef& file : track->files.all()) {
        if (file->isDeleted()) continue;
        const std::string path = file->absPath;
        const std::string filename = file->filename;
        try {
            co_await services_.metadataWriter.writeGenreTags(genres, path, false);
        } catch (const std::exception& error) {
            ++summary_.unwrittenFiles;
            log::line("⚠️ [VM] Failed to write genre to file {}: {}", filename, describe(error));
            log::line("⚠️ [VM] Error type: {}", typeName(error));
            log::line("⚠️ [VM] File path: {}", path);
        }
    }
    context_.state.tracksBeingTagged.mutate([&](auto& busy) { busy.erase(track->persistentId()); });
}

void TaggingRun::failed(Batch& batch, std::size_t number, const std::exception& error) {
    context_.crashReporter.recordError(error);
    state_.allErrors.push_back(fmt::format("Batch {} failed: {}", number, describe(error)));
    log::line("❌ [VM] Batch {} failed: {}", number, describe(error));
    refuse(batch, describe(error));
}

void TaggingRun::refuse(Batch& batch, std::string reason) {
    untagged_.insert(untagged_.end(), batch.tracks.begin(), batch.tracks.end());
    summary_.refused.push_back({static_cast<std::int64_t>(batch.tracks.size()), std::move(reason)});
}

void TaggingRun::release(const Batch& batch) {
    context_.state.tracksBeingTagged.mutate([&](auto& busy) {
        for (const TrackRef& track : batch.tracks)
            busy.erase(track->persistentId());
    });
}

std::vector<std::string> TaggingRun::unfinished() const {
    std::vector<std::string> signatures;
    for (const TrackRef& track : untagged_)
        if (!track->isDeleted()) signatures.push_back(track->canonicalSig);
    return signatures;
}

} // namespace velto
