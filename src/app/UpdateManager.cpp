#include "app/UpdateManager.hpp"

#include "platform/log/Log.hpp"

namespace velto {

namespace {
constexpr int checkIntervalSeconds = 86400;
}

LoggingUpdateManager::LoggingUpdateManager() {
    log::line("✅ [UPDATE] Sparkle updater initialized");
    log::line("✅ [UPDATE] Automatic checks enabled: {}", true);
    log::line("✅ [UPDATE] Check interval: {} hours", checkIntervalSeconds / 3600);
}

void LoggingUpdateManager::checkForUpdates() {
    log::line("🔍 [UPDATE] Manual update check requested");
}

} // namespace velto
