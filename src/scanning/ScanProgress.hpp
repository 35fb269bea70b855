#pragma once

#include "platform/core/Date.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// Phases in the order of a scan.
enum class ImportPhase {
    discovering,
    processing,
    saving,
    completing,
};

/// The text that the progress display shows for a phase.
[[nodiscard]] std::string_view rawValue(ImportPhase phase);

struct ScanProgress {
    ImportPhase phase = ImportPhase::discovering;
    std::int64_t totalFiles = 0; ///< 0 while discovering
    std::int64_t processedFiles = 0;
    std::optional<std::string> currentFile; ///< a file's relPath or a status text
    Date startTime;
    std::optional<double> estimatedTimeRemaining; ///< seconds; absent until there is a first estimate

    bool operator==(const ScanProgress&) const = default;
};

/// Seconds that the files still to do will take at the pace so far, `elapsed` seconds for `processed` files.
[[nodiscard]] double estimatedTimeRemaining(double elapsed, std::int64_t processed, std::int64_t total);

/// 0 if no time has passed.
[[nodiscard]] double filesPerSecond(std::size_t count, double seconds);

} // namespace velto
