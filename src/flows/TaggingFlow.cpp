#include "flows/TaggingFlow.hpp"

#include "flows/SessionFlow.hpp"
#include "flows/SyncFlow.hpp"
#include "flows/TaggingRun.hpp"
#include "flows/WrittenFile.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "tagwriting/MetadataWriter.hpp"

#include <fmt/ranges.h>

#include <utility>

namespace velto {

namespace {

/// How many there are.
std::int64_t nameInLog(const std::vector<std::string>& atRisk) {
    if (!atRisk.empty())
        log::line("⚠️ [VM] {} tracks may have been paid for and their tags are not stored: {}",
                  atRisk.size(), fmt::join(atRisk, "; "));
    return static_cast<std::int64_t>(atRisk.size());
}

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
    TaggingSummary& summary = run->summary();
    state_.tracksBeingTagged = std::set<model::PersistentIdentifier>{};
    if (const auto delay = run->state().globalRetryAfter; delay && !summary.errors.empty())
        log::line("⏱️ [VM] Rate limiting detected. Server requests {:.1f}s delay before retry",
                  static_cast<double>(*delay) / 1000.0);
    summary.saveFailure = co_await run->store();
    if (summary.saveFailure) {
        summary.unsaved = nameInLog(run->atRisk());
        state_.errorMessage = summary.saveFailure;
        state_.taggingProgress = std::nullopt;
        co_return;
    }
    co_await run->writeDownWhatIsLeft();
    if (library) sync_.startAfterTagging(library);
    session_.startRefreshingCredits();
    state_.taggingProgress = std::nullopt;
    if (summary.tagged < 1) co_return;
    if (summary.errors.empty())
        state_.errorMessage = std::nullopt;
    else
        state_.errorMessage = fmt::format("Tagged {} tracks using {} credits, but some failed:\n{}",
                                          summary.tagged, summary.credits, textOfErrors(summary.errors));
}

Task<void> TaggingFlow::markAsTagged(std::vector<TrackRef> selection) {
    if (selection.empty()) co_return;
    const Date now = context_.clock.now();
    Turn turn;
    for (const TrackRef& track : selection) {
        if (turn.isOver()) {
            co_await yieldNow();
            turn = {};
        }
        if (!track->isDeleted()) track->edit().lastTagged = now;
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

Task<ClearingSummary> TaggingFlow::clear(std::vector<TrackRef> selection) {
    ClearingSummary summary;
    if (selection.empty()) co_return summary;
    log::line("🗑️ Clearing tags from {} track(s)", selection.size());
    const auto stops = stops_;
    const auto ended = std::make_shared<Event>(context_.executors.main);
    clearings_.push_back(ended);
    TaggingProgress progress{static_cast<std::int64_t>(selection.size()), 0, context_.clock.now()};
    state_.clearingProgress = progress;
    Turn turn; // tracks without files end none
    for (const TrackRef& track : selection) {
        if (turn.isOver()) {
            co_await yieldNow();
            turn = {};
        }
        summary.wasStopped = stops != stops_;
        if (summary.wasStopped) break;
        summary.unwrittenFiles += co_await clear(track);
        progress.completedTracks = ++summary.cleared;
        state_.clearingProgress = progress;
    }
    try {
        co_await model::saveInBackground(context_.modelContext, context_.executors);
    } catch (const std::exception& error) {
        summary.saveFailure = "Failed to clear tags: " + describe(error);
    }
    state_.clearingProgress = std::nullopt;
    std::erase(clearings_, ended);
    ended->set();
    if (summary.saveFailure) {
        state_.errorMessage = summary.saveFailure;
        co_return summary;
    }
    co_await reload_();
    log::line("✅ Successfully cleared tags from {} track(s)", summary.cleared);
    co_return summary;
}

/// How many of its files could not be written.
Task<std::int64_t> TaggingFlow::clear(TrackRef track) {
    std::int64_t unwritten = 0;
    if (track->isDeleted()) co_return unwritten;
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
            co_await noteWritten(context_.executors, file, std::string());
        } catch (const std::exception& error) {
            ++unwritten;
            log::line("❌ Failed to clear genre from {}: {}", filename, describe(error));
        }
    }
    co_return unwritten;
}

void TaggingFlow::stop() {
    ++stops_;
    for (const auto& run : runs_)
        run->stop();
}

Task<std::int64_t> TaggingFlow::storeWhatIsThere() {
    try { // of what a clearing has done too
        co_await model::saveInBackground(context_.modelContext, context_.executors);
    } catch (const std::exception& error) {
        context_.crashReporter.recordError(error); // the runs say what is lost by it
    }
    std::vector<std::string> lost;
    const auto runs = runs_; // some may end meanwhile
    for (const auto& run : runs) {
        co_await run->store();
        const auto names = run->atRisk();
        lost.insert(lost.end(), names.begin(), names.end());
    }
    const std::int64_t count = nameInLog(lost);
    const auto writing = [] { log::flush(); };
    co_await offload(context_.executors, writing);
    co_return count;
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
