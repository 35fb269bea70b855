#include "scanning/ScanProgress.hpp"

#include <algorithm>

namespace velto {

std::string_view rawValue(ImportPhase phase) {
    switch (phase) {
    case ImportPhase::discovering:
        return "Scanning for tracks...";
    case ImportPhase::processing:
        return "Processing tracks...";
    case ImportPhase::saving:
        return "Adding to library...";
    case ImportPhase::completing:
        return "Finalizing...";
    }
    return "";
}

double estimatedTimeRemaining(double elapsed, std::int64_t processed, std::int64_t total) {
    const std::int64_t remaining = total - processed;
    if (remaining < 1) return 0;
    return elapsed / static_cast<double>(std::max<std::int64_t>(processed, 1)) *
           static_cast<double>(remaining);
}

double filesPerSecond(std::size_t count, double seconds) {
    return seconds > 0 ? static_cast<double>(count) / seconds : 0;
}

} // namespace velto
