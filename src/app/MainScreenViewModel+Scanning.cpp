#include "app/MainScreenViewModel.hpp"

#include "app/BackgroundTasks.hpp"
#include "backend/LibrarySyncService.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "scanning/ConcurrentScanner.hpp"

namespace velto {

Task<ScanRunRef> MainScreenViewModel::refreshSelectedLibrary() {
    const auto self = shared_from_this();
    const LibraryRef library = selectedLibrary;
    if (!library) {
        log::line("🔴 [SCAN DEBUG] No library selected, aborting scan");
        co_return ScanRunRef();
    }
    co_return co_await scan(library);
}

Task<ScanRunRef> MainScreenViewModel::scan(LibraryRef library) {
    const auto self = shared_from_this();
    while (runningScan_ && runningScan_->isCancelled) {
        const auto leaving = runningScan_;
        co_await leaving->finished.wait();
    }
    // A scan under way keeps its progress: the scanner refuses this one.
    const auto started = runningScan_ ? nullptr : startedScan(library);
    ScanRunRef run;
    std::exception_ptr failure;
    try {
        run = co_await scanner->scanLibrary(library);
        log::line("Import completed: {} files, {} new, {} changed, {} missing, {} errors", run->totalSeen,
                  run->newCount, run->changedCount, run->missingCount, run->errorCount);
    } catch (const std::exception& error) {
        failure = std::current_exception();
        log::line("Import failed: {}", describe(error));
        errorMessage = "Import failed: " + describe(error);
    }
    if (started) {
        lastScanFailure = failure;
        runningScan_ = nullptr;
        scanProgress = std::nullopt;
        started->finished.set();
    }
    if (run) co_await afterScan(library);
    co_return run;
}

std::shared_ptr<MainScreenViewModel::RunningScan>
MainScreenViewModel::startedScan(const LibraryRef& library) {
    runningScan_ = std::make_shared<RunningScan>(library, services_.executors.main);
    ScanProgress progress;
    progress.startTime = services_.clock.now();
    scanProgress = progress;
    return runningScan_;
}

Task<void> MainScreenViewModel::afterScan(LibraryRef library) {
    try {
        if (selectedLibrary.get() == library) {
            auto scanned = co_await getAllTracksForLibrary(library);
            if (selectedLibrary.get() == library) showTracks(std::move(scanned));
        }
    } catch (const std::exception& error) {
        errorMessage = "Failed to refresh library: " + describe(error);
        co_return;
    }
    if (librarySyncService) background_->start(syncAfterScan(shared_from_this(), library));
}

Task<void> MainScreenViewModel::cancelScan() {
    const auto self = shared_from_this();
    const auto running = runningScan_;
    if (running) running->isCancelled = true;
    co_await scanner->cancelScan();
    if (running) co_await running->finished.wait();
}

Task<void> MainScreenViewModel::checkForNewFiles(std::weak_ptr<MainScreenViewModel> viewModel,
                                                 std::vector<LibraryRef> checked) {
    for (const LibraryRef& library : checked) {
        const auto self = viewModel.lock();
        if (!self) co_return;
        if (!library->isDeleted()) co_await self->scanForNewTracks(library);
    }
}

Task<std::optional<std::size_t>> MainScreenViewModel::countNewFiles(LibraryRef library) {
    const auto self = shared_from_this();
    co_await restoreAccess(library);
    try {
        co_return (co_await scanner->findUnindexedFiles(library)).size();
    } catch (const std::exception& error) {
        services_.crashReporter.recordError(error);
        errorMessage = "Failed to refresh library: " + describe(error);
        co_return std::nullopt;
    }
}

Task<std::optional<std::size_t>> MainScreenViewModel::scanForNewTracks(LibraryRef library) {
    const auto self = shared_from_this();
    const auto found = co_await countNewFiles(library);
    // The library that was looked at is scanned, whichever is selected by now.
    if (found.value_or(0) > 0) co_await scan(library);
    co_return found;
}

} // namespace velto
