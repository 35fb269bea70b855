#include "store/Entities.hpp"

namespace velto {

model::Schema storeSchema() {
    auto schema =
        model::Schema::of<Library, FileItem, Track, ScanRun, Playlist, PlaylistFolder, PlaylistItem>(
            {1, 1, 0});
    schema.migrations = {{{1, 0, 0}, {1, 1, 0}, {R"(ALTER TABLE "FileItem" ADD COLUMN "genreText" TEXT)"}}};
    return schema;
}

} // namespace velto
