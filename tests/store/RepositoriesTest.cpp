#include "StoreFixture.hpp"

namespace velto::test {
namespace {

using ::testing::ElementsAre;

/// Recognises single words.
class WordParser final : public GenreTextParser {
  public:
    [[nodiscard]] RecognisedTags parse(const std::string& genreText) const override {
        RecognisedTags tags;
        if (genreText.find("House") != std::string::npos) tags.genres = {"House"};
        if (genreText.find("90s") != std::string::npos) tags.era = "1990s";
        return tags;
    }
};

class Repositories : public StoreTest {
  protected:
    std::vector<std::string> linesWith(const std::string& tag) {
        log::flush();
        std::vector<std::string> lines;
        for (const auto& line : logged.lines())
            if (line.find(tag) != std::string::npos) lines.push_back(line);
        return lines;
    }

    WordParser parser;
};

TEST_F(Repositories, UpsertLibraryMakesOrOverwrites) {
    SwiftDataLibraryRepository repository(context(), clock, runtime.executors());
    const auto made = runtime.run(repository.upsertLibrary("b", "/old", "*.mp3", std::nullopt));
    EXPECT_TRUE(made->isEnabled);
    made->edit().isEnabled = false;
    EXPECT_EQ(runtime.run(repository.upsertLibrary("b", "/new", std::nullopt, "*.wav")), made);
    runtime.run(repository.upsertLibrary("a", "/a", std::nullopt, std::nullopt));
    runtime.run(repository.updateScanTimes(made, now(), std::nullopt));
    EXPECT_FALSE(context().hasChanges()) << "every operation saves";
    reopen();
    SwiftDataLibraryRepository again(context(), clock, runtime.executors());
    const auto libraries = runtime.run(again.libraries());
    ASSERT_EQ(libraries.size(), 2U);
    EXPECT_EQ(libraries[0]->name, "a");
    EXPECT_EQ(libraries[1]->rootPath, "/new");
    EXPECT_FALSE(libraries[1]->includeGlob);
    EXPECT_EQ(libraries[1]->excludeGlob, "*.wav");
    EXPECT_FALSE(libraries[1]->isEnabled);
    EXPECT_TRUE(libraries[1]->lastScanStartedAt && !libraries[1]->lastScanFinishedAt);
    EXPECT_THAT(linesWith("[REPO PERF]"),
                ElementsAre("🕐 [REPO PERF] Starting libraries() fetch",
                            "🕐 [REPO PERF] libraries() fetch took 0.000s - found 2 libraries",
                            "🕐 [REPO PERF] Library 0: a has 0 files",
                            "🕐 [REPO PERF] Library 1: b has 0 files"));
}

TEST_F(Repositories, UpsertTrackReplacesWhatIsGivenAndKeepsTheRest) {
    SwiftDataTrackRepository repository(context(), &parser, runtime.executors());
    TrackMetadata metadata;
    metadata.artist = "artist";
    metadata.genre = "Deep House - 90s";
    metadata.createdAt = now();
    const auto track = runtime.run(repository.upsertTrack(metadata, "sig"));
    EXPECT_THAT(*track->genres, ElementsAre("House"));
    EXPECT_EQ(track->era, "1990s");
    EXPECT_FALSE(track->regions) << "nothing recognised is nothing said";

    TrackMetadata update;
    update.title = "title";
    update.genre = "Polka";
    update.lastTagged = now();
    EXPECT_EQ(runtime.run(repository.upsertTrack(update, "sig")), track);
    EXPECT_EQ(track->artist, "artist");
    EXPECT_EQ(track->title, "title");
    EXPECT_EQ(track->genre, "Polka");
    EXPECT_THAT(*track->genres, ElementsAre("House"));
    EXPECT_EQ(track->lastTagged, now());
    EXPECT_FALSE(context().hasChanges());
    EXPECT_EQ(context().count<Track>(), 1U);
}

TEST_F(Repositories, LinkingTakesTheEarliestDateAndWakesAnOrphan) {
    SwiftDataTrackRepository repository(context(), nullptr, runtime.executors());
    const auto library = addLibrary("library");
    const auto track = addTrack("song");
    const auto later = addFile(library, "later");
    const auto earlier = addFile(library, "earlier");
    later->edit().creationDate = now();
    earlier->edit().creationDate = now() - std::chrono::hours(1);
    runtime.run(repository.linkFile(later, track));
    runtime.run(repository.linkFile(later, track));
    EXPECT_EQ(track->files.size(), 1U);
    EXPECT_EQ(track->createdAt, later->creationDate);
    runtime.run(repository.linkFile(earlier, track));
    EXPECT_EQ(track->createdAt, earlier->creationDate);
    EXPECT_THAT(linesWith("orphaned"), ElementsAre()) << "a track that was never synced needs no word";

    track->edit().lastSyncedAt = now();
    runtime.run(repository.linkFile(later, track));
    EXPECT_TRUE(track->lastSyncedAt) << "it had files";
    context().remove(later);
    context().remove(earlier);
    runtime.run(repository.linkFile(addFile(library, "third"), track));
    EXPECT_FALSE(track->lastSyncedAt);
    EXPECT_THAT(linesWith("orphaned"),
                ElementsAre("🔄 [REPO] Track 'song' was orphaned, clearing lastSyncedAt to force re-sync"));
}

TEST_F(Repositories, DeletingALibraryTakesOnlyTheTracksThatNoFileIsLeftOf) {
    SwiftDataLibraryRepository repository(context(), clock, runtime.executors());
    const auto doomed = addLibrary("doomed");
    const auto kept = addLibrary("kept");
    const auto shared = addTrack("shared");
    shared->edit().genres = std::vector<std::string>{"House"};
    const auto own = addTrack("own");
    for (const auto& track : {shared, own, own})
        addFile(doomed, track->title.value())->edit().track = track;
    addFile(kept, "shared")->edit().track = shared;
    model::make<PlaylistItem>(own, 0, now());
    context().save();
    runtime.run(repository.deleteLibrary(doomed));
    EXPECT_TRUE(doomed->isDeleted() && own->isDeleted());
    EXPECT_FALSE(context().hasChanges());
    reopen();
    EXPECT_EQ(context().count<PlaylistItem>(), 0U);
    ASSERT_EQ(context().count<Track>(), 1U);
    EXPECT_THAT(*context().fetch<Track>().front()->genres, ElementsAre("House"));
    EXPECT_THAT(linesWith("[LIBRARY]"),
                ElementsAre("🗑️ [LIBRARY] Deleting library 'doomed' with 3 files",
                            "🗑️ [LIBRARY] Found 2 tracks that may become orphaned",
                            "🗑️ [LIBRARY] Library and files deleted, checking for orphaned tracks...",
                            "🗑️ [LIBRARY] Track still has 1 files in other libraries: Unknown - shared",
                            "🗑️ [LIBRARY] Deleting 1 orphaned track(s)",
                            "🗑️ [LIBRARY] Keeping 1 track(s) that have files in other libraries",
                            "✅ [LIBRARY] Library deletion complete"));
}

/// Both file repositories give the same results; only the direct one saves.
TEST_F(Repositories, FilesAreMadeOnceAndBroughtUpToDate) {
    SwiftDataFileRepository direct(context(), clock, runtime.executors());
    BatchOptimizedFileRepository batch(context(), clock, runtime.executors());
    int round = 0;
    for (FileRepository* repository :
         {static_cast<FileRepository*>(&direct), static_cast<FileRepository*>(&batch)}) {
        const bool isDirect = repository == &direct;
        SCOPED_TRACE(isDirect ? "direct" : "batch");
        const auto library = addLibrary(std::to_string(round++));
        context().save();
        folder.write("b.mp3", "audio");
        const auto file = runtime.run(repository->ensureFile(library, info("b.mp3")));
        EXPECT_EQ(file->status, FileStatus::new_);
        EXPECT_EQ(file->firstSeen, now());
        EXPECT_EQ(bool(file->creationDate), !isDirect);
        EXPECT_EQ(context().hasChanges(), !isDirect);
        clock.advance(Seconds(5));
        EXPECT_EQ(runtime.run(repository->ensureFile(library, info("b.mp3", 99))), file);
        EXPECT_EQ(file->sizeBytes, 99);
        EXPECT_EQ(file->lastSeen, now());
        EXPECT_TRUE(file->creationDate);
        const auto first = runtime.run(repository->ensureFile(library, info("a.mp3")));
        EXPECT_EQ(runtime.run(repository->findFile(library, "a.mp3")), first);
        EXPECT_FALSE(runtime.run(repository->findFile(library, "c.mp3")));

        runtime.run(repository->updateAudioProperties(file, 1.5, std::nullopt, 44100, 2));
        runtime.run(repository->updateSignatures(file, "0123456789abcdef", std::nullopt));
        EXPECT_EQ(file->samplerateHz, 44100);
        EXPECT_EQ(file->lastScannedAt, now());
        EXPECT_THAT(runtime.run(repository->filesNeedingProcessing(library)), ElementsAre(first, file));
        runtime.run(repository->updateStatus(first, FileStatus::error, "no audio"));
        EXPECT_EQ(first->errorMsg, "no audio");
        runtime.run(repository->markMissing(library, {"b.mp3"}));
        EXPECT_EQ(first->status, FileStatus::missing);
        EXPECT_EQ(file->status, FileStatus::new_);
        runtime.run(repository->markMissing(library, {}));
        EXPECT_EQ(file->status, FileStatus::missing);
        EXPECT_EQ(context().hasChanges(), !isDirect);
        EXPECT_EQ(isDirect || batch.pendingSaves, true);
    }
}

TEST_F(Repositories, AScanRunIsOpenedAndClosed) {
    SwiftDataScanRunRepository repository(context(), clock, runtime.executors());
    const auto library = addLibrary("library");
    const auto run = runtime.run(repository.startScanRun(library));
    EXPECT_EQ(library->scanRuns.front(), run);
    EXPECT_FALSE(run->finishedAt);
    clock.advance(Seconds(3));
    runtime.run(repository.finishScanRun(run, 6, 1, 2, 3, 4, "note"));
    reopen();
    const auto read = context().fetch<ScanRun>().front();
    EXPECT_EQ(*read->finishedAt - read->startedAt, std::chrono::seconds(3));
    EXPECT_THAT((std::vector{read->totalSeen, read->newCount, read->changedCount, read->missingCount,
                             read->errorCount}),
                ElementsAre(6, 1, 2, 3, 4));
    EXPECT_EQ(read->notes, "note");
}

} // namespace
} // namespace velto::test
