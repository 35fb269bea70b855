#pragma once

#include "platform/concurrency/Gate.hpp"
#include "store/Entities.hpp"
#include "store/FileSystemInfo.hpp"
#include "store/TrackMetadata.hpp"

#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

// All operations run on the main actor and must be called there. Of the direct implementations none suspends
// between its first read and its last change in memory; a save may. Each fails with StoreError.

namespace velto {

class LibraryRepository {
  public:
    virtual ~LibraryRepository() = default;

    /// All libraries sorted by name, ascending.
    virtual Task<std::vector<LibraryRef>> libraries() = 0;

    /// Makes an enabled library of this name, or overwrites path and patterns of the one that has it.
    virtual Task<LibraryRef> upsertLibrary(std::string name, std::string rootPath,
                                           std::optional<std::string> includeGlob,
                                           std::optional<std::string> excludeGlob) = 0;

    /// Deletes the library with its files and scan runs, then every track that no file is left of. What could
    /// not be deleted stays as it was.
    virtual Task<void> deleteLibrary(LibraryRef library) = 0;

    /// While somebody holds the pass, deleteLibrary waits: for who looks tracks up to give them files, and
    /// for who deletes by other ways.
    virtual Task<Gate::Pass> holdDeletions() = 0;

    /// Sets those of the two dates that are given.
    virtual Task<void> updateScanTimes(LibraryRef library, std::optional<Date> startedAt,
                                       std::optional<Date> finishedAt) = 0;
};

class TrackRepository {
  public:
    virtual ~TrackRepository() = default;

    /// The track of this signature: made where there is none, else brought up to date by what `metadata`
    /// holds.
    virtual Task<TrackRef> upsertTrack(TrackMetadata metadata, std::string canonicalSig) = 0;

    /// Makes the file one of the track's.
    virtual Task<void> linkFile(FileItemRef file, TrackRef track) = 0;
};

class FileRepository {
  public:
    virtual ~FileRepository() = default;

    /// The library's file of this relative path: made where there is none, else brought up to date.
    virtual Task<FileItemRef> ensureFile(LibraryRef library, FileSystemInfo info) = 0;

    /// The first file of the library with this relative path; null where there is none.
    virtual Task<FileItemRef> findFile(LibraryRef library, std::string relPath) = 0;

    /// Writes the four values as given, absent ones too, and the moment of the scan.
    virtual Task<void> updateAudioProperties(FileItemRef file, std::optional<double> durationSec,
                                             std::optional<std::int64_t> bitrateKbps,
                                             std::optional<std::int64_t> samplerateHz,
                                             std::optional<std::int64_t> channels) = 0;

    /// Every file of the library whose relative path is not in `seen` becomes `missing`. `seen` may be large:
    /// it is not copied and must live until the operation has ended.
    virtual Task<void> markMissing(LibraryRef library, const std::unordered_set<std::string>& seen) = 0;

    virtual Task<void> updateStatus(FileItemRef file, FileStatus status,
                                    std::optional<std::string> message) = 0;

    virtual Task<void> updateSignatures(FileItemRef file, std::optional<std::string> quickSig,
                                        std::optional<std::string> fileHash) = 0;

    /// Files with status `new` or `changed`, in the order of their relative paths.
    virtual Task<std::vector<FileItemRef>> filesNeedingProcessing(LibraryRef library) = 0;
};

class ScanRunRepository {
  public:
    virtual ~ScanRunRepository() = default;

    virtual Task<ScanRunRef> startScanRun(LibraryRef library) = 0;

    virtual Task<void> finishScanRun(ScanRunRef scanRun, std::int64_t totalSeen, std::int64_t newCount,
                                     std::int64_t changedCount, std::int64_t missingCount,
                                     std::int64_t errorCount, std::optional<std::string> notes) = 0;
};

} // namespace velto
