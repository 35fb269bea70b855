#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "store/FileRepository.hpp"
#include "store/TrackRepository.hpp"

#include <optional>
#include <utility>

namespace velto {

/// The repositories that one scan fills, over one context, and the one door through which it saves. Main
/// actor; it may be destroyed anywhere, and with a large library that takes a while.
class ScanRepositories {
  public:
    ScanRepositories(ModelContext& modelContext, Executors executors, const Clock& clock,
                     const GenreTextParser* genreTextParser)
        : files(modelContext, clock)
        , tracks(modelContext, clock, genreTextParser)
        , modelContext_(modelContext)
        , executors_(std::move(executors)) {}

    FileRepository files;
    TrackRepository tracks;

    /// Begins to save the context, beside what the caller goes on to do. Waits for the save that was begun
    /// before. Throws what that one has failed with.
    Task<void> startSave();
    /// Ends the save that was begun, throws what it failed with, and saves, in turns that give way, if one of
    /// the repositories has unsaved changes.
    Task<void> saveIfDirty();

  private:
    static Task<bool> save(ModelContext& modelContext, Executors executors);
    Task<void> finishSave();

    ModelContext& modelContext_;
    Executors executors_;
    std::optional<TaskHandle<bool>> saving_;
};

} // namespace velto
