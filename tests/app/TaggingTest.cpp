#include "app/AppFixture.hpp"
#include "platform/http/URLError.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <sys/resource.h>

#include <csignal>

namespace velto::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Matcher = ::testing::Matcher<std::string>;

/// A disk that is full: no file can be written beyond so many bytes.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limited{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limited);
    }

    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit before_{};
};

class Tagging : public AppFixture {
  protected:
    TaggingSummary tag(std::size_t count) {
        library = libraryWithTracks("L", count);
        viewModel->selectedLibrary = library;
        return runThroughTime(viewModel->tagTracks(allTracks(library)));
    }

    /// Starts a run over the library whose first batches wait for their answer, until so many are asked for.
    void tagUpTo(std::size_t requests) {
        tagging->gate = std::make_shared<Event>(runtime.main());
        run = start(viewModel->tagTracks(allTracks(library)));
        runtime.runUntil([&] {
            if (tagging->requests.size() < requests) clock.advanceToNextSleeper();
            return tagging->requests.size() == requests;
        });
    }

    TaggingSummary answerAll() {
        tagging->gate->set();
        tagging->gate = nullptr;
        return finish(run);
    }

    /// What the next start of the program finds out about the runs before.
    void reportLeftOvers() {
        TaggingJournal nextStart(folder.path(), runtime.executors());
        runtime.run(nextStart.reportLeftOvers());
    }

    static std::string shown(const TaggingSummary& summary) {
        std::string text =
            fmt::format("{} of {} tagged for {}", summary.tagged, summary.requested, summary.credits);
        for (const auto& [count, reason] : summary.refused)
            text += fmt::format("; {}: {}", count, reason);
        return text;
    }

    std::unordered_set<std::string> untagged() { return runtime.run(taggingJournal->lastRun()).untagged; }

    LibraryRef library;
    std::shared_ptr<Started<TaggingSummary>> run; ///< that tagUpTo started
};

TEST_F(Tagging, StoresTagsBeforeItWritesFilesAndSyncsAfterwards) {
    viewModel->setUp({nullptr, tagging, sync});
    std::vector<std::int64_t> completed, storedAtEachFile;
    const auto subscription = viewModel->taggingProgress.subscribe([&](const auto& progress) {
        if (progress) completed.push_back(progress->completedTracks);
    });
    writer->beforeWrite = [&] { storedAtEachFile.push_back(stored("SELECT count(lastTagged) FROM Track")); };
    writer->failingName = "1.mp3";
    const auto summary = tag(3);
    runtime.run(viewModel->backgroundWorkFinished());
    EXPECT_EQ(shown(summary), "3 of 3 tagged for 3");
    EXPECT_EQ(summary.unwrittenFiles, 1);
    const TrackRef track = library->files.front()->track;
    EXPECT_EQ(track->genre, "House - Artist 0 - 1990s");
    EXPECT_EQ(track->genres, (std::vector<std::string>{"House", "Artist 0"}));
    EXPECT_EQ(track->regions, std::vector<std::string>{"Europe"});
    EXPECT_EQ(track->era, "1990s");
    EXPECT_EQ(track->lastTagged, clock.now());
    EXPECT_THAT(storedAtEachFile, ElementsAre(3, 3, 3));
    EXPECT_EQ(writer->written["0.mp3"], "House - Artist 0 - 1990s");
    EXPECT_EQ(writer->written.size(), 2U);
    EXPECT_TRUE(
        log.contains("⚠️ [VM] Failed to write genre to file 1.mp3: Failed to write metadata to: " +
                     (folder / "L/1.mp3").string() + " - disk full"));
    EXPECT_THAT(completed, ElementsAre(0, 1, 2, 3));
    EXPECT_FALSE(viewModel->taggingProgress->has_value());
    EXPECT_TRUE(viewModel->tracksBeingTagged->empty());
    EXPECT_THAT(sync->calls, ElementsAre("syncInBackground"));
    EXPECT_FALSE(container->mainContext().hasChanges());
    EXPECT_EQ(error(), "");
}

