#include "app/AppFixture.hpp"

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

    /// Adds the folder with copies of one song: enough to be met while they are scanned.
    LibraryRef addFull(const std::string& name) {
        makeSong(name + "/song.mp3");
        const std::string song = readFile(folder / name / "song.mp3");
        for (int i = 1; i < fileCount; ++i)
            folder.write(name + "/" + std::to_string(i) + ".mp3", song);
        return add(name);
    }

    /// Starts something that scans, and waits until it shows progress.
    template <typename T>
    std::shared_ptr<Started<T>> begin(Task<T> scanning) {
        const auto started = start(std::move(scanning));
        runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
        return started;
    }

    std::shared_ptr<Started<void>> check(std::vector<LibraryRef> libraries) {
        return start(MainScreenViewModel::checkForNewFiles(viewModel, std::move(libraries)));
    }

    Scans() { signIn(); }
};

TEST_F(Scans, AnAddedFolderIsReadAndNewFilesAreFoundInTheirOwnLibrary) {
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
    finish(check({first}));
    EXPECT_EQ(first->files.size(), 2U);
    EXPECT_TRUE(viewModel->tracks->empty()) << "another library is on show";
    finish(check({first}));
    EXPECT_EQ(first->scanRuns.size(), 2U) << "nothing new, no scan";
}

TEST_F(Scans, AFailedOneIsReported) {
    add("A");
    std::filesystem::remove(folder / "A");
    EXPECT_TRUE(runtime.run(viewModel->refreshSelectedLibrary()).failure);
    EXPECT_EQ(error(), "Import failed: Library directory not accessible: " + (folder / "A").string());
    EXPECT_FALSE(viewModel->scanProgress->has_value());
}

TEST_F(Scans, TheNextOneWaitsForACancelledOneAndCountsAsItself) {
    addFull("A");
    std::vector<bool> progress;
    const auto watched = viewModel->scanProgress.subscribe([&](const std::optional<ScanProgress>& shown) {
        if (progress.empty() || progress.back() != shown.has_value()) progress.push_back(shown.has_value());
    });
    begin(viewModel->refreshSelectedLibrary());
    start(viewModel->cancelScan());
    const ScanRunRef run = runtime.run(viewModel->refreshSelectedLibrary()).run;
    ASSERT_TRUE(run) << error();
    EXPECT_EQ(run->totalSeen, fileCount);
    EXPECT_THAT(progress, ElementsAre(true, false, true, false));
}

TEST_F(Scans, ACheckWaitsItsTurnAndGoesOnAfterALibraryThatFails) {
    const LibraryRef broken = add("broken");
    const LibraryRef last = add("B");
    makeSong("B/new.mp3");
    std::filesystem::remove(folder / "broken");
    addFull("A");
    const auto users = begin(viewModel->refreshSelectedLibrary());
    finish(check({broken, last}));
    ASSERT_TRUE(finish(users)) << "the user's scan went on";
    EXPECT_EQ(last->files.size(), 1U) << "the check scanned after it";
    EXPECT_THAT(error(), testing::Not(testing::StartsWith("Import failed")));
}

TEST_F(Scans, ACheckEndsQuietlyWithItsLibraryOrTheStateObject) {
    addFull("A");
    for (const bool isSignOut : {false, true}) {
        const LibraryRef checked = isSignOut ? add("A") : viewModel->selectedLibrary.get();
        const auto checking = check({checked});
        runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
        runtime.run(isSignOut ? viewModel->clearLocalData() : viewModel->deleteLibrary(checked));
        finish(checking);
        EXPECT_EQ(error(), "") << isSignOut;
    }
    // Nobody else holds the state object: it goes after the library that the check is at.
    const LibraryRef first = add("A");
    const LibraryRef next = add("B");
    makeSong("B/new.mp3");
    const auto checking = check({first, next});
    runtime.runUntil([&] { return viewModel->scanProgress->has_value(); });
    viewModel.reset();
    finish(checking);
    EXPECT_EQ(first->scanRuns.size(), 1U);
    EXPECT_EQ(next->scanRuns.size(), 0U);
}

