#include "scanning/ConcurrentScanner.hpp"

#include "media/ReadAhead.hpp"
#include "platform/core/Error.hpp"
#include "platform/files/FileAttributes.hpp"
#include "platform/files/ServiceError.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "scanning/DeferredSave.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/FilesystemScanner.hpp"
#include "scanning/MetadataExtractor.hpp"
#include "scanning/ReadStage.hpp"
#include "scanning/UnindexedFiles.hpp"
#include "scanning/UnseenFiles.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_set>
#include <utility>

namespace velto {

namespace {

constexpr std::size_t filesPerLogLine = 100;

} // namespace

/// One scan under way: made on the main actor, then worked on by one coroutine, on one thread at a time.
struct ConcurrentScanner::Scan {
    LibraryRef library; ///< its fields are read on the main actor only
    std::string name;
    WalkSettings folder;
    ScanTerms terms;
    CancellationToken token;
    std::optional<TaskHandle<FinishedScan>> predecessor; ///< a cancelled scan that may still wind down
    Date startTime;
    ScanRunRef run;
    ScanStats stats;
    FolderContents discovered;
    std::vector<ProcessResult> results;
    std::optional<UnseenFiles> unseen;
    std::vector<TrackRef> leftTracks; ///< by one of their files
    std::vector<std::string> orphanedTracks;
    std::optional<ScanRepositories> repositories;

    /// Frees what grows with the library; for the pool, as it takes longer than a frame.
    void release() {
        discovered = FolderContents();
        unseen.reset();
        leftTracks = std::vector<TrackRef>(); // `= {}` would keep its room
        results = std::vector<ProcessResult>();
        repositories.reset();
    }
};

ConcurrentScanner::ConcurrentScanner(ScannerDependencies dependencies, ModelContext& modelContext,
                                     const GenreTextParser* genreTextParser, Executors executors,
                                     const Clock& clock, CrashReporter& crashReporter)
    : dependencies_(std::move(dependencies))
    , modelContext_(modelContext)
    , genreTextParser_(genreTextParser)
    , executors_(std::move(executors))
    , clock_(clock)
    , crashReporter_(crashReporter)
    , progressActor_(clock) {}

Task<std::vector<std::filesystem::path>>
ConcurrentScanner::findUnindexedFiles(LibraryRef library, ScanTerms terms, CancellationToken token) {
    return unindexedFiles(modelContext_, executors_, *dependencies_.filesystemScanner, std::move(library),
                          terms, std::move(token));
}

Task<FinishedScan> ConcurrentScanner::scanLibrary(LibraryRef library, ScanTerms terms) {
    assertMainActor();
    if (currentScanTask_) throw ScannerError(ScannerError::Case::scanAlreadyInProgress);
    auto scan = std::make_shared<Scan>();
    scan->library = library;
    scan->name = library->name;
    scan->folder = {library->rootPath, library->includeGlob, library->excludeGlob};
    scan->terms = terms;
    scan->predecessor = latestScanTask_;
    const std::uint64_t number = ++scansStarted_;
    const auto handle =
        TaskHandle<FinishedScan>::start(executors_, executors_.pool, scanBody(scan), scan->token);
    currentScanTask_ = handle;
    latestScanTask_ = handle;

    co_await handle.finished();
    // After a cancellation the handle may be a later scan's already.
    if (number == scansStarted_) {
        currentScanTask_.reset();
        latestScanTask_.reset();
    }
    try {
        co_return co_await handle.value();
    } catch (const CancellationError&) {
        throw ScannerError(ScannerError::Case::scanCancelled);
    }
}

Task<void> ConcurrentScanner::cancelScan() {
    assertMainActor();
    if (currentScanTask_) currentScanTask_->cancel();
    currentScanTask_.reset();
    progressActor_.clear();
    co_return;
}

Task<std::optional<ScanProgress>> ConcurrentScanner::scanProgress() {
    co_return progressActor_.current().get();
}

Published<std::optional<ScanProgress>>& ConcurrentScanner::observableProgress() {
    return progressActor_.current();
}

Task<FinishedScan> ConcurrentScanner::scanBody(std::shared_ptr<Scan> scan) {
    if (scan->predecessor) co_await runOn(executors_.main, awaitPredecessor(scan));
    if (!files::isDirectory(scan->folder.rootPath))
        throw ScannerError(ScannerError::Case::libraryNotAccessible, scan->folder.rootPath);
    crashReporter_.log("Starting library scan: " + scan->name);
    co_await runOn(executors_.main, openRun(scan));
    std::exception_ptr failure;
    try {
        co_await scanFiles(scan);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        scan->release();
        co_await runOn(executors_.main, recordFailure(scan, failure));
        std::rethrow_exception(failure);
    }
    FinishedScan finished{scan->run, std::move(scan->orphanedTracks)};
    co_return finished;
}

Task<void> ConcurrentScanner::awaitPredecessor(std::shared_ptr<Scan> scan) {
    co_await scan->predecessor->finished();
    scan->predecessor.reset();
}

Task<void> ConcurrentScanner::openRun(std::shared_ptr<Scan> scan) {
    if (scan->library->isDeleted())
        throw ScannerError(ScannerError::Case::libraryNotAccessible, scan->folder.rootPath);
    scan->startTime = clock_.now();
    co_await setProgress(scan, ImportPhase::discovering, 0, "Starting scan...", scan->startTime);
    scan->repositories.emplace(modelContext_, executors_, clock_, genreTextParser_);
    try {
        scan->run = co_await dependencies_.scanRunRepository->startScanRun(scan->library);
        co_await dependencies_.libraryRepository->updateScanTimes(scan->library, scan->startTime,
                                                                  std::nullopt);
    } catch (...) {
        progressActor_.clear(); // no scan has begun
        throw;
    }
}

Task<void> ConcurrentScanner::scanFiles(std::shared_ptr<Scan> scan) {
    const auto root = files::identityOf(scan->folder.rootPath);
    co_await discover(scan);
    const Date start = clock_.now();
    co_await processFiles(scan, start);
    // Files of a drive that went away meanwhile are neither missing nor damaged: nobody could look at them.
    const auto rootNow = files::identityOf(scan->folder.rootPath);
    if (!rootNow) throw ScannerError::notAccessible(scan->folder.rootPath, std::strerror(errno));
    if (root && rootNow != root)
        throw ScannerError::notAccessible(scan->folder.rootPath, ScannerError::notMounted);
    co_await findUnseen(scan);
    co_await saveResults(scan, start);
    co_await runOn(executors_.main, markMissing(scan));
    co_await runOn(executors_.main, findOrphanedTracks(scan));
    scan->release();
    co_await runOn(executors_.main, closeRun(scan));
}

Task<void> ConcurrentScanner::recordFailure(std::shared_ptr<Scan> scan, std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        crashReporter_.recordError(error);
    }
    ScanStats& stats = scan->stats;
    ++stats.errorCount;
    try {
        co_await dependencies_.scanRunRepository->finishScanRun(scan->run, stats,
                                                                "Scan failed: " + describe(failure));
    } catch (const std::exception&) { // the failure that ended the scan is the one to tell
    }
}

