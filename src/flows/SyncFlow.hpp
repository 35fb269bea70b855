#pragma once

#include "flows/FlowContext.hpp"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace velto {

class LibrarySyncService;

/// Keeps the backend's copy of the libraries current, in the background: after a load, a scan and a tagging
/// run. Each of its tasks ends with a save of the stamps that it left on the tracks; a failure of that save
/// is only logged, because the stamps stay in memory and the next save of the context stores them.
class SyncFlow {
  public:
    explicit SyncFlow(const FlowContext& context)
        : context_(context) {}

    /// Null: nothing is synced.
    void setService(std::shared_ptr<LibrarySyncService> service) { service_ = std::move(service); }

    [[nodiscard]] const std::shared_ptr<LibrarySyncService>& service() const { return service_; }

    void startAtLaunch(std::vector<LibraryRef> libraries);
    /// A launch sync under way goes on to no further library; its stamps are saved.
    void stop() { ++stops_; }
    /// `orphans` are the canonicalSigs of the tracks that the scan found without a file.
    void startAfterScan(LibraryRef library, std::vector<std::string> orphans);
    void startAfterTagging(LibraryRef library);

  private:
    static Task<void> atLaunch(std::weak_ptr<void> owner, SyncFlow* flow, std::vector<LibraryRef> libraries,
                               std::size_t stops);
    static Task<void> afterScan(std::shared_ptr<void> owner, SyncFlow* flow, LibraryRef library,
                                std::vector<std::string> orphans);
    static Task<void> afterTagging(std::weak_ptr<void> owner, SyncFlow* flow,
                                   std::shared_ptr<LibrarySyncService> service, LibraryRef library);
    Task<void> saveStamps(std::string success, std::string failure);

    FlowContext context_;
    std::shared_ptr<LibrarySyncService> service_;
    std::size_t stops_ = 0; ///< how often `stop` was called
};

} // namespace velto
