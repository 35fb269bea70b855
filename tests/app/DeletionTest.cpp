#include "app/AppFixture.hpp"

#include <sqlite3.h>
#include <sys/resource.h>

#include <csignal>

namespace velto::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DeletionWithBackend : public AppFixture {
  protected:
    void SetUp() override {
        library = libraryWithTracks("L", 2);
        for (const FileItemRef& file : library->files)
            file->track->edit().lastSyncedAt = clock.now();
        container->mainContext().save();
        viewModel->setUp({nullptr, tagging, sync});
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

TEST_F(DeletionWithBackend, IsAskedForOnceHoweverOftenItIsWanted) {
    std::size_t ended = 0;
    for (int i = 0; i < 2; ++i)
        asio::co_spawn(runtime.main(), viewModel->deleteLibrary(library),
                       [&](const std::exception_ptr&) { ++ended; });
    runtime.runUntil([&] { return ended == 2; });
    EXPECT_THAT(sync->calls, ElementsAre("deleteLibrary"));
    EXPECT_EQ(error(), "");
}

TEST_F(DeletionWithBackend, AndASignOutLetNoScanBegin) {
    std::optional<ScanOutcome> outcome;
    const auto scan = [&] {
        asio::co_spawn(runtime.main(), viewModel->refreshSelectedLibrary(),
                       [&](const std::exception_ptr&, ScanOutcome ended) { outcome = std::move(ended); });
    };
    makeFolder("L");
    sync->afterDeletion = scan;
    runtime.run(viewModel->deleteLibrary(library));
    runtime.runUntil([&] { return outcome.has_value(); });
    EXPECT_FALSE(outcome->run || outcome->failure);
    EXPECT_THAT(sync->calls, ElementsAre("deleteLibrary")) << "a scan would have sent it up again";

    outcome.reset();
    makeFolder("M");
    const LibraryRef other = libraryWithTracks("M", 1);
    runtime.run(viewModel->selectLibrary(other));
    viewModel->errorMessage = std::nullopt;
    spawn(runtime.main(), viewModel->clearLocalData());
    scan();
    runtime.runUntil([&] { return outcome && other->isDeleted(); });
    runtime.run(viewModel->backgroundWorkFinished());
    EXPECT_FALSE(outcome->run || outcome->failure);
    EXPECT_EQ(container->mainContext().count<ScanRun>(), 0U);
    EXPECT_EQ(error(), "");
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
        viewModel->setUp({nullptr, tagging, each.hasBackend ? sync : nullptr});
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

TEST_F(DeletionWithBackend, IfOnlyTheOrphansStayTheLibraryIsGoneAllTheSame) {
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

TEST_F(DeletionWithBackend, ALibraryThatCouldNotBeCreatedDoesNotComeWithTheNextSave) {
    sql("CREATE TRIGGER obstacle BEFORE INSERT ON Library BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
    runtime.run(viewModel->createLibrary("New", "/new", std::nullopt, std::nullopt));
    EXPECT_EQ(error().rfind("Failed to create library: ", 0), 0U) << error();
    sql("DROP TRIGGER obstacle");
    library->edit().lastSyncedAt = clock.now();
    container->mainContext().save();
    EXPECT_EQ(container->mainContext().count<Library>(), 1U);
}

TEST_F(DeletionWithBackend, WhenTheRollbackFailsTooTheUserLearnsIt) {
    sync->failsToRestore = true;
    sync->afterDeletion = [this] { fillDisk(); };
    runtime.run(viewModel->deleteLibrary(library));
    EXPECT_EQ(error(),
              "Critical: Library deletion failed. Backend deleted 7 tracks but local copy remains. Please "
              "contact support.");
}

} // namespace
} // namespace velto::test
