#pragma once

#include "store/StoreRepositories.hpp"

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velto {

// For one scan: the results of the direct repositories, with nothing saved. Whoever runs the scan saves and
// clears the mark that changes are pending.

/// Looks files up by an index of its own that follows what others do to the library, for callers that come
/// with single files. The scan's save, which holds the main actor's turns in its own hand, keeps a map of its
/// own.
class BatchOptimizedFileRepository final : public FileRepository {
  public:
    BatchOptimizedFileRepository(ModelContext& modelContext, const Clock& clock, Executors executors);

    Task<FileItemRef> ensureFile(LibraryRef library, FileSystemInfo info) override;
    Task<FileItemRef> findFile(LibraryRef library, std::string relPath) override;
    Task<void> updateAudioProperties(FileItemRef file, std::optional<double> durationSec,
                                     std::optional<std::int64_t> bitrateKbps,
                                     std::optional<std::int64_t> samplerateHz,
                                     std::optional<std::int64_t> channels) override;
    /// In turns that give way to the main actor.
    Task<void> markMissing(LibraryRef library, const std::unordered_set<std::string>& seen) override;
    Task<void> updateStatus(FileItemRef file, FileStatus status, std::optional<std::string> message) override;
    Task<void> updateSignatures(FileItemRef file, std::optional<std::string> quickSig,
                                std::optional<std::string> fileHash) override;
    Task<std::vector<FileItemRef>> filesNeedingProcessing(LibraryRef library) override;

    /// Set by every operation that changes an object, and by callers that change one themselves.
    bool pendingSaves = false;

  private:
    [[nodiscard]] FileItemRef lookUp(const LibraryRef& library, const std::string& relPath);

    ModelContext& modelContext_;
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

    /// Puts every track of the store into the cache, in turns that give way to the main actor, and makes
    /// room for `expected` more; does nothing the second time.
    Task<void> preloadCache(std::size_t expected = 0);

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
