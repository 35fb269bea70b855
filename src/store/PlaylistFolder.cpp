#include "store/PlaylistFolder.hpp"

#include "store/Playlist.hpp"

namespace velto {

PlaylistFolder::PlaylistFolder(std::string itsName, const PlaylistFolderRef& itsParentFolder,
                               std::int64_t itsOrder, bool itsIsExpanded, Date now) {
    auto& fields = edit();
    fields.id = Uuid::random();
    fields.name = std::move(itsName);
    fields.createdAt = now;
    fields.order = itsOrder;
    fields.isExpanded = itsIsExpanded;
    fields.parentFolder = itsParentFolder;
}

model::EntityDescription PlaylistFolder::describe() {
    using Fields = PlaylistFolderFields;
    using model::DeleteRule;
    return model::EntityBuilder<PlaylistFolder>("PlaylistFolder")
        .uniqueAttribute<&Fields::id>("id")
        .attribute<&Fields::name>("name")
        .attribute<&Fields::createdAt>("createdAt")
        .attribute<&Fields::order>("order")
        .attribute<&Fields::isExpanded>("isExpanded")
        .toOne<&Fields::parentFolder, &Fields::childFolders>("parentFolder")
        .toMany<&Fields::childFolders, &Fields::parentFolder>("childFolders", DeleteRule::cascade)
        .toMany<&Fields::playlists, &PlaylistFields::folder>("playlists", DeleteRule::cascade)
        .build();
}

} // namespace velto
