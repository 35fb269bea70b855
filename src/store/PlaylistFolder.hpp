#pragma once

#include "platform/model/Entity.hpp"

#include <cstdint>
#include <string>

namespace velto {

class Playlist;
class PlaylistFolder;

struct PlaylistFolderFields {
    Uuid id; ///< unique
    std::string name;
    Date createdAt;
    std::int64_t order = 0;                     ///< position among its siblings
    bool isExpanded = false;                    ///< whether the sidebar shows its contents
    model::ToOne<PlaylistFolder> parentFolder;  ///< none means top level
    model::ToMany<PlaylistFolder> childFolders; ///< cascade
    model::ToMany<Playlist> playlists;          ///< cascade
};

class PlaylistFolder final : public model::Entity<PlaylistFolder, PlaylistFolderFields> {
  public:
    PlaylistFolder(std::string name, const model::Ref<PlaylistFolder>& parentFolder, std::int64_t order,
                   bool isExpanded, Date now);

    explicit PlaylistFolder(model::Loading) {}

    static model::EntityDescription describe();
};

using PlaylistFolderRef = model::Ref<PlaylistFolder>;

} // namespace velto
