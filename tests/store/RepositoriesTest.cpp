#include "StoreFixture.hpp"

#include "store/CanonicalSignature.hpp"

#include <cmath>

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
    LibraryRepository repository(context(), clock, runtime.executors());
    const auto made = runtime.run(repository.upsertLibrary("b", "/old", "*.mp3", std::nullopt));
    EXPECT_TRUE(made->isEnabled);
    made->edit().isEnabled = false;
    EXPECT_EQ(runtime.run(repository.upsertLibrary("b", "/new", std::nullopt, "*.wav")), made);
    for (const char* name : {"Zoo", "a", "Äpfel"})
        runtime.run(repository.upsertLibrary(name, "/a", std::nullopt, std::nullopt));
    runtime.run(repository.updateScanTimes(made, now(), std::nullopt));
    EXPECT_FALSE(context().hasChanges()) << "every operation saves";
    reopen();
    LibraryRepository again(context(), clock, runtime.executors());
    const auto libraries = runtime.run(again.libraries());
    EXPECT_THAT(
        linesWith("[REPO PERF]"),
        ElementsAre("🕐 [REPO PERF] Starting libraries() fetch",
                    "🕐 [REPO PERF] libraries() fetch took 0.000s - found 4 libraries",
                    "🕐 [REPO PERF] Library 0: a has 0 files", "🕐 [REPO PERF] Library 1: Äpfel has 0 files",
                    "🕐 [REPO PERF] Library 2: b has 0 files", "🕐 [REPO PERF] Library 3: Zoo has 0 files"));
    EXPECT_EQ(libraries[2]->rootPath, "/new");
    EXPECT_FALSE(libraries[2]->includeGlob);
    EXPECT_EQ(libraries[2]->excludeGlob, "*.wav");
    EXPECT_FALSE(libraries[2]->isEnabled);
    EXPECT_TRUE(libraries[2]->lastScanStartedAt && !libraries[2]->lastScanFinishedAt);
}

TEST_F(Repositories, ACreationThatFailsIsNotMadeByTheNextSave) {
    LibraryRepository libraries(context(), clock, runtime.executors());
    ScanRunRepository scanRuns(context(), clock, runtime.executors());
    const auto library = addLibrary("library");
    context().save();
    const auto store = folder / "velto.store";
    for (const bool isRefused : {false, true}) {
        std::optional<Obstacle> newLibraries, newRuns;
        if (isRefused) {
            sql(store, "ALTER TABLE Library ADD COLUMN e INTEGER CHECK (name <> 'new')");
            sql(store, "ALTER TABLE ScanRun ADD COLUMN e INTEGER CHECK (totalSeen <> 0)");
        } else {
            newLibraries.emplace(store, "INSERT ON Library"); // fails every save
        }
        EXPECT_THROW(runtime.run(libraries.upsertLibrary("new", "/new", std::nullopt, std::nullopt)),
                     StoreError);
        newLibraries.reset();
        if (!isRefused) newRuns.emplace(store, "INSERT ON ScanRun");
        EXPECT_THROW(runtime.run(scanRuns.startScanRun(library)), StoreError);
        newRuns.reset();
        context().save();
        EXPECT_EQ(sql(store, "SELECT count(*) FROM Library"), "1");
        EXPECT_EQ(sql(store, "SELECT count(*) FROM ScanRun"), "0");
        EXPECT_TRUE(library->scanRuns.empty());
    }
}

TEST_F(Repositories, UpsertTrackReplacesWhatIsGivenAndKeepsTheRest) {
    TrackRepository repository(context(), clock, &parser);
    TrackMetadata metadata;
    metadata.title = "New";
    metadata.durationSec = 215.34;
    metadata.genre = "Deep House - 90s";
    metadata.year = 1999;
    const auto track = runtime.run(repository.upsertTrack(metadata));
    EXPECT_EQ(track->canonicalSig, "|new||215.3");
    EXPECT_THAT(*track->genres, ElementsAre("House"));
    EXPECT_EQ(track->era, "1990s");
    EXPECT_FALSE(track->regions) << "nothing recognised is nothing said";

    TrackMetadata update;
    update.title = "NEW";
    update.album = "";
    update.durationSec = 215.26; // the same tenth of a second
    update.genre = "Polka";
    update.lastTagged = now();
    EXPECT_EQ(runtime.run(repository.upsertTrack(update)), track) << "before anything is saved";
    EXPECT_EQ(track->year, 1999);
    EXPECT_EQ(track->title, "NEW");
    EXPECT_EQ(track->durationSec, 215.26);
    EXPECT_EQ(track->genre, "Polka");
    EXPECT_THAT(*track->genres, ElementsAre("House"));
    EXPECT_EQ(track->lastTagged, now());
    EXPECT_TRUE(repository.pendingSaves && context().hasChanges());
}