TEST_F(Tagging, AsksForTenAtATimeWithAGapAndAtMostThreeBatchesInFlight) {
    library = libraryWithTracks("L", 45);
    tagUpTo(3);
    // The fourth waits for an end, not for the clock.
    clock.advance(Seconds(60));
    runtime.poll();
    EXPECT_EQ(tagging->requests.size(), 3U);
    EXPECT_EQ(clock.sleepers(), 0U);
    EXPECT_EQ(viewModel->tracksBeingTagged->size(), 30U);

    tagging->gate->set();
    runtime.runUntil([&] { return clock.sleepers() == 1; });
    EXPECT_EQ(tagging->requests.size(), 3U) << "an end opens the gap, not yet the next batch";
    answerAll();
    std::vector<std::size_t> sizes; // requests cross the pool, so they may arrive in any order
    for (const auto& request : tagging->requests)
        sizes.push_back(request.size());
    EXPECT_THAT(sizes, ::testing::UnorderedElementsAre(10, 10, 10, 10, 5));
    EXPECT_THAT(clock.slept(), ElementsAre(0.1, 0.1, 0.1, 0.1));
}

TEST_F(Tagging, OnlyWhatCanBeTaggedIsPaidForAndOnce) {
    library = libraryWithTracks("L", 5);
    const auto files = library->files.all();
    files[0]->track->edit().artist = std::nullopt;
    files[2]->track->edit().title = "";
    const auto once = allTracks(library);
    auto selection = once;
    selection.insert(selection.end(), once.begin(), once.end());
    container->mainContext().remove(selection[4]);
    const auto summary = runThroughTime(viewModel->tagTracks(selection));
    EXPECT_EQ(shown(summary), "2 of 2 tagged for 2");
    EXPECT_EQ(summary.withoutArtistOrTitle, 2);
    EXPECT_EQ(summary.repeats, 4);
    EXPECT_EQ(files[1]->track->genre, "House - Artist 1 - 1990s");
    EXPECT_EQ(files[3]->track->genre, "House - Artist 3 - 1990s");
    EXPECT_FALSE(files[0]->track->lastTagged);
    EXPECT_TRUE(log.contains("Skipping track with missing artist/title: Title 0"));
}

TEST_F(Tagging, RefusesWhatCannotBeTagged) {
    library = libraryWithTracks("L", 1);
    library->files.front()->track->edit().title = std::nullopt;
    const auto tracks = allTracks(library);
    runThroughTime(viewModel->tagTracks({}));
    EXPECT_EQ(error(), "No tracks selected");
    runThroughTime(viewModel->tagTracks(tracks));
    EXPECT_EQ(error(), "No valid tracks to tag (artist and title required)");
    viewModel->setUp({});
    runThroughTime(viewModel->tagTracks(tracks));
    EXPECT_EQ(error(), "Tagging service not initialized");
    EXPECT_TRUE(tagging->requests.empty());
}

TEST_F(Tagging, AStoppedRunTakesInWhatIsUnderWayAndAsksForNoMore) {
    library = libraryWithTracks("L", 45);
    tagUpTo(3);
    EXPECT_EQ(runtime.run(viewModel->storeTagsNow()), 30) << "what an immediate end would lose";
    EXPECT_TRUE(log.contains("30 tracks may have been paid for and their tags are not stored: "));
    const auto end = start(viewModel->stopEverything());
    runtime.poll();
    EXPECT_FALSE(end->hasEnded) << "the run counts as work under way";
    const auto summary = answerAll();
    finish(end);
    EXPECT_EQ(tagging->requests.size(), 3U);
    EXPECT_TRUE(summary.wasStopped);
    EXPECT_EQ(shown(summary), "30 of 45 tagged for 30; 10: The run was stopped; 5: The run was stopped");
    EXPECT_EQ(stored("SELECT count(lastTagged) FROM Track"), 30);
    EXPECT_EQ(untagged().size(), 15U);
}

TEST_F(Tagging, ABatchThatIsStoppedOrDeletedOnItsWayIsNotPaidFor) {
    for (const bool isStopped : {true, false}) {
        restart();
        library = libraryWithTracks(isStopped ? "Stopped" : "Deleted", 2);
        const auto tracks = allTracks(library);
        const auto started = start(viewModel->tagTracks(tracks));
        // Its rows are busy: it is on its way into the journal.
        runtime.runUntil([&] { return !viewModel->tracksBeingTagged->empty(); });
        if (isStopped)
            viewModel->stopTagging();
        else
            for (const TrackRef& track : tracks)
                container->mainContext().remove(track);
        const auto summary = finish(started);
        EXPECT_TRUE(tagging->requests.empty());
        EXPECT_EQ(summary.wasStopped, isStopped);
        EXPECT_EQ(summary.untagged(), isStopped ? 2 : 0);
        reportLeftOvers();
        EXPECT_FALSE(log.contains("under way"));
    }
}

