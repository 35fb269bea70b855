#pragma once

#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/Executors.hpp"
#include "store/Entities.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace velto {

/// The counts of a run, in the order of its fields.
struct ScanStats {
    std::int64_t totalSeen = 0;
    std::int64_t newCount = 0;
    std::int64_t changedCount = 0;
    std::int64_t missingCount = 0;
    std::int64_t errorCount = 0;
};

/// The record of each scan. Both operations save. Main actor; what is given to the constructor outlives the
/// object. Fails with StoreError.
class ScanRunRepository {
  public:
    ScanRunRepository(ModelContext& modelContext, const Clock& clock, Executors executors);

    /// A run that cannot be written is not made by a later save either.
    Task<ScanRunRef> startScanRun(LibraryRef library);
    Task<void> finishScanRun(ScanRunRef scanRun, ScanStats stats, std::optional<std::string> notes);

  private:
    ModelContext& modelContext_;
    const Clock& clock_;
    Executors executors_;
};

} // namespace velto
