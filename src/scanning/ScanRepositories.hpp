#pragma once

#include "platform/concurrency/Executors.hpp"
#include "store/BatchRepositories.hpp"

#include <string_view>
#include <unordered_map>
#include <utility>

namespace velto {

/// By relPath; the keys are the records' own texts.
using FilesByPath = std::unordered_map<std::string_view, FileItemRef>;

/// The batch repositories of one scan over one context, and the one door through which the scan saves. Main
/// actor; it may be destroyed anywhere, and with a large library that takes a while.
class ScanRepositories {
  public:
    ScanRepositories(ModelContext& modelContext, Executors executors, const Clock& clock,
                     const GenreTextParser* genreTextParser)
        : files(modelContext, clock, executors)
        , tracks(modelContext, clock, genreTextParser)
        , modelContext_(modelContext)
        , executors_(std::move(executors)) {}

    BatchOptimizedFileRepository files;
    BatchOptimizedTrackRepository tracks;

    /// The library's files, gathered in turns that give way; of two with one path the first.
    Task<FilesByPath> filesByPath(LibraryRef library);

    /// Saves the context, in turns that give way, where one of the repositories has unsaved changes.
    Task<void> saveIfDirty();

  private:
    ModelContext& modelContext_;
    Executors executors_;
};

} // namespace velto
