#include "flows/TaggingRun.hpp"

#include "backend/TaggingService.hpp"
#include "flows/TaggingJournal.hpp"
#include "flows/WrittenFile.hpp"
#include "platform/core/GenreSeparator.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "platform/text/Text.hpp"
#include "tagwriting/MetadataWriter.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace velto {

namespace {

constexpr std::size_t tracksPerBatch = 10;
constexpr std::size_t batchesInFlight = 3;
constexpr Seconds gapBetweenLaunches{0.1};
constexpr std::size_t batchesPerTurn = 500; // to leave out: a millisecond or two of the main actor

// Why a track was not tagged, for the user.
constexpr std::string_view stoppedText = "The run was stopped";
constexpr std::string_view deletedText = "The track was deleted meanwhile";
constexpr std::string_view noTagsText = "The tagging service found no tags";
constexpr std::string_view refusedText = "The library store refuses the tags";
constexpr std::string_view notAnsweredText = "The tagging service gave no answer for a track";

std::string nameOf(const Track& track) {
    return track.artist.value_or("Unknown Artist") + " – " + track.title.value_or("Unknown Title");
}

bool isBlank(const std::string& text) {
    return text::trimmedView(text).empty();
}

} // namespace

std::string genreText(const TrackTags& tags) {
    std::vector<std::string> pieces = tags.genres;
    if (tags.era) pieces.push_back(*tags.era);
    return fmt::format("{}", fmt::join(pieces, genreSeparator));
}

/// Some tracks with what is asked for them, in the same order.
struct TaggingRun::Batch {
    std::vector<TrackRef> tracks;
    std::vector<TrackTaggingInput> inputs;
    /// From before the batch is asked for until its tags are stored, or it is refused.
    std::optional<TaggingJournal::BatchNumber> journalled;
};

TaggingRun::TaggingRun(Services services)
    : ended(services.context.executors.main)
    , services_(std::move(services))
    , context_(services_.context)
    , batchEnded_(std::make_shared<Event>(context_.executors.main)) {}

TaggingRun::~TaggingRun() = default;

Task<void> TaggingRun::prepare(std::vector<TrackRef> selection) {
    startTime_ = context_.clock.now();
    std::unordered_set<TrackRef> seen;
    std::vector<std::string> signatures;
    Turn turn;
    for (const TrackRef& track : selection) {
        if (turn.isOver()) {
            co_await yieldNow();
            turn = {};
        }
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
        signatures.push_back(track->canonicalSig);
        ++summary_.requested;
    }
    if (batches_.empty()) co_return;
    try {
        co_await services_.journal.setLastRun(startTime_, std::move(signatures));
    } catch (const std::exception& error) { // it only spares the user a search
        context_.crashReporter.recordError(error);
    }
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
        if (index > 0 && mayRequest()) co_await context_.clock.sleep(gapBetweenLaunches);
        if (!mayRequest()) {
            leaveOut(batches_[index], index + 1);
            batches_[index] = {};
            if (index % batchesPerTurn == 0) co_await yieldNow();
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
    summary_.errors = std::move(state_.allErrors);
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
    if (!batch.journalled) batch = {}; // all at once at the end of a large run would take a while
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

/// Puts the batch into the journal. False if it is not to be asked for any more.
Task<bool> TaggingRun::announce(Batch& batch, std::size_t number) {
    std::vector<std::string> names;
    for (const TrackRef& track : batch.tracks)
        names.push_back(nameOf(*track));
    batch.journalled = co_await services_.journal.begin(std::move(names));
    dropDeleted(batch);
    if (batch.tracks.empty()) co_return false;
    if (!mayRequest()) leaveOut(batch, number);
    co_return mayRequest();
}

Task<void> TaggingRun::requestBatch(Batch& batch, std::size_t number) {
    std::optional<TaggingResult> result;
    try {
        const bool isAskedFor = co_await announce(batch, number);
        if (isAskedFor)
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
            state_.allErrors.push_back({text, "Rate limit exceeded on a batch"});
            log::line("🚦 [VM] {}", text);
            refuse(batch, describe(error));
            break;
        }
        default:
            context_.crashReporter.recordError(error);
            failed(batch, number, describe(error));
        }
    } catch (const std::exception& error) {
        context_.crashReporter.recordError(error);
        failed(batch, number, describe(error));
    }
    if (result)
        co_await takeIn(batch, number, *std::move(result));
    else
        co_await strikeOff(batch);
}

