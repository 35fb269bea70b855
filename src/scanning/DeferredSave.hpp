#pragma once

#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/Executors.hpp"
#include "scanning/ProgressActor.hpp"
#include "scanning/Scanner.hpp"
#include "store/BatchRepositories.hpp"

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace velto {

/// The batch repositories of one scan over one context, and the one door through which the scan saves. Main
/// actor.
class ScanRepositories {
  public:
    ScanRepositories(ModelContext& modelContext, Executors executors, const Clock& clock,
                     const GenreTextParser* genreTextParser)
        : files(modelContext, clock)
        , tracks(modelContext, clock, genreTextParser)
        , modelContext_(modelContext)
        , executors_(std::move(executors)) {}

    BatchOptimizedFileRepository files;
    BatchOptimizedTrackRepository tracks;

    /// Saves the context, in turns that give way, where one of the repositories has unsaved changes.
    Task<void> saveIfDirty();

  private:
    ModelContext& modelContext_;
    Executors executors_;
};

/// Brings the store into line with what a scan has read: file records, then tracks, then the attachment of
/// files to tracks. Confined to the main actor, to which it gives way every few hundred files. Holds
/// references: what it is given outlives it.
class DeferredSave {
  public:
    /// `results` keep their relPaths; the rest of them is used up on the way, which bounds the memory.
    DeferredSave(ScanRepositories& repositories, ProgressActor& progress, const Clock& clock,
                 LibraryRef library, std::vector<ProcessResult>& results, ScanStats& stats);

    /// Throws the store's errors: what was saved before stays, the rest stays unsaved in the context.
    Task<void> run();

  private:
    /// A file that needs a track: new or changed. Its metadata is still in its result.
    struct Attachment {
        FileItemRef file;
        std::size_t result;
        TrackRef track; ///< null where the upsert failed
    };

    /// How long one file's steps took, for the log.
    struct Timing {
        double lookup = 0;
        double fileRepository = 0;
    };

    Task<void> prepare();
    Task<void> recordFiles();
    Task<void> recordFile(std::size_t index);
    void logFailure(const ProcessResult& result);
    [[nodiscard]] FileItemRef makeFile(const FileSystemInfo& info);
    void refreshFile(const FileItemRef& file, const FileSystemInfo& info, bool isUnchanged);
    Task<void> prepareAttachment(FileItemRef file, std::size_t index, Timing& timing);
    Task<bool> writeAudioProperties(FileItemRef file, std::size_t index);
    void logDetail(std::size_t index, Date start, const Timing& timing) const;

    Task<void> upsertTracks();
    Task<void> upsertTrack(std::size_t index);
    void logUpsertFailure(std::size_t index, const AudioMetadata& metadata) const;
    Task<void> attachFiles();
    Task<void> giveWay(std::size_t index);

    ScanRepositories& repositories_;
    ProgressActor& progress_;
    const Clock& clock_;
    LibraryRef library_;
    std::vector<ProcessResult>& results_;
    ScanStats& stats_;
    /// By relPath; the keys are the records' own texts.
    std::unordered_map<std::string_view, FileItemRef> existingFiles_;
    std::vector<Attachment> attachments_;
};

} // namespace velto
