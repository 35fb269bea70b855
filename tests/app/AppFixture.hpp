#pragma once

#include "app/MainScreenViewModel.hpp"
#include "backend/AuthenticationManager.hpp"
#include "backend/LibrarySyncService.hpp"
#include "backend/TaggingService.hpp"
#include "flows/TaggingJournal.hpp"
#include "platform/files/FolderGrants.hpp"
#include "platform/files/ServiceError.hpp"
#include "platform/files/ValueFile.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/ModelContainer.hpp"
#include "support/ManualClock.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/RewriteJournal.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace velto::test {

/// Answers each batch by its first artist; a batch without an answer waits until it gets one.
class ScriptedTaggingService final : public TaggingService {
  public:
    using Answer = std::function<TaggingResult(const std::vector<TrackTaggingInput>&)>;

    explicit ScriptedTaggingService(Executors executors)
        : executors_(std::move(executors)) {}

    Task<TaggingResult> tagTracks(std::vector<TrackTaggingInput> tracks) override {
        // Called on the pool; the script and its records belong to the main actor.
        co_return co_await runOn(executors_.main, answered(std::move(tracks)));
    }

    /// Tags every input with two genres and an era, one credit each.
    static TaggingResult tagAll(const std::vector<TrackTaggingInput>& tracks);

    Answer answer = tagAll;
    std::vector<std::vector<TrackTaggingInput>> requests;
    /// Batches held back until `release`; none are while this is null.
    std::shared_ptr<Event> gate;

  private:
    Task<TaggingResult> answered(std::vector<TrackTaggingInput> tracks) {
        requests.push_back(tracks);
        if (const auto held = gate) co_await held->wait();
        co_return answer(tracks);
    }

    Executors executors_;
};

/// Notes what would be written; fails for the file of that name.
class NotingMetadataWriter final : public AudioMetadataWriter {
  public:
    Task<void> writeGenreTags(std::vector<std::string> genres, std::filesystem::path file, bool) override {
        if (beforeWrite) beforeWrite();
        failIfAsked(file);
        written[file.filename().string()] = genres.at(0);
        co_return;
    }

    Task<void> clearGenreTags(std::filesystem::path file) override {
        if (beforeClear) beforeClear();
        failIfAsked(file);
        written.erase(file.filename().string());
        co_return;
    }

    std::function<void()> beforeWrite;
    std::function<void()> beforeClear;
    std::map<std::string, std::string> written;
    std::string failingName;

  private:
    void failIfAsked(const std::filesystem::path& file) const {
        if (file.filename() == failingName)
            throw ServiceError(ServiceError::Case::metadataWriteFailed, file.string(), "disk full");
    }
};

class ScriptedLibrarySync final : public LibrarySyncService {
  public:
    Task<LibrarySyncResult> syncLibrary(LibraryRef) override {
        calls.emplace_back("syncLibrary");
        if (failsToRestore) throw LibrarySyncError(LibrarySyncError::Case::serverError, "down");
        co_return LibrarySyncResult{true, {}};
    }

    Task<TrackSyncResult> syncTracks(LibraryRef, std::vector<TrackRef> tracks) override {
        calls.push_back("syncTracks " + std::to_string(tracks.size()));
        for (const TrackRef& track : tracks)
            track->edit().lastSyncedAt = dateFromMicroseconds(5);
        co_return TrackSyncResult{true, {}, static_cast<std::int64_t>(tracks.size()), 0, {}};
    }

    Task<RemoveTracksResult> removeTracks(LibraryRef, std::vector<std::string> signatures) override {
        calls.push_back("removeTracks " + std::to_string(signatures.size()));
        co_return RemoveTracksResult{true, static_cast<std::int64_t>(signatures.size())};
    }

    Task<DeleteLibraryResult> deleteLibrary(LibraryRef) override {
        calls.emplace_back("deleteLibrary");
        if (failsToDelete) throw LibrarySyncError(LibrarySyncError::Case::serverError, "down");
        if (afterDeletion) afterDeletion();
        co_return DeleteLibraryResult{true, {}, 7};
    }

