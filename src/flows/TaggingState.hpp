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

/// A line of a run's final message.
struct TaggingErrorLine {
    std::string text;
    std::string common; ///< the same for every batch or track that failed in this way
};

/// The sums of one tagging run, shared by its batches. Confined to the main actor.
struct TaggingState {
    std::int64_t totalTagged = 0;
    std::int64_t totalCredits = 0;
    std::vector<TaggingErrorLine> allErrors;
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

/// For the user: each line, and if there are many of them, those that have failed in the same way as one line
/// with their count.
[[nodiscard]] std::string textOfErrors(const std::vector<TaggingErrorLine>& errors);

/// Tracks that a run asked for, or meant to, and did not get tags for.
struct RefusedTracks {
    std::int64_t tracks = 0;
    std::string reason; ///< the user's text
};

/// How a tagging run ended, for whoever started it. All counts but the credits and files are of tracks;
/// `requested` is `tagged` and all that was refused.
struct TaggingSummary {
    std::int64_t requested = 0; ///< what the run was for: each track once, with artist and title
    std::int64_t tagged = 0;
    std::int64_t credits = 0;
    std::int64_t withoutArtistOrTitle = 0; ///< left out
    std::int64_t repeats = 0;              ///< further files of a song: left out
    std::vector<RefusedTracks> refused;    ///< batch by batch
    std::vector<TaggingErrorLine> errors;
    std::int64_t unwrittenFiles = 0; ///< files whose genre could not be written; their tracks count as tagged
    bool wasStopped = false;
    std::optional<std::string> saveFailure; ///< the user's text
    std::int64_t unsaved = 0;               ///< tagged and paid for, but not in the store; the log names them

    [[nodiscard]] std::int64_t untagged() const { return requested - tagged; }
};

/// How a clearing ended.
struct ClearingSummary {
    std::int64_t cleared = 0;
    std::int64_t unwrittenFiles = 0; ///< files whose genre could not be cleared; the log says which
    bool wasStopped = false;
    std::optional<std::string> saveFailure; ///< the user's text
};

} // namespace velto
