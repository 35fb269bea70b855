#include "app/AppFixture.hpp"
#include "app/LibraryCreationError.hpp"
#include "scanning/ConcurrentScanner.hpp"

#include <sqlite3.h>
#include <sys/resource.h>

#include <csignal>

namespace velto::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Libraries : public AppFixture {
  protected:
    std::filesystem::path makeFolder(const std::string& name) {
        std::filesystem::create_directories(folder / name);
        return folder / name;
    }

    LibraryRef add(const std::string& name) {
        runtime.run(viewModel->addLibrary(name, makeFolder(name), "*.mp3", std::nullopt));
        return viewModel->selectedLibrary;
    }

    std::vector<std::string> names() {
        std::vector<std::string> found;
        for (const LibraryRef& library : viewModel->libraries.get())
            found.push_back(library->name);
        return found;
    }
};

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

class DeletionWithBackend : public Libraries {
  protected:
    void SetUp() override {
        library = libraryWithTracks("L", 2);
        for (const FileItemRef& file : library->files)
            file->track->edit().lastSyncedAt = clock.now();
        container->mainContext().save();
        viewModel->librarySyncService = sync;
        runtime.run(viewModel->loadData());
        viewModel->errorMessage = std::nullopt;
    }

    /// From now on nothing can be written.
    void fillDisk() {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit none{0, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
        full = true;
    }

    /// Runs SQL on a connection of its own, as any other program could.
    void sql(const char* text) {
        sqlite3* connection = nullptr;
        EXPECT_EQ(sqlite3_open((folder / "store").c_str(), &connection), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(connection, text, nullptr, nullptr, nullptr), SQLITE_OK) << text;
        sqlite3_close(connection);
    }

    void expectLibraryInPlace() {
        ASSERT_FALSE(library->isDeleted());
        ASSERT_EQ(library->files.size(), 2U);
        for (const FileItemRef& file : library->files) {
            ASSERT_TRUE(file->track);
            EXPECT_TRUE(file->track->files.contains(file));
        }
        EXPECT_EQ(container->mainContext().findUnique<Library>("name", "L"), library);
    }

    void TearDown() override {
        if (full) setrlimit(RLIMIT_FSIZE, &before);
    }

    LibraryRef library;
    rlimit before{};
    bool full = false;
};

TEST_F(DeletionWithBackend, AFailureThereChangesNothingHere) {
    sync->failsToDelete = true;
    runtime.run(viewModel->deleteLibrary(library));
    EXPECT_EQ(error(), "Failed to delete library: Server error: down");
    EXPECT_THAT(names(), ElementsAre("L"));
    EXPECT_EQ(library->files.size(), 2U);
    EXPECT_TRUE(library->files.front()->track->lastSyncedAt);
}

TEST_F(DeletionWithBackend, TracksThatLiveOnGoUpAgain) {
    const LibraryRef other = model::make<Library>("M", "/m", std::nullopt, std::nullopt, true);
    container->mainContext().insert(other);
    const auto file = model::make<FileItem>("/m/x.mp3", "x.mp3", "x.mp3", "mp3", 1, clock.now(),
                                            FileStatus::ready, clock.now());
    container->mainContext().insert(file);
    file->edit().library = other;
    const TrackRef shared = library->files.front()->track;
    file->edit().track = shared;
    runtime.run(viewModel->deleteLibrary(library));
    EXPECT_EQ(error(), "");
    EXPECT_FALSE(shared->isDeleted());
    EXPECT_FALSE(shared->lastSyncedAt);
    EXPECT_EQ(container->mainContext().fetch<Track>().size(), 1U);
    EXPECT_TRUE(log.contains("🗑️ [VM] Backend deletion complete: 7 tracks removed"));
}

TEST_F(DeletionWithBackend, ALocalFailureIsRolledBackThere) {
    sync->afterDeletion = [this] { fillDisk(); };
    runtime.run(viewModel->deleteLibrary(library));
    EXPECT_EQ(error().rfind("Failed to delete library locally, but it has been restored: ", 0), 0U)
        << error();
    EXPECT_THAT(sync->calls, ElementsAre("deleteLibrary", "syncLibrary", "syncTracks 2"));
    EXPECT_THAT(names(), ElementsAre("L"));
    ASSERT_EQ(library->files.size(), 2U);
    EXPECT_FALSE(library->files.front()->track->lastSyncedAt);
}

TEST_F(DeletionWithBackend, WhatCouldNotBeSavedAsDeletedStaysForGood) {
    const struct {
        bool hasBackend;
        bool isSignOut;
        std::string expectedError;
    } cases[] = {
        {true, false, "Failed to delete library locally, but it has been restored: "},
        {false, false, "Failed to delete library: "},
        {false, true, "Warning: Failed to clear local data on signout: "},
    };

    for (const auto& each : cases) {
        SCOPED_TRACE(each.expectedError);
        viewModel->librarySyncService = each.hasBackend ? sync : nullptr;
        const double bpm = each.hasBackend ? 120 : 121;
        library->files.front()->track->edit().bpm = bpm; // of somebody else, and not saved yet
        sql("CREATE TRIGGER obstacle BEFORE DELETE ON Library BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
        runtime.run(each.isSignOut ? viewModel->clearLocalData() : viewModel->deleteLibrary(library));
        EXPECT_EQ(error().rfind(each.expectedError, 0), 0U) << error();
        expectLibraryInPlace();
        EXPECT_THAT(names(), ElementsAre("L"));
        EXPECT_EQ(viewModel->selectedLibrary.get(), library);
        EXPECT_TRUE(each.isSignOut || library->files.front()->track->bpm == bpm);
        for (const FileItemRef& file : library->files)
            EXPECT_FALSE(file->track->lastSyncedAt && each.hasBackend);

        sql("DROP TRIGGER obstacle");
        container->mainContext().save();
        viewModel.reset();
        container.reset();
        container = model::ModelContainer::create(storeSchema(), {folder / "store"});
        restart();
        runtime.run(viewModel->loadData());
        ASSERT_THAT(names(), ElementsAre("L"));
        library = viewModel->libraries->front();
        expectLibraryInPlace();
    }
}

TEST_F(DeletionWithBackend, WhereOnlyTheOrphansStayTheLibraryIsGoneAllTheSame) {
    sql("CREATE TRIGGER obstacle BEFORE DELETE ON Track BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
    runtime.run(viewModel->deleteLibrary(library));
    EXPECT_EQ(error().rfind("Failed to delete library: ", 0), 0U) << error();
    EXPECT_THAT(sync->calls, ElementsAre("deleteLibrary")); // nothing is restored of what is gone here
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_FALSE(viewModel->selectedLibrary.get());
    sql("DROP TRIGGER obstacle");
    container->mainContext().save();
    EXPECT_EQ(container->mainContext().fetch<Track>().size(), 2U);
}

TEST_F(DeletionWithBackend, WhenTheRollbackFailsTooTheUserIsTold) {
    sync->failsToRestore = true;
    sync->afterDeletion = [this] { fillDisk(); };
    runtime.run(viewModel->deleteLibrary(library));
    EXPECT_EQ(error(),
              "Critical: Library deletion failed. Backend deleted 7 tracks but local copy remains. Please "
              "contact support.");
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

class Scans : public Libraries {
  protected:
    void makeSong(const std::string& path) {
        std::filesystem::create_directories((folder / path).parent_path());
        runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=0.3", "-metadata",
                    "artist=A", "-metadata", "title=" + path, (folder / path).string()});
    }
};

TEST_F(Scans, AnAddedFolderIsReadAndNewFilesAreFoundInTheirOwnLibrary) {
    signIn();
    makeSong("A/one.mp3");
    add("A");
    const ScanRunRef run = runtime.run(viewModel->refreshSelectedLibrary());
    ASSERT_TRUE(run) << error();
    EXPECT_EQ(run->newCount, 1);
    ASSERT_EQ(viewModel->tracks->size(), 1U);
    EXPECT_EQ(viewModel->tracks->front()->title, "A/one.mp3");
    EXPECT_FALSE(viewModel->scanProgress->has_value());

    const LibraryRef first = viewModel->selectedLibrary;
    add("B"); // selected now, and empty
    makeSong("A/two.mp3");
    runtime.run(MainScreenViewModel::checkForNewFiles(viewModel, {first}));
    EXPECT_EQ(first->files.size(), 2U);
    EXPECT_TRUE(viewModel->tracks->empty()) << "another library is on show";
    runtime.run(MainScreenViewModel::checkForNewFiles(viewModel, {first}));
    EXPECT_EQ(first->scanRuns.size(), 2U) << "nothing new, no scan";
}

TEST_F(Scans, AVanishedFolderIsAClearError) {
    signIn();
    add("A");
    std::filesystem::remove(folder / "A");
    EXPECT_FALSE(runtime.run(viewModel->refreshSelectedLibrary()));
    EXPECT_EQ(error(), "Import failed: Library directory not accessible: " + (folder / "A").string());
    EXPECT_FALSE(viewModel->scanProgress->has_value());
    EXPECT_TRUE(viewModel->selectedLibrary.get()->scanRuns.empty());
}

TEST(UserSessionTest, InitialsComeFromNameThenAddress) {
    const struct {
        std::optional<std::string> name, email;
        std::string expected;
    } cases[] = {
        {"ann bee cee", "x@y", "AB"},
        {"ann", "x@y", "A"},
        {"élan  vital", "x@y", "ÉV"},
        {"", "x@y", "X"},
        {{}, "x@y", "X"},
        {{}, "", "U"},
        {"  ", {}, "U"},
    };

    for (const auto& each : cases) {
        UserSession session;
        session.name = each.name;
        session.email = each.email;
        EXPECT_EQ(session.initials(), each.expected) << each.name.value_or("-");
    }
}

} // namespace
} // namespace velto::test
