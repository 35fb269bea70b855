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

TEST_F(ScannerTest, ChangedMissingAndReappearingFiles) {
    addSongs(3);
    scan();
    const auto files = filesByPath();
    const FileItemRef changed = files.at("Artist - Song 1.wav"), lost = files.at("Artist - Song 2.wav"),
                      unsigned_ = files.at("Artist - Song 3.wav");
    const auto oldSignature = changed->quickSig;
    folder.write("music/Artist - Song 1.wav", test::smallWav() + "longer");
    fs::rename(music / "Artist - Song 2.wav", folder / "aside");
    unsigned_->edit().quickSig = std::nullopt; // counts as changed
    EXPECT_THAT(counts(scan()), ElementsAre(2, 0, 2, 1, 0));
    EXPECT_NE(changed->quickSig, oldSignature);
    EXPECT_EQ(lost->status, FileStatus::missing);
    EXPECT_TRUE(lost->track);

    EXPECT_THAT(counts(scan()), ElementsAre(2, 0, 0, 1, 0)); // earlier losses count again
    fs::rename(folder / "aside", music / "Artist - Song 2.wav");
    EXPECT_THAT(runtime.run(scanner->findUnindexedFiles(library)), ElementsAre(lost->absPath));
    EXPECT_THAT(counts(scan()), ElementsAre(3, 0, 0, 0, 0));
    EXPECT_EQ(lost->status, FileStatus::ready);
}

TEST_F(ScannerTest, AFileThatCannotBeReadAnyMoreKeepsItsRecord) {
    addSongs(1);
    scan();
    const FileItemRef file = library->files.front();
    const auto signature = file->quickSig;
    const auto mtime = fs::last_write_time(file->absPath);
    folder.write("music/Artist - Song 1.wav", "");
    for (int round = 0; round < 2; ++round) { // it is read again
        EXPECT_THAT(counts(scan()), ElementsAre(1, 0, 0, 0, 1));
        EXPECT_EQ(file->quickSig, signature);
        EXPECT_EQ(file->status, FileStatus::error);
        EXPECT_TRUE(file->errorMsg);
        EXPECT_TRUE(file->track);
    }
    addSongs(1);
    fs::last_write_time(file->absPath, mtime);
    EXPECT_THAT(counts(scan()), ElementsAre(1, 0, 0, 0, 0));
    EXPECT_EQ(file->status, FileStatus::ready);
    EXPECT_FALSE(file->errorMsg);
}

TEST_F(ScannerTest, ARenamedFolderTakesItsRecordsAlong) {
    addSong("old/A - One.wav");
    addSong("old/A - Two.wav");
    scan();
    const FileItemRef one = filesByPath().at("old/A - One.wav");
    const auto firstSeen = one->firstSeen;
    const TrackRef track = one->track;
    fs::rename(music / "old", music / "new");
    fs::rename(music / "new/A - One.wav", music / "new/A - One.WAV");
    addSong("new/A - Three.wav");
    EXPECT_THAT(counts(scan()), ElementsAre(3, 1, 2, 0, 0));
    EXPECT_EQ(library->files.size(), 3U);
    EXPECT_EQ(one->relPath, "new/A - One.WAV");
    EXPECT_EQ(one->absPath, (music / "new/A - One.WAV").string());
    EXPECT_EQ(one->filename, "A - One.WAV");
    EXPECT_EQ(one->ext, "WAV");
    EXPECT_EQ(one->firstSeen, firstSeen);
    EXPECT_EQ(one->track, track);
    EXPECT_EQ(one->status, FileStatus::ready);
    EXPECT_THAT(counts(scan()), ElementsAre(3, 0, 0, 0, 0));
}

TEST_F(ScannerTest, WhatMayHaveMovedIsNotGuessed) {
    struct Case {
        const char* text;
        std::vector<const char*> before, after;
        std::vector<std::int64_t> expected; // a run's counts
    };

    // Copies, so that no inode tells them apart; the same song and size.
    const std::vector<Case> cases = {
        {"one for one", {"a/S - T.wav"}, {"b/S - T.wav"}, {1, 0, 1, 0, 0}},
        {"two for one", {"a/S - T.wav", "b/S - T.wav"}, {"c/S - T.wav"}, {1, 1, 0, 2, 0}},
        {"one for two", {"a/S - T.wav"}, {"b/S - T.wav", "c/S - T.wav"}, {2, 2, 0, 1, 0}},
        {"one that stays", {"a/S - T.wav"}, {"a/S - T.wav", "b/S - T.wav"}, {2, 1, 0, 0, 0}},
        {"another song", {"a/S - T.wav"}, {"b/S - U.wav"}, {1, 1, 0, 1, 0}},
    };
    for (const Case& each : cases) {
        const std::string name = each.text;
        const fs::path root = folder / name, old = folder / (name + ", before");
        for (const char* path : each.before)
            folder.write(name + "/" + path, test::smallWav());
        library = runtime.run(libraries->upsertLibrary(name, root.string(), std::nullopt, std::nullopt));
        scan();
        fs::rename(root, old); // keeps its inodes taken
        for (const char* path : each.after)
            folder.write(name + "/" + path, test::smallWav());
        EXPECT_THAT(counts(scan()), testing::ElementsAreArray(each.expected)) << name;
    }
}

