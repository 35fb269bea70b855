#include "StoreFixture.hpp"

#include "store/CanonicalSignature.hpp"

#include <cmath>

namespace velto::test {
namespace {

class BatchRepositories : public StoreTest {
  protected:
    [[nodiscard]] std::vector<std::string> slowLines() const {
        log::flush();
        std::vector<std::string> lines = logged.lines();
        std::erase_if(lines, [](const std::string& line) {
            return line.find("[SLOW") == std::string::npos && line.find("[CACHE HIT]") == std::string::npos;
        });
        return lines;
    }
};

TEST_F(BatchRepositories, ATrackOfThisScanIsFoundBeforeItIsSaved) {
    BatchOptimizedTrackRepository repository(context(), clock, nullptr);
    const auto old = addTrack("old");
    context().save();
    runtime.run(repository.preloadCache());
    runtime.run(repository.preloadCache());
    log::flush();
    const auto lines = logged.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "✅ [CACHE] Pre-loaded 1 tracks in 0.00s"), 1);

    TrackMetadata metadata;
    metadata.title = "New";
    metadata.durationSec = 215.34;
    const auto made = runtime.run(repository.upsertTrack(metadata));
    EXPECT_EQ(made->canonicalSig, "|new||215.3");
    metadata.durationSec = 215.26;
    metadata.album = "";
    EXPECT_EQ(runtime.run(repository.upsertTrack(metadata)), made);
    EXPECT_EQ(made->durationSec, 215.26);
    EXPECT_TRUE(repository.pendingSaves && context().hasChanges());
    EXPECT_EQ(runtime.run(repository.upsertTrack({}, "|old||0.0")), old);

    const auto unseen = addTrack("unseen"); // made by somebody else since the cache was filled
    EXPECT_EQ(runtime.run(repository.upsertTrack({}, "|unseen||0.0")), unseen);
    context().remove(unseen);
    const auto again = runtime.run(repository.upsertTrack({}, "|unseen||0.0"));
    EXPECT_NE(again, unseen) << "a deleted track must not come back out of the cache";
    context().save();
    EXPECT_EQ(context().count<Track>(), 3U);
}

TEST_F(BatchRepositories, ACreationDateThatIsKnownIsNotAskedForAgain) {
    BatchOptimizedFileRepository repository(context(), clock, runtime.executors());
    const auto library = addLibrary("library");
    const auto file = runtime.run(repository.ensureFile(library, info("gone.mp3")));
    EXPECT_FALSE(file->creationDate) << "a file that is not there has none";
    folder.write("gone.mp3", "audio");
    runtime.run(repository.ensureFile(library, info("gone.mp3")));
    ASSERT_TRUE(file->creationDate);
    const Date known = now();
    file->edit().creationDate = known;
    runtime.run(repository.ensureFile(library, info("gone.mp3")));
    EXPECT_EQ(file->creationDate, known);
    for (const char* line : {"📅 [FILE DATE] New file gone.mp3, fetched creationDate: nil",
                             "📅 [FILE DATE] Found existing file gone.mp3, current creationDate: nil",
                             "📅 [FILE DATE] File already has creationDate, skipping"})
        EXPECT_TRUE(logged.contains(line)) << line;
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

TEST_F(BatchRepositories, SlowStepsAreReported) {
    SlowClock slow;
    BatchOptimizedFileRepository files(context(), slow, runtime.executors());
    BatchOptimizedTrackRepository tracks(context(), slow, nullptr);
    const auto library = addLibrary("library");
    const std::string signature = std::string(49, 's') + "é"; // the shown part ends before a half character
    const auto lookUp = [&](double step) {
        slow.step = step;
        runtime.run(files.ensureFile(library, info("a.mp3")));
        runtime.run(tracks.upsertTrack({}, signature));
    };
    lookUp(0.0002);
    lookUp(0.0002);
    context().remove(library->files.front());
    context().remove(context().fetch<Track>().front());
    EXPECT_THAT(slowLines(), ::testing::ElementsAre()) << "nothing was slow";
    lookUp(0.02);
    lookUp(0.02);
    EXPECT_THAT(
        slowLines(),
        ::testing::ElementsAre(
            "⚠️ [SLOW FILE] ensureFile took 0.0600s (lookup: 0.0200s) for a.mp3 [library had 0 files]",
            "⚠️ [SLOW FETCH] Track lookup for " + std::string(49, 's') + "... took 0.020s",
            "⚠️ [SLOW FILE] ensureFile (update) took 0.0600s (lookup: 0.0200s) for a.mp3 "
            "[library has 1 files]",
            "💰 [CACHE HIT] Track lookup for " + std::string(49, 's') + "... took 0.020s"));
}

TEST_F(BatchRepositories, TheIndexFollowsWhatOthersDoToTheLibrary) {
    BatchOptimizedFileRepository repository(context(), clock, runtime.executors());
    const auto library = addLibrary("library");
    const auto other = addLibrary("other");
    const auto made = runtime.run(repository.ensureFile(library, info("a")));
    const auto theirs = addFile(library, "b");
    EXPECT_EQ(runtime.run(repository.ensureFile(library, info("b"))), theirs);
    EXPECT_NE(runtime.run(repository.ensureFile(other, info("a"))), made);
    context().remove(made);
    EXPECT_NE(runtime.run(repository.ensureFile(library, info("a"))), made);
    theirs->edit().library = other;
    EXPECT_FALSE(runtime.run(repository.findFile(library, "b")));
    EXPECT_EQ(runtime.run(repository.findFile(other, "b")), theirs);
    EXPECT_EQ(library->files.size(), 1U);
}

} // namespace
} // namespace velto::test
