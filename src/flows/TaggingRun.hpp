#pragma once

#include "flows/FlowContext.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

class AudioMetadataWriter;
class TaggingJournal;
class TaggingService;
struct TaggingResult;
struct TrackTags;

/// One run: some tracks, cut into batches of 10, at most three of them in flight. Tags that a batch brings
/// are stored before their files are written. It can be asked to stop at any time; it then requests no
/// further batch, and takes in those that are under way. It also requests none while tags that have come
/// cannot be stored. Main actor.
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

    /// Takes the tracks that can be tagged, each once, cuts the batches, and writes down what the run is for.
    /// Once, before `run`.
    Task<void> prepare(std::vector<TrackRef> selection);

    /// Runs the batches to their end. A batch's failure never stops the others; it lands in the summary.
    Task<void> run();

    void stop() { isStopping_ = true; }

    /// Saves the tags that have come, and strikes their batches off the journal. The user's text if that
    /// fails: the tags are then still in memory, for a later save.
    Task<std::optional<std::string>> store();

    /// After the last save: writes down what could not be tagged, for a later run.
    Task<void> writeDownWhatIsLeft();

    /// The names of the tracks that may have been paid for and whose tags are not in the store.
    [[nodiscard]] std::vector<std::string> atRisk() const;

    [[nodiscard]] const TaggingState& state() const { return state_; }

    [[nodiscard]] TaggingSummary& summary() { return summary_; }

    /// Set by whoever drives the run, once nothing of it is under way.
    Event ended;

  private:
    struct Batch;

    static Task<void> runBatch(std::shared_ptr<void> owner, TaggingRun* run, std::size_t index);
    Task<void> requestBatch(Batch& batch, std::size_t number);
    Task<bool> announce(Batch& batch, std::size_t number);
    Task<void> takeIn(Batch& batch, std::size_t number, TaggingResult result);
    [[nodiscard]] std::string_view apply(const TrackRef& track, const TrackTags& tags);
    /// True if the store took back the tags of one of the batch's tracks.
    bool reportRefusals(const model::SaveOutcome& saved, const Batch& batch);
    Task<void> strikeOff(Batch& batch);
    Task<void> writeFiles(TrackRef track);

    [[nodiscard]] bool mayRequest() const { return !isStopping_ && !saveFailure_; }

    void leaveOut(const Batch& batch, std::size_t number);
    void refuse(const Batch& batch, std::string reason);
    void failed(const Batch& batch, std::size_t number, const std::string& reason);
    void release(const Batch& batch);
    void dropDeleted(Batch& batch);

    Services services_;
    FlowContext& context_;
    std::vector<Batch> batches_;
    TaggingState state_;
    TaggingSummary summary_;
    Date startTime_;
    std::vector<std::string> untagged_;      ///< canonicalSigs
    std::vector<Batch*> unsaved_;            ///< their tags are applied and not known to be stored
    std::optional<std::string> saveFailure_; ///< of the latest save
    std::size_t running_ = 0;
    std::shared_ptr<Event> batchEnded_; ///< set when a batch ends; replaced by whoever waited for it
    bool isStopping_ = false;
};

/// The genres, and after them the era, as the files hold them.
[[nodiscard]] std::string genreText(const TrackTags& tags);

} // namespace velto
