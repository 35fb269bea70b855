#include "app/AppFixture.hpp"

#include <asio/detached.hpp>

#include <algorithm>

namespace velto::test {
namespace {

using ::testing::ElementsAre;

class Scans : public AppFixture {
  protected:
    static constexpr int fileCount = 300;

    void makeSong(const std::string& path) {
        std::filesystem::create_directories((folder / path).parent_path());
        runProgram({"ffmpeg", "-y", "-v", "error", "-f", "lavfi", "-i", "sine=duration=0.3", "-metadata",
                    "artist=A", "-metadata", "title=" + path, (folder / path).string()});
    }

    /// Copies of one song.
    void makeFiles(const std::string& name) {
        makeSong(name + "/song.mp3");
        const std::string song = readFile(folder / name / "song.mp3");
        for (int i = 1; i < fileCount; ++i)
            folder.write(name + "/" + std::to_string(i) + ".mp3", song);
    }

    /// Starts something that scans, and waits until it shows progress.
    template <typename T>
    void begin(Task<T> scanning) {
        asio::co_spawn(runtime.main(), std::move(scanning), asio::detached);
        runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
    }
};

TEST_F(Scans, AnAddedFolderIsReadAndNewFilesAreFoundInTheirOwnLibrary) {
    signIn();
    makeSong("A/one.mp3");
    add("A");
    const ScanRunRef run = runtime.run(viewModel->refreshSelectedLibrary()).run;
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

TEST_F(Scans, AFailedOneIsReported) {
    signIn();
    add("A");
    std::filesystem::remove(folder / "A");
    EXPECT_TRUE(runtime.run(viewModel->refreshSelectedLibrary()).failure);
    EXPECT_EQ(error(), "Import failed: Library directory not accessible: " + (folder / "A").string());
    EXPECT_FALSE(viewModel->scanProgress->has_value());
}

TEST_F(Scans, TheNextOneWaitsForACancelledOneAndCountsAsItself) {
    signIn();
    add("A");
    makeFiles("A");
    std::vector<bool> progress;
    const auto watched = viewModel->scanProgress.subscribe(
        [&](const std::optional<ScanProgress>& shown) { progress.push_back(shown.has_value()); });
    begin(viewModel->refreshSelectedLibrary());
    asio::co_spawn(runtime.main(), viewModel->cancelScan(), asio::detached);
    const ScanRunRef run = runtime.run(viewModel->refreshSelectedLibrary()).run;
    ASSERT_TRUE(run) << error();
    EXPECT_EQ(run->totalSeen, fileCount);
    progress.erase(std::unique(progress.begin(), progress.end()), progress.end());
    if (!progress.empty() && !progress.front()) progress.erase(progress.begin());
    EXPECT_THAT(progress, ElementsAre(true, false, true, false));
}

TEST_F(Scans, ACheckWaitsItsTurnAndGoesOnAfterALibraryThatFails) {
    signIn();
    const LibraryRef broken = add("broken");
    const LibraryRef busy = add("A");
    makeFiles("A");
    const LibraryRef last = add("B");
    makeSong("B/new.mp3");
    std::filesystem::remove(folder / "broken");
    viewModel->selectedLibrary = busy;
    std::optional<ScanOutcome> users;
    asio::co_spawn(runtime.main(), viewModel->refreshSelectedLibrary(),
                   [&](const std::exception_ptr&, ScanOutcome outcome) { users = std::move(outcome); });
    runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
    bool checked = false;
    asio::co_spawn(runtime.main(), MainScreenViewModel::checkForNewFiles(viewModel, {broken, last}),
                   [&](const std::exception_ptr&) { checked = true; });
    runtime.runUntil([&] { return users && checked; });
    ASSERT_TRUE(*users) << "the user's scan went on";
    EXPECT_EQ(last->files.size(), 1U) << "the check scanned after it";
    EXPECT_EQ(error().rfind("Import failed", 0), std::string::npos) << error();
}

TEST_F(Scans, ACheckEndsQuietlyWithItsLibraryOrTheStateObject) {
    signIn();
    const LibraryRef library = add("A");
    makeFiles("A");
    for (const bool isSignOut : {false, true}) {
        const LibraryRef checked = isSignOut ? add("A") : library;
        bool ended = false;
        asio::co_spawn(runtime.main(), MainScreenViewModel::checkForNewFiles(viewModel, {checked}),
                       [&](const std::exception_ptr&) { ended = true; });
        runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
        runtime.run(isSignOut ? viewModel->clearLocalData() : viewModel->deleteLibrary(checked));
        runtime.runUntil([&] { return ended; });
        EXPECT_EQ(error(), "") << isSignOut;
    }
    // Nobody else holds the state object: it goes after the library that the check is at.
    const LibraryRef first = add("A");
    const LibraryRef next = add("B");
    makeSong("B/new.mp3");
    bool ended = false;
    asio::co_spawn(runtime.main(), MainScreenViewModel::checkForNewFiles(viewModel, {first, next}),
                   [&](const std::exception_ptr&) { ended = true; });
    runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
    viewModel.reset();
    runtime.runUntil([&] { return ended; });
    EXPECT_EQ(first->scanRuns.size(), 1U);
    EXPECT_EQ(next->scanRuns.size(), 0U);
}

TEST_F(Scans, AUsersOneWaitsForTheOneThatACheckStarted) {
    signIn();
    const LibraryRef checked = add("A");
    makeFiles("A");
    add("B"); // on show
    makeSong("B/new.mp3");
    begin(MainScreenViewModel::checkForNewFiles(viewModel, {checked}));
    const ScanRunRef run = runtime.run(viewModel->refreshSelectedLibrary()).run;
    ASSERT_TRUE(run) << error();
    EXPECT_EQ(run->newCount, 1);
    EXPECT_EQ(checked->files.size(), fileCount);
}

TEST_F(Scans, DeletingALibraryLeavesTheScanOfAnotherAlone) {
    signIn();
    const LibraryRef scanned = add("A");
    makeFiles("A");
    std::optional<ScanOutcome> outcome;
    asio::co_spawn(runtime.main(), viewModel->refreshSelectedLibrary(),
                   [&](const std::exception_ptr&, ScanOutcome ended) { outcome = std::move(ended); });
    runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
    const LibraryRef other = add("B"); // on show now
    runtime.run(viewModel->deleteLibrary(other));
    runtime.runUntil([&] { return outcome.has_value(); });
    EXPECT_TRUE(*outcome) << error();
    EXPECT_EQ(scanned->files.size(), fileCount);
}

TEST_F(Scans, EverythingThatRunsCanBeStopped) {
    signIn();
    const LibraryRef library = add("A");
    makeFiles("A");
    makeFolder("B");
    bool isChecked = false;
    asio::co_spawn(runtime.main(), MainScreenViewModel::checkForNewFiles(viewModel, {library, library}),
                   [&](const std::exception_ptr&) { isChecked = true; });
    runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
    std::optional<ScanOutcome> waiting;
    asio::co_spawn(runtime.main(), viewModel->refreshSelectedLibrary(),
                   [&](const std::exception_ptr&, ScanOutcome ended) { waiting = std::move(ended); });
    asio::co_spawn(runtime.main(), viewModel->addLibrary("B", folder / "B", {}, {}), asio::detached);
    runtime.poll();
    runtime.run(viewModel->stopEverything());
    EXPECT_THAT(names(), ElementsAre("A", "B"));
    EXPECT_EQ(grants.activeCount(folder / "B"), 1) << "an add is not left half done";
    runtime.runUntil([&] { return waiting && isChecked; });
    const auto isLook = [](const std::string& line) { return line.ends_with("missing files"); };
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), isLook), 1) << "the check went on";
    EXPECT_FALSE(waiting->run || waiting->failure);
    EXPECT_FALSE(viewModel->scanProgress->has_value());
    EXPECT_EQ(error(), "");
    EXPECT_EQ(library->scanRuns.size(), 1U);
    EXPECT_FALSE(library->lastScanFinishedAt);

