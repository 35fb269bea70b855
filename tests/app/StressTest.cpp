// Operations of the state object run into each other at random: whatever meets whatever, memory, store,
// grants and messages agree afterwards. The seed of a failure is in its message.

#include "app/AppFixture.hpp"
#include "flows/LibraryCreationError.hpp"

#include <algorithm>
#include <random>

namespace velto::test {
namespace {

class Stress : public AppFixture {
  protected:
    /// Four folders of the same forty songs, so that every track lives in several libraries.
    void makeFolders() {
        runProgram({"ffmpeg", "-y", "-v", "error", "-f", "lavfi", "-i", "sine=duration=0.3", "-metadata",
                    "artist=A", "-metadata", "title=Title-00", (folder / "song.mp3").string()});
        const std::string song = readFile(folder / "song.mp3");
        const std::size_t number = song.find("Title-00") + 6;
        for (const char* name : {"A", "B", "C", "D"})
            for (int i = 10; i < 50; ++i) {
                std::string other = song;
                other.replace(number, 2, std::to_string(i));
                folder.write(std::string(name) + "/" + std::to_string(i) + ".mp3", other);
            }
    }

    template <typename T>
    void start(Task<T> task) {
        ++running;
        asio::co_spawn(runtime.main(), std::move(task),
                       [this](const std::exception_ptr& failure, auto&&...) { end(failure); });
    }

    void end(const std::exception_ptr& failure) {
        --running;
        try {
            if (failure) std::rethrow_exception(failure);
        } catch (const LibraryCreationError&) { // another add was quicker
        } catch (const std::exception& error) {
            ADD_FAILURE() << describe(error);
        }
    }

    LibraryRef anyLibrary() {
        const auto& all = viewModel->libraries.get();
        return all.empty() ? LibraryRef() : all[random() % all.size()];
    }

    void startAny() {
        const LibraryRef library = anyLibrary();
        const auto tracks = [&] {
            std::vector<TrackRef> found;
            if (library)
                for (const FileItemRef& file : library->files)
                    if (file->track) found.push_back(file->track);
            return found;
        };
        switch (random() % 13) {
        case 0:
        case 1:
        case 2: {
            const std::string name(1, static_cast<char>('A' + random() % 4));
            return start(viewModel->addLibrary(name, folder / name, "*.mp3", std::nullopt));
        }
        case 3:
            return library ? start(viewModel->deleteLibrary(library)) : void();
        case 4:
            return library ? start(viewModel->selectLibrary(library)) : void();
        case 5:
            return start(viewModel->refreshSelectedLibrary());
        case 6:
            return start(MainScreenViewModel::checkForNewFiles(viewModel, viewModel->libraries));
        case 7:
            return start(viewModel->tagTracks(tracks()));
        case 8:
            return start(viewModel->clearTags(tracks()));
        case 9:
            return start(viewModel->loadData());
        case 10:
            return random() % 4 == 0 ? start(viewModel->clearLocalData()) : start(viewModel->cancelScan());
        case 11:
            return random() % 4 == 0 ? start(viewModel->stopEverything())
                                     : start(viewModel->markTracksAsTagged(tracks()));
        default:
            viewModel->errorMessage = "of another operation";
        }
    }

    /// A message is for what somebody did wrong: here, two scans at once, a scan that was cancelled, a run of
    /// no track, or a look at a library whose add has not come to its grant.
    static bool isDeserved(const std::string& message) {
        for (const char* start : {"of another operation", "Import failed: A scan is already in progress",
                                  "Import failed: Scan was cancelled", "No tracks selected",
                                  "No valid tracks to tag", "No access permission found"})
            if (message.starts_with(start)) return true;
        return false;
    }

    void settle() {
        runtime.runUntil([&] {
            clock.advanceToNextSleeper();
            return running == 0;
        });
        runtime.run(viewModel->stopEverything());
    }

    void expectAgreement() {
        auto& context = container->mainContext();
        const auto inMemory = context.fetch<Library>();
        EXPECT_THAT(viewModel->libraries.get(), ::testing::UnorderedElementsAreArray(inMemory));
        EXPECT_LE(grants.activeCount(), 4);
        for (const LibraryRef& library : inMemory) {
            EXPECT_TRUE(settings.data("LibraryBookmark_" + library->name)) << library->name;
            EXPECT_LE(grants.activeCount(library->rootPath), 1) << library->name;
        }
        const LibraryRef selected = viewModel->selectedLibrary;
        EXPECT_TRUE(!selected || !selected->isDeleted());
        for (const TrackRef& track : viewModel->tracks.get())
            EXPECT_FALSE(track->isDeleted());
        for (const TrackRef& track : context.fetch<Track>())
            EXPECT_FALSE(track->files.empty()) << track->canonicalSig;
        EXPECT_FALSE(viewModel->scanProgress->has_value() || viewModel->taggingProgress->has_value() ||
                     viewModel->clearingProgress->has_value() || viewModel->isLoading);
        EXPECT_TRUE(viewModel->tracksBeingTagged->empty());
        context.save();
        for (const auto& [table, count] : {std::pair{"Library", context.count<Library>()},
                                           {"FileItem", context.count<FileItem>()},
                                           {"Track", context.count<Track>()}})
            EXPECT_EQ(stored(std::string("SELECT count(*) FROM ") + table), static_cast<std::int64_t>(count))
                << table;
    }

    std::mt19937 random;
    int running = 0;
};

TEST_F(Stress, OperationsThatMeetLeaveEverythingInAgreement) {
    makeFolders();
    std::size_t requests = 0;
    for (unsigned seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        random.seed(seed);
        restart();
        if (seed % 2 == 0) viewModel->setUp({nullptr, tagging, sync});
        signIn();
        const auto watched = viewModel->errorMessage.subscribe([](const std::optional<std::string>& shown) {
            EXPECT_TRUE(!shown || isDeserved(*shown)) << *shown;
        });
        runtime.run(viewModel->loadData());
        if (viewModel->libraries->empty())
            runtime.run(viewModel->addLibrary("A", folder / "A", "*.mp3", std::nullopt));
        runtime.run(viewModel->refreshSelectedLibrary()); // so that there are tracks to tag
        for (int step = 0; step < 60; ++step) {
            startAny();
            for (auto polls = random() % 6; polls > 0; --polls) {
                clock.advanceToNextSleeper();
                runtime.poll();
            }
            if (running > 6) settle();
        }
        settle();
        expectAgreement();
        requests += tagging->requests.size();
        viewModel->errorMessage = std::nullopt;
        if (HasFailure()) break;
    }
    EXPECT_GT(requests, 0U) << "nothing met anything";
    viewModel.reset();
    EXPECT_EQ(grants.activeCount(), 0);
}

} // namespace
} // namespace velto::test
