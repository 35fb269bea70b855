#pragma once

#include "store/StoreRepositories.hpp"

#include <string>
#include <string_view>
#include <unordered_map>

namespace velto {

// For one scan: the results of the direct repositories, with nothing saved. Whoever runs the scan saves and
// clears the mark that changes are pending.

class BatchOptimizedFileRepository final : public FileRepository {
  public:
    BatchOptimizedFileRepository(ModelContext& modelContext, const Clock& clock);

    Task<FileItemRef> ensureFile(LibraryRef library, FileSystemInfo info) override;
    Task<FileItemRef> findFile(LibraryRef library, std::string relPath) override;
    Task<void> updateAudioProperties(FileItemRef file, std::optional<double> durationSec,
                                     std::optional<std::int64_t> bitrateKbps,
                                     std::optional<std::int64_t> samplerateHz,
                                     std::optional<std::int64_t> channels) override;
    Task<void> markMissing(LibraryRef library, std::unordered_set<std::string> seen) override;
    Task<void> updateStatus(FileItemRef file, FileStatus status, std::optional<std::string> message) override;
    Task<void> updateSignatures(FileItemRef file, std::optional<std::string> quickSig,
                                std::optional<std::string> fileHash) override;
    Task<std::vector<FileItemRef>> filesNeedingProcessing(LibraryRef library) override;

    /// Set by every operation that changes an object, and by callers that change one themselves.
    bool pendingSaves = false;

  private:
    [[nodiscard]] FileItemRef lookUp(const LibraryRef& library, const std::string& relPath);

    SwiftDataFileRepository underlying_;
    const Clock& clock_;
    LibraryRef indexedLibrary_;
    std::size_t indexedCount_ = 0;
    std::unordered_map<std::string, FileItemRef> index_; ///< by relative path
};

class BatchOptimizedTrackRepository final : public TrackRepository {
  public:
    /// `genreTextParser` may be null: then no tags are recognised in a file's genre text.
    BatchOptimizedTrackRepository(ModelContext& modelContext, const Clock& clock,
                                  const GenreTextParser* genreTextParser);

    /// Puts every track of the store into the cache; does nothing the second time.
    Task<void> preloadCache();

    Task<TrackRef> upsertTrack(TrackMetadata metadata, std::string canonicalSig) override;

    /// The same with the signature made from the metadata.
    Task<TrackRef> upsertTrack(TrackMetadata metadata);

    Task<void> linkFile(FileItemRef file, TrackRef track) override;

    /// Set by every operation that changes an object.
    bool pendingSaves = false;

  private:
    [[nodiscard]] TrackRef lookUp(const std::string& canonicalSig);

    ModelContext& modelContext_;
    const Clock& clock_;
    const GenreTextParser* genreTextParser_;
    std::unordered_map<std::string, TrackRef> trackCache_; ///< by canonicalSig
    bool cachePreloaded_ = false;
};

} // namespace velto
