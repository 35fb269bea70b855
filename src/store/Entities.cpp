#include "store/Entities.hpp"

namespace velto {

model::Schema storeSchema() {
    return model::Schema::of<Library, FileItem, Track, ScanRun, Playlist, PlaylistFolder, PlaylistItem>(
        {1, 0, 0});
}

} // namespace velto
