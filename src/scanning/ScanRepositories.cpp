#include "scanning/ScanRepositories.hpp"

#include "platform/model/InBackground.hpp"

namespace velto {

Task<void> ScanRepositories::saveIfDirty() {
    if (!files.pendingSaves && !tracks.pendingSaves) co_return;
    files.pendingSaves = false;
    tracks.pendingSaves = false;
    try {
        co_await model::saveInBackground(modelContext_, executors_);
    } catch (...) {
        files.pendingSaves = true;
        throw;
    }
}

} // namespace velto
