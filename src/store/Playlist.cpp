#include "store/Playlist.hpp"

#include "store/PlaylistFolder.hpp"
#include "store/PlaylistItem.hpp"

namespace velto {

Playlist::Playlist(std::string itsName, const PlaylistFolderRef& itsFolder, std::int64_t itsOrder, Date now) {
    auto& fields = edit();
    fields.id = Uuid::random();
    fields.name = std::move(itsName);
    fields.createdAt = now;
    fields.updatedAt = now;
    fields.order = itsOrder;
    fields.folder = itsFolder;
}

model::EntityDescription Playlist::describe() {
    return model::EntityBuilder<Playlist>("Playlist")
        .uniqueAttribute<&PlaylistFields::id>("id")
        .attribute<&PlaylistFields::name>("name")
        .attribute<&PlaylistFields::createdAt>("createdAt")
        .attribute<&PlaylistFields::updatedAt>("updatedAt")
        .attribute<&PlaylistFields::order>("order")
        .toOne<&PlaylistFields::folder, &PlaylistFolderFields::playlists>("folder")
        .toMany<&PlaylistFields::items, &PlaylistItemFields::playlist>("items", model::DeleteRule::cascade)
        .build();
}

} // namespace velto
