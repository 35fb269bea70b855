#pragma once

#include "platform/core/Date.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace velto {

/// What the progress bar of a tagging run shows.
struct TaggingProgress {
    std::int64_t totalTracks = 0;
    std::int64_t completedTracks = 0;
    Date startTime;

    bool operator==(const TaggingProgress&) const = default;
};

/// The sums of one tagging run, shared by its batches. Confined to the main actor.
struct TaggingState {
    std::int64_t totalTagged = 0;
    std::int64_t totalCredits = 0;
    std::vector<std::string> allErrors;
    std::int64_t unwrittenFiles = 0;
    std::optional<TaggingProgress> taggingProgress;
    std::optional<std::int64_t> globalRetryAfter; ///< milliseconds: the largest that the server asked for

    /// The number is the server's: it may be anything.
    void addCredits(std::int64_t consumed) {
        if (__builtin_add_overflow(totalCredits, consumed, &totalCredits))
            totalCredits = std::numeric_limits<std::int64_t>::max();
    }

    void foldRetryAfter(std::int64_t milliseconds) {
        globalRetryAfter = std::max(globalRetryAfter.value_or(milliseconds), milliseconds);
    }
};

/// How a tagging run ended, for whoever started it.
struct TaggingSummary {
    std::int64_t tagged = 0;
    std::int64_t credits = 0;
    std::vector<std::string> errors;
    std::int64_t unwrittenFiles = 0; ///< files whose genre could not be written; their tracks count as tagged
};

} // namespace velto
