#include "app/AppFixture.hpp"
#include "flows/LibraryCreationError.hpp"

namespace velto::test {
namespace {

using ::testing::ElementsAre;

class Libraries : public AppFixture {
  protected:
    Libraries() { signIn(); }

    using Refusal = std::optional<LibraryCreationError::Case>;

    /// Why the library was refused, by the flow that asks for its folder or the other one.
    Refusal refusal(const std::string& name, const std::filesystem::path& path, bool asksFolder = true) {
        try {
            runtime.run(asksFolder ? viewModel->addLibrary(name, path, {}, {})
                                   : viewModel->createLibrary(name, path.string(), {}, {}));
        } catch (const LibraryCreationError& error) {
            return error.kind();
        }
        return std::nullopt;
    }
};

TEST_F(Libraries, AreRefusedWithTheirReason) {
    viewModel->userSession = UserSession{};
    EXPECT_EQ(refusal("A", makeFolder("A")), std::nullopt);
    EXPECT_EQ(error(), "Please sign in to add a library");
    EXPECT_EQ(container->mainContext().count<Library>(), 0U);
    signIn();
    const LibraryRef library = add("A");
    EXPECT_EQ(error(), "");
    const std::string rootPath = library->rootPath;
    const auto file = folder.write("file", "x");
    makeFolder("other");
    using Case = LibraryCreationError::Case;

    const struct {
        std::string name, path;
        Case expected;
        bool asksFolder = true;
    } cases[] = {
        {"B", "file", Case::notADirectory},       {"B", "absent", Case::notADirectory},
        {"A", "other", Case::duplicateName},      {"A", "A", Case::duplicateName},
        {"", "other", Case::emptyName},           {"A", "other", Case::duplicateName, false},
        {" \t", "other", Case::emptyName, false},
    };

    for (const bool isLoaded : {true, false}) {
        if (!isLoaded) restart();
        signIn();
        for (const auto& [name, path, expected, asksFolder] : cases)
            EXPECT_EQ(refusal(name, folder / path, asksFolder), expected) << name << " at " << path;
    }
    EXPECT_EQ(container->mainContext().count<Library>(), 1U);
    EXPECT_EQ(library->rootPath, rootPath) << "the library was not moved";
}

TEST_F(Libraries, AFolderIsKeptAsItsRealPath) {
    const auto real = makeFolder("real");
    std::filesystem::create_symlink(real, folder / "link");
    for (const auto& path :
         {real / "", folder / "link", folder / "." / "real" / ".." / "real", std::filesystem::relative(real)})
        for (const bool asksFolder : {true, false}) {
            EXPECT_EQ(refusal("N", path, asksFolder), std::nullopt) << path;
            EXPECT_EQ(viewModel->selectedLibrary.get()->rootPath, std::filesystem::canonical(real).string())
                << path;
            runtime.run(viewModel->deleteLibrary(viewModel->selectedLibrary));
        }
}

TEST_F(Libraries, AddsAtOnceEachKeepTheirGrantWhateverElseGoesWrong) {
    const auto disturb = viewModel->libraries.subscribe(
        [&](const auto&) { viewModel->errorMessage = "of another operation"; });
    std::vector<std::shared_ptr<Started<LibraryRef>>> adds;
    for (const char* name : {"A", "B", "A"})
        adds.push_back(start(viewModel->addLibrary(name, makeFolder(name), {}, {})));
    int refused = 0;
    for (const auto& each : adds) {
        try {
            EXPECT_TRUE(finish(each));
        } catch (const LibraryCreationError&) {
            ++refused;
        }
    }
    EXPECT_EQ(refused, 1) << "one of the two A";
    for (const char* name : {"A", "B"}) {
        EXPECT_TRUE(settings.data(std::string("LibraryBookmark_") + name)) << name;
        EXPECT_EQ(grants.activeCount(folder / name), 1) << name;
    }
    EXPECT_THAT(names(), ElementsAre("A", "B"));
}

TEST_F(Libraries, ASignOutDuringAnAddLeavesNothingBehind) {
    makeFolder("A");
    for (int polls = 0; polls < 12; ++polls) {
        const auto added = start(viewModel->addLibrary("A", folder / "A", {}, {}));
        for (int i = 0; i < polls; ++i)
            runtime.poll();
        runtime.run(viewModel->clearLocalData());
        finish(added);
        EXPECT_EQ(container->mainContext().count<Library>(), 0U) << polls;
        EXPECT_THAT(names(), testing::IsEmpty()) << polls;
        EXPECT_EQ(error(), "");
    }
    libraryWithTracks("L", 5'000); // they go in several turns
    const auto signOut = start(viewModel->clearLocalData());
    add("B");
    finish(signOut);
    EXPECT_THAT(names(), ElementsAre("B")) << "an add that comes later begins after it";
    viewModel.reset();
    EXPECT_EQ(grants.activeCount(), 0);
}

TEST_F(Libraries, WhatIsAddedIsOnShowWithItsAccess) {
    const auto playlist = model::make<Playlist>("P", nullptr, 0, clock.now());
    container->mainContext().insert(playlist);
    viewModel->viewMode = playlist;
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
    const auto deletion = start(viewModel->deleteLibrary(library));
    runtime.runUntil([&] { return library->isDeleted(); });
    EXPECT_FALSE(deletion->hasEnded) << "its tracks go after it";
    runtime.run(viewModel->loadData());
    finish(deletion);
    viewModel->errorMessage = std::nullopt;
    EXPECT_EQ(viewModel->selectedTracks.get(), std::unordered_set<TrackRef>{kept});
    EXPECT_EQ(viewModel->selectedLibrary.get(), other);
    runtime.run(viewModel->selectLibrary(library));
    EXPECT_EQ(viewModel->selectedLibrary.get(), other);
    EXPECT_FALSE(viewModel->isLoading);
    EXPECT_EQ(error(), "");
}

TEST_F(Libraries, ALostGrantIsGivenAgainByAddingTheSameFolder) {
    const LibraryRef library = add("A");
    runtime.run(settings.remove("LibraryBookmark_A"));
    runtime.run(viewModel->restoreAccess(library));
    EXPECT_EQ(error(), "No access permission found for 'A'. Please re-add the library.");
    EXPECT_EQ(add("A"), library);
    EXPECT_EQ(error(), "");
    EXPECT_TRUE(settings.data("LibraryBookmark_A"));
}

TEST_F(Libraries, ANameIsFreeForANewLibraryBeforeTheOldOnesTracksAreGone) {
    libraryWithTracks("A", 5'000); // they go in several turns
    const LibraryRef old = add("A");
    const auto deletion = start(viewModel->deleteLibrary(old));
    runtime.runUntil([&] { return old->isDeleted(); });
    const LibraryRef added = add("A");
    finish(deletion);
    EXPECT_NE(added, old);
    EXPECT_TRUE(settings.data("LibraryBookmark_A"));
    EXPECT_EQ(grants.activeCount(folder / "A"), 1);
    EXPECT_THAT(names(), ElementsAre("A"));
}

TEST_F(Libraries, AccessIsHeldOnceAndGivenBack) {
    runtime.run(viewModel->loadData());
    EXPECT_TRUE(log.contains("🕐 [LOAD PERF] Selected first library: none"));
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

TEST_F(Libraries, DeletingTheSelectedOneSelectsTheFirstThatRemains) {
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
