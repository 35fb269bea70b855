#pragma once

#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/Executors.hpp"
#include "store/Repositories.hpp"

namespace velto {

class GenreTextParser;

// The direct implementations: every operation that changes something saves before it returns. They hold
// references only; what is given to a constructor outlives the object. Those that take executors have the
// pool write what may be a whole library's rows; where they are optional and missing, the main actor writes.

class SwiftDataLibraryRepository final : public LibraryRepository {
  public:
    SwiftDataLibraryRepository(ModelContext& modelContext, const Clock& clock, Executors executors);

    Task<std::vector<LibraryRef>> libraries() override;
    Task<LibraryRef> upsertLibrary(std::string name, std::string rootPath,
                                   std::optional<std::string> includeGlob,
                                   std::optional<std::string> excludeGlob) override;
    Task<void> deleteLibrary(LibraryRef library) override;
    Task<Gate::Pass> holdDeletions() override;
    Task<void> updateScanTimes(LibraryRef library, std::optional<Date> startedAt,
                               std::optional<Date> finishedAt) override;

  private:
    Task<void> deleteOrphans(std::vector<TrackRef> tracks);

    ModelContext& modelContext_;
    const Clock& clock_;
    Executors executors_;
    Gate deletions_;
};

class SwiftDataTrackRepository final : public TrackRepository {
  public:
    /// `genreTextParser` may be null: then no tags are recognised in a file's genre text.
    SwiftDataTrackRepository(ModelContext& modelContext, const GenreTextParser* genreTextParser,
                             Executors executors);

    Task<TrackRef> upsertTrack(TrackMetadata metadata, std::string canonicalSig) override;
    Task<void> linkFile(FileItemRef file, TrackRef track) override;

  private:
    ModelContext& modelContext_;
    const GenreTextParser* genreTextParser_;
    Executors executors_;
};

class SwiftDataFileRepository final : public FileRepository {
  public:
    SwiftDataFileRepository(ModelContext& modelContext, const Clock& clock, Executors executors);

    Task<FileItemRef> ensureFile(LibraryRef library, FileSystemInfo info) override;
    Task<FileItemRef> findFile(LibraryRef library, std::string relPath) override;
    Task<void> updateAudioProperties(FileItemRef file, std::optional<double> durationSec,
                                     std::optional<std::int64_t> bitrateKbps,
                                     std::optional<std::int64_t> samplerateHz,
                                     std::optional<std::int64_t> channels) override;
    Task<void> markMissing(LibraryRef library, const std::unordered_set<std::string>& seen) override;
    Task<void> updateStatus(FileItemRef file, FileStatus status, std::optional<std::string> message) override;
    Task<void> updateSignatures(FileItemRef file, std::optional<std::string> quickSig,
                                std::optional<std::string> fileHash) override;
    Task<std::vector<FileItemRef>> filesNeedingProcessing(LibraryRef library) override;

  private:
    ModelContext& modelContext_;
    const Clock& clock_;
    Executors executors_;
};

class SwiftDataScanRunRepository final : public ScanRunRepository {
  public:
    SwiftDataScanRunRepository(ModelContext& modelContext, const Clock& clock, Executors executors);

    Task<ScanRunRef> startScanRun(LibraryRef library) override;
    Task<void> finishScanRun(ScanRunRef scanRun, std::int64_t totalSeen, std::int64_t newCount,
                             std::int64_t changedCount, std::int64_t missingCount, std::int64_t errorCount,
                             std::optional<std::string> notes) override;

  private:
    ModelContext& modelContext_;
    const Clock& clock_;
    Executors executors_;
};

} // namespace velto
