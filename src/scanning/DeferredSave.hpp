#pragma once

#include "platform/concurrency/Clock.hpp"
#include "scanning/ProgressActor.hpp"
#include "scanning/ScanRepositories.hpp"
#include "scanning/Scanner.hpp"
#include "scanning/UnseenFiles.hpp"

#include <cstddef>
#include <deque>
#include <vector>

namespace velto {

/// Brings the store into line with what a scan has read: file records, then tracks, then the attachment of
/// files to tracks. Runs on the main actor, to which it gives way every few hundred files; may be made and
/// destroyed elsewhere. Holds references: what it is given outlives it.
class DeferredSave {
  public:
    /// `results` keep their relPaths; the rest of them is used up on the way, which bounds the memory.
    DeferredSave(ScanRepositories& repositories, ProgressActor& progress, const Clock& clock,
                 LibraryRef library, std::vector<ProcessResult>& results, const std::vector<MovedFile>& moved,
                 ScanStats& stats);

    /// Nothing may be deleted meanwhile. Throws the store's errors: what was saved before stays, the rest
    /// stays unsaved in the context. Throws libraryNotAccessible if the library is gone.
    Task<void> run();

    /// The tracks that a file of this save left for another one.
    [[nodiscard]] const std::vector<TrackRef>& leftTracks() const { return leftTracks_; }

  private:
    /// A file that needs a track: new or changed. Its metadata is still in its result.
    struct Attachment {
        FileItemRef file;
        std::size_t result;
        TrackRef track; ///< null if the upsert failed
    };

    /// How long one file's steps took, for the log.
    struct Timing {
        double lookup = 0;
        double fileRepository = 0;
    };

    Task<void> prepare();
    Task<void> applyMoves();
    Task<void> recordFiles();
    Task<void> recordFile(std::size_t index);
    void recordFailure(ProcessResult& result);
    [[nodiscard]] FileItemRef makeFile(const FileSystemInfo& info);
    void refreshFile(const FileItemRef& file, const FileSystemInfo& info, bool isUnchanged);
    Task<void> prepareAttachment(FileItemRef file, std::size_t index, Timing& timing);
    Task<bool> writeAudioProperties(FileItemRef file, std::size_t index);
    void logDetail(std::size_t index, Date start, const Timing& timing) const;

    Task<void> upsertTracks();
    Task<void> upsertTrack(std::size_t index);
    void logUpsertFailure(std::size_t index, const AudioMetadata& metadata,
                          const std::exception& failure) const;
    Task<void> attachFiles();
    /// After the file of this index, if its turn of the main actor is over.
    Task<void> giveWay(std::size_t index);

    ScanRepositories& repositories_;
    ProgressActor& progress_;
    const Clock& clock_;
    LibraryRef library_;
    std::vector<ProcessResult>& results_;
    const std::vector<MovedFile>& moved_;
    ScanStats& stats_;
    FilesByPath existingFiles_;
    std::deque<Attachment> attachments_; ///< no vector: with a million files its growth is felt
    std::vector<TrackRef> leftTracks_;
    Turn turn_;
};

} // namespace velto
