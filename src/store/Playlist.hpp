#pragma once

#include "platform/model/Entity.hpp"

#include <cstdint>
#include <string>

namespace velto {

class PlaylistFolder;
class PlaylistItem;

struct PlaylistFields {
    Uuid id; ///< unique
    std::string name;
    Date createdAt;
    Date updatedAt;
    std::int64_t order = 0;              ///< position among its siblings
    model::ToOne<PlaylistFolder> folder; ///< none means top level
    model::ToMany<PlaylistItem> items;   ///< cascade
};

class Playlist final : public model::Entity<Playlist, PlaylistFields> {
  public:
    Playlist(std::string name, const model::Ref<PlaylistFolder>& folder, std::int64_t order, Date now);

    explicit Playlist(model::Loading) {}

    static model::EntityDescription describe();
};

using PlaylistRef = model::Ref<Playlist>;

} // namespace velto
