#pragma once

#include "platform/concurrency/Task.hpp"
#include "platform/core/Error.hpp"
#include "store/Library.hpp"
#include "store/Track.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velto {

struct SyncedLibrary {
    std::string id;
    std::string name;
    std::optional<std::string> lastSyncedAt;
};

struct LibrarySyncResult {
    bool success = false;
    std::optional<SyncedLibrary> library;
};

struct TrackSyncError {
    std::string canonicalSig;
    std::string message;
};

struct TrackSyncResult {
    bool success = false;
    std::optional<std::string> message;
    std::int64_t syncedCount = 0;
    std::int64_t failedCount = 0;
    std::vector<TrackSyncError> errors;
};

struct RemoveTracksResult {
    bool success = false;
    std::int64_t removedCount = 0;
};

struct DeleteLibraryResult {
    bool success = false;
    std::optional<std::string> message;
    std::int64_t deletedTracksCount = 0;
};

class LibrarySyncError : public Error {
  public:
    enum class Case {
        libraryNotFound,
        networkError,
        serverError,
        partialFailure,
        notAuthenticated,
        noTracksToSync
    };

    /// libraryNotFound, networkError and serverError end in `detail`; the others have none.
    explicit LibrarySyncError(Case kind, const std::string& detail = {});
    /// partialFailure.
    LibrarySyncError(std::int64_t syncedCount, std::int64_t failedCount, std::vector<TrackSyncError> errors);

    [[nodiscard]] Case kind() const { return kind_; }

    [[nodiscard]] std::int64_t syncedCount() const { return syncedCount_; }

    [[nodiscard]] std::int64_t failedCount() const { return failedCount_; }

    [[nodiscard]] const std::vector<TrackSyncError>& errors() const { return errors_; }

  private:
    Case kind_;
    std::int64_t syncedCount_ = 0;
    std::int64_t failedCount_ = 0;
    std::vector<TrackSyncError> errors_;
};

/// Keeps the backend's copy of a library current; the library's name is its key there. Called on the main
/// actor. It stamps `lastSyncedAt` on tracks but never saves: its callers do. All but syncInBackground throw
/// LibrarySyncError, GraphQLClientError or http::URLError.
class LibrarySyncService {
  public:
    virtual ~LibrarySyncService() = default;

    virtual Task<LibrarySyncResult> syncLibrary(LibraryRef library) = 0;
    virtual Task<TrackSyncResult> syncTracks(LibraryRef library, std::vector<TrackRef> tracks) = 0;
    virtual Task<RemoveTracksResult> removeTracks(LibraryRef library,
                                                  std::vector<std::string> canonicalSigs) = 0;
    virtual Task<DeleteLibraryResult> deleteLibrary(LibraryRef library) = 0;
    /// Never throws: every failure ends in a log line.
    virtual Task<void> syncInBackground(LibraryRef library) = 0;
};

} // namespace velto
