#include "platform/core/Error.hpp"
#include "platform/files/FileAttributes.hpp"
#include "scanning/ReadStage.hpp"
#include "scanning/ScannerFixture.hpp"
#include "store/GenreTextParser.hpp"

#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::counts;
using test::linesWith;
using test::ScannerTest;
using testing::ElementsAre;

AudioMetadata song(const std::optional<std::string>& genre) {
    AudioMetadata metadata;
    metadata.artist = "A";
    metadata.title = "T";
    metadata.genre = genre;
    metadata.durationSec = 1;
    return metadata;
}

TEST_F(ScannerTest, AFolderAsFoundInTheWild) {
    const std::string broken = "Bad \xFF\xFE - Bytes.wav", newline = "New\nLine - Name.wav";
    addSong("A - One.wav");
    addSong("deep/er/B - Two.WAV");
    addSong(broken);
    addSong(newline);
    addSong(".hidden/C - No.wav");
    addSong(".D - No.wav");
    folder.write("music/notes.txt", "no music");
    folder.write("music/E - Other.ogg", "a type that is listed and not read");
    folder.write("music/F - Empty.wav", "");
    for (const char* system : {"$Recycle.Bin", "System Volume Information", "lost+found"})
        addSong(std::string(system) + "/G - Thrown away.wav");
    fs::create_directory_symlink(music, music / "deep" / "loop");
    fs::create_symlink(music / "A - One.wav", music / "Link - One.wav");

    const ScanRunRef run = scan();
    EXPECT_THAT(counts(run), ElementsAre(6, 4, 0, 0, 2));
    EXPECT_EQ(run->notes, "High-performance concurrent scan completed");
    EXPECT_EQ(run->finishedAt, clock.now());
    EXPECT_EQ(library->lastScanStartedAt, clock.now());
    EXPECT_EQ(library->lastScanFinishedAt, clock.now());
    EXPECT_FALSE(runtime.run(scanner->scanProgress()));

    const auto files = filesByPath();
    ASSERT_EQ(files.size(), 6U);
    EXPECT_EQ(files.at("F - Empty.wav")->status, FileStatus::error);
    EXPECT_THAT(files.at("F - Empty.wav")->errorMsg.value(), testing::HasSubstr("F - Empty.wav"));
    EXPECT_FALSE(files.at("F - Empty.wav")->track);
    for (const std::string& relPath : {std::string("A - One.wav"), broken, newline}) {
        ASSERT_TRUE(files.contains(relPath)) << relPath;
        EXPECT_EQ(files.at(relPath)->status, FileStatus::ready);
        EXPECT_EQ(files.at(relPath)->absPath, (music / relPath).string());
    }
    const FileItemRef two = files.at("deep/er/B - Two.WAV");
    EXPECT_EQ(two->filename, "B - Two.WAV");
    EXPECT_EQ(two->ext, "WAV"); // in the case that the path has
    EXPECT_EQ(two->track->artist, "B");
    EXPECT_EQ(two->track->title, "Two");
    EXPECT_EQ(two->quickSig->size(), 16U);
    EXPECT_EQ(two->firstSeen, clock.now());
    EXPECT_EQ(two->creationDate, files::creationDate(two->absPath));
    EXPECT_EQ(two->track->createdAt, two->creationDate);
    EXPECT_THAT(reporter.lines, ElementsAre("Starting library scan: Music", "Discovered 6 files in library",
                                            "Scan completed: 6 files processed in 0.00s"));
    EXPECT_FALSE(context().hasChanges());
    EXPECT_TRUE(runtime.run(scanner->findUnindexedFiles(library)).empty()) << "the check ends";
}

TEST_F(ScannerTest, AnUnchangedRescanWritesNothingButLastSeen) {
    addSongs(3);
    scan();
    context().deliverChanges();
    model::ChangeSet changes;
    const Subscription observer = context().observe([&](const model::ChangeSet& set) {
        changes.inserted.insert(changes.inserted.end(), set.inserted.begin(), set.inserted.end());
        changes.updated.insert(changes.updated.end(), set.updated.begin(), set.updated.end());
    });
    const FileItemRef file = library->files.front();
    const auto scannedAt = file->lastScannedAt;
    const log::Capture log;
    EXPECT_THAT(counts(scan()), ElementsAre(3, 0, 0, 0, 0));
    context().deliverChanges();
    EXPECT_FALSE(changes.concerns<Track>());
    EXPECT_TRUE(changes.concerns<FileItem>());
    EXPECT_EQ(file->lastSeen, clock.now());
    EXPECT_EQ(file->lastScannedAt, scannedAt);
    EXPECT_FALSE(context().hasChanges());
    EXPECT_TRUE(log.contains("🚀 [CONCURRENT] Processing 0 tracks in batches of 6..."));
}