TEST_F(Tagging, WhatAKillLeavesInFlightIsNamedAtTheNextStart) {
    library = libraryWithTracks("L", 12);
    tagUpTo(2);
    const auto killed = makeFolder("killed");
    std::error_code ignored;
    for (const auto* file : {"tagging-in-flight.json", "tagging-last-run"})
        std::filesystem::copy(folder / file, killed, ignored);
    TaggingJournal nextStart(killed, runtime.executors());
    for (int starts = 0; starts < 2; ++starts)
        runtime.run(nextStart.reportLeftOvers());
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) {
                                return line.ends_with("tags: Artist 10 – Title 10; Artist 11 – Title 11");
                            }),
              1);
    EXPECT_TRUE(log.contains("a batch of 10 tracks was under way"));
    EXPECT_EQ(runtime.run(nextStart.lastRun()).untagged.size(), 12U);
    answerAll();
    const auto before = log.lines().size();
    reportLeftOvers();
    EXPECT_EQ(log.lines().size(), before) << "nothing was left";
    EXPECT_TRUE(untagged().empty());
}

TEST_F(Tagging, ABatchThatCannotBeWrittenDownIsNotAskedForAndNotNamed) {
    library = libraryWithTracks("L", 1);
    {
        const FileSizeLimit none(0);
        EXPECT_EQ(runThroughTime(viewModel->tagTracks(allTracks(library))).untagged(), 1);
    }
    EXPECT_TRUE(tagging->requests.empty());
    runtime.run(taggingJournal->begin({"another"}));
    reportLeftOvers();
    EXPECT_TRUE(log.contains("its tags: another"));
    EXPECT_FALSE(log.contains("its tags: Artist 0"));
}

TEST_F(Tagging, AnswersThatBringNothingLeaveTheGenreAndAreErrors) {
    library = libraryWithTracks("L", 4);
    const auto tracks = allTracks(library);
    for (const TrackRef& track : tracks)
        track->edit().genre = "Mine";
    tagging->answer = [&](const std::vector<TrackTaggingInput>& inputs) {
        auto result = ScriptedTaggingService::tagAll(inputs);
        result.tags[0].genres = {" "};
        result.tags[0].era = std::nullopt;
        container->mainContext().remove(tracks[1]);
        result.tags.erase(result.tags.begin() + 2);
        return result;
    };
    const auto ended = runThroughTime(viewModel->tagTracks(tracks));
    EXPECT_EQ(shown(ended), "1 of 4 tagged for 4; 1: The tagging service found no tags; 1: The tagging "
                            "service gave no answer for a track; 1: The track was deleted meanwhile");
    EXPECT_EQ(tracks[0]->genre, "Mine");
    EXPECT_FALSE(tracks[0]->lastTagged);
    EXPECT_EQ(writer->written.size(), 1U);
    EXPECT_THAT(untagged(), ::testing::IsSupersetOf({"L0", "L2"}));
    EXPECT_EQ(error(), "Tagged 1 tracks using 4 credits, but some failed:\n"
                       "Artist 0 – Title 0: The tagging service found no tags\n"
                       "Artist 2 – Title 2: The tagging service gave no answer for a track");
}

TEST_F(Tagging, AWishSaysWhatIsLeftOutAndWhy) {
    library = libraryWithTracks("L", 6);
    auto tracks = allTracks(library);
    const Date lastRun = clock.now();
    tracks[0]->edit().artist = std::nullopt;
    tracks[1]->edit().lastTagged = lastRun - std::chrono::seconds(1);
    tracks[5]->edit().lastTagged = lastRun + std::chrono::seconds(1);
    tracks.push_back(tracks[2]);
    runtime.run(taggingJournal->setLastRun(lastRun, {"L1", "L3", "L5"}));

    const struct {
        TaggingWish wish;
        std::vector<TrackRef> chosen;
        std::size_t taggedAlready, notFailed, overLimit;
    } cases[] = {
        {{}, {tracks[2], tracks[3], tracks[4]}, 2, 0, 0},
        {{.again = true}, {tracks[1], tracks[2], tracks[3], tracks[4], tracks[5]}, 0, 0, 0},
        {{.limit = 1}, {tracks[2]}, 2, 0, 2},
        {{.limit = 0}, {}, 2, 0, 3},
        {{.failedOnly = true}, {tracks[1], tracks[3]}, 1, 2, 0},
        {{.again = true, .failedOnly = true, .limit = 2}, {tracks[1], tracks[3]}, 0, 2, 1},
    };

    for (const auto& each : cases) {
        const TaggingSelection selection = runtime.run(viewModel->tracksToTag(tracks, each.wish));
        EXPECT_EQ(selection.tracks, each.chosen);
        EXPECT_EQ(selection.taggedAlready, each.taggedAlready);
        EXPECT_EQ(selection.notFailed, each.notFailed);
        EXPECT_EQ(selection.overLimit, each.overLimit);
        EXPECT_EQ(selection.withoutArtistOrTitle, 1U);
        EXPECT_EQ(selection.repeats, 1U);
    }
}