TEST_F(Scans, AUsersOneWaitsForTheOneThatACheckStartedAndADeletionLeavesItAlone) {
    const LibraryRef checked = addFull("A");
    add("B"); // on show
    makeSong("B/new.mp3");
    begin(MainScreenViewModel::checkForNewFiles(viewModel, {checked}));
    const ScanRunRef run = runtime.run(viewModel->refreshSelectedLibrary()).run;
    ASSERT_TRUE(run) << error();
    EXPECT_EQ(run->newCount, 1);
    EXPECT_EQ(checked->files.size(), fileCount);

    makeSong("A/new.mp3");
    const LibraryRef other = add("C");
    const auto scan = begin(viewModel->scanForNewTracks(checked));
    runtime.run(viewModel->deleteLibrary(other));
    finish(scan);
    EXPECT_EQ(checked->files.size(), fileCount + 1);
}

TEST_F(Scans, ADeletionWaitsForTheSaveOfAScan) {
    const LibraryRef other = add("B");
    addFull("A");
    const auto scan = start(viewModel->refreshSelectedLibrary());
    runtime.runUntil([&] { return log.contains("[DEFERRED] Starting optimized"); });
    runtime.run(viewModel->deleteLibrary(other));
    ASSERT_TRUE(finish(scan)) << error();
    const auto lines = log.lines();
    const auto place = [&](const char* text) {
        return std::find_if(lines.begin(), lines.end(),
                            [&](const std::string& line) { return line.find(text) != std::string::npos; });
    };
    EXPECT_LT(place("[SAVE] Database saved"), place("Deleting library 'B'"));
}

TEST_F(Scans, EverythingThatRunsCanBeStopped) {
    const LibraryRef library = addFull("A");
    makeFolder("B");
    const auto checking = check({library, library});
    runtime.runUntil([&] { return library->scanRuns.size() == 1; });
    const auto waiting = start(viewModel->refreshSelectedLibrary());
    start(viewModel->addLibrary("B", folder / "B", {}, {}));
    runtime.poll();
    runtime.run(viewModel->stopEverything());
    EXPECT_THAT(names(), ElementsAre("A", "B"));
    EXPECT_EQ(grants.activeCount(folder / "B"), 1) << "an add is not left half done";
    finish(checking);
    const auto isLook = [](const std::string& line) { return line.ends_with("missing files"); };
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), isLook), 1) << "the check went on";
    const ScanOutcome outcome = finish(waiting);
    EXPECT_FALSE(outcome.run || outcome.failure);
    EXPECT_FALSE(viewModel->scanProgress->has_value());
    EXPECT_EQ(error(), "");
    EXPECT_EQ(library->scanRuns.size(), 1U);
    EXPECT_FALSE(library->lastScanFinishedAt);

    library->edit().lastScanFinishedAt = clock.now(); // so that a launch looks at it
    container->mainContext().save();
    restart(true);
    viewModel->setUp({nullptr, tagging, sync});
    std::shared_ptr<Started<void>> stop;
    sync->onSync = [&] { stop = start(viewModel->stopEverything()); };
    runtime.run(viewModel->loadData());
    runtime.runUntil([&] { return stop && stop->hasEnded; });
    EXPECT_EQ(library->scanRuns.size(), 1U);
    EXPECT_THAT(sync->calls, ElementsAre("syncInBackground")) << "of the first library alone";
}

TEST_F(Scans, NothingOfALibraryThatIsDeletedMeanwhileStays) {
    for (const bool isSignOut : {true, false}) {
        SCOPED_TRACE(isSignOut);
        const LibraryRef scanned = addFull("A");
        begin(viewModel->scanForNewTracks(scanned));
        add("B"); // on show now
        runtime.run(isSignOut ? viewModel->clearLocalData() : viewModel->deleteLibrary(scanned));
        EXPECT_EQ(error(), "");
        EXPECT_FALSE(viewModel->scanProgress->has_value());
        EXPECT_EQ(names(), isSignOut ? std::vector<std::string>{} : std::vector<std::string>{"B"});
        auto& context = container->mainContext();
        EXPECT_EQ(context.count<FileItem>() + context.count<Track>() + context.count<ScanRun>(), 0U);
    }
}

TEST_F(Scans, ALoadLooksForNewFilesAndSyncs) {
    const LibraryRef library = add("A");
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
}

} // namespace
} // namespace velto::test