TEST_F(ScannerTest, OneSongInTwoFilesIsOneTrackThatKeepsItsTags) {
    addSong("a/Same - Song.wav");
    scan();
    const TrackRef track = library->files.front()->track;
    track->edit().genres = {"House"};
    track->edit().lastTagged = clock.now();
    addSong("b/SAME - song.wav");
    addSong("c/Other - Song.wav");
    scan();
    EXPECT_EQ(context().fetch<Track>().size(), 2U);
    EXPECT_EQ(track->files.size(), 2U);
    EXPECT_EQ(track->genres, (std::vector<std::string>{"House"}));
    EXPECT_TRUE(orphans.empty());
}

TEST_F(ScannerTest, WhatIsReadReachesRecordAndTrack) {
    addSong("one.wav");
    scan();
    const FileItemRef file = library->files.front();
    extractor->instead = AudioMetadata{"A", "T", "Album", 3, "House", 124.5, 61.25, 1999, 320, 44100, 2};
    folder.write("music/one.wav", test::smallWav() + "longer");
    EXPECT_THAT(counts(scan()), ElementsAre(1, 0, 1, 0, 0));
    EXPECT_EQ(file->sizeBytes, static_cast<std::int64_t>(fs::file_size(file->absPath)));
    const auto attributes = files::identityOf(file->absPath);
    EXPECT_EQ(static_cast<std::uint64_t>(file->inode.value()), attributes->inode);
    EXPECT_EQ(file->durationSec, 61.25);
    EXPECT_EQ(file->bitrateKbps, 320);
    EXPECT_EQ(file->samplerateHz, 44100);
    EXPECT_EQ(file->channels, 2);
    const TrackRef track = file->track;
    EXPECT_EQ(track->canonicalSig, "a|t|album|61.3");
    EXPECT_EQ(track->artist, "A");
    EXPECT_EQ(track->title, "T");
    EXPECT_EQ(track->album, "Album");
    EXPECT_EQ(track->trackNumber, 3);
    EXPECT_EQ(track->genre, "House");
    EXPECT_EQ(track->bpm, 124.5);
    EXPECT_EQ(track->durationSec, 61.25);
    EXPECT_EQ(track->year, 1999);
    const Date before = file->mtime;
    fs::last_write_time(file->absPath, fs::last_write_time(file->absPath) + std::chrono::hours(1));
    scan();
    EXPECT_EQ(file->mtime, before + std::chrono::hours(1));
}

TEST_F(ScannerTest, LibrariesWithTheSamePathsShareSongsAndNoRecords) {
    addSong("A - B.wav");
    scan();
    const LibraryRef first = library;
    folder.write("other/A - B.wav", test::smallWav());
    library = runtime.run(
        libraries->upsertLibrary("Other", (folder / "other").string(), std::nullopt, std::nullopt));
    EXPECT_THAT(counts(scan()), ElementsAre(1, 1, 0, 0, 0));
    ASSERT_EQ(first->files.size(), 1U);
    ASSERT_EQ(library->files.size(), 1U);
    EXPECT_EQ(first->files.front()->track, library->files.front()->track);
    fs::remove(folder / "other/A - B.wav");
    scan();
    EXPECT_EQ(first->files.front()->status, FileStatus::ready);
}

