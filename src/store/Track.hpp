#pragma once

#include "platform/model/Entity.hpp"
#include "store/FileStatus.hpp"
#include "store/TrackMetadata.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velto {

class FileItem;
class PlaylistItem;

struct TrackFields {
    std::optional<std::string> artist;
    std::optional<std::string> title;
    std::optional<std::string> album;
    std::optional<std::int64_t> trackNumber;
    std::optional<std::string> genre; ///< the plain text of the file's own tags
    std::optional<double> bpm;
    std::optional<double> durationSec;
    std::optional<std::int64_t> year;
    std::string canonicalSig;                        ///< unique: the identity of the song
    std::optional<Date> lastTagged;                  ///< none means not tagged
    std::optional<Date> lastSyncedAt;                ///< latest sync of this track with the backend
    std::optional<Date> createdAt;                   ///< earliest creation date of its files
    std::optional<std::vector<std::string>> genres;  ///< tags from the backend, in the order received
    std::optional<std::vector<std::string>> regions; ///< likewise
    std::optional<std::string> era;
    model::ToMany<FileItem> files;             ///< nullify; possibly in several libraries
    model::ToMany<PlaylistItem> playlistItems; ///< cascade
};

/// A song, shared by all files of the same canonicalSig in any library.
class Track final : public model::Entity<Track, TrackFields> {
  public:
    Track(std::string canonicalSig, TrackMetadata metadata);

    explicit Track(model::Loading) {}

    static model::EntityDescription describe();

    /// Whether the backend's copy is out of date.
    [[nodiscard]] bool needsSync() const;

    /// The file that stands for the song, to be played, shown or handed on: a ready one before a changed one
    /// before a new one before one that is missing or has an error, then the first that was inserted. Null
    /// without files.
    [[nodiscard]] model::Ref<FileItem> preferredFile() const;

    /// Worked out from the files' states; never `missing`.
    [[nodiscard]] FileStatus status() const;
};

using TrackRef = model::Ref<Track>;

} // namespace velto