    library->edit().lastScanFinishedAt = clock.now(); // so that a launch looks at it
    container->mainContext().save();
    restart(true);
    viewModel->setUp({nullptr, tagging, sync});
    bool isStopped = false;
    sync->onSync = [&] {
        asio::co_spawn(runtime.main(), viewModel->stopEverything(),
                       [&](const std::exception_ptr&) { isStopped = true; });
    };
    runtime.run(viewModel->loadData());
    runtime.runUntil([&] { return isStopped; });
    EXPECT_EQ(library->scanRuns.size(), 1U);
    EXPECT_THAT(sync->calls, ElementsAre("syncInBackground")) << "of the first library alone";
}

TEST_F(Scans, NothingOfALibraryThatIsDeletedMeanwhileStays) {
    for (const bool isSignOut : {true, false}) {
        SCOPED_TRACE(isSignOut);
        signIn();
        const LibraryRef scanned = add("A");
        makeFiles("A");
        begin(viewModel->scanForNewTracks(scanned));
        add("B"); // on show now
        runtime.run(isSignOut ? viewModel->clearLocalData() : viewModel->deleteLibrary(scanned));
        EXPECT_EQ(error(), "");
        EXPECT_FALSE(viewModel->scanProgress->has_value());
        EXPECT_THAT(names(), isSignOut ? testing::IsEmpty()
                                       : testing::Matcher<std::vector<std::string>>(ElementsAre("B")));
        auto& context = container->mainContext();
        EXPECT_EQ(context.count<FileItem>() + context.count<Track>() + context.count<ScanRun>(), 0U);
    }
}