TEST_F(Repositories, TheCacheOfTracksFollowsWhatOthersDo) {
    TrackRepository repository(context(), clock, nullptr);
    const auto titled = [](const char* title) {
        TrackMetadata metadata;
        metadata.title = title;
        return metadata;
    };
    const auto old = addTrack("old");
    context().save();
    runtime.run(repository.preloadCache());
    runtime.run(repository.preloadCache());
    EXPECT_THAT(linesWith("Pre-loaded"), ElementsAre("✅ [CACHE] Pre-loaded 1 tracks in 0.00s"));
    EXPECT_EQ(runtime.run(repository.upsertTrack(titled("old"))), old);
    const auto unseen = addTrack("unseen"); // made by somebody else since the cache was filled
    EXPECT_EQ(runtime.run(repository.upsertTrack(titled("unseen"))), unseen);
    context().remove(unseen);
    EXPECT_NE(runtime.run(repository.upsertTrack(titled("unseen"))), unseen) << "a deleted track stays away";
    context().save();
    EXPECT_EQ(context().count<Track>(), 2U);
}

/// Each look at it takes a while.
class SlowClock final : public Clock {
  public:
    double step = 0;

    [[nodiscard]] Date now() const override {
        seconds_ += step;
        return dateFromMicroseconds(1'700'000'000'000'000 + std::llround(seconds_ * 1e6));
    }

    Task<void> sleep(Seconds) override { co_return; }

  private:
    mutable double seconds_ = 0;
};

TEST_F(Repositories, ASlowLookUpIsReported) {
    SlowClock slow;
    TrackRepository tracks(context(), slow, nullptr);
    TrackMetadata metadata;
    metadata.title = std::string(48, 's') + "é"; // the shown part ends before a half character
    runtime.run(tracks.upsertTrack(metadata));
    context().remove(context().fetch<Track>().front());
    EXPECT_THAT(linesWith("Track lookup"), ElementsAre());
    slow.step = 0.02;
    runtime.run(tracks.upsertTrack(metadata));
    runtime.run(tracks.upsertTrack(metadata));
    const std::string shown = "|" + std::string(48, 's');
    EXPECT_THAT(linesWith("Track lookup"),
                ElementsAre("⚠️ [SLOW FETCH] Track lookup for " + shown + "... took 0.020s",
                            "💰 [CACHE HIT] Track lookup for " + shown + "... took 0.020s"));
}

TEST_F(Repositories, LinkingTakesTheEarliestDateAndWakesAnOrphan) {
    TrackRepository repository(context(), clock, nullptr);
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
    LibraryRepository repository(context(), clock, runtime.executors());
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

TEST_F(Repositories, ALibraryMovesWithItsFilesOrNotAtAll) {
    LibraryRepository libraries(context(), clock, runtime.executors());
    const auto library = addLibrary("library");
    const auto file = addFile(library, "a/b");
    context().save();
    const auto before = library->rootPath;
    {
        const test::Obstacle full(folder / "velto.store", "UPDATE ON FileItem");
        EXPECT_THROW(runtime.run(libraries.relocateLibrary(library, "/new")), StoreError);
        EXPECT_EQ(library->rootPath, before);
        EXPECT_EQ(file->absPath, before + "/a/b");
    }
    runtime.run(libraries.relocateLibrary(library, "/new"));
    EXPECT_EQ(library->rootPath, "/new");
    EXPECT_EQ(file->absPath, "/new/a/b");
    EXPECT_FALSE(context().hasChanges());
}

TEST_F(Repositories, ForgettingMissingFilesTakesTheTracksThatHaveNoOther) {
    LibraryRepository libraries(context(), clock, runtime.executors());
    const auto library = addLibrary("library");
    const auto gone = addFile(library, "gone", FileStatus::missing);
    const auto present = addFile(library, "present", FileStatus::ready);
    const auto half = addFile(library, "half", FileStatus::missing);
    const auto lost = addTrack("lost"), kept = addTrack("kept");
    gone->edit().track = lost;
    present->edit().track = kept;
    half->edit().track = kept;
    EXPECT_EQ(missingFilesOf(library).size(), 2U);
    EXPECT_EQ(kept->preferredFile(), present);
    runtime.run(libraries.forgetFiles({gone, half, present}));
    EXPECT_EQ(library->files.size(), 1U);
    EXPECT_TRUE(lost->isDeleted());
    EXPECT_FALSE(kept->isDeleted() || present->isDeleted());
}

TEST_F(Repositories, FilesOfALibraryByPathAndTheirProperties) {
    FileRepository repository(context(), clock);
    const auto library = addLibrary("library");
    const auto seen = addFile(library, "seen", FileStatus::new_);
    addFile(library, "gone", FileStatus::error);
    addFile(addLibrary("other"), "others");
    EXPECT_THAT(runtime.run(repository.filesByPath(library)),
                ::testing::UnorderedElementsAre(::testing::Key("seen"), ::testing::Key("gone")));
    runtime.run(repository.updateAudioProperties(seen, 1.5, std::nullopt, 44100, 2));
    EXPECT_EQ(seen->samplerateHz, 44100);
    EXPECT_EQ(seen->lastScannedAt, now());
    EXPECT_TRUE(repository.pendingSaves);
}

} // namespace
} // namespace velto::test