Task<void> ConcurrentScanner::closeRun(std::shared_ptr<Scan> scan) {
    co_await dependencies_.scanRunRepository->finishScanRun(scan->run, scan->stats,
                                                            "High-performance concurrent scan completed");
    co_await dependencies_.libraryRepository->updateScanTimes(scan->library, std::nullopt, clock_.now());
    progressActor_.clear();
}

Task<void> ConcurrentScanner::discover(std::shared_ptr<Scan> scan) {
    co_await runOn(executors_.main,
                   setProgress(scan, ImportPhase::discovering, 0, "Discovering files...", scan->startTime));
    const auto seen = [this, scan](std::size_t files) {
        // The scan's own end comes to the main actor after all that was posted there.
        asio::post(executors_.main, [this, scan, files] {
            if (!scan->token.isCancelled()) progressActor_.discovered(static_cast<std::int64_t>(files));
        });
    };
    const WalkWatch watch{scan->token, seen};
    try {
        scan->discovered = co_await dependencies_.filesystemScanner->scanDirectory(scan->folder, watch);
    } catch (const ServiceError& failure) {
        if (failure.kind() != ServiceError::Case::directoryAccessFailed) throw;
        throw ScannerError::notAccessible(scan->folder.rootPath, failure.underlying());
    }
    scan->token.check();
    crashReporter_.log(fmt::format("Discovered {} files in library", scan->discovered.files.size()));
    co_await runOn(executors_.main, setProgress(scan, ImportPhase::processing,
                                                static_cast<std::int64_t>(scan->discovered.files.size()),
                                                "Starting concurrent processing...", std::nullopt));
}

Task<void> ConcurrentScanner::processFiles(std::shared_ptr<Scan> scan, Date start) {
    const std::size_t count = scan->discovered.files.size();
    const auto total = static_cast<std::int64_t>(count);
    scan->stats.totalSeen = total;
    log::line("🚀 [DEFERRED] Processing ALL {} files concurrently, saving at END", count);
    log::line("⚡ [DEFERRED] Using {} concurrent workers", ReadStage::workers());
    co_await runOn(executors_.main,
                   setProgress(scan, ImportPhase::processing, total, "Starting processing...", start));
    co_await readFiles(scan, start);
    const double readSeconds = clock_.secondsSince(start);
    log::line("🎯 [DEFERRED] File processing completed: {} files in {:.2f}s ({:.1f} files/sec)", count,
              readSeconds, filesPerSecond(count, readSeconds));
}

