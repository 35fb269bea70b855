#include "scanning/ScanRepositories.hpp"

#include "platform/model/InBackground.hpp"

namespace velto {

Task<void> ScanRepositories::startSave() {
    co_await finishSave();
    files.pendingSaves = false;
    tracks.pendingSaves = false;
    saving_ = TaskHandle<bool>::start(executors_, executors_.main, save(modelContext_, executors_), {});
}

Task<bool> ScanRepositories::save(ModelContext& modelContext, Executors executors) {
    co_await model::saveInBackground(modelContext, std::move(executors));
    co_return true;
}

Task<void> ScanRepositories::finishSave() {
    if (!saving_) co_return;
    const auto saving = *std::exchange(saving_, std::nullopt);
    co_await saving.value();
}

Task<void> ScanRepositories::saveIfDirty() {
    co_await finishSave();
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
