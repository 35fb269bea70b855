#include "store/PlaylistItem.hpp"

#include "store/Playlist.hpp"
#include "store/Track.hpp"

namespace velto {

PlaylistItem::PlaylistItem(const TrackRef& itsTrack, std::int64_t itsOrder, Date now) {
    auto& fields = edit();
    fields.id = Uuid::random();
    fields.order = itsOrder;
    fields.addedAt = now;
    fields.track = itsTrack;
}

model::EntityDescription PlaylistItem::describe() {
    return model::EntityBuilder<PlaylistItem>("PlaylistItem")
        .uniqueAttribute<&PlaylistItemFields::id>("id")
        .attribute<&PlaylistItemFields::order>("order")
        .attribute<&PlaylistItemFields::addedAt>("addedAt")
        .toOne<&PlaylistItemFields::playlist, &PlaylistFields::items>("playlist")
        .toOne<&PlaylistItemFields::track, &TrackFields::playlistItems>("track")
        .build();
}

} // namespace velto