TEST(TaggingErrors, ManyAreCountedAndFewAreListed) {
    EXPECT_EQ(textOfErrors(
                  {{"Batch 1 failed: a", "A batch failed: a"}, {"Batch 2 failed: a", "A batch failed: a"}}),
              "Batch 1 failed: a\nBatch 2 failed: a");
    std::vector<TaggingErrorLine> many;
    for (int i = 0; i < 5'000; ++i)
        many.push_back({"Batch " + std::to_string(i) + " failed: a", "A batch failed: a"});
    many.push_back({"Batch 5000 failed: b", "A batch failed: b"});
    EXPECT_EQ(textOfErrors(many), "A batch failed: a (5000 times)\nBatch 5000 failed: b");
    for (int i = 0; i < 30; ++i)
        many.push_back({std::to_string(i), std::to_string(i)});
    const std::string text = textOfErrors(many);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20);
    EXPECT_EQ(text.substr(text.rfind('\n')), "\nand 12 more");
}

TEST_F(Tagging, AFailedBatchLeavesTheOthersAndIsReported) {
    const auto network = std::make_exception_ptr(http::URLError(http::URLError::Code::networkConnectionLost));
    const std::string some = "Tagged 1 tracks using 1 credits, but some failed:\n";
    const std::string noCredits =
        "Insufficient credits. You need 10 but only have 0 available. Please purchase more credits.";

    const struct {
        TaggingServiceError thrown; ///< by the first of two batches
        std::string message;
        std::string messageAlone; ///< if no other batch was tagged
        bool isDelayed = false;
        bool isRecorded = false;
    } cases[] = {
        {TaggingServiceError::insufficientCredits(10, 0), "", noCredits},
        {TaggingServiceError::authenticationRequired(), "",
         "Authentication required. Please sign in to tag tracks."},
        {TaggingServiceError::rateLimitExceeded(3000), some + "Rate limit exceeded on batch 1",
         "Rate limit exceeded on batch 1", true},
        {TaggingServiceError::networkError(network),
         some + "Batch 1 failed: Network error: ", "Batch 1 failed: Network error: ", false, true},
    };

    int number = 0;
    for (const auto& failure : cases) {
        SCOPED_TRACE(failure.messageAlone);
        restart();
        const log::Capture own;
        tagging->answer = [&](const std::vector<TrackTaggingInput>& inputs) {
            if (inputs.size() == 10) throw failure.thrown;
            return ScriptedTaggingService::tagAll(inputs);
        };
        auto tracks = allTracks(libraryWithTracks(std::to_string(++number), 11));
        const auto summary = runThroughTime(viewModel->tagTracks(tracks));
        EXPECT_THAT(error(), failure.message.empty() ? Matcher(IsEmpty()) : StartsWith(failure.message));
        EXPECT_TRUE(viewModel->tracksBeingTagged->empty());
        EXPECT_THAT(shown(summary), StartsWith("1 of 11 tagged for 1; 10: "));
        EXPECT_EQ(untagged().size(), 10U);
        EXPECT_EQ(own.contains("Server requests 3.0s delay"), failure.isDelayed);
        EXPECT_EQ(readFile(folder / "crash").find("TaggingServiceError") != std::string::npos,
                  failure.isRecorded);
        tracks.pop_back();
        runThroughTime(viewModel->tagTracks(tracks));
        EXPECT_THAT(error(), testing::HasSubstr(failure.messageAlone));
        EXPECT_FALSE(viewModel->taggingProgress->has_value());
    }
}