Task<void> TaggingRun::takeIn(Batch& batch, std::size_t number, TaggingResult result) {
    log::line("🏷️ [VM] Batch {} complete: {} tagged, {} credits used", number, result.tracksTagged,
              result.creditsConsumed);
    std::unordered_map<std::string, TrackRef> unanswered;
    for (std::size_t i = 0; i < batch.tracks.size(); ++i)
        unanswered.emplace(batch.inputs[i].id, batch.tracks[i]);
    std::vector<TrackRef> tagged;
    std::map<std::string, std::int64_t, std::less<>> missing; // tracks by the reason
    for (const TrackTags& tags : result.tags) {
        const auto found = unanswered.find(tags.id);
        if (found == unanswered.end()) {
            log::line("⚠️ [VM] Warning: Received tags for unknown track ID: {}", tags.id);
            continue;
        }
        const TrackRef track = found->second;
        unanswered.erase(found);
        const std::string_view refusal = apply(track, tags);
        if (refusal.empty()) {
            tagged.push_back(track);
            continue;
        }
        ++missing[std::string(refusal)];
        untagged_.push_back(track->canonicalSig);
    }
    unsaved_.push_back(&batch);
    co_await store(); // what was paid for, before anything else happens to it
    for (const TrackRef& track : tagged) {
        co_await writeFiles(track);
        ++state_.totalTagged;
        state_.taggingProgress = TaggingProgress{summary_.requested, state_.totalTagged, startTime_};
        context_.state.taggingProgress = state_.taggingProgress;
    }
    state_.addCredits(result.creditsConsumed);
    for (const TaggingError& error : result.errors) {
        const std::string text = fmt::format("[{}] {}", label(error.type), error.message);
        state_.allErrors.push_back({text, text});
    }
    if (result.shouldRetry.value_or(false) && result.retryAfter) {
        state_.foldRetryAfter(*result.retryAfter);
        log::line("⏱️ [VM] Server suggests retry after {}ms", *result.retryAfter);
    }
    // The server's own words for a track without an answer, if it had any.
    std::string reason(notAnsweredText);
    if (!result.errors.empty())
        reason = result.errors.front().message;
    else if (!result.success)
        reason = result.message;
    for (const TrackTaggingInput& input : batch.inputs) {
        const auto found = unanswered.find(input.id);
        if (found == unanswered.end()) continue;
        const TrackRef track = found->second;
        ++missing[reason];
        untagged_.push_back(track->canonicalSig);
        if (result.errors.empty())
            state_.allErrors.push_back({fmt::format("{}: {}", nameOf(*track), reason), reason});
    }
    for (const auto& [why, tracks] : missing)
        summary_.refused.push_back({tracks, why});
}

/// Empty, or why the tags are not applied: a genre that somebody gave the song is worth more than none.
std::string_view TaggingRun::apply(const TrackRef& track, const TrackTags& tags) {
    if (track->isDeleted()) {
        log::line("⚠️ [VM] The tags of a track that was deleted meanwhile are dropped: {}",
                  nameOf(*track));
        return deletedText;
    }
    if (std::all_of(tags.genres.begin(), tags.genres.end(), isBlank) && isBlank(tags.era.value_or(""))) {
        state_.allErrors.push_back(
            {fmt::format("{}: {}", nameOf(*track), noTagsText), std::string(noTagsText)});
        return noTagsText;
    }
    TrackFields& fields = track->edit();
    fields.genre = genreText(tags);
    fields.genres = tags.genres;
    fields.regions = tags.regions;
    fields.era = tags.era;
    fields.lastTagged = context_.clock.now();
    return {};
}