Task<void> ConcurrentScanner::readFiles(std::shared_ptr<Scan> scan, Date stageStart) {
    const std::size_t count = scan->discovered.files.size();
    log::line("⚡ [SEQUENTIAL] Processing {} files in the order of discovery, in blocks of {}", count,
              ReadStage::filesPerBlock);
    const auto progress = [this, count, stageStart](std::size_t processed, const ProcessResult& last) {
        progressActor_.update(static_cast<std::int64_t>(processed), last.relPath);
        if (processed % filesPerLogLine == 0)
            log::line("📊 [SEQUENTIAL] Processed {}/{} files ({:.1f} files/sec)", processed, count,
                      filesPerSecond(processed, clock_.secondsSince(stageStart)));
    };
    ReadStage stage(*dependencies_.metadataExtractor, *dependencies_.signatureGenerator, executors_,
                    scan->token, progress);
    co_await stage.run(scan->discovered.files, scan->results);
}

/// Neither the library nor tracks that are found for its files are to go meanwhile. Main actor.
static Task<void> runAlone(std::shared_ptr<LibraryRepository> libraries, DeferredSave& save) {
    const Gate::Pass alone = co_await libraries->holdDeletions();
    co_await save.run();
}

/// On the pool, where the save's working sets are freed.
Task<void> ConcurrentScanner::saveResults(std::shared_ptr<Scan> scan, Date start) {
    const std::size_t count = scan->results.size();
    log::line("💾 [DEFERRED] Starting SINGLE database transaction for {} results", count);
    const Date saveStart = clock_.now();
    co_await runOn(executors_.main, setProgress(scan, ImportPhase::saving, scan->stats.totalSeen,
                                                "Saving to database...", saveStart));
    if (!scan->repositories)
        throw ScannerError(ScannerError::Case::configurationError, "Batch repositories not initialized");
    {
        DeferredSave save(*scan->repositories, progressActor_, clock_, scan->library, scan->results,
                          scan->unseen->moved(), scan->stats);
        co_await runOn(executors_.main, runAlone(dependencies_.libraryRepository, save));
        scan->leftTracks = save.leftTracks();
    }
    scan->results = std::vector<ProcessResult>();
    const double seconds = clock_.secondsSince(start);
    log::line("✅ [DEFERRED] Database transaction completed in {:.2f}s", clock_.secondsSince(saveStart));
    log::line("🏆 [DEFERRED] TOTAL TIME: {:.2f}s ({:.1f} files/sec)", seconds, filesPerSecond(count, seconds));
    crashReporter_.log(fmt::format("Scan completed: {} files processed in {:.2f}s", count, seconds));
}

/// On the pool. Throws if what the folder holds is not believed to be the library.
Task<void> ConcurrentScanner::findUnseen(std::shared_ptr<Scan> scan) {
    constexpr std::size_t largeLibrary = 20;
    UnseenFiles& unseen = scan->unseen.emplace(scan->results);
    co_await runOn(executors_.main, unseen.gather(modelContext_, scan->library, scan->discovered.unread));
    if (scan->terms.isOtherDevice && unseen.presentBefore() > 0 && unseen.seenAgain() == 0)
        throw ScannerError::notAccessible(scan->folder.rootPath, ScannerError::notMounted);
    unseen.matchMoves();
    unseen.forgetSteps();
    const bool isMuch =
        unseen.presentBefore() >= largeLibrary && unseen.newlyGone() > unseen.presentBefore() / 2;
    if (isMuch && !scan->terms.acceptsMissing)
        throw ScannerError(ScannerError::Case::manyFilesMissing,
                           fmt::format("{} of {} files", unseen.newlyGone(), unseen.presentBefore()));
}

Task<void> ConcurrentScanner::markMissing(std::shared_ptr<Scan> scan) {
    if (!scan->repositories)
        throw ScannerError(ScannerError::Case::configurationError, "Batch file repository not initialized");
    co_await scan->repositories->files.markMissing(scan->unseen->gone());
    const auto count = [&](const FileItemRef& file) {
        if (file->library == scan->library && file->status == FileStatus::missing) ++scan->stats.missingCount;
    };
    co_await model::forEachInTurns<FileItem>(modelContext_, count);
    co_await scan->repositories->saveIfDirty();
}

Task<void> ConcurrentScanner::findOrphanedTracks(std::shared_ptr<Scan> scan) {
    std::unordered_set<TrackRef> orphans;
    for (const TrackRef& track : scan->leftTracks)
        if (!track->isDeleted() && track->files.empty()) orphans.insert(track);
    for (const TrackRef& track : orphans)
        scan->orphanedTracks.push_back(track->canonicalSig);
    if (!orphans.empty())
        log::line("🗑️ [SCAN] Found {} orphaned track(s) with no files remaining", orphans.size());
    co_return;
}

Task<void> ConcurrentScanner::setProgress(std::shared_ptr<Scan> scan, ImportPhase phase, std::int64_t total,
                                          const char* status, std::optional<Date> start) {
    if (scan->token.isCancelled()) co_return; // cancelling has cleared the progress for good
    const auto& stored = progressActor_.current().get();
    ScanProgress progress;
    progress.phase = phase;
    progress.totalFiles = total;
    progress.currentFile = status;
    progress.startTime = start ? *start : (stored ? stored->startTime : clock_.now());
    progressActor_.set(std::move(progress));
    co_return;
}

} // namespace velto