TEST_F(ScannerTest, ProgressMovesEveryFiftyFilesAndSavesEveryThousand) {
    extractor->instead = song(std::nullopt);

    struct Case {
        int files;
        std::vector<std::int64_t> progress;
        int logLines;
        int batchSaves;
    };

    int present = 0;
    for (const Case& each :
         {Case{49, {49}, 0, 0}, Case{100, {50, 100}, 1, 0}, Case{999, {}, 9, 0}, Case{1'000, {}, 10, 1}}) {
        while (present < each.files)
            folder.write("music/" + std::to_string(++present) + ".wav", "x");
        std::vector<std::int64_t> steps;
        const Subscription observer = scanner->observableProgress().subscribe([&](const auto& progress) {
            if (progress && progress->phase == ImportPhase::processing && progress->processedFiles > 0)
                steps.push_back(progress->processedFiles);
        });
        const log::Capture log;
        scan();
        if (!each.progress.empty()) {
            EXPECT_EQ(steps, each.progress);
        }
        EXPECT_EQ(linesWith(log, "📊 [SEQUENTIAL] Processed "), each.logLines);
        EXPECT_EQ(linesWith(log, "🧹 [BATCH SAVE] Saving batch after 1000 files"), each.batchSaves);
        EXPECT_EQ(linesWith(log, "💽 [SAVE] Saving all changes..."), 1);
    }
}

TEST_F(ScannerTest, SeveralWorkersReadAndTheirProgressKeepsTheOrder) {
    if (ReadStage::workers() == 1) GTEST_SKIP() << "one processor, one worker";
    extractor->instead = song(std::nullopt);
    extractor->before = [this](int number, const std::string&) -> Task<void> {
        while (number == 1 && extractor->count() < 60) // of whole blocks: another worker reads them
            std::this_thread::yield();
        co_return;
    };
    for (int i = 0; i < 150; ++i)
        folder.write("music/" + std::to_string(i) + ".wav", "x");
    std::vector<std::int64_t> steps;
    const Subscription observer = scanner->observableProgress().subscribe([&](const auto& progress) {
        if (progress && progress->phase == ImportPhase::processing && progress->processedFiles > 0)
            steps.push_back(progress->processedFiles);
    });
    EXPECT_THAT(counts(scan()), ElementsAre(150, 150, 0, 0, 0));
    EXPECT_THAT(steps, ElementsAre(50, 100, 150));
}

TEST_F(ScannerTest, ProgressShowsEveryStageInOrder) {
    addSongs(2);
    std::vector<std::string> stages;
    const Subscription observer = scanner->observableProgress().subscribe([&](const auto& progress) {
        stages.push_back(progress ? std::string(rawValue(progress->phase)) + " " + *progress->currentFile
                                  : "none");
    });
    scan();
    ASSERT_EQ(stages.size(), 8U);
    stages.erase(stages.begin() + 4); // the last file's name, then the first one's: the walk's order is free
    stages.erase(stages.begin() + 5);
    EXPECT_THAT(stages, ElementsAre("Scanning for tracks... Starting scan...",
                                    "Scanning for tracks... Discovering files...",
                                    "Processing tracks... Starting concurrent processing...",
                                    "Processing tracks... Starting processing...",
                                    "Adding to library... Saving to database...", "none"));
}

Task<void> cancelAt(Executors executors, ConcurrentScanner& scanner, int at, int number) {
    if (number == at) co_await runOn(executors.main, scanner.cancelScan());
}

TEST_F(ScannerTest, ACancelledScanStoresNothingAndClosesItsRun) {
    addSongs(5);
    extractor->before = [this](int number, const std::string&) {
        return cancelAt(runtime.executors(), *scanner, 3, number);
    };
    EXPECT_EQ(failureOfScan(), "Scan was cancelled");
    EXPECT_EQ(extractor->count(), 3); // the file under way is the last one
    EXPECT_TRUE(library->files.empty());
    ASSERT_EQ(library->scanRuns.size(), 1U);
    const ScanRunRef run = library->scanRuns.front();
    EXPECT_TRUE(run->finishedAt);
    EXPECT_EQ(run->notes, "Scan failed: The operation was cancelled");
    EXPECT_THAT(counts(run), ElementsAre(5, 0, 0, 0, 1));
    EXPECT_FALSE(library->lastScanFinishedAt);
    EXPECT_FALSE(runtime.run(scanner->scanProgress()));
    extractor->before = nullptr;
    EXPECT_THAT(counts(scan()), ElementsAre(5, 5, 0, 0, 0));
}

TEST_F(ScannerTest, ACancellationAfterTheReadingComesTooLate) {
    addSongs(2);
    const Subscription observer = scanner->observableProgress().subscribe([this](const auto& progress) {
        if (progress && progress->phase == ImportPhase::saving) spawn(runtime.main(), scanner->cancelScan());
    });
    const ScanRunRef run = scan();
    EXPECT_THAT(counts(run), ElementsAre(2, 2, 0, 0, 0));
    EXPECT_EQ(run->notes, "High-performance concurrent scan completed");
    EXPECT_EQ(library->files.size(), 2U);
    EXPECT_FALSE(runtime.run(scanner->scanProgress()));
}

TEST_F(ScannerTest, ACancellationBeforeTheReadingReadsNoFileAndShowsNothingMore) {
    addSongs(2);
    for (const char* stage : {"Discovering files...", "Starting concurrent processing..."}) {
        bool isOver = false, isShownAgain = false;
        const Subscription observer = scanner->observableProgress().subscribe([&](const auto& progress) {
            isOver = isOver || !progress;
            isShownAgain = isShownAgain || (isOver && progress);
            if (progress && progress->currentFile == stage) spawn(runtime.main(), scanner->cancelScan());
        });
        EXPECT_EQ(failureOfScan(), "Scan was cancelled") << stage;
        EXPECT_EQ(extractor->count(), 0) << stage;
        EXPECT_TRUE(isOver && !isShownAgain) << stage;
    }
}

Task<void> rememberFailure(Task<FinishedScan> scan, std::string& text, bool& done) {
    try {
        co_await std::move(scan);
        text = "finished";
    } catch (const Error& error) {
        text = error.errorDescription();
    }
    done = true;
}

TEST_F(ScannerTest, ASecondStartFailsAndDisturbsNothing) {
    addSongs(3);
    std::string first, second;
    bool firstDone = false, secondDone = false;
    spawn(runtime.main(), rememberFailure(scanner->scanLibrary(library), first, firstDone));
    spawn(runtime.main(), rememberFailure(scanner->scanLibrary(library), second, secondDone));
    runtime.runUntil([&] { return firstDone && secondDone; });
    EXPECT_EQ(second, "A scan is already in progress");
    EXPECT_EQ(first, "finished");
    EXPECT_EQ(library->files.size(), 3U);
}

TEST_F(ScannerTest, AScanStartedRightAfterACancellationWaitsForTheOldOne) {
    addSongs(3);
    std::string first, second;
    bool firstDone = false, secondDone = false;
    extractor->before = [&](int number, const std::string&) -> Task<void> {
        return cancelAt(runtime.executors(), *scanner, 2, number);
    };
    const Subscription observer = scanner->observableProgress().subscribe([&](const auto& progress) {
        if (progress || secondDone || !second.empty()) return;
        second = "started";
        spawn(runtime.main(), rememberFailure(scanner->scanLibrary(library), second, secondDone));
    });
    spawn(runtime.main(), rememberFailure(scanner->scanLibrary(library), first, firstDone));
    runtime.runUntil([&] { return firstDone && secondDone; });
    EXPECT_EQ(first, "Scan was cancelled");
    EXPECT_EQ(second, "finished");
    EXPECT_EQ(library->files.size(), 3U);
    EXPECT_EQ(library->scanRuns.size(), 2U);
}

TEST_F(ScannerTest, ARootThatIsGoneOrAFileLeavesNoRun) {
    fs::remove(music);
    EXPECT_EQ(failureOfScan(), "Library directory not accessible: " + music.string());
    folder.write("music", "a file");
    EXPECT_EQ(failureOfScan(), "Library directory not accessible: " + music.string());
    EXPECT_TRUE(library->scanRuns.empty());
    EXPECT_FALSE(runtime.run(scanner->scanProgress()));
}

TEST_F(ScannerTest, ARunThatCannotBeOpenedShowsNoProgress) {
    const test::Obstacle newRuns(folder / "velto.store", "INSERT ON ScanRun");
    EXPECT_THAT(failureOfScan(), testing::HasSubstr("velto.store"));
    EXPECT_FALSE(runtime.run(scanner->scanProgress()));
}

Task<void> nothing() {
    co_return;
}

TEST_F(ScannerTest, AStoreThatCannotSaveFailsTheScanAndTheNextOneCatchesUp) {
    addSongs(2);
    std::optional<test::Obstacle> newFiles(std::in_place, folder / "velto.store", "INSERT ON FileItem");
    reporter.onError = [&] { newFiles.reset(); };
    const std::string failure = failureOfScan();
    EXPECT_THAT(failure, testing::HasSubstr("velto.store"));
    EXPECT_THAT(reporter.errors, ElementsAre(failure));
    const ScanRunRef run = library->scanRuns.front();
    EXPECT_EQ(run->notes, "Scan failed: " + failure);
    EXPECT_EQ(run->finishedAt, clock.now());
    EXPECT_THAT(counts(run), ElementsAre(2, 2, 0, 0, 1));
    EXPECT_TRUE(runtime.run(scanner->scanProgress())); // the caller clears its own copy
    EXPECT_FALSE(context().hasChanges());
    EXPECT_EQ(counts(scan())[0], 2);
    EXPECT_EQ(library->files.size(), 2U);
    for (const FileItemRef& file : library->files)
        EXPECT_TRUE(file->track);
}

TEST_F(ScannerTest, AScanKilledBetweenItsSavesIsTakenUpByTheNext) {
    extractor->instead = song(std::nullopt);
    for (int i = 1; i <= 2'001; ++i)
        folder.write("music/" + std::to_string(i) + ".wav", "x");
    const Subscription observer = scanner->observableProgress().subscribe([this](const auto& progress) {
        // The save of the first thousand went on beside the second, and has ended before its save.
        if (!progress || progress->phase != ImportPhase::saving || progress->processedFiles != 2'000) return;
        for (const char* part : {"velto.store", "velto.store-wal"}) // what a kill at this moment leaves
            fs::copy_file(folder / part, folder / ("killed-" + std::string(part)));
    });
    scan();
    fs::rename(folder / "killed-velto.store-wal", folder / "killed.store-wal");
    fs::rename(folder / "killed-velto.store", folder / "killed.store");
    reopen(folder / "killed.store");
    ASSERT_GE(library->files.size(), 1'000U);
    ASSERT_LE(library->files.size(), 2'000U);
    EXPECT_EQ(counts(scan())[0], 2'001);
    for (const FileItemRef& file : library->files)
        EXPECT_TRUE(file->track && file->status == FileStatus::ready && file->quickSig) << file->relPath;
}

/// Calls `at` with the number of each track that is made.
class CountingParser final : public GenreTextParser {
  public:
    explicit CountingParser(std::function<void(int)> at)
        : at_(std::move(at)) {}

    [[nodiscard]] RecognisedTags parse(const std::string&) const override {
        at_(++calls_);
        return {};
    }

  private:
    std::function<void(int)> at_;
    mutable int calls_ = 0;
};

TEST_F(ScannerTest, ATrackThatCannotBeMadeMarksItsFileAlone) {
    const CountingParser parser([](int) { throw std::runtime_error("no vocabulary"); });
    scanner = makeScanner(&parser);
    addSongs(1);
    extractor->instead = song("bad");
    const log::Capture log;
    EXPECT_THAT(counts(scan()), ElementsAre(1, 1, 0, 0, 0));
    const FileItemRef file = library->files.front();
    EXPECT_EQ(file->status, FileStatus::error);
    EXPECT_EQ(file->errorMsg, "Failed to create/find track");
    EXPECT_FALSE(file->track);
    EXPECT_TRUE(log.contains("❌ [TRACK CREATE]   Error type: runtime_error"));
    EXPECT_TRUE(log.contains("❌ [TRACK CREATE]   Metadata: artist=A title=T canonicalSig=a|t||1.0..."));
    EXPECT_TRUE(log.contains("⚠️ [ATTACHMENT] Failed to attach 1 files"));
}

TEST_F(ScannerTest, ALibraryDeletedDuringItsScanEndsTheScanAndLeavesNothing) {
    addSongs(3);
    extractor->before = [this](int number, const std::string&) -> Task<void> {
        return number == 1 ? runOn(runtime.main(), libraries->deleteLibrary(library)) : nothing();
    };
    const TrackRef orphan = model::make<Track>("artist|song 1||0.0", TrackMetadata()); // an earlier scan's
    context().insert(orphan);
    EXPECT_EQ(failureOfScan(), "Library directory not accessible: " + music.string());
    context().save();
    EXPECT_EQ(context().count<FileItem>(), 0U);
    EXPECT_EQ(context().fetch<Track>(), std::vector{orphan}) << "nobody's: not this deletion's";
    EXPECT_EQ(context().count<ScanRun>(), 0U);
}

} // namespace
} // namespace velto
