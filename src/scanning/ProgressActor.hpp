#pragma once

#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/Published.hpp"
#include "scanning/ScanProgress.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace velto {

/// The one owner of a scanner's progress. Confined to the main actor.
class ProgressActor {
  public:
    explicit ProgressActor(const Clock& clock)
        : clock_(clock) {}

    [[nodiscard]] Published<std::optional<ScanProgress>>& current() { return currentProgress_; }

    /// Begins a stage.
    void set(ScanProgress progress) { currentProgress_ = std::move(progress); }

    void clear() { currentProgress_ = std::nullopt; }

    /// How many files the walk has seen so far.
    void discovered(std::int64_t files) {
        if (!currentProgress_.get() || currentProgress_.get()->phase != ImportPhase::discovering) return;
        ScanProgress next = *currentProgress_.get();
        next.processedFiles = files;
        currentProgress_ = std::move(next);
    }

    /// Moves the stage on and estimates the rest; nothing if no scan shows progress.
    void update(std::int64_t processed, std::string currentFile) {
        if (!currentProgress_.get()) return;
        ScanProgress next = *currentProgress_.get();
        next.estimatedTimeRemaining =
            estimatedTimeRemaining(clock_.secondsSince(next.startTime), processed, next.totalFiles);
        next.processedFiles = processed;
        next.currentFile = std::move(currentFile);
        currentProgress_ = std::move(next);
    }

  private:
    const Clock& clock_;
    Published<std::optional<ScanProgress>> currentProgress_;
};

} // namespace velto
