#include "app/MainScreenViewModel.hpp"

#include "backend/LibrarySyncService.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "scanning/ConcurrentScanner.hpp"

namespace velto {

// Every sync ends with a save of the stamps that it left on the tracks. A failure of that save is only
// logged: the stamps stay in memory and the next save of the context stores them.

Task<void> MainScreenViewModel::syncAtLaunch(std::weak_ptr<MainScreenViewModel> weak,
                                             std::vector<LibraryRef> synced) {
    for (const LibraryRef& library : synced) {
        const auto self = weak.lock();
        if (!self) co_return;
        if (library->isDeleted()) continue;
        log::line("🚀 [LAUNCH SYNC] Checking library '{}' for unsynced tracks", library->name);
        co_await self->librarySyncService->syncInBackground(library);
    }
    const auto self = weak.lock();
    if (!self) co_return;
    try {
        co_await model::saveInBackground(self->modelContext_, self->services_.executors);
        log::line("💾 [LAUNCH SYNC] Saved sync timestamps to database");
    } catch (const std::exception& error) {
        log::line("❌ [LAUNCH SYNC] Failed to save sync timestamps: {}", describe(error));
    }
}

Task<void> MainScreenViewModel::syncAfterScan(std::shared_ptr<MainScreenViewModel> self, LibraryRef library) {
    const std::vector<std::string> orphans = self->scanner->lastScanOrphanedTracks();
    if (!orphans.empty()) {
        try {
            const auto result = co_await self->librarySyncService->removeTracks(library, orphans);
            log::line("✅ [SYNC] Removed {} orphaned track(s) from backend", result.removedCount);
        } catch (const std::exception& error) {
            log::line("❌ [SYNC] Failed to remove orphaned tracks from backend: {}", describe(error));
        }
    }
    co_await self->librarySyncService->syncInBackground(library);
    co_await self->saveSyncTimestamps("💾 [SYNC] Saved sync timestamps to database (post-scan)");
}

Task<void> MainScreenViewModel::syncAfterTagging(std::weak_ptr<MainScreenViewModel> weak,
                                                 std::shared_ptr<LibrarySyncService> service,
                                                 LibraryRef library) {
    co_await service->syncInBackground(library);
    const auto self = weak.lock();
    if (self) co_await self->saveSyncTimestamps("💾 [SYNC] Saved sync timestamps to database");
}

Task<void> MainScreenViewModel::saveSyncTimestamps(std::string success) {
    try {
        co_await model::saveInBackground(modelContext_, services_.executors);
        log::line(success);
    } catch (const std::exception& error) {
        log::line("❌ [SYNC] Failed to save sync timestamps: {}", describe(error));
    }
}

} // namespace velto
