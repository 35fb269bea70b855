#pragma once

#include "platform/concurrency/Executors.hpp"
#include "store/FileRepository.hpp"
#include "store/TrackRepository.hpp"

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

    /// Saves the context, in turns that give way, if one of the repositories has unsaved changes.
    Task<void> saveIfDirty();

  private:
    ModelContext& modelContext_;
    Executors executors_;
};

} // namespace velto