    Task<void> syncInBackground(LibraryRef) override {
        calls.emplace_back("syncInBackground");
        if (onSync) onSync();
        co_await yieldNow();
    }

    std::vector<std::string> calls;
    bool failsToDelete = false;
    bool failsToRestore = false;
    std::function<void()> afterDeletion;
    std::function<void()> onSync;
};

/// A task that runs beside its test.
template <typename T>
struct Started {
    bool hasEnded = false;
    std::exception_ptr failure;
    std::optional<std::conditional_t<std::is_void_v<T>, std::monostate, T>> value;
};

/// A state object over a real store, settings and folders, with a clock of the test's own.
class AppFixture : public ::testing::Test {
  protected:
    AppFixture();
    ~AppFixture() override;

    /// A new state object over the same store: what the next start of the program sees.
    void restart(bool checksAtLoad = false);
    void signIn();
    /// Adds the folder of that name, made if it is missing, as the sheet does; the new library.
    LibraryRef add(const std::string& name);
    std::filesystem::path makeFolder(const std::string& name);
    /// Of the libraries on show.
    [[nodiscard]] std::vector<std::string> names() const;
    /// A library with `count` files "0.mp3", "1.mp3", ... in the store alone, each with a track of its own.
    LibraryRef libraryWithTracks(const std::string& name, std::size_t count);

    std::vector<TrackRef> allTracks(const LibraryRef& library) {
        return runtime.run(viewModel->getAllTracksForLibrary(library));
    }

    /// Starts a task beside the test.
    template <typename T>
    std::shared_ptr<Started<T>> start(Task<T> task);
    /// Waits for its end while the clock jumps from wake-up to wake-up; its value or exception.
    template <typename T>
    T finish(std::shared_ptr<Started<T>> started);

    template <typename T>
    T runThroughTime(Task<T> task) {
        return finish(start(std::move(task)));
    }

    /// Runs SQL as another program would; the number that its first row begins with, 0 if there is no row.
    std::int64_t stored(const std::string& query) const;

    /// From now on the store refuses e.g. "DELETE ON Library".
    void refuse(const std::string& what) const {
        stored("CREATE TRIGGER obstacle BEFORE " + what + " BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
    }

    void refuseNoMore() const { stored("DROP TRIGGER obstacle"); }

    [[nodiscard]] std::string error() const { return viewModel->errorMessage->value_or(""); }

    TemporaryFolder folder;
    TestRuntime runtime;
    ManualClock clock{runtime.main()};
    log::Capture log;
    FileCrashReporter crashReporter;
    std::unique_ptr<model::ModelContainer> container;
    ValueFile settings;
    FolderGrants grants;
    RewriteJournal journal;
    std::optional<TaggingJournal> taggingJournal;
    std::shared_ptr<ScriptedTaggingService> tagging;
    std::shared_ptr<NotingMetadataWriter> writer;
    std::shared_ptr<ScriptedLibrarySync> sync;
    std::shared_ptr<MainScreenViewModel> viewModel;
};

template <typename T>
std::shared_ptr<Started<T>> AppFixture::start(Task<T> task) {
    const auto started = std::make_shared<Started<T>>();
    asio::co_spawn(runtime.main(), std::move(task),
                   [started](const std::exception_ptr& failure, auto&&... value) {
                       started->hasEnded = true;
                       started->failure = failure;
                       if (!failure) started->value.emplace(std::forward<decltype(value)>(value)...);
                   });
    return started;
}

template <typename T>
T AppFixture::finish(std::shared_ptr<Started<T>> started) {
    runtime.runUntil([&] {
        if (!started->hasEnded) clock.advanceToNextSleeper();
        return started->hasEnded;
    });
    if (started->failure) std::rethrow_exception(started->failure);
    if constexpr (!std::is_void_v<T>) return std::move(*started->value);
}

} // namespace velto::test
