#include "store/Track.hpp"

#include "store/FileItem.hpp"
#include "store/PlaylistItem.hpp"

namespace velto {

Track::Track(std::string itsCanonicalSig, TrackMetadata metadata) {
    auto& fields = edit();
    fields.canonicalSig = std::move(itsCanonicalSig);
    fields.artist = std::move(metadata.artist);
    fields.title = std::move(metadata.title);
    fields.album = std::move(metadata.album);
    fields.trackNumber = metadata.trackNumber;
    fields.genre = std::move(metadata.genre);
    fields.bpm = metadata.bpm;
    fields.durationSec = metadata.durationSec;
    fields.year = metadata.year;
    fields.genres = std::move(metadata.genres);
    fields.regions = std::move(metadata.regions);
    fields.era = std::move(metadata.era);
    fields.createdAt = metadata.createdAt;
}

model::EntityDescription Track::describe() {
    using model::DeleteRule;
    return model::EntityBuilder<Track>("Track")
        .attribute<&TrackFields::artist>("artist")
        .attribute<&TrackFields::title>("title")
        .attribute<&TrackFields::album>("album")
        .attribute<&TrackFields::trackNumber>("trackNumber")
        .attribute<&TrackFields::genre>("genre")
        .attribute<&TrackFields::bpm>("bpm")
        .attribute<&TrackFields::durationSec>("durationSec")
        .attribute<&TrackFields::year>("year")
        .uniqueAttribute<&TrackFields::canonicalSig>("canonicalSig")
        .attribute<&TrackFields::lastTagged>("lastTagged")
        .attribute<&TrackFields::lastSyncedAt>("lastSyncedAt")
        .attribute<&TrackFields::createdAt>("createdAt")
        .attribute<&TrackFields::genres>("genres")
        .attribute<&TrackFields::regions>("regions")
        .attribute<&TrackFields::era>("era")
        .toMany<&TrackFields::files, &FileItemFields::track>("files", DeleteRule::nullify)
        .toMany<&TrackFields::playlistItems, &PlaylistItemFields::track>("playlistItems", DeleteRule::cascade)
        .build();
}

bool Track::needsSync() const {
    if (!lastSyncedAt) return true;
    return lastTagged && *lastTagged > *lastSyncedAt;
}

FileItemRef Track::preferredFile() const {
    const auto rank = [](const FileItemRef& file) {
        switch (file->status) {
        case FileStatus::ready:
            return 0;
        case FileStatus::changed:
            return 1;
        case FileStatus::new_:
            return 2;
        default:
            return 3;
        }
    };
    FileItemRef best;
    for (const FileItemRef& file : files)
        if (!best || rank(file) < rank(best)) best = file;
    return best;
}

FileStatus Track::status() const {
    if (files.empty()) return FileStatus::new_;
    bool isAnyChanged = false;
    bool isAnyNew = false;
    for (const auto& file : files) {
        if (file->status == FileStatus::error || file->status == FileStatus::missing)
            return FileStatus::error;
        isAnyChanged = isAnyChanged || file->status == FileStatus::changed;
        isAnyNew = isAnyNew || file->status == FileStatus::new_;
    }
    if (isAnyChanged) return FileStatus::changed;
    return isAnyNew ? FileStatus::new_ : FileStatus::ready;
}

} // namespace velto
