#include "store/StoreRepositories.hpp"

#include "platform/model/InBackground.hpp"
#include "store/RepositoryRules.hpp"

#include <algorithm>

namespace velto {

namespace {

FileItemRef firstOf(const LibraryRef& library, const std::string& relPath) {
    const auto& files = library->files;
    const auto found = std::find_if(files.begin(), files.end(),
                                    [&](const FileItemRef& file) { return file->relPath == relPath; });
    return found == files.end() ? FileItemRef() : *found;
}

} // namespace

SwiftDataTrackRepository::SwiftDataTrackRepository(ModelContext& modelContext,
                                                   const GenreTextParser* genreTextParser,
                                                   Executors executors)
    : modelContext_(modelContext)
    , genreTextParser_(genreTextParser)
    , executors_(std::move(executors)) {}

Task<TrackRef> SwiftDataTrackRepository::upsertTrack(TrackMetadata metadata, std::string canonicalSig) {
    metadata = rules::withRecognisedTags(std::move(metadata), genreTextParser_);
    TrackRef track = modelContext_.findUnique<Track>("canonicalSig", canonicalSig);
    if (track) {
        rules::update(track, std::move(metadata));
    } else {
        track = model::make<Track>(std::move(canonicalSig), std::move(metadata));
        modelContext_.insert(track);
    }
    co_await model::saveInBackground(modelContext_, executors_);
    co_return track;
}

Task<void> SwiftDataTrackRepository::linkFile(FileItemRef file, TrackRef track) {
    rules::link(file, track);
    co_await model::saveInBackground(modelContext_, executors_);
}

SwiftDataFileRepository::SwiftDataFileRepository(ModelContext& modelContext, const Clock& clock,
                                                 Executors executors)
    : modelContext_(modelContext)
    , clock_(clock)
    , executors_(std::move(executors)) {}

Task<FileItemRef> SwiftDataFileRepository::ensureFile(LibraryRef library, FileSystemInfo info) {
    FileItemRef file = firstOf(library, info.relPath);
    if (!file) {
        file = rules::makeFile(library, info, clock_.now());
    } else {
        rules::refresh(file, info, clock_.now());
        if (!file->creationDate) rules::fetchCreationDate(file);
    }
    co_await model::saveInBackground(modelContext_, executors_);
    co_return file;
}

Task<FileItemRef> SwiftDataFileRepository::findFile(LibraryRef library, std::string relPath) {
    co_return firstOf(library, relPath);
}

Task<void> SwiftDataFileRepository::updateAudioProperties(FileItemRef file, std::optional<double> durationSec,
                                                          std::optional<std::int64_t> bitrateKbps,
                                                          std::optional<std::int64_t> samplerateHz,
                                                          std::optional<std::int64_t> channels) {
    rules::setAudioProperties(file, durationSec, bitrateKbps, samplerateHz, channels, clock_.now());
    co_await model::saveInBackground(modelContext_, executors_);
}

Task<void> SwiftDataFileRepository::markMissing(LibraryRef library,
                                                const std::unordered_set<std::string>& seen) {
    for (const auto& file : library->files)
        rules::markIfMissing(file, seen);
    co_await model::saveInBackground(modelContext_, executors_);
}

Task<void> SwiftDataFileRepository::updateStatus(FileItemRef file, FileStatus status,
                                                 std::optional<std::string> message) {
    rules::setStatus(file, status, std::move(message));
    co_await model::saveInBackground(modelContext_, executors_);
}

Task<void> SwiftDataFileRepository::updateSignatures(FileItemRef file, std::optional<std::string> quickSig,
                                                     std::optional<std::string> fileHash) {
    rules::setSignatures(file, std::move(quickSig), std::move(fileHash));
    co_await model::saveInBackground(modelContext_, executors_);
}

Task<std::vector<FileItemRef>> SwiftDataFileRepository::filesNeedingProcessing(LibraryRef library) {
    std::vector<FileItemRef> files;
    for (const auto& file : library->files)
        if (file->status == FileStatus::new_ || file->status == FileStatus::changed) files.push_back(file);
    std::stable_sort(files.begin(), files.end(), [](const FileItemRef& left, const FileItemRef& right) {
        return left->relPath < right->relPath;
    });
    co_return files;
}

SwiftDataScanRunRepository::SwiftDataScanRunRepository(ModelContext& modelContext, const Clock& clock,
                                                       Executors executors)
    : modelContext_(modelContext)
    , clock_(clock)
    , executors_(std::move(executors)) {}

Task<ScanRunRef> SwiftDataScanRunRepository::startScanRun(LibraryRef library) {
    auto scanRun = model::make<ScanRun>(library, clock_.now());
    modelContext_.insert(scanRun);
    co_await model::saveInBackground(modelContext_, executors_);
    co_return scanRun;
}

Task<void> SwiftDataScanRunRepository::finishScanRun(ScanRunRef scanRun, std::int64_t totalSeen,
                                                     std::int64_t newCount, std::int64_t changedCount,
                                                     std::int64_t missingCount, std::int64_t errorCount,
                                                     std::optional<std::string> notes) {
    auto& fields = scanRun->edit();
    fields.finishedAt = clock_.now();
    fields.totalSeen = totalSeen;
    fields.newCount = newCount;
    fields.changedCount = changedCount;
    fields.missingCount = missingCount;
    fields.errorCount = errorCount;
    fields.notes = std::move(notes);
    co_await model::saveInBackground(modelContext_, executors_);
}

} // namespace velto
