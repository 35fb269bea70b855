#include "flows/TaggingFlow.hpp"

#include "flows/SessionFlow.hpp"
#include "flows/SyncFlow.hpp"
#include "flows/TaggingRun.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "tagwriting/MetadataWriter.hpp"

#include <utility>

namespace velto {

namespace {
constexpr std::size_t tracksPerTurn = 2'000; // a millisecond or two of the main actor
} // namespace

TaggingFlow::TaggingFlow(const FlowContext& context, AudioMetadataWriter& metadataWriter,
                         TaggingJournal& journal, SyncFlow& sync, SessionFlow& session,
                         std::function<Task<void>()> reload)
    : context_(context)
    , state_(context.state)
    , metadataWriter_(metadataWriter)
    , journal_(journal)
    , sync_(sync)
    , session_(session)
    , reload_(std::move(reload)) {}

Task<TaggingSummary> TaggingFlow::tag(std::vector<TrackRef> selection) {
    if (!service_) {
        state_.errorMessage = "Tagging service not initialized";
        co_return TaggingSummary{};
    }
    if (selection.empty()) {
        state_.errorMessage = "No tracks selected";
        co_return TaggingSummary{};
    }
    log::line("🏷️ [VM] Tagging {} tracks", selection.size());
    const LibraryRef library = state_.selectedLibrary;
    const auto run =
        std::make_shared<TaggingRun>(TaggingRun::Services{context_, service_, metadataWriter_, journal_});
    runs_.push_back(run);
    co_await run->prepare(std::move(selection));
    if (run->summary().requested == 0) {
        std::erase(runs_, run);
        run->ended.set();
        state_.errorMessage = "No valid tracks to tag (artist and title required)";
        co_return run->summary();
    }
    context_.background.start(drive(context_.owner.lock(), this, run, library));
    co_await run->ended.wait();
    co_return run->summary();
}

Task<void> TaggingFlow::drive(std::shared_ptr<void> owner, TaggingFlow* flow, std::shared_ptr<TaggingRun> run,
                              LibraryRef library) {
    const auto alive = std::move(owner);
    co_await run->run();
    co_await flow->conclude(run, library);
    std::erase(flow->runs_, run);
    run->ended.set();
}

Task<void> TaggingFlow::conclude(std::shared_ptr<TaggingRun> run, LibraryRef library) {
    const TaggingState& sums = run->state();
    state_.tracksBeingTagged = std::set<model::PersistentIdentifier>{};
    if (sums.globalRetryAfter && !sums.allErrors.empty())
        log::line("⏱️ [VM] Rate limiting detected. Server requests {:.1f}s delay before retry",
                  static_cast<double>(*sums.globalRetryAfter) / 1000.0);
    co_await remember(run);
    std::optional<std::string> failure;
    try {
        co_await model::saveInBackground(context_.modelContext, context_.executors);
    } catch (const std::exception& error) {
        log::line("❌ [VM] Failed to save tagged tracks: {}", describe(error));
        context_.crashReporter.recordError(error);
        failure = "Failed to save tagged tracks: " + describe(error);
    }
    if (failure) {
        run->summary().saveFailure = failure;
        state_.errorMessage = failure;
        state_.taggingProgress = std::nullopt;
        co_return;
    }
    co_await run->everythingIsStored();
    if (library) sync_.startAfterTagging(library);
    session_.startRefreshingCredits();
    state_.taggingProgress = std::nullopt;
    if (sums.totalTagged < 1) co_return;
    if (sums.allErrors.empty())
        state_.errorMessage = std::nullopt;
    else
        state_.errorMessage = fmt::format("Tagged {} tracks using {} credits, but some failed:\n{}",
                                          sums.totalTagged, sums.totalCredits, textOfErrors(sums.allErrors));
}

/// What could not be tagged, for a later run.
Task<void> TaggingFlow::remember(std::shared_ptr<TaggingRun> run) {
    const std::vector<std::string> unfinished = run->unfinished();
    try {
        co_await journal_.setUnfinished(unfinished);
    } catch (const std::exception& error) {
        context_.crashReporter.recordError(error);
    }
}

Task<void> TaggingFlow::markAsTagged(std::vector<TrackRef> selection) {
    if (selection.empty()) co_return;
    const Date now = context_.clock.now();
    for (std::size_t i = 0; i < selection.size(); ++i) {
        if (i > 0 && i % tracksPerTurn == 0) co_await yieldNow();
        if (!selection[i]->isDeleted()) selection[i]->edit().lastTagged = now;
    }
    try {
        co_await model::saveInBackground(context_.modelContext, context_.executors);
    } catch (const std::exception& error) {
        context_.crashReporter.recordError(error);
        state_.errorMessage = "Failed to mark tracks as tagged: " + describe(error);
        co_return;
    }
    co_await reload_();
}

Task<std::int64_t> TaggingFlow::clear(std::vector<TrackRef> selection) {
    std::int64_t unwrittenFiles = 0;
    if (selection.empty()) co_return unwrittenFiles;
    log::line("🗑️ Clearing tags from {} track(s)", selection.size());
    const auto stops = stops_;
    const auto ended = std::make_shared<Event>(context_.executors.main);
    clearings_.push_back(ended);
    TaggingProgress progress{static_cast<std::int64_t>(selection.size()), 0, context_.clock.now()};
    state_.clearingProgress = progress;
    for (const TrackRef& track : selection) {
        if (stops != stops_) break;
        if (!track->isDeleted()) {
            TrackFields& fields = track->edit();
            fields.genres = std::nullopt;
            fields.regions = std::nullopt;
            fields.era = std::nullopt;
            fields.lastTagged = std::nullopt;
            for (const FileItemRef& file : track->files.all()) {
                if (file->isDeleted()) continue;
                const std::string path = file->absPath;
                const std::string filename = file->filename;
                try {
                    co_await metadataWriter_.clearGenreTags(path);
                } catch (const std::exception& error) {
                    ++unwrittenFiles;
                    log::line("❌ Failed to clear genre from {}: {}", filename, describe(error));
                }
            }
        }
        ++progress.completedTracks;
        state_.clearingProgress = progress;
    }
    std::optional<std::string> failure;
    try {
        co_await model::saveInBackground(context_.modelContext, context_.executors);
    } catch (const std::exception& error) {
        failure = "Failed to clear tags: " + describe(error);
    }
    state_.clearingProgress = std::nullopt;
    std::erase(clearings_, ended);
    ended->set();
    if (failure) {
        state_.errorMessage = failure;
        co_return unwrittenFiles;
    }
    co_await reload_();
    log::line("✅ Successfully cleared tags from {} track(s)", progress.completedTracks);
    co_return unwrittenFiles;
}

void TaggingFlow::stop() {
    ++stops_;
    for (const auto& run : runs_)
        run->stop();
}

Task<std::int64_t> TaggingFlow::storeWhatIsThere() {
    std::int64_t lost = 0;
    try {
        co_await model::saveInBackground(context_.modelContext, context_.executors);
    } catch (const std::exception& error) {
        log::line("❌ [VM] Failed to save tagged tracks: {}", describe(error));
        context_.crashReporter.recordError(error);
    }
    for (const auto& run : runs_)
        lost += run->tracksInFlight();
    co_return lost;
}

Task<void> TaggingFlow::finished() {
    while (!runs_.empty()) {
        const auto run = runs_.back();
        co_await run->ended.wait();
    }
    while (!clearings_.empty()) {
        const auto clearing = clearings_.back();
        co_await clearing->wait();
    }
}

} // namespace velto