Task<std::optional<std::string>> TaggingRun::store() {
    const std::vector<Batch*> taken = unsaved_; // what comes meanwhile may not be in this save
    model::SaveOutcome saved;
    try {
        saved = co_await model::saveInBackground(context_.modelContext, context_.executors);
        saveFailure_ = std::nullopt;
    } catch (const std::exception& error) {
        log::line("❌ [VM] Failed to save tagged tracks: {}", describe(error));
        context_.crashReporter.recordError(error);
        saveFailure_ = "Failed to save tagged tracks: " + describe(error);
        co_return saveFailure_;
    }
    for (Batch* const batch : taken) {
        if (std::erase(unsaved_, batch) == 0) continue; // settled by a save that another batch has begun
        // What the store refuses was paid for all the same: the journal keeps it, and the next start names
        // it.
        if (!reportRefusals(saved, *batch)) co_await strikeOff(*batch);
    }
    co_return std::nullopt;
}

bool TaggingRun::reportRefusals(const model::SaveOutcome& saved, const Batch& batch) {
    bool isRefused = false;
    for (const TrackRef& track : batch.tracks) {
        if (!saved.refuses(track)) continue;
        isRefused = true;
        log::line("❌ [VM] The store refuses the tags of {}", nameOf(*track));
        state_.allErrors.push_back(
            {fmt::format("{}: {}", nameOf(*track), refusedText), std::string(refusedText)});
    }
    return isRefused;
}

Task<void> TaggingRun::strikeOff(Batch& batch) {
    const auto number = std::exchange(batch.journalled, std::nullopt);
    if (!number) co_return;
    try {
        co_await services_.journal.end(*number);
    } catch (const std::exception& error) { // the next start names it
        context_.crashReporter.recordError(error);
    }
}

Task<void> TaggingRun::writeFiles(TrackRef track) {
    if (track->isDeleted() || !track->genre) co_return;
    const std::vector<std::string> genres(1, *track->genre); // the finished text is one piece
    for (const FileItemRef& file : track->files.all()) {
        if (file->isDeleted()) continue;
        const std::string path = file->absPath;
        const std::string filename = file->filename;
        try {
            co_await services_.metadataWriter.writeGenreTags(genres, path, false);
            co_await noteWritten(context_.executors, file, genres.front());
        } catch (const std::exception& error) {
            ++summary_.unwrittenFiles;
            log::line("⚠️ [VM] Failed to write genre to file {}: {}", filename, describe(error));
            log::line("⚠️ [VM] Error type: {}", typeName(error));
            log::line("⚠️ [VM] File path: {}", path);
        }
    }
    context_.state.tracksBeingTagged.mutate([&](auto& busy) { busy.erase(track->persistentId()); });
}

/// Nothing was asked for: the run is to stop, or what has come already cannot be stored.
void TaggingRun::leaveOut(const Batch& batch, std::size_t number) {
    if (isStopping_) {
        summary_.wasStopped = true;
        refuse(batch, std::string(stoppedText));
    } else {
        failed(batch, number, *saveFailure_);
    }
}

void TaggingRun::failed(const Batch& batch, std::size_t number, const std::string& reason) {
    state_.allErrors.push_back(
        {fmt::format("Batch {} failed: {}", number, reason), "A batch failed: " + reason});
    log::line("❌ [VM] Batch {} failed: {}", number, reason);
    refuse(batch, reason);
}

void TaggingRun::refuse(const Batch& batch, std::string reason) {
    for (const TrackRef& track : batch.tracks)
        untagged_.push_back(track->canonicalSig);
    summary_.refused.push_back({static_cast<std::int64_t>(batch.tracks.size()), std::move(reason)});
}

void TaggingRun::release(const Batch& batch) {
    context_.state.tracksBeingTagged.mutate([&](auto& busy) {
        for (const TrackRef& track : batch.tracks)
            busy.erase(track->persistentId());
    });
}

Task<void> TaggingRun::writeDownWhatIsLeft() {
    try {
        co_await services_.journal.setLastRun(startTime_, std::move(untagged_));
    } catch (const std::exception& error) { // what stands there means the same, but for tags cleared since
        context_.crashReporter.recordError(error);
    }
}

std::vector<std::string> TaggingRun::atRisk() const {
    std::vector<std::string> names;
    for (const Batch& batch : batches_) {
        if (!batch.journalled) continue;
        for (const TrackRef& track : batch.tracks)
            names.push_back(nameOf(*track));
    }
    return names;
}

} // namespace velto
