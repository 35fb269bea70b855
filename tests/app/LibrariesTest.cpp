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

TEST_F(Libraries, ALostGrantIsGivenAgainByAddingTheSameFolder) {
    signIn();
    const LibraryRef library = add("A");
    runtime.run(defaults.remove("LibraryBookmark_A"));
    runtime.run(viewModel->restoreAccess(library));
    EXPECT_EQ(error(), "No access permission found for 'A'. Please re-add the library.");
    EXPECT_EQ(add("A"), library);
    EXPECT_EQ(error(), "");
    EXPECT_TRUE(defaults.data("LibraryBookmark_A"));
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

TEST_F(Libraries, AStaleGrantStillOpensAndAMissingFolderTells) {
    signIn();
    const LibraryRef library = add("A");
    std::filesystem::rename(folder / "A",
                            folder / "old"); // keeps its inode, so that the new folder gets another
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
    EXPECT_FALSE(defaults.data("LibraryBookmark_B"));
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
    runtime.run(viewModel->clearLocalData());
    auto& context = container->mainContext();
    EXPECT_EQ(context.count<Library>() + context.count<Track>() + context.count<FileItem>(), 0U);
    EXPECT_FALSE(viewModel->selectedLibrary.get());
    EXPECT_TRUE(defaults.data("LibraryBookmark_A"));
    EXPECT_TRUE(log.contains("✅ [AUTH] Successfully cleared all local data"));
}

} // namespace
} // namespace velto::test
