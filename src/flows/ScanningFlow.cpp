#include "flows/ScanningFlow.hpp"

#include "flows/FolderAccess.hpp"
#include "flows/LoadingFlow.hpp"
#include "flows/SyncFlow.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "scanning/ConcurrentScanner.hpp"

#include <algorithm>

namespace velto {

struct ScanningFlow::RunningScan {
    RunningScan(LibraryRef scanned, AskedBy by, const Executor& main)
        : library(std::move(scanned))
        , askedBy(by)
        , finished(main) {}

    LibraryRef library;
    AskedBy askedBy;
    Event finished;
    bool isLeaving = false; ///< was asked to stop
    bool isQuiet = false;   ///< by the program, so that the user is not told of its end
};

ScanningFlow::ScanningFlow(const FlowContext& context, ConcurrentScanner& scanner, LoadingFlow& loading,
                           FolderAccess& folderAccess, SyncFlow& sync)
    : context_(context)
    , state_(context.state)
    , scanner_(scanner)
    , loading_(loading)
    , folderAccess_(folderAccess)
    , sync_(sync)
    , progress_(scanner.observableProgress().subscribe([this](const std::optional<ScanProgress>& progress) {
        if (running_ && progress) state_.scanProgress = progress;
    })) {}

Task<ScanOutcome> ScanningFlow::scan(LibraryRef library, MissingFiles missing) {
    co_return co_await scanInTurn(std::move(library), AskedBy::user, missing);
}

Task<ScanOutcome> ScanningFlow::scanInTurn(LibraryRef library, AskedBy askedBy, MissingFiles missing) {
    const std::size_t stops = stops_;
    const auto hasToWait = [&] {
        return running_ &&
               (running_->isLeaving || askedBy == AskedBy::check || running_->askedBy == AskedBy::check);
    };
    while (hasToWait()) {
        const auto other = running_;
        co_await other->finished.wait();
    }
    if (library->isDeleted() || isHeld(library) || stops != stops_) co_return ScanOutcome{};
    co_return co_await runScan(library, askedBy, missing);
}

Task<ScanOutcome> ScanningFlow::runScan(LibraryRef library, AskedBy askedBy, MissingFiles missing) {
    // A user's scan under way keeps its progress: the scanner refuses this one.
    const auto started =
        running_ ? nullptr : std::make_shared<RunningScan>(library, askedBy, context_.executors.main);
    if (started) {
        running_ = started;
        ScanProgress progress;
        progress.startTime = context_.clock.now();
        state_.scanProgress = progress;
    }
    ScanOutcome outcome;
    std::vector<std::string> orphans;
    try {
        FinishedScan finished = co_await scanned(library, started, missing);
        outcome.run = std::move(finished.run);
        orphans = std::move(finished.orphanedTracks);
        const ScanRunRef& run = outcome.run;
        log::line("Import completed: {} files, {} new, {} changed, {} missing, {} errors", run->totalSeen,
                  run->newCount, run->changedCount, run->missingCount, run->errorCount);
    } catch (const std::exception& error) {
        outcome.failure = std::current_exception();
        log::line("Import failed: {}", describe(error));
        const bool isNews = !library->isDeleted() && !(started && started->isQuiet);
        if (isNews) tellFailure(library, error);
    }
    if (started) {
        state_.scanProgress = std::nullopt;
        started->isLeaving = true; // the next one waits until what this one found is on show
    }
    if (outcome && !library->isDeleted()) co_await afterScan(library, std::move(orphans));
    if (started) {
        running_ = nullptr;
        started->finished.set();
    }
    co_return outcome;
}

/// `started` is null if another scan is under way, which the scanner says.
Task<FinishedScan> ScanningFlow::scanned(LibraryRef library, std::shared_ptr<RunningScan> started,
                                         MissingFiles missing) {
    ScanTerms terms;
    terms.acceptsMissing = missing == MissingFiles::accept;
    if (started) {
        if (state_.missingQuestion.get() && state_.missingQuestion.get()->library == library)
            state_.missingQuestion = std::nullopt;
        terms.isOtherDevice = co_await folderAccess_.isOtherDevice(library->name);
        if (started->isLeaving) throw ScannerError(ScannerError::Case::scanCancelled);
    }
    co_return co_await scanner_.scanLibrary(library, terms);
}

void ScanningFlow::tellFailure(const LibraryRef& library, const std::exception& error) {
    const auto* failure = dynamic_cast<const ScannerError*>(&error);
    if (failure != nullptr && failure->kind() == ScannerError::Case::manyFilesMissing)
        state_.missingQuestion = MissingQuestion{library, describe(error)};
    else
        state_.errorMessage = "Import failed: " + describe(error);
}

Task<void> ScanningFlow::afterScan(LibraryRef library, std::vector<std::string> orphans) {
    try {
        if (state_.selectedLibrary.get() == library) {
            auto scanned = co_await loading_.getAllTracksForLibrary(library);
            if (state_.selectedLibrary.get() == library && !library->isDeleted())
                loading_.showTracks(std::move(scanned));
        }
    } catch (const std::exception& error) {
        state_.errorMessage = "Failed to refresh library: " + describe(error);
        co_return;
    }
    sync_.startAfterScan(library, std::move(orphans));
}

void ScanningFlow::startCheck(std::vector<LibraryRef> libraries) {
    context_.background.start(checkAll(context_.owner, this, std::move(libraries), stops_));
}

Task<void> ScanningFlow::check(std::weak_ptr<void> owner, ScanningFlow* flow,
                               std::vector<LibraryRef> libraries) {
    std::size_t stops = 0;
    if (const auto alive = owner.lock()) stops = flow->stops_;
    co_await checkAll(std::move(owner), flow, std::move(libraries), stops);
}

Task<void> ScanningFlow::checkAll(std::weak_ptr<void> owner, ScanningFlow* flow,
                                  std::vector<LibraryRef> libraries, std::size_t stops) {
    for (const LibraryRef& library : libraries) {
        const auto alive = owner.lock();
        if (!alive) co_return;
        co_await flow->checkOne(library, stops);
    }
}

Task<std::optional<std::size_t>> ScanningFlow::checkOne(LibraryRef library, std::size_t stops) {
    if (library->isDeleted() || stops != stops_) co_return std::nullopt;
    const auto found = co_await countNewFiles(library);
    // The library that was looked at is scanned, whichever is selected by now.
    if (found.value_or(0) > 0 && stops == stops_)
        co_await scanInTurn(library, AskedBy::check, MissingFiles::ask);
    co_return found;
}

Task<std::optional<std::size_t>> ScanningFlow::countNewFiles(LibraryRef library) {
    if (auto refused = co_await folderAccess_.restore(library)) state_.errorMessage = std::move(refused);
    if (library->isDeleted()) co_return std::nullopt;
    try {
        const CancellationToken token = looking_;
        ScanTerms terms;
        terms.isOtherDevice = co_await folderAccess_.isOtherDevice(library->name);
        if (library->isDeleted()) co_return std::nullopt;
        const auto found = co_await scanner_.findUnindexedFiles(library, terms, token);
        if (library->isDeleted()) co_return std::nullopt;
        co_return found.size();
    } catch (const CancellationError&) {
        co_return std::nullopt;
    } catch (const std::exception& error) {
        if (library->isDeleted()) co_return std::nullopt;
        context_.crashReporter.recordError(error);
        state_.errorMessage = "Failed to refresh library: " + describe(error);
        co_return std::nullopt;
    }
}

Task<std::optional<std::size_t>> ScanningFlow::scanForNewTracks(LibraryRef library) {
    co_return co_await checkOne(std::move(library), stops_);
}

void ScanningFlow::stopChecks() {
    looking_.cancel();
    looking_ = CancellationToken();
}

Task<void> ScanningFlow::cancel() {
    stopChecks();
    const auto running = running_;
    if (running) running->isLeaving = true;
    co_await scanner_.cancelScan();
    if (running) co_await running->finished.wait();
}

Task<ScanningFlow::Hold> ScanningFlow::hold(LibraryRef library) {
    const Hold held = std::make_shared<const LibraryRef>(std::move(library));
    holds_.emplace_back(held);
    while (running_ && isHeld(running_->library)) {
        const auto running = running_;
        running->isLeaving = running->isQuiet = true;
        co_await scanner_.cancelScan();
        co_await running->finished.wait();
    }
    co_return held;
}

Task<ScanningFlow::Hold> ScanningFlow::holdAll() {
    ++stops_;
    stopChecks();
    co_return co_await hold(nullptr);
}

bool ScanningFlow::isHeld(const LibraryRef& library) {
    std::erase_if(holds_, [](const auto& each) { return each.expired(); });
    return std::any_of(holds_.begin(), holds_.end(), [&](const auto& each) {
        const Hold held = each.lock();
        return !*held || *held == library;
    });
}

} // namespace velto
