#pragma once

#include "flows/FlowContext.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace velto {

class AudioMetadataWriter;
class SessionFlow;
class SyncFlow;
class TaggingJournal;
class TaggingRun;
class TaggingService;

/// Tags from the backend onto tracks and into their files, and off again. Owns the runs that are under way:
/// they count as background work. Writes taggingProgress, clearingProgress and tracksBeingTagged.
class TaggingFlow {
  public:
    /// `metadataWriter` and `journal` outlive the flow. `reload` shows the selected library's tracks anew.
    TaggingFlow(const FlowContext& context, AudioMetadataWriter& metadataWriter, TaggingJournal& journal,
                SyncFlow& sync, SessionFlow& session, std::function<Task<void>()> reload);

    /// Null: every run is refused.
    void setService(std::shared_ptr<TaggingService> service) { service_ = std::move(service); }

    /// A run over the selection, to its end. Whoever waits for it need not: it goes on by itself.
    Task<TaggingSummary> tag(std::vector<TrackRef> selection);

    /// Sets the date of tagging on every track; no file is touched.
    Task<void> markAsTagged(std::vector<TrackRef> selection);

    /// Takes the tags off tracks and the genre out of their files.
    Task<ClearingSummary> clear(std::vector<TrackRef> selection);

    /// Asks all runs and clearings to stop: a run requests no further batch and takes in what is under way; a
    /// clearing ends with the track that it is at.
    void stop();

    /// For whoever cannot wait for the runs: saves all tags that have come. How many tracks may have been
    /// paid for whose tags have not come, or could not be saved; the log names them, and so does the next
    /// start.
    Task<std::int64_t> storeWhatIsThere();

    /// Waits for every run and clearing.
    Task<void> finished();

  private:
    static Task<void> drive(std::shared_ptr<void> owner, TaggingFlow* flow, std::shared_ptr<TaggingRun> run,
                            LibraryRef library);
    Task<void> conclude(std::shared_ptr<TaggingRun> run, LibraryRef library);
    Task<std::int64_t> clear(TrackRef track);

    FlowContext context_;
    MainScreenState& state_;
    AudioMetadataWriter& metadataWriter_;
    TaggingJournal& journal_;
    SyncFlow& sync_;
    SessionFlow& session_;
    std::function<Task<void>()> reload_;
    std::shared_ptr<TaggingService> service_;
    std::vector<std::shared_ptr<TaggingRun>> runs_; ///< under way
    std::vector<std::shared_ptr<Event>> clearings_; ///< likewise
    std::uint64_t stops_ = 0;                       ///< how often `stop` was called: clearings end by it
};

} // namespace velto
