// A store that the first shipped version wrote, with rows in every table: it must open for ever. `kept/` gets
// one more with each change of the schema, made by the program before the change.

#include "StoreFixture.hpp"

namespace velto::test {
namespace {

using ::testing::ElementsAre;

TEST(KeptStore, OfEveryVersionOpensWithAllThatIsInIt) {
    for (const auto& kept : std::filesystem::directory_iterator(KEPT_STORES)) {
        SCOPED_TRACE(kept.path().filename());
        const TemporaryFolder folder;
        std::filesystem::copy_file(kept.path(), folder / "velto.store");
        const auto container = model::ModelContainer::create(storeSchema(), {folder / "velto.store"});
        auto& context = container->mainContext();
        context.load();

        const auto library = context.findUnique<Library>("name", "House");
        ASSERT_TRUE(library);
        EXPECT_EQ(library->rootPath, "/music/house");
        EXPECT_TRUE(library->isEnabled && library->lastScanFinishedAt && !library->excludeGlob);
        EXPECT_EQ(library->files.size(), 3U);
        ASSERT_EQ(library->scanRuns.size(), 1U);
        EXPECT_EQ(library->scanRuns.front()->totalSeen, 60);

        const TrackRef track =
            context.findUnique<Track>("canonicalSig", "dj konfetti 🎉|party 🪩|second floor, left|4.0");
        ASSERT_TRUE(track);
        EXPECT_EQ(track->artist, "DJ Konfetti 🎉");
        EXPECT_EQ(track->trackNumber, 3);
        EXPECT_EQ(track->durationSec, 4.023);
        EXPECT_THAT(*track->genres, ElementsAre("Future Bass", "Breakbeat"));
        EXPECT_THAT(*track->regions, ElementsAre("East Africa"));
        EXPECT_EQ(track->era, "1980s");
        EXPECT_EQ(track->lastTagged, dateFromMicroseconds(1'795'448'805'180'707));
        ASSERT_EQ(track->files.size(), 1U);
        const FileItemRef file = track->files.front();
        EXPECT_EQ(file->relPath, "🎉 Party 🪩.m4a");
        EXPECT_EQ(file->quickSig, "a465f96a627f53df");
        EXPECT_EQ(file->status, FileStatus::ready);
        EXPECT_EQ(file->sizeBytes, 43065);
        EXPECT_FALSE(file->genreText); // not kept before 1.1.0

        const auto playlists = context.fetch<Playlist>();
        ASSERT_EQ(playlists.size(), 1U);
        EXPECT_EQ(playlists[0]->name, "Warm up");
        EXPECT_EQ(playlists[0]->folder->name, "Friday");
        EXPECT_EQ(playlists[0]->folder->parentFolder->name, "Gigs");
        EXPECT_FALSE(playlists[0]->folder->isExpanded);
        std::vector<std::string> titles;
        for (const PlaylistItemRef& item : playlists[0]->items)
            titles.push_back(item->track->title.value());
        EXPECT_THAT(titles, ElementsAre("Golden Signal (Extended Mix)", "Falling Signal (Extended Mix)",
                                        "Party 🪩"));
        context.save();
    }
}

} // namespace
} // namespace velto::test
