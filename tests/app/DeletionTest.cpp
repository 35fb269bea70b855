#include "app/AppFixture.hpp"

namespace velto::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

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

    void expectLibraryInPlace() {
        ASSERT_THAT(names(), ElementsAre("L"));
        ASSERT_FALSE(library->isDeleted());
        ASSERT_EQ(library->files.size(), 2U);
        for (const FileItemRef& file : library->files) {
            ASSERT_TRUE(file->track);
            EXPECT_TRUE(file->track->files.contains(file));
        }
        EXPECT_EQ(container->mainContext().findUnique<Library>("name", "L"), library);
    }

    LibraryRef library;
};

TEST_F(DeletionWithBackend, IsAskedForOnceHoweverOftenItIsWanted) {
    const auto first = start(viewModel->deleteLibrary(library));
    runtime.run(viewModel->deleteLibrary(library));
    finish(first);
    EXPECT_THAT(sync->calls, ElementsAre("deleteLibrary"));
    EXPECT_EQ(error(), "");
}

TEST_F(DeletionWithBackend, AndASignOutLetNoScanBegin) {
    makeFolder("L");
    std::shared_ptr<Started<ScanOutcome>> scan;
    sync->afterDeletion = [&] { scan = start(viewModel->refreshSelectedLibrary()); };
    runtime.run(viewModel->deleteLibrary(library));
    ScanOutcome outcome = finish(scan);
    EXPECT_FALSE(outcome.run || outcome.failure);
    EXPECT_THAT(sync->calls, ElementsAre("deleteLibrary")) << "a scan would have sent it up again";

    makeFolder("M");
    const LibraryRef other = libraryWithTracks("M", 1);
    runtime.run(viewModel->selectLibrary(other));
    viewModel->errorMessage = std::nullopt;
    const auto signOut = start(viewModel->clearLocalData());
    outcome = runtime.run(viewModel->refreshSelectedLibrary());
    finish(signOut);
    EXPECT_FALSE(outcome.run || outcome.failure);
    EXPECT_EQ(container->mainContext().count<ScanRun>() + container->mainContext().count<Library>(), 0U);
    EXPECT_EQ(error(), "");
}

TEST_F(DeletionWithBackend, TracksThatLiveOnGoUpAgain) {
    const LibraryRef other = libraryWithTracks("M", 1);
    const TrackRef shared = library->files.front()->track;
    const TrackRef unshared = other->files.front()->track;
    container->mainContext().remove(unshared);
    other->files.front()->edit().track = shared;
    runtime.run(viewModel->deleteLibrary(library));
    EXPECT_EQ(error(), "");
    EXPECT_FALSE(shared->isDeleted());
    EXPECT_FALSE(shared->lastSyncedAt);
    EXPECT_EQ(container->mainContext().fetch<Track>().size(), 1U);
    EXPECT_TRUE(log.contains("🗑️ [VM] Backend deletion complete: 7 tracks removed"));
}

TEST_F(DeletionWithBackend, WhatCouldNotBeDeletedStaysForGood) {
    using Calls = std::vector<std::string>;
    enum class Fault { noBackend, signOut, inBackend, inStore, inStoreAndRollback };

    const struct {
        Fault fault;
        std::string error;
        Calls calls;
        bool isStillSynced;
    } cases[] = {
        {Fault::noBackend, "Failed to delete library: ", {}, true},
        {Fault::signOut, "Warning: Failed to clear local data on signout: ", {}, true},
        {Fault::inBackend, "Failed to delete library: Server error: down", {"deleteLibrary"}, true},
        {Fault::inStore,
         "Failed to delete library locally, but it has been restored: ",
         {"deleteLibrary", "syncLibrary", "syncTracks 2"},
         false},
        {Fault::inStoreAndRollback,
         "Critical: Library deletion failed. Backend deleted 7 tracks but local copy remains. Please "
         "contact support.",
         {"deleteLibrary", "syncLibrary"},
         false},
    };

    double bpm = 120;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.error);
        viewModel->setUp({nullptr, tagging, each.fault == Fault::noBackend ? nullptr : sync});
        sync->failsToDelete = each.fault == Fault::inBackend;
        sync->failsToRestore = each.fault == Fault::inStoreAndRollback;
        library->files.front()->track->edit().bpm = ++bpm; // somebody else's change, not saved yet
        refuse("DELETE ON Library");
        runtime.run(each.fault == Fault::signOut ? viewModel->clearLocalData()
                                                 : viewModel->deleteLibrary(library));
        EXPECT_THAT(error(), StartsWith(each.error));
        EXPECT_EQ(sync->calls, each.calls);
        expectLibraryInPlace();
        EXPECT_EQ(viewModel->selectedLibrary.get(), library);
        EXPECT_TRUE(each.fault == Fault::signOut || library->files.front()->track->bpm == bpm);
        for (const FileItemRef& file : library->files)
            EXPECT_EQ(file->track->lastSyncedAt.has_value(), each.isStillSynced);

        refuseNoMore();
        container->mainContext().save();
        viewModel.reset();
        container.reset();
        container = model::ModelContainer::create(storeSchema(), {folder / "store"});
        restart();
        runtime.run(viewModel->loadData());
        library = viewModel->libraries->front();
        expectLibraryInPlace();
    }
}

TEST_F(DeletionWithBackend, IfOnlyTheOrphansStayTheLibraryIsGoneAllTheSame) {
    refuse("DELETE ON Track");
    runtime.run(viewModel->deleteLibrary(library));
    EXPECT_THAT(error(), StartsWith("Failed to delete library: "));
    EXPECT_THAT(sync->calls, ElementsAre("deleteLibrary")); // nothing is restored of what is gone here
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_FALSE(viewModel->selectedLibrary.get());
    refuseNoMore();
    container->mainContext().save();
    EXPECT_EQ(container->mainContext().fetch<Track>().size(), 2U);
}

TEST_F(DeletionWithBackend, ALibraryThatCouldNotBeCreatedDoesNotComeWithTheNextSave) {
    refuse("INSERT ON Library");
    runtime.run(viewModel->createLibrary("New", "/new", std::nullopt, std::nullopt));
    EXPECT_THAT(error(), StartsWith("Failed to create library: "));
    refuseNoMore();
    library->edit().lastSyncedAt = clock.now();
    container->mainContext().save();
    EXPECT_EQ(container->mainContext().count<Library>(), 1U);
}

} // namespace
} // namespace velto::test
