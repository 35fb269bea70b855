#pragma once

#include "flows/FlowContext.hpp"
#include "platform/concurrency/TaskHandle.hpp"

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <vector>

namespace velto {

class ConcurrentScanner;
class FolderAccess;
class LoadingFlow;
class SyncFlow;
struct FinishedScan;

/// How a scan that somebody asked for ended: the finished run, or why there is none.
struct ScanOutcome {
    ScanRunRef run;
    std::exception_ptr failure; ///< null if there is a run, or if nothing was there to scan

    explicit operator bool() const { return static_cast<bool>(run); }
};

/// What a scan does if it finds most files of a library gone: asks (by failing, and `missingQuestion`), or
/// marks them as missing.
enum class MissingFiles { ask, accept };

/// Scans, and the checks for new files that lead to one. One scan runs at a time: a scan that a check starts
/// waits its turn, and a user's scan waits for a check's; a user's second scan is refused by the scanner.
/// Writes scanProgress.
class ScanningFlow {
  public:
    /// `scanner` outlives its running scan.
    ScanningFlow(const FlowContext& context, ConcurrentScanner& scanner, LoadingFlow& loading,
                 FolderAccess& folderAccess, SyncFlow& sync);

    /// Scans to the end, after a cancelled scan that is still on its way out. A failure is shown, unless the
    /// library went meanwhile or the program itself stopped the scan. Nothing happens if the library is
    /// deleted or held, or if scans are stopped while this one waits.
    Task<ScanOutcome> scan(LibraryRef library, MissingFiles missing = MissingFiles::ask);

    /// Starts the check of those libraries in the background, one after the other.
    void startCheck(std::vector<LibraryRef> libraries);
    /// The same as a task. `flow` is touched only while `owner` can be locked.
    static Task<void> check(std::weak_ptr<void> owner, ScanningFlow* flow, std::vector<LibraryRef> libraries);

    /// How many files of the library's folder the store does not know; none if the look failed or the library
    /// went meanwhile.
    Task<std::optional<std::size_t>> countNewFiles(LibraryRef library);
    /// Scans the library if there are such files; how many there were, or none if the look failed.
    Task<std::optional<std::size_t>> scanForNewTracks(LibraryRef library);

    /// The user's wish: asks the running scan to stop and waits for its end, which says that it was
    /// cancelled. A look for new files under way finds nothing.
    Task<void> cancel();

    /// Keeps scans from beginning for as long as it lives.
    using Hold = std::shared_ptr<const LibraryRef>;

    /// For whoever is about to delete the library: stops its scan without a message, and no other one of it
    /// begins while the hold lives. Another library's scan goes on.
    Task<Hold> hold(LibraryRef library);
    /// The same for every library; checks under way look at no further one.
    Task<Hold> holdAll();

  private:
    struct RunningScan;
    enum class AskedBy { user, check };

    static Task<void> checkAll(std::weak_ptr<void> owner, ScanningFlow* flow,
                               std::vector<LibraryRef> libraries, std::size_t stops);
    Task<std::optional<std::size_t>> checkOne(LibraryRef library, std::size_t stops);

    Task<ScanOutcome> scanInTurn(LibraryRef library, AskedBy askedBy, MissingFiles missing);
    Task<ScanOutcome> runScan(LibraryRef library, AskedBy askedBy, MissingFiles missing);
    Task<FinishedScan> scanned(LibraryRef library, std::shared_ptr<RunningScan> started,
                               MissingFiles missing);
    void tellFailure(const LibraryRef& library, const std::exception& error);
    Task<void> afterScan(LibraryRef library, std::vector<std::string> orphans);
    void stopChecks();
    [[nodiscard]] bool isHeld(const LibraryRef& library);

    FlowContext context_;
    MainScreenState& state_;
    ConcurrentScanner& scanner_;
    LoadingFlow& loading_;
    FolderAccess& folderAccess_;
    SyncFlow& sync_;
    std::shared_ptr<RunningScan> running_;               ///< null while none runs
    std::vector<std::weak_ptr<const LibraryRef>> holds_; ///< of a null library: of all
    CancellationToken looking_;                          ///< of the looks for new files under way
    std::size_t stops_ = 0; ///< how often everything was stopped: what waited then does not begin
    Subscription progress_;
};

} // namespace velto
