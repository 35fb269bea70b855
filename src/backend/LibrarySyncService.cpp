#include "backend/LibrarySyncService.hpp"

#include <fmt/format.h>

#include <utility>

namespace velto {

namespace {

using Case = LibrarySyncError::Case;

std::string fullText(Case kind, const std::string& detail) {
    switch (kind) {
    case Case::libraryNotFound:
        return fmt::format("Library '{}' not found", detail);
    case Case::networkError:
        return "Network error: " + detail;
    case Case::serverError:
        return "Server error: " + detail;
    case Case::partialFailure:
        return "Partial sync failure: " + detail;
    case Case::notAuthenticated:
        return "Not authenticated. Please sign in.";
    case Case::noTracksToSync:
        return "No tracks need syncing";
    }
    return "";
}

std::string summary(std::int64_t synced, std::int64_t failed, const std::vector<TrackSyncError>& errors) {
    std::string text = fmt::format("{} succeeded, {} failed. Errors: ", synced, failed);
    for (std::size_t i = 0; i < errors.size(); ++i)
        text += (i > 0 ? "; " : "") + errors[i].message;
    return text;
}

} // namespace

LibrarySyncError::LibrarySyncError(Case kind, const std::string& detail)
    : Error(fullText(kind, detail))
    , kind_(kind) {}

LibrarySyncError::LibrarySyncError(std::int64_t syncedCount, std::int64_t failedCount,
                                   std::vector<TrackSyncError> errors)
    : Error(fullText(Case::partialFailure, summary(syncedCount, failedCount, errors)))
    , kind_(Case::partialFailure)
    , syncedCount_(syncedCount)
    , failedCount_(failedCount)
    , errors_(std::move(errors)) {}

} // namespace velto
