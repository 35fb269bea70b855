// What a scan makes of files that changed, moved, went or came back, and of drives that were away.

#include "scanning/ScannerFixture.hpp"

#include <gmock/gmock.h>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::counts;
using test::ScannerTest;
using testing::ElementsAre;

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
    folder.write("music/old/refused.wav", "");
    scan();
    const FileItemRef one = filesByPath().at("old/A - One.wav");
    const auto firstSeen = one->firstSeen;
    const TrackRef track = one->track;
    fs::rename(music / "old", music / "new");
    fs::rename(music / "new/A - One.wav", music / "new/A - One.WAV");
    addSong("new/A - Three.wav");
    EXPECT_THAT(counts(scan()), ElementsAre(4, 1, 2, 0, 1));
    EXPECT_EQ(library->files.size(), 4U);
    EXPECT_EQ(filesByPath().at("new/refused.wav")->absPath, (music / "new/refused.wav").string());
    EXPECT_EQ(one->relPath, "new/A - One.WAV");
    EXPECT_EQ(one->absPath, (music / "new/A - One.WAV").string());
    EXPECT_EQ(one->filename, "A - One.WAV");
    EXPECT_EQ(one->ext, "WAV");
    EXPECT_EQ(one->firstSeen, firstSeen);
    EXPECT_EQ(one->track, track);
    EXPECT_EQ(one->status, FileStatus::ready);
    EXPECT_THAT(counts(scan()), ElementsAre(4, 0, 0, 0, 1));
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

Task<void> putAnotherFolderInPlace(fs::path root) {
    fs::rename(root, root.parent_path() / "away");
    fs::create_directory(root);
    co_return;
}

TEST_F(ScannerTest, AFolderThatIsReplacedDuringAScanLosesNoRecord) {
    addSongs(1);
    scan();
    extractor->before = [this](int, const std::string&) { return putAnotherFolderInPlace(music); };
    EXPECT_EQ(failureOfScan(), "Library directory not accessible: " + music.string() + " (not mounted)");
    EXPECT_EQ(library->files.front()->status, FileStatus::ready);
}

} // namespace
} // namespace velto
