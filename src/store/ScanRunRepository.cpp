#include "store/ScanRunRepository.hpp"

#include "platform/model/InBackground.hpp"

namespace velto {

ScanRunRepository::ScanRunRepository(ModelContext& modelContext, const Clock& clock, Executors executors)
    : modelContext_(modelContext)
    , clock_(clock)
    , executors_(std::move(executors)) {}

Task<ScanRunRef> ScanRunRepository::startScanRun(LibraryRef library) {
    auto scanRun = model::make<ScanRun>(library, clock_.now());
    modelContext_.insert(scanRun);
    try {
        const model::SaveOutcome saved = co_await model::saveInBackground(modelContext_, executors_);
        saved.throwIfRefused(scanRun);
    } catch (...) {
        modelContext_.remove(scanRun); // or the next save of anything would make it after all
        throw;
    }
    co_return scanRun;
}

Task<void> ScanRunRepository::finishScanRun(ScanRunRef scanRun, ScanStats stats,
                                            std::optional<std::string> notes) {
    auto& fields = scanRun->edit();
    fields.finishedAt = clock_.now();
    fields.totalSeen = stats.totalSeen;
    fields.newCount = stats.newCount;
    fields.changedCount = stats.changedCount;
    fields.missingCount = stats.missingCount;
    fields.errorCount = stats.errorCount;
    fields.notes = std::move(notes);
    co_await model::saveInBackground(modelContext_, executors_);
}

} // namespace velto
