#pragma once

#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/Gate.hpp"
#include "store/Entities.hpp"

#include <optional>
#include <string>
#include <vector>

namespace velto {

/// The libraries of the store. Every operation that changes something saves before it returns. Main actor;
/// what is given to the constructor outlives the object. Fails with StoreError.
class LibraryRepository {
  public:
    LibraryRepository(ModelContext& modelContext, const Clock& clock, Executors executors);

    /// All libraries sorted by name, as people sort names.
    Task<std::vector<LibraryRef>> libraries();

    /// Makes an enabled library of this name, or overwrites path and patterns of the one that has it. One
    /// that cannot be written is not made by a later save either.
    Task<LibraryRef> upsertLibrary(std::string name, std::string rootPath,
                                   std::optional<std::string> includeGlob,
                                   std::optional<std::string> excludeGlob);

    /// Deletes the library with its files and scan runs, then every track that no file is left of. What could
    /// not be deleted stays as it was.
    Task<void> deleteLibrary(LibraryRef library);

    /// The library's folder lies at `rootPath` now, with all of its files below. What cannot be written
    /// stays as it was.
    Task<void> relocateLibrary(LibraryRef library, std::string rootPath);

    /// Deletes the records of files that were missing at the last scan, then each of their tracks that no
    /// file is left of.
    Task<void> forgetFiles(std::vector<FileItemRef> missing);

    /// While somebody holds the pass, deleteLibrary waits: for whoever looks tracks up to give them files.
    Task<Gate::Pass> holdDeletions();

    /// Sets those of the two dates that are given.
    Task<void> updateScanTimes(LibraryRef library, std::optional<Date> startedAt,
                               std::optional<Date> finishedAt);

  private:
    Task<void> setRoot(LibraryRef library, std::string rootPath);
    Task<void> deleteOrphans(std::vector<TrackRef> tracks);

    ModelContext& modelContext_;
    const Clock& clock_;
    Executors executors_;
    Gate deletions_;
};

} // namespace velto
