#include "app/UpdateManager.hpp"

#include "platform/log/Log.hpp"

namespace velto {

LoggingUpdateManager::LoggingUpdateManager() {
    log::line("✅ [UPDATE] No update service: new versions come as packages");
}

void LoggingUpdateManager::checkForUpdates() {
    log::line("🔍 [UPDATE] Manual update check requested");
}

} // namespace velto
