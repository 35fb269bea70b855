#include "store/RepositoryRules.hpp"

#include "platform/files/FileAttributes.hpp"
#include "platform/log/Log.hpp"

namespace velto::rules {

TrackMetadata withRecognisedTags(TrackMetadata metadata, const GenreTextParser* parser) {
    if (parser == nullptr || !metadata.genre) return metadata;
    RecognisedTags tags = parser->parse(*metadata.genre);
    if (!metadata.genres && !tags.genres.empty()) metadata.genres = std::move(tags.genres);
    if (!metadata.regions && !tags.regions.empty()) metadata.regions = std::move(tags.regions);
    if (!metadata.era) metadata.era = std::move(tags.era);
    return metadata;
}

void update(const TrackRef& track, TrackMetadata metadata) {
    const auto replace = [&](auto field, auto& value) {
        if (value && (*track).*field != value) track->edit().*field = std::move(value);
    };
    replace(&TrackFields::artist, metadata.artist);
    replace(&TrackFields::title, metadata.title);
    replace(&TrackFields::album, metadata.album);
    replace(&TrackFields::trackNumber, metadata.trackNumber);
    replace(&TrackFields::genre, metadata.genre);
    replace(&TrackFields::bpm, metadata.bpm);
    replace(&TrackFields::durationSec, metadata.durationSec);
    replace(&TrackFields::year, metadata.year);
    replace(&TrackFields::genres, metadata.genres);
    replace(&TrackFields::regions, metadata.regions);
    replace(&TrackFields::era, metadata.era);
    replace(&TrackFields::lastTagged, metadata.lastTagged);
}

void link(const FileItemRef& file, const TrackRef& track) {
    const bool hadNoFiles = track->files.empty();
    file->edit().track = track; // the track's list follows, and never holds a file twice
    if (file->creationDate && (!track->createdAt || *file->creationDate < *track->createdAt))
        track->edit().createdAt = file->creationDate;
    if (hadNoFiles && track->lastSyncedAt) {
        log::line("🔄 [REPO] Track '{}' was orphaned, clearing lastSyncedAt to force re-sync",
                  track->title.value_or("Unknown Title"));
        track->edit().lastSyncedAt.reset();
    }
}

FileItemRef makeFile(const LibraryRef& library, const FileSystemInfo& info, Date now) {
    auto file = model::make<FileItem>(info.absPath, info.relPath, info.filename, info.ext, info.sizeBytes,
                                      info.mtime, FileStatus::new_, now);
    file->edit().library = library;
    return file;
}

void refresh(const FileItemRef& file, const FileSystemInfo& info, Date now) {
    auto& fields = file->edit();
    fields.sizeBytes = info.sizeBytes;
    fields.mtime = info.mtime;
    fields.lastSeen = now;
}

void fetchCreationDate(const FileItemRef& file) {
    if (const auto date = files::creationDate(file->absPath)) file->edit().creationDate = date;
}

void setAudioProperties(const FileItemRef& file, std::optional<double> durationSec,
                        std::optional<std::int64_t> bitrateKbps, std::optional<std::int64_t> samplerateHz,
                        std::optional<std::int64_t> channels, Date now) {
    auto& fields = file->edit();
    fields.durationSec = durationSec;
    fields.bitrateKbps = bitrateKbps;
    fields.samplerateHz = samplerateHz;
    fields.channels = channels;
    fields.lastScannedAt = now;
}

void markIfMissing(const FileItemRef& file, const std::unordered_set<std::string>& seen) {
    if (file->status != FileStatus::missing && !seen.contains(file->relPath))
        file->edit().status = FileStatus::missing;
}

void setStatus(const FileItemRef& file, FileStatus status, std::optional<std::string> message) {
    auto& fields = file->edit();
    fields.status = status;
    fields.errorMsg = std::move(message);
}

void setSignatures(const FileItemRef& file, std::optional<std::string> quickSig,
                   std::optional<std::string> fileHash) {
    auto& fields = file->edit();
    fields.quickSig = std::move(quickSig);
    fields.fileHash = std::move(fileHash);
}

std::string dateText(std::optional<Date> date) {
    return date ? iso8601(*date) : "nil";
}

} // namespace velto::rules
