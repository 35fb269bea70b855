#pragma once

#include "platform/model/Entity.hpp"

#include <cstdint>

namespace velto {

class Playlist;
class Track;

struct PlaylistItemFields {
    Uuid id;                ///< unique
    std::int64_t order = 0; ///< position in the playlist
    Date addedAt;
    model::ToOne<Playlist> playlist;
    model::ToOne<Track> track;
};

/// An entry of a playlist.
class PlaylistItem final : public model::Entity<PlaylistItem, PlaylistItemFields> {
  public:
    /// The caller sets `playlist`.
    PlaylistItem(const model::Ref<Track>& track, std::int64_t order, Date now);

    explicit PlaylistItem(model::Loading) {}

    static model::EntityDescription describe();
};

using PlaylistItemRef = model::Ref<PlaylistItem>;

} // namespace velto
