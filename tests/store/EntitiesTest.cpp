#include "StoreFixture.hpp"

namespace velto::test {
namespace {

using Entities = StoreTest;
using enum FileStatus;

TEST_F(Entities, ATracksStatusFollowsItsFiles) {
    const std::vector<std::pair<std::vector<FileStatus>, FileStatus>> cases{
        {{}, new_},
        {{ready}, ready},
        {{ready, missing}, error},
        {{changed, new_, error}, error},
        {{new_, changed, ready}, changed},
        {{ready, new_}, new_},
    };
    const auto library = addLibrary("library");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto track = addTrack(std::to_string(i));
        for (const auto status : cases[i].first)
            addFile(library, "file", status)->edit().track = track;
        EXPECT_EQ(track->status(), cases[i].second) << "case " << i;
    }
}

TEST_F(Entities, ATrackNeedsSyncByItsDates) {
    const Date early = now();
    const Date late = early + std::chrono::microseconds(1);
    const std::vector<std::tuple<std::optional<Date>, std::optional<Date>, bool>> cases{
        {std::nullopt, std::nullopt, true},
        {std::nullopt, early, true},
        {early, std::nullopt, false},
        {early, early, false},
        {early, late, true},
        {late, early, false},
    };
    const auto track = addTrack("track");
    for (const auto& [synced, tagged, expected] : cases) {
        track->edit().lastSyncedAt = synced;
        track->edit().lastTagged = tagged;
        EXPECT_EQ(track->needsSync(), expected);
    }
}

TEST_F(Entities, LibraryTextsCountFilesAndTellTheLastImport) {
    const auto library = addLibrary("library");
    EXPECT_EQ(library->trackCountText(), "0 tracks");
    addFile(library, "a");
    EXPECT_EQ(library->trackCountText(), "1 track");
    addFile(library, "b");
    EXPECT_EQ(library->trackCountText(), "2 tracks");
    EXPECT_EQ(library->lastImportText(now()), "Never imported");
    library->edit().lastScanFinishedAt = now() - std::chrono::hours(2);
    EXPECT_EQ(library->lastImportText(now()), "Last import: 2 hours ago");
}

/// What is left after a deletion, by entity.
std::string counts(ModelContext& context) {
    return fmt::format("libraries {} files {} tracks {} runs {} playlists {} folders {} items {}",
                       context.count<Library>(), context.count<FileItem>(), context.count<Track>(),
                       context.count<ScanRun>(), context.count<Playlist>(), context.count<PlaylistFolder>(),
                       context.count<PlaylistItem>());
}

TEST_F(Entities, DeletingAnOwnerTakesWhatItsRulesSay) {
    struct Case {
        const char* name;
        std::function<void(ModelContext&)> remove;
        const char* left;
    };

    const auto first = [](auto tag, ModelContext& context) {
        return context.fetch<typename decltype(tag)::type>().front();
    };
    const std::vector<Case> cases{
        {"library", [&](auto& c) { c.remove(first(std::type_identity<Library>(), c)); },
         "libraries 1 files 1 tracks 1 runs 0 playlists 2 folders 2 items 2"},
        {"track", [&](auto& c) { c.remove(first(std::type_identity<Track>(), c)); },
         "libraries 2 files 2 tracks 0 runs 1 playlists 2 folders 2 items 0"},
        {"playlist", [&](auto& c) { c.remove(first(std::type_identity<Playlist>(), c)); },
         "libraries 2 files 2 tracks 1 runs 1 playlists 1 folders 2 items 1"},
        {"folder", [&](auto& c) { c.remove(first(std::type_identity<PlaylistFolder>(), c)); },
         "libraries 2 files 2 tracks 1 runs 1 playlists 1 folders 0 items 1"},
        {"file", [&](auto& c) { c.remove(first(std::type_identity<FileItem>(), c)); },
         "libraries 2 files 1 tracks 1 runs 1 playlists 2 folders 2 items 2"},
    };
    for (const auto& [name, remove, left] : cases) {
        SCOPED_TRACE(name);
        const auto library = addLibrary("first");
        const auto track = addTrack("track");
        addFile(library, "a")->edit().track = track;
        addFile(addLibrary("second"), "b")->edit().track = track;
        model::make<ScanRun>(library, now());
        const auto outer = model::make<PlaylistFolder>("outer", nullptr, 0, true, now());
        context().insert(outer);
        const auto inner = model::make<PlaylistFolder>("inner", outer, 0, true, now());
        const auto nested = model::make<Playlist>("nested", inner, 0, now());
        const auto loose = model::make<Playlist>("loose", nullptr, 1, now());
        context().insert(loose);
        for (const auto& playlist : {nested, loose})
            model::make<PlaylistItem>(track, 0, now())->edit().playlist = playlist;
        context().save();
        reopen();
        remove(context());
        EXPECT_EQ(counts(context()), left);
        context().save();
        reopen();
        EXPECT_EQ(counts(context()), left) << "in the file";
        for (const auto& file : context().fetch<FileItem>())
            EXPECT_EQ(bool(file->track), context().count<Track>() == 1);
        container.reset();
        std::filesystem::remove(folder / "velto.store");
        open();
    }
}

} // namespace
} // namespace velto::test
