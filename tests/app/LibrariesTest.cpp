#include "app/AppFixture.hpp"
#include "flows/LibraryCreationError.hpp"

namespace velto::test {
namespace {

using ::testing::ElementsAre;

using Libraries = AppFixture;

TEST_F(Libraries, AreRefusedWithTheirReason) {
    runtime.run(viewModel->addLibrary("A", makeFolder("A"), {}, {}));
    EXPECT_EQ(error(), "Please sign in to add a library");
    EXPECT_TRUE(container->mainContext().fetch<Library>().empty());
    signIn();
    add("A");
    EXPECT_EQ(error(), "");
    const auto file = folder.write("file", "x");

    const struct {
        std::string name;
        std::filesystem::path path;
        LibraryCreationError::Case expected;
    } cases[] = {
        {"B", file, LibraryCreationError::Case::notADirectory},
        {"B", folder / "absent", LibraryCreationError::Case::notADirectory},
        {"A", makeFolder("other"), LibraryCreationError::Case::duplicateName},
        {"A", makeFolder("A"), LibraryCreationError::Case::duplicateName},
    };

    for (const auto& each : cases) {
        try {
            runtime.run(viewModel->addLibrary(each.name, each.path, {}, {}));
            ADD_FAILURE() << each.path;
        } catch (const LibraryCreationError& refusal) {
            EXPECT_EQ(refusal.kind(), each.expected) << each.path;
        }
    }
    EXPECT_THAT(names(), ElementsAre("A"));
}

TEST_F(Libraries, AFolderIsKeptAsItsRealPathAndANameBelongsToOneFolder) {
    signIn();
    const auto real = makeFolder("real");
    std::filesystem::create_symlink(real, folder / "link");
    for (const auto& path : {real / "", folder / "link", folder / "." / "real" / ".." / "real",
                             std::filesystem::relative(real)}) {
        const LibraryRef added = runtime.run(viewModel->addLibrary("N", path, {}, {}));
        ASSERT_TRUE(added) << path;
        EXPECT_EQ(added->rootPath, std::filesystem::canonical(real).string()) << path;
        runtime.run(viewModel->deleteLibrary(added));
        const LibraryRef created = runtime.run(viewModel->createLibrary("N", path.string(), {}, {}));
        EXPECT_EQ(created->rootPath, std::filesystem::canonical(real).string()) << path;
        runtime.run(viewModel->deleteLibrary(created));
    }
    const LibraryRef first = add("N");
    const std::string rootPath = first->rootPath;
    restart(); // before anything is loaded
    signIn();
    using Case = LibraryCreationError::Case;

    const struct {
        const char* name;
        bool asksFolder;
        Case expected;
    } cases[] = {{"N", true, Case::duplicateName},
                 {"N", false, Case::duplicateName},
                 {"", true, Case::emptyName},
                 {" \t", false, Case::emptyName}};

    for (const auto& each : cases) {
        try {
            if (each.asksFolder)
                runtime.run(viewModel->addLibrary(each.name, makeFolder("other"), {}, {}));
            else
                runtime.run(viewModel->createLibrary(each.name, (folder / "other").string(), {}, {}));
            ADD_FAILURE() << each.name;
        } catch (const LibraryCreationError& refusal) {
            EXPECT_EQ(refusal.kind(), each.expected) << each.name;
        }
    }
    EXPECT_EQ(first->rootPath, rootPath) << "the library was not moved";
}

TEST_F(Libraries, AddsAtOnceEachKeepTheirGrantWhateverElseGoesWrong) {
    signIn();
    const auto disturb = viewModel->libraries.subscribe(
        [&](const auto&) { viewModel->errorMessage = "of another operation"; });
    std::size_t refused = 0;
    std::size_t ended = 0;
    for (const char* name : {"A", "B", "A"})
        asio::co_spawn(runtime.main(), viewModel->addLibrary(name, makeFolder(name), {}, {}),
                       [&](const std::exception_ptr& failure, const LibraryRef&) {
                           if (failure) ++refused;
                           ++ended;
                       });
    runtime.runUntil([&] { return ended == 3; });
    EXPECT_EQ(refused, 1U) << "the second A";
    for (const char* name : {"A", "B"}) {
        EXPECT_TRUE(settings.data(std::string("LibraryBookmark_") + name)) << name;
        EXPECT_EQ(grants.activeCount(folder / name), 1) << name;
    }
    EXPECT_THAT(names(), ElementsAre("A", "B"));
}

TEST_F(Libraries, ASignOutDuringAnAddLeavesNothingBehind) {
    signIn();
    makeFolder("A");
    for (int polls = 0; polls < 12; ++polls) {
        bool added = false;
        asio::co_spawn(runtime.main(), viewModel->addLibrary("A", folder / "A", {}, {}),
                       [&](const std::exception_ptr&, const LibraryRef&) { added = true; });
        for (int i = 0; i < polls; ++i)
            runtime.poll();
        runtime.run(viewModel->clearLocalData());
        runtime.runUntil([&] { return added; });
        EXPECT_EQ(container->mainContext().count<Library>(), 0U) << polls;
        EXPECT_THAT(names(), testing::IsEmpty()) << polls;
        EXPECT_EQ(error(), "");
    }
    viewModel.reset();
    EXPECT_EQ(grants.activeCount(), 0);
}

TEST_F(Libraries, WhatIsAddedIsOnShowWithItsAccess) {
    const auto playlist = model::make<Playlist>("P", nullptr, 0, clock.now());
    container->mainContext().insert(playlist);
    viewModel->viewMode = playlist;
    signIn();
    const LibraryRef library = add("A");
    EXPECT_TRUE(std::holds_alternative<LibraryView>(viewModel->viewMode.get()));
    EXPECT_EQ(viewModel->selectedLibrary.get(), library);
    EXPECT_EQ(grants.activeCount(folder / "A"), 1);

    const LibraryRef other = add("B");
    restart();
    runtime.run(viewModel->loadData());
    EXPECT_EQ(grants.activeCount(folder / "B"), 0) << "A is on show";
    viewModel->viewMode = playlist;
    runtime.run(viewModel->selectLibrary(other));
    EXPECT_TRUE(std::holds_alternative<LibraryView>(viewModel->viewMode.get()));
    EXPECT_EQ(grants.activeCount(folder / "B"), 1);
}

TEST_F(Libraries, WhatIsDeletedIsNeitherSelectedNorSelectable) {
    const LibraryRef library = libraryWithTracks("L", 2);
    const LibraryRef other = libraryWithTracks("M", 1);
    runtime.run(viewModel->loadData());
    viewModel->errorMessage = std::nullopt;
    viewModel->selectedTracks =
        std::unordered_set<TrackRef>{library->files.front()->track, other->files.front()->track};
    const TrackRef kept = other->files.front()->track;
    bool isDone = false;
    asio::co_spawn(runtime.main(), viewModel->deleteLibrary(library),
                   [&](const std::exception_ptr&) { isDone = true; });
    runtime.runUntil([&] { return library->isDeleted(); });
    EXPECT_FALSE(isDone) << "its tracks go after it";
    runtime.run(viewModel->loadData());
    runtime.runUntil([&] { return isDone; });
    viewModel->errorMessage = std::nullopt;
    EXPECT_EQ(viewModel->selectedTracks.get(), std::unordered_set<TrackRef>{kept});
    EXPECT_EQ(viewModel->selectedLibrary.get(), other);
    runtime.run(viewModel->selectLibrary(library));
    EXPECT_EQ(viewModel->selectedLibrary.get(), other);
    EXPECT_FALSE(viewModel->isLoading);
    EXPECT_EQ(error(), "");
}

TEST_F(Libraries, ALostGrantIsGivenAgainByAddingTheSameFolder) {
    signIn();
    const LibraryRef library = add("A");
    runtime.run(settings.remove("LibraryBookmark_A"));
    runtime.run(viewModel->restoreAccess(library));
    EXPECT_EQ(error(), "No access permission found for 'A'. Please re-add the library.");
    EXPECT_EQ(add("A"), library);
    EXPECT_EQ(error(), "");
    EXPECT_TRUE(settings.data("LibraryBookmark_A"));
}

TEST_F(Libraries, ANameIsFreeForANewLibraryBeforeTheOldOnesTracksAreGone) {
    signIn();
    libraryWithTracks("A", 5'000); // they go in several turns
    const LibraryRef old = add("A");
    bool isDone = false;
    asio::co_spawn(runtime.main(), viewModel->deleteLibrary(old),
                   [&](const std::exception_ptr&) { isDone = true; });
    runtime.runUntil([&] { return old->isDeleted(); });
    const LibraryRef added = add("A");
    runtime.runUntil([&] { return isDone; });
    EXPECT_NE(added, old);
    EXPECT_TRUE(settings.data("LibraryBookmark_A"));
    EXPECT_EQ(grants.activeCount(folder / "A"), 1);
    EXPECT_THAT(names(), ElementsAre("A"));
}

TEST_F(Libraries, AccessIsHeldOnceAndGivenBack) {
    signIn();
    add("A");
    restart();
    runtime.run(viewModel->loadData());
    runtime.run(viewModel->loadData());
    EXPECT_EQ(viewModel->selectedLibrary.get()->name, "A");
    EXPECT_EQ(grants.activeCount(), 1);
    viewModel.reset();
    EXPECT_EQ(grants.activeCount(), 0);
    EXPECT_TRUE(log.contains("🔓 Stopped accessing security-scoped resource for library 'A'"));
}

TEST_F(Libraries, AStaleGrantStillOpensAndAMissingFolderIsReported) {
    signIn();
    const LibraryRef library = add("A");
    std::filesystem::rename(folder / "A", folder / "old"); // it keeps its inode: the new one gets another
    makeFolder("A");
    runtime.run(viewModel->restoreAccess(library));
    EXPECT_TRUE(log.contains(
        "⚠️ [ACCESS] Security bookmark for library 'A' is stale - attempting access anyway"));
    EXPECT_TRUE(log.contains("✅ [ACCESS] Restored access to library 'A'"));
    std::filesystem::remove(folder / "A");
    runtime.run(viewModel->restoreAccess(library));
    EXPECT_EQ(error(), "Cannot access library directory. Please re-add the library 'A'.");
}

TEST_F(Libraries, LoadDataWithoutAnyLogsNone) {
    runtime.run(viewModel->loadData());
    EXPECT_FALSE(viewModel->selectedLibrary.get());
    EXPECT_TRUE(log.contains("🕐 [LOAD PERF] Selected first library: none"));
}

TEST_F(Libraries, DeletingTheSelectedOneSelectsTheFirstThatRemains) {
    signIn();
    for (const char* name : {"C", "A", "B"})
        add(name);
    runtime.run(viewModel->deleteLibrary(viewModel->selectedLibrary)); // B
    EXPECT_EQ(viewModel->selectedLibrary.get()->name, "A");
    EXPECT_THAT(names(), ElementsAre("A", "C"));
    EXPECT_FALSE(settings.data("LibraryBookmark_B"));
    for (int i = 0; i < 2; ++i)
        runtime.run(viewModel->deleteLibrary(viewModel->selectedLibrary));
    EXPECT_FALSE(viewModel->selectedLibrary.get());
    EXPECT_TRUE(viewModel->tracks->empty());
    EXPECT_EQ(grants.activeCount(), 0);
}

TEST_F(Libraries, OfTwoSelectionsTheLaterOneShows) {
    const LibraryRef first = libraryWithTracks("F", 5'000); // takes several turns
    const LibraryRef second = libraryWithTracks("S", 2);
    std::vector<std::size_t> shown;
    const auto subscription = viewModel->tracks.subscribe([&](const auto& tracks) {
        shown.push_back(tracks.size());
        EXPECT_TRUE(viewModel->isLoading);
    });
    for (const LibraryRef& library : {first, second})
        spawn(runtime.main(), viewModel->selectLibrary(library));
    runtime.runUntil([&] { return !shown.empty() && !viewModel->isLoading; });
    EXPECT_THAT(shown, ElementsAre(0U, 0U, 2U));
    EXPECT_EQ(viewModel->selectedLibrary.get(), second);
}

TEST_F(Libraries, SignOutClearsTheStoreAndKeepsTheGrants) {
    signIn();
    add("A");
    libraryWithTracks("L", 3);
    auto& context = container->mainContext();
    context.insert(model::make<Playlist>("P", nullptr, 0, clock.now()));
    context.insert(model::make<PlaylistFolder>("F", nullptr, 0, true, clock.now()));
    runtime.run(viewModel->loadData());
    viewModel->selectedTracks = std::unordered_set<TrackRef>{context.fetch<Track>().front()};
    EXPECT_EQ(viewModel->playlists->size() + viewModel->playlistFolders->size(), 2U);
    runtime.run(viewModel->clearLocalData());
    EXPECT_EQ(context.count<Library>() + context.count<Track>() + context.count<FileItem>(), 0U);
    EXPECT_EQ(context.count<Playlist>() + context.count<PlaylistFolder>(), 0U);
    EXPECT_EQ(viewModel->playlists->size() + viewModel->playlistFolders->size(), 0U);
    EXPECT_FALSE(viewModel->selectedLibrary.get());
    EXPECT_TRUE(viewModel->selectedTracks->empty());
    EXPECT_TRUE(settings.data("LibraryBookmark_A"));
    EXPECT_TRUE(log.contains("✅ [AUTH] Successfully cleared all local data"));
}

} // namespace
} // namespace velto::test
