#pragma once

#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "platform/log/CrashReporter.hpp"
#include "scanning/ProgressActor.hpp"
#include "scanning/Scanner.hpp"

#include <filesystem>
#include <vector>

namespace velto {

class GenreTextParser;

/// The scanner that the program uses: reads the files one after another on the pool and touches the store
/// only when all are read, on the main actor, in steps that give way to it. Bound to the main actor. It
/// outlives its running scan: cancel and await the scan before destroying it.
class ConcurrentScanner final : public Scanner {
  public:
    /// What is referred to outlives the scanner; `genreTextParser` may be null.
    ConcurrentScanner(ScannerDependencies dependencies, ModelContext& modelContext,
                      const GenreTextParser* genreTextParser, Executors executors, const Clock& clock,
                      CrashReporter& crashReporter);

    Task<FinishedScan> scanLibrary(LibraryRef library, ScanTerms terms = {}) override;
    Task<void> cancelScan() override;
    Task<std::optional<ScanProgress>> scanProgress() override;
    [[nodiscard]] Published<std::optional<ScanProgress>>& observableProgress() override;

    /// Those of `unindexedFiles`.
    Task<std::vector<std::filesystem::path>> findUnindexedFiles(LibraryRef library, ScanTerms terms = {},
                                                                CancellationToken token = {});

  private:
    struct Scan;

    Task<FinishedScan> scanBody(std::shared_ptr<Scan> scan);
    Task<void> awaitPredecessor(std::shared_ptr<Scan> scan);
    Task<void> openRun(std::shared_ptr<Scan> scan);
    Task<void> scanFiles(std::shared_ptr<Scan> scan);
    Task<void> closeRun(std::shared_ptr<Scan> scan);
    Task<void> recordFailure(std::shared_ptr<Scan> scan, std::exception_ptr failure);

    Task<void> discover(std::shared_ptr<Scan> scan);
    Task<void> processFiles(std::shared_ptr<Scan> scan, Date start);
    Task<void> readFiles(std::shared_ptr<Scan> scan, Date stageStart);
    Task<void> saveResults(std::shared_ptr<Scan> scan, Date start);
    Task<void> findUnseen(std::shared_ptr<Scan> scan);
    Task<void> markMissing(std::shared_ptr<Scan> scan);
    Task<void> findOrphanedTracks(std::shared_ptr<Scan> scan);

    /// Begins a stage; without `start` it keeps the start of the stage before.
    Task<void> setProgress(std::shared_ptr<Scan> scan, ImportPhase phase, std::int64_t total,
                           const char* status, std::optional<Date> start);

    ScannerDependencies dependencies_;
    ModelContext& modelContext_;
    const GenreTextParser* genreTextParser_;
    Executors executors_;
    const Clock& clock_;
    CrashReporter& crashReporter_;
    ProgressActor progressActor_;

    std::optional<TaskHandle<FinishedScan>> currentScanTask_;
    std::optional<TaskHandle<FinishedScan>> latestScanTask_; ///< may still wind down after its cancellation
    std::uint64_t scansStarted_ = 0;
};

} // namespace velto
