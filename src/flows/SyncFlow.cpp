#include "flows/SyncFlow.hpp"

#include "backend/LibrarySyncService.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"

namespace velto {

void SyncFlow::startAtLaunch(std::vector<LibraryRef> libraries) {
    if (service_) context_.background.start(atLaunch(context_.owner, this, std::move(libraries), stops_));
}

void SyncFlow::startAfterScan(LibraryRef library, std::vector<std::string> orphans) {
    if (service_)
        context_.background.start(
            afterScan(context_.owner.lock(), this, std::move(library), std::move(orphans)));
}

void SyncFlow::startAfterTagging(LibraryRef library) {
    if (service_) context_.background.start(afterTagging(context_.owner, this, service_, std::move(library)));
}

Task<void> SyncFlow::atLaunch(std::weak_ptr<void> owner, SyncFlow* flow, std::vector<LibraryRef> libraries,
                              std::size_t stops) {
    for (const LibraryRef& library : libraries) {
        const auto alive = owner.lock();
        if (!alive) co_return;
        const auto service = flow->service_;
        if (!service || stops != flow->stops_) break;
        if (library->isDeleted()) continue;
        log::line("🚀 [LAUNCH SYNC] Checking library '{}' for unsynced tracks", library->name);
        co_await service->syncInBackground(library);
    }
    const auto alive = owner.lock();
    if (!alive) co_return;
    co_await flow->saveStamps("💾 [LAUNCH SYNC] Saved sync timestamps to database",
                              "❌ [LAUNCH SYNC] Failed to save sync timestamps: ");
}

Task<void> SyncFlow::afterScan(std::shared_ptr<void> owner, SyncFlow* flow, LibraryRef library,
                               std::vector<std::string> orphans) {
    const auto alive = std::move(owner);
    const auto service = flow->service_;
    if (!service || library->isDeleted()) co_return;
    if (!orphans.empty()) {
        try {
            const auto result = co_await service->removeTracks(library, std::move(orphans));
            log::line("✅ [SYNC] Removed {} orphaned track(s) from backend", result.removedCount);
        } catch (const std::exception& error) {
            log::line("❌ [SYNC] Failed to remove orphaned tracks from backend: {}", describe(error));
        }
    }
    if (library->isDeleted()) co_return;
    co_await service->syncInBackground(library);
    co_await flow->saveStamps("💾 [SYNC] Saved sync timestamps to database (post-scan)",
                              "❌ [SYNC] Failed to save sync timestamps: ");
}

Task<void> SyncFlow::afterTagging(std::weak_ptr<void> owner, SyncFlow* flow,
                                  std::shared_ptr<LibrarySyncService> service, LibraryRef library) {
    if (library->isDeleted()) co_return;
    co_await service->syncInBackground(library);
    const auto alive = owner.lock();
    if (alive)
        co_await flow->saveStamps("💾 [SYNC] Saved sync timestamps to database",
                                  "❌ [SYNC] Failed to save sync timestamps: ");
}

Task<void> SyncFlow::saveStamps(std::string success, std::string failure) {
    try {
        co_await model::saveInBackground(context_.modelContext, context_.executors);
        log::line(success);
    } catch (const std::exception& error) {
        log::line("{}{}", failure, describe(error));
    }
}

} // namespace velto
