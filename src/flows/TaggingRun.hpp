#pragma once

#include "flows/FlowContext.hpp"
#include "flows/TaggingJournal.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velto {

class AudioMetadataWriter;
class TaggingService;
struct TaggingResult;
struct TrackTaggingInput;
struct TrackTags;

/// One run: some tracks, cut into batches of 10, at most three of them in flight. Tags that a batch brings
/// are stored before their files are written. It can be asked to stop at any time; it then requests no
/// further batch, and takes in those that are under way. Main actor.
class TaggingRun {
  public:
    struct Services {
        FlowContext context;
        std::shared_ptr<TaggingService> tagging;
        AudioMetadataWriter& metadataWriter; ///< outlives the run, as does the journal
        TaggingJournal& journal;
    };

    explicit TaggingRun(Services services);
    ~TaggingRun();

    /// Takes the tracks that can be tagged, each once, and cuts the batches. Once, before `run`.
    Task<void> prepare(std::vector<TrackRef> selection);

    /// Runs the batches to their end. A batch's failure never stops the others; it lands in the summary.
    Task<void> run();

    void stop() { isStopping_ = true; }

    /// Tracks that are asked for and whose tags are not in the store yet.
    [[nodiscard]] std::int64_t tracksInFlight() const { return tracksInFlight_; }

    [[nodiscard]] const TaggingState& state() const { return state_; }

    [[nodiscard]] TaggingSummary& summary() { return summary_; }

    /// After the save at the run's end: what an earlier save failed to store is in the store now.
    Task<void> everythingIsStored();

    /// The canonicalSigs of the tracks that the run was for and that have no tags by it, at its end.
    [[nodiscard]] std::vector<std::string> unfinished() const;

    /// Set by whoever drives the run, once nothing of it is under way.
    Event ended;

  private:
    struct Batch;

    static Task<void> runBatch(std::shared_ptr<void> owner, TaggingRun* run, std::size_t index);
    Task<void> requestBatch(Batch& batch, std::size_t number);
    Task<void> takeIn(Batch& batch, std::size_t number, TaggingResult result);
    [[nodiscard]] bool apply(const TrackRef& track, const TrackTags& tags);
    Task<void> store(Batch& batch);
    Task<void> writeFiles(TrackRef track);
    void refuse(Batch& batch, std::string reason);
    void failed(Batch& batch, std::size_t number, const std::exception& error);
    void release(const Batch& batch);
    void dropDeleted(Batch& batch);

    Services services_;
    FlowContext& context_;
    std::vector<Batch> batches_;
    TaggingState state_;
    TaggingSummary summary_;
    Date startTime_;
    std::vector<TrackRef> untagged_;
    std::vector<TaggingJournal::BatchNumber> unstored_;
    std::int64_t tracksInFlight_ = 0;
    std::size_t running_ = 0;
    std::shared_ptr<Event> batchEnded_; ///< set when a batch ends; replaced by whoever waited for it
    bool isStopping_ = false;
};

/// The genres, and after them the era, as the files hold them.
[[nodiscard]] std::string genreText(const TrackTags& tags);

/// For the user: a line each, and if there are many of them, equal ones as one line with their count.
[[nodiscard]] std::string textOfErrors(const std::vector<std::string>& errors);

} // namespace velto