TEST_F(ScannerTest, OneOfTwoCopiesThatMovedIsKnownByItsInode) {
    addSong("a/S - T.wav");
    addSong("b/S - T.wav");
    scan();
    const FileItemRef first = filesByPath().at("a/S - T.wav");
    fs::rename(music / "a", music / "c");
    fs::rename(music / "b", music / "d");
    EXPECT_THAT(counts(scan()), ElementsAre(2, 0, 2, 0, 0));
    EXPECT_EQ(first->relPath, "c/S - T.wav");
}

TEST_F(ScannerTest, MostFilesGoneIsAQuestion) {
    addSongs(20);
    scan();
    for (int i = 1; i <= 11; ++i)
        fs::remove(music / ("Artist - Song " + std::to_string(i) + ".wav"));
    addSong("New - Song.wav");
    EXPECT_EQ(failureOfScan(), "Most files of the library were not found: 11 of 20 files");
    EXPECT_EQ(library->files.size(), 20U);
    for (const auto& file : library->files)
        EXPECT_EQ(file->status, FileStatus::ready);
    terms.acceptsMissing = true;
    EXPECT_THAT(counts(scan()), ElementsAre(10, 1, 0, 11, 0));
    terms.acceptsMissing = false;
    for (int i = 12; i <= 16; ++i) // half of what was left
        fs::remove(music / ("Artist - Song " + std::to_string(i) + ".wav"));
    EXPECT_THAT(counts(scan()), ElementsAre(5, 0, 0, 16, 0));
}

TEST_F(ScannerTest, AnotherDeviceWithoutAKnownFileIsTheEmptyMountPoint) {
    addSongs(2);
    terms.isOtherDevice = true;
    EXPECT_THAT(counts(scan()), ElementsAre(2, 2, 0, 0, 0)) << "nothing was known";
    fs::rename(music, folder / "away");
    addSong("Another - Drive.wav");
    const std::string text = "Library directory not accessible: " + music.string() + " (not mounted)";
    EXPECT_EQ(failureOfScan(), text);
    EXPECT_EQ(library->files.size(), 2U);
    EXPECT_THROW(runtime.run(scanner->findUnindexedFiles(library, terms)), ScannerError);
    fs::remove_all(music);
    fs::rename(folder / "away", music); // the same drive under another number
    EXPECT_THAT(counts(scan()), ElementsAre(2, 0, 0, 0, 0));
    EXPECT_TRUE(runtime.run(scanner->findUnindexedFiles(library, terms)).empty());
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

TEST_F(ScannerTest, TagsThatWerePaidForStayUnlessSomebodyChangesTheFile) {
    extractor->genre = "House";
    addSong("A - B.wav");
    scan();
    const FileItemRef file = library->files.front();
    const TrackRef track = file->track;
    EXPECT_EQ(file->genreText, "House");
    track->edit().genre = "Gospel"; // tagged, and the file could not be written
    track->edit().lastTagged = clock.now();
    const auto rescan = [&](const std::string& genre, const std::string& content) {
        extractor->genre = genre;
        folder.write("music/A - B.wav", test::smallWav() + content);
        EXPECT_EQ(scan()->changedCount, 1);
        return track->genre;
    };
    EXPECT_EQ(rescan("House", "touched"), "Gospel");
    file->edit().genreText = std::nullopt; // of a store that did not keep it
    EXPECT_EQ(rescan("House", "touched again"), "Gospel");
    EXPECT_EQ(rescan("Techno", "by hand"), "Techno");
    track->edit().genre = "Soul";
    addSong("copy/A - B.wav"); // a file that joins the song
    scan();
    EXPECT_EQ(track->files.size(), 2U);
    EXPECT_EQ(track->genre, "Soul");
    track->edit().lastTagged = std::nullopt;
    EXPECT_EQ(rescan("Disco", "untagged"), "Disco");
}

TEST_F(ScannerTest, ATrackWhoseLastFileBecameAnotherSongsIsAnOrphan) {
    addSongs(2);
    scan();
    const TrackRef left = filesByPath().at("Artist - Song 1.wav")->track;
    extractor->instead = AudioMetadata{};
    extractor->instead->title = "Another";
    folder.write("music/Artist - Song 1.wav", test::smallWav() + "longer");
    fs::remove(music / "Artist - Song 2.wav"); // missing: its track has a file still
    scan();
    EXPECT_THAT(orphans, ElementsAre(left->canonicalSig));
    scan();
    EXPECT_TRUE(orphans.empty());
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

Task<void> removeFolder(fs::path root) {
    fs::remove_all(root);
    co_return;
}

TEST_F(ScannerTest, AFolderThatVanishesDuringAScanLosesNoRecord) {
    addSongs(4);
    scan();
    extractor->before = [this](int, const std::string&) { return removeFolder(music); };
    EXPECT_THAT(failureOfScan(), testing::HasSubstr("Library directory not accessible"));
    EXPECT_EQ(library->files.size(), 4U);
    for (const auto& file : library->files)
        EXPECT_NE(file->status, FileStatus::missing); // nobody looked for it
    fs::create_directory(music);                      // an empty folder: all is missing, nothing is deleted
    EXPECT_THAT(counts(scan()), ElementsAre(0, 0, 0, 4, 0));
    EXPECT_EQ(context().fetch<Track>().size(), 4U);
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
