#include "scanning/DeferredSave.hpp"

#include "platform/concurrency/Executors.hpp"
#include "platform/core/Error.hpp"
#include "platform/log/Log.hpp"
#include "platform/text/PathParts.hpp"
#include "store/CanonicalSignature.hpp"

#include <algorithm>
#include <exception>
#include <utility>

namespace velto {

namespace {

constexpr std::size_t trackBatchSize = 6;
constexpr std::size_t filesPerSave = 1'000;
/// Some 2 ms of work: the main actor draws the window as well.
constexpr std::size_t filesPerTurn = 200;

std::string orNil(const std::optional<std::string>& text) {
    return text.value_or("nil");
}

TrackMetadata trackMetadata(const AudioMetadata& metadata) {
    TrackMetadata track;
    track.artist = metadata.artist;
    track.title = metadata.title;
    track.album = metadata.album;
    track.trackNumber = metadata.trackNumber;
    track.genre = metadata.genre;
    track.bpm = metadata.bpm;
    track.durationSec = metadata.durationSec;
    track.year = metadata.year;
    return track;
}

std::optional<std::int64_t> fileNumber(const FileSystemInfo& info) {
    return info.fileNumber == 0 ? std::nullopt : std::optional(static_cast<std::int64_t>(info.fileNumber));
}

void fillCreationDate(const FileItemRef& file, const FileSystemInfo& info) {
    if (!file->creationDate && info.creationDate) file->edit().creationDate = info.creationDate;
}

} // namespace

DeferredSave::DeferredSave(ScanRepositories& repositories, ProgressActor& progress, const Clock& clock,
                           LibraryRef library, std::vector<ProcessResult>& results,
                           const std::vector<MovedFile>& moved, ScanStats& stats)
    : repositories_(repositories)
    , progress_(progress)
    , clock_(clock)
    , library_(std::move(library))
    , results_(results)
    , moved_(moved)
    , stats_(stats) {}

Task<void> DeferredSave::run() {
    const Date start = clock_.now();
    if (library_->isDeleted())
        throw ScannerError(ScannerError::Case::libraryNotAccessible, library_->rootPath);
    co_await prepare();
    co_await recordFiles();
    co_await upsertTracks();
    co_await attachFiles();
    log::line("💽 [SAVE] Saving all changes...");
    const Date saveStart = clock_.now();
    co_await repositories_.saveIfDirty();
    log::line("🎉 [SAVE] Database saved in {:.2f}s", clock_.secondsSince(saveStart));
    log::line("🏆 [DEFERRED] Single-transaction save completed in {:.2f}s", clock_.secondsSince(start));
}

Task<void> DeferredSave::prepare() {
    log::line("🏗️ [DEFERRED] Starting optimized single-transaction save for {} results",
              results_.size());
    co_await repositories_.tracks.preloadCache(results_.size());
    log::line("✅ [CACHE] Pre-loaded track cache");
    log::line("📋 [DEFERRED] Pre-loading existing files for comparison...");
    existingFiles_ = co_await repositories_.files.filesByPath(library_);
    log::line("📋 [DEFERRED] Found {} existing files in library", existingFiles_.size());
    co_await applyMoves();
    log::line("⚙️ [DEFERRED] Processing {} results in single transaction...", results_.size());
}

/// A record that moved is found under its new path from now on, and is one whose signature differs.
Task<void> DeferredSave::applyMoves() {
    for (std::size_t i = 0; i < moved_.size(); ++i) {
        const FileItemRef& record = moved_[i].record;
        const FileSystemInfo& info = *results_[moved_[i].result].fileInfo;
        const std::string& path = info.relPath;
        const auto known = existingFiles_.find(record->relPath);
        if (record->isDeleted() || known == existingFiles_.end() || known->second != record) continue;
        log::line("🚚 [DEFERRED] Moved: {} is {} now", record->relPath, path);
        existingFiles_.erase(known); // its key is the text that changes
        FileItemFields& fields = record->edit();
        fields.relPath = path;
        fields.absPath = info.absPath;
        fields.filename = lastPathComponent(path);
        fields.ext = pathExtension(path);
        existingFiles_.emplace(record->relPath, record);
        co_await giveWay(i);
    }
}

Task<void> DeferredSave::giveWay(std::size_t index) {
    if ((index + 1) % filesPerTurn != 0 && !turn_.isOver()) co_return;
    co_await yieldNow();
    turn_ = Turn();
}

Task<void> DeferredSave::recordFiles() {
    const Date start = clock_.now();
    for (std::size_t i = 0; i < results_.size(); ++i) {
        if (i % 50 == 0) {
            const double seconds = clock_.secondsSince(start);
            log::line("⚙️ [DEFERRED] Database processing: {}/{} | Avg: {:.4f}s/file | Total: {:.2f}s", i,
                      results_.size(), seconds / static_cast<double>(std::max<std::size_t>(i, 1)), seconds);
            progress_.update(static_cast<std::int64_t>(i), "Saving " + results_[i].relPath);
        }
        co_await recordFile(i);
        if ((i + 1) % filesPerSave == 0) {
            log::line("🧹 [BATCH SAVE] Saving batch after {} files to prevent memory bloat", i + 1);
            co_await repositories_.startSave();
        }
        co_await giveWay(i);
    }
}

/// A refused file keeps what its record says of it; one without a record gets one, so that it is known and
/// listed, and no track.
void DeferredSave::recordFailure(ProcessResult& result) {
    if (!result.error) {
        log::line("⚠️ [DEFERRED] File has no metadata: {}", result.relPath);
        log::line(
            "⚠️ [DEFERRED]   This shouldn't happen - error should be set if metadata extraction failed");
        return;
    }
    ++stats_.errorCount;
    const std::string reason = describe(result.error);
    log::line("❌ [DEFERRED] File has error: {}", result.relPath);
    log::line("❌ [DEFERRED]   Error: {}", reason);
    const auto existing = existingFiles_.find(result.relPath);
    const bool isNew = existing == existingFiles_.end();
    const FileItemRef file = isNew ? makeFile(*result.fileInfo) : existing->second;
    if (isNew) file->edit().quickSig = std::move(result.quickSig);
    if (isNew || file->status != FileStatus::error || file->errorMsg != reason) {
        file->edit().status = FileStatus::error;
        file->edit().errorMsg = reason;
        repositories_.files.pendingSaves = true;
    }
}

FileItemRef DeferredSave::makeFile(const FileSystemInfo& info) {
    const std::string name(lastPathComponent(info.absPath));
    const auto file =
        model::make<FileItem>(info.absPath, info.relPath, name, std::string(pathExtension(name)),
                              info.sizeBytes, info.mtime, FileStatus::new_, clock_.now());
    file->edit().inode = fileNumber(info);
    fillCreationDate(file, info);
    file->edit().library = library_; // the library's list follows
    return file;
}

void DeferredSave::refreshFile(const FileItemRef& file, const FileSystemInfo& info, bool isUnchanged) {
    FileItemFields& fields = file->edit();
    fields.lastSeen = clock_.now();
    fields.inode = fileNumber(info);
    if (isUnchanged) {
        fields.status = FileStatus::ready; // it may have been missing or unreadable for a while
        fields.errorMsg = std::nullopt;
    } else {
        ++stats_.changedCount;
        fields.absPath = info.absPath;
        fields.sizeBytes = info.sizeBytes;
        fields.mtime = info.mtime;
    }
    fillCreationDate(file, info);
    repositories_.files.pendingSaves = true;
}

Task<void> DeferredSave::recordFile(std::size_t index) {
    ProcessResult& result = results_[index];
    const Date start = clock_.now();
    if (result.error || result.metadata.empty()) {
        recordFailure(result);
        result.fileInfo.reset();
        co_return;
    }
    Timing timing;
    const auto existing = existingFiles_.find(result.relPath);
    const bool isNew = existing == existingFiles_.end();
    timing.lookup = clock_.secondsSince(start);
    const bool isUnchanged =
        !isNew && existing->second->track && existing->second->quickSig == result.quickSig;
    if (isNew) {
        ++stats_.newCount;
        co_await prepareAttachment(makeFile(*result.fileInfo), index, timing);
    } else {
        refreshFile(existing->second, *result.fileInfo, isUnchanged);
        if (!isUnchanged) co_await prepareAttachment(existing->second, index, timing);
    }
    if (isUnchanged) std::string().swap(result.metadata); // an assignment would keep its room
    logDetail(index, start, timing);
    result.fileInfo.reset(); // the record has its own
}

Task<void> DeferredSave::prepareAttachment(FileItemRef file, std::size_t index, Timing& timing) {
    const Date start = clock_.now();
    // The signature says that the file is done. It follows with the track: a process that is killed after
    // one of the saves on the way leaves a file that the next scan takes up again.
    file->edit().quickSig = std::nullopt;
    file->edit().fileHash = std::nullopt;
    repositories_.files.pendingSaves = true;
    const Date audioStart = clock_.now();
    const bool isWritten = co_await writeAudioProperties(file, index);
    timing.fileRepository = clock_.secondsSince(start);
    if (!isWritten) {
        file->edit().quickSig = std::move(results_[index].quickSig);
        co_return;
    }
    attachments_.push_back({file, index, nullptr});
    if (index % 500 == 0)
        log::line("🔍 [PHASE 1] Collected file {}: sig={:.4f}s audio={:.4f}s", index,
                  Seconds(audioStart - start).count(), clock_.secondsSince(audioStart));
}

Task<bool> DeferredSave::writeAudioProperties(FileItemRef file, std::size_t index) {
    ProcessResult& result = results_[index];
    const AudioMetadata metadata = unpacked(result.metadata);
    try {
        co_await repositories_.files.updateAudioProperties(file, metadata.durationSec, metadata.bitrateKbps,
                                                           metadata.samplerateHz, metadata.channels);
        co_return true;
    } catch (const std::exception& failure) {
        log::line("❌ [PHASE 1] Failed to update file info for {}: {}", result.relPath, describe(failure));
        log::line("❌ [PHASE 1]   File will be skipped for track processing!");
        ++stats_.errorCount;
        co_return false;
    }
}

void DeferredSave::logDetail(std::size_t index, Date start, const Timing& timing) const {
    const double total = clock_.secondsSince(start);
    if (total <= 0.1 && index % 100 != 0) return;
    log::line("📊 [DETAIL] File {} ({}): lookup {:.4f}s fileRepo={:.4f}s total={:.4f}s", index,
              results_[index].fileInfo->filename, timing.lookup, timing.fileRepository, total);
}

Task<void> DeferredSave::upsertTracks() {
    const Date start = clock_.now();
    const std::size_t count = attachments_.size();
    const std::size_t batches = (count + trackBatchSize - 1) / trackBatchSize;
    log::line("🚀 [CONCURRENT] Processing {} tracks in batches of {}...", count, trackBatchSize);
    for (std::size_t batch = 0; batch < batches; ++batch) {
        const std::size_t first = batch * trackBatchSize;
        const std::size_t end = std::min(first + trackBatchSize, count);
        log::line("🔄 [CONCURRENT] Processing batch {}/{} ({} tracks)", batch + 1, batches, end - first);
        // The children of a batch share the main actor and never suspend: one after the other is the same.
        for (std::size_t i = first; i < end; ++i) {
            co_await upsertTrack(i);
            co_await giveWay(i);
        }
    }
    const double seconds = clock_.secondsSince(start);
    log::line("✅ [CONCURRENT] Track processing completed in {:.2f}s ({:.1f} tracks/sec)", seconds,
              filesPerSecond(count, seconds));
}

Task<void> DeferredSave::upsertTrack(std::size_t index) {
    const AudioMetadata metadata =
        unpacked(std::exchange(results_[attachments_[index].result].metadata, std::string()));
    log::line("🔍 [TRACK CREATE] Attempting to create track {}: artist={} title={}", index,
              orNil(metadata.artist), orNil(metadata.title));
    try {
        const FileItemRef& file = attachments_[index].file;
        TrackMetadata track = trackMetadata(metadata);
        std::optional<std::string> genreBefore = file->genreText;
        attachments_[index].track =
            co_await repositories_.tracks.upsertTrack(std::move(track), std::move(genreBefore));
        file->edit().genreText = metadata.genre.value_or("");
        log::line("✅ [TRACK CREATE] Successfully created track {}: {}", index,
                  metadata.title.value_or("Unknown Title"));
    } catch (const std::exception& failure) {
        logUpsertFailure(index, metadata, failure);
    }
}

void DeferredSave::logUpsertFailure(std::size_t index, const AudioMetadata& metadata,
                                    const std::exception& failure) const {
    const std::string signature =
        canonicalSig(metadata.artist, metadata.title, metadata.album, metadata.durationSec);
    log::line("❌ [TRACK CREATE] Failed to upsert track {}: {}", index, describe(failure));
    log::line("❌ [TRACK CREATE]   Error type: {}", typeName(failure));
    log::line("❌ [TRACK CREATE]   Metadata: artist={} title={} canonicalSig={}...", orNil(metadata.artist),
              orNil(metadata.title), beginningOf(signature));
}

Task<void> DeferredSave::attachFiles() {
    const Date start = clock_.now();
    const auto delivered = std::count_if(attachments_.begin(), attachments_.end(),
                                         [](const Attachment& attachment) { return bool(attachment.track); });
    log::line("🔗 [ATTACHMENT] Attaching {} files to tracks...", attachments_.size());
    log::line("🔗 [ATTACHMENT] Track results count: {}", delivered);
    std::size_t failures = 0;
    for (std::size_t i = 0; i < attachments_.size(); ++i) {
        const FileItemRef file = attachments_[i].file;
        const TrackRef track = attachments_[i].track;
        if (track) {
            if (file->track && file->track != track) leftTracks_.push_back(file->track);
            co_await repositories_.tracks.linkFile(file, track);
        } else {
            log::line("⚠️ [ATTACHMENT] No track in results for file: {} (index: {})",
                      results_[attachments_[i].result].relPath, i);
            ++failures;
        }
        FileItemFields& fields = file->edit();
        fields.quickSig = std::move(results_[attachments_[i].result].quickSig);
        fields.status = track ? FileStatus::ready : FileStatus::error;
        fields.errorMsg = track ? std::nullopt : std::optional<std::string>("Failed to create/find track");
        repositories_.files.pendingSaves = true;
        co_await giveWay(i);
    }
    if (failures > 0) log::line("⚠️ [ATTACHMENT] Failed to attach {} files", failures);
    log::line("✅ [ATTACHMENT] File attachment completed in {:.2f}s", clock_.secondsSince(start));
}

} // namespace velto