TEST_F(Scans, ALoadLooksForNewFilesAndSyncs) {
    signIn();
    add("A");
    const LibraryRef library = viewModel->selectedLibrary;
    runtime.run(viewModel->refreshSelectedLibrary());
    add("B"); // never scanned: not looked at
    makeSong("A/new.mp3");
    makeSong("B/new.mp3");
    restart(true);
    viewModel->setUp({nullptr, tagging, sync});
    runtime.run(viewModel->loadData());
    runtime.run(viewModel->backgroundWorkFinished());
    EXPECT_EQ(library->files.size(), 1U);
    EXPECT_EQ(container->mainContext().count<FileItem>(), 1U);
    EXPECT_THAT(sync->calls, ElementsAre("syncInBackground", "syncInBackground", "syncInBackground"))
        << "two libraries at launch, one after its scan";

    // A file that goes takes its track with it at the backend.
    std::filesystem::remove(folder / "A/new.mp3");
    sync->calls.clear();
    viewModel->selectedLibrary = library;
    runtime.run(viewModel->refreshSelectedLibrary());
    runtime.run(viewModel->backgroundWorkFinished());
    EXPECT_EQ(sync->calls.back(), "syncInBackground");
}

TEST_F(Scans, ALibrarySwitchShowsThatItLoads) {
    const LibraryRef library = libraryWithTracks("L", 2);
    std::vector<std::size_t> shownWhileLoading;
    const auto watched = viewModel->tracks.subscribe([&](const std::vector<TrackRef>& shown) {
        if (viewModel->isLoading.get()) shownWhileLoading.push_back(shown.size());
    });
    shownWhileLoading.clear();
    runtime.run(viewModel->selectLibrary(library));
    EXPECT_THAT(shownWhileLoading, ElementsAre(0U, 2U));
    EXPECT_FALSE(viewModel->isLoading.get());
    EXPECT_EQ(viewModel->selectedLibrary.get(), library);
}

} // namespace
} // namespace velto::test