TEST_F(Tagging, TheServersErrorsAndItsLargestDelayAreReported) {
    tagging->answer = [](const std::vector<TrackTaggingInput>& inputs) {
        auto result = ScriptedTaggingService::tagAll(inputs);
        result.errors.push_back({TaggingErrorType::rateLimit, "slow down", std::nullopt});
        result.shouldRetry = true;
        result.retryAfter = inputs.size() == 10 ? 3000 : 1000;
        result.tags.push_back({"404", "", "", {}, {}, std::nullopt});
        return result;
    };
    tag(12);
    EXPECT_EQ(error(), "Tagged 12 tracks using 12 credits, but some failed:\n"
                       "[Rate Limit] slow down\n[Rate Limit] slow down");
    EXPECT_TRUE(log.contains("Server requests 3.0s delay before retry"));
    EXPECT_TRUE(log.contains("Received tags for unknown track ID: 404"));
}

TEST_F(Tagging, AFailedSaveKeepsTheTagsForALaterOneAndPaysForNoMore) {
    std::optional<FileSizeLimit> full;
    tagging->answer = [&](const std::vector<TrackTaggingInput>& inputs) {
        if (!full) full.emplace(4096); // enough for the journal, not for the store
        return ScriptedTaggingService::tagAll(inputs);
    };
    const auto ended = tag(45);
    full.reset();
    EXPECT_THAT(error(), StartsWith("Failed to save tagged tracks: "));
    EXPECT_EQ(ended.saveFailure, error());
    EXPECT_LE(tagging->requests.size(), 3U);
    ASSERT_FALSE(ended.refused.empty());
    EXPECT_EQ(ended.refused.back().reason, error());
    EXPECT_EQ(untagged().size(), 45U) << "a restart would find no tag";
    EXPECT_EQ(ended.unsaved, ended.tagged);
    EXPECT_TRUE(
        log.contains(std::to_string(ended.tagged) + " tracks may have been paid for and their tags are"));
    EXPECT_FALSE(viewModel->taggingProgress->has_value());

    reportLeftOvers();
    EXPECT_TRUE(log.contains("a batch of 10 tracks was under way"));
    container->mainContext().save();
    EXPECT_EQ(stored("SELECT count(lastTagged) FROM Track"), ended.tagged);
    const auto left = runtime.run(viewModel->tracksToTag(allTracks(library), {.failedOnly = true}));
    EXPECT_EQ(left.tracks.size(), 45 - static_cast<std::size_t>(ended.tagged));
}

TEST_F(Tagging, TagsThatTheStoreRefusesAreReportedAndStayInTheJournal) {
    stored("ALTER TABLE Track ADD COLUMN guard INTEGER CHECK (title <> 'Title 3' OR lastTagged IS NULL)");
    const auto ended = tag(20);
    EXPECT_EQ(stored("SELECT count(lastTagged) FROM Track"), 19) << "nobody else's fail with it";
    EXPECT_THAT(ended.errors, testing::Contains(testing::Field(&TaggingErrorLine::common,
                                                               "The library store refuses the tags")));
    reportLeftOvers();
    EXPECT_TRUE(log.contains("a batch of 10 tracks was under way"));
}

TEST_F(Tagging, ClearsAndMarksAndStoresWhatAStoppedClearingHasDone) {
    tag(3);
    writer->failingName = "1.mp3";
    writer->beforeClear = [&] { viewModel->stopTagging(); };
    const auto tracks = allTracks(library);
    const auto stopped = runtime.run(viewModel->clearTags(tracks));
    EXPECT_TRUE(stopped.wasStopped);
    EXPECT_EQ(stopped.cleared, 1);
    EXPECT_EQ(stored("SELECT count(lastTagged) FROM Track"), 2);

    writer->beforeClear = nullptr;
    const auto cleared = runtime.run(viewModel->clearTags({tracks[1], tracks[2]}));
    EXPECT_EQ(cleared.cleared, 2);
    EXPECT_EQ(cleared.unwrittenFiles, 1);
    for (const TrackRef& track : tracks)
        EXPECT_FALSE(track->genres || track->regions || track->era || track->lastTagged);
    EXPECT_EQ(writer->written.size(), 1U);
    EXPECT_TRUE(log.contains("❌ Failed to clear genre from 1.mp3: "));
    EXPECT_TRUE(log.contains("✅ Successfully cleared tags from 2 track(s)"));
    runtime.run(viewModel->markTracksAsTagged(tracks));
    EXPECT_EQ(tracks[1]->lastTagged, clock.now());
    EXPECT_FALSE(container->mainContext().hasChanges());
    EXPECT_EQ(viewModel->tracks->size(), 3U);
}

} // namespace
} // namespace velto::test
