#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "platform/model/ModelContext.hpp"
#include "platform/model/Removal.hpp"
#include "platform/model/StoreWriter.hpp"

#include <cstdint>
#include <deque>
#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace velto::model {

/// One saveInBackground() or removeInBackground(), from the first captured row to its outcome. Rows are
/// captured in turns of the main actor and written piece by piece in one transaction, so that a large save
/// needs no more memory than a piece. A removal is written as one piece, because what goes and what stays has
/// to agree at its end. Main actor, but for write().
class BackgroundSave {
  public:
    BackgroundSave(ModelContext& context, Executor main);

    /// The whole of saveInBackground(), and of removeInBackground() if `objects` holds some.
    static Task<SaveOutcome> run(ModelContext& context, Executors executors,
                                 std::vector<Ref<Object>> objects);

    /// A plain save is about to run. If the last piece is on its way, waits for it; otherwise what was
    /// captured goes back to the pending changes, and is captured again later.
    void giveWay();

    /// What the plain save that it gave way to took back, for its caller as well.
    void hear(const SaveOutcome& outcome);

    /// The context is being destroyed: waits for the piece that is being written.
    void abandon();

  private:
    /// A row of the piece that is written next.
    struct Row {
        Ref<Object> object;
        RowChange change;
        bool isDropped = false; ///< deleted before it was written
    };

    /// What has to be pending again if the transaction fails, one for each capture.
    struct Captured {
        Ref<Object> object;
        std::uint32_t entity;
        RowChange::Kind kind;
    };

    /// The objects of an entity that wait for their capture, in their order.
    struct Queue {
        std::vector<Ref<Object>> objects;
        std::size_t next = 0;

        [[nodiscard]] bool isEmpty() const { return next == objects.size(); }

        /// Takes over everything in `others`, and empties it.
        void take(std::vector<Ref<Object>>& others);
        [[nodiscard]] Ref<Object> pop();
    };

    struct Abort;
    struct Spent;

    /// All of it, once, up to settle().
    static Task<void> attempt(std::shared_ptr<BackgroundSave> save, Executors executors);

    /// The row because of which it failed, if it was a row's fault.
    [[nodiscard]] std::optional<RefusedRow> refusedRow() const;

    /// Captures some pending rows; true once everything that is pending now has been captured.
    bool capture(bool isLastTurn);
    bool capturePending(std::size_t& room);
    bool captureSurvivors(std::size_t& room);
    void captureRow(const Ref<Object>& object, std::size_t place);

    [[nodiscard]] bool isPieceFull() const;

    /// Makes the piece ready for write(). Once the last one is launched the capture counts as the store's
    /// content, unless settle() finds that it failed.
    void launch(bool isLastPiece);

    /// On any thread: of the main actor's objects it reads only the row ids of deleted ones.
    void write(std::promise<void>& outcome);

    /// What the piece holds, in the order of writing: deletions first. On any thread, like write().
    [[nodiscard]] std::vector<RowChange> sortedChanges();

    /// After a write() that succeeded: takes some of the removed objects out; true while there are more.
    bool isRemoving(std::size_t most);

    /// Takes over the outcome of write(), waiting for it if need be.
    void settle();

    /// Waits for write(); false if it failed.
    bool hasWritten();

    void putBack();
    void end();

    /// All that is no longer needed.
    [[nodiscard]] std::shared_ptr<Spent> spent();

    ModelContext* context_; ///< null once it has ended
    StoreWriter& writer_;
    Event ended_;
    const std::vector<std::size_t> writeOrder_; ///< of the entities
    // By entity. Objects that have a row are captured before new ones: they may free a unique value.
    std::vector<Queue> changed_; ///< with or without a row
    std::vector<Queue> new_;
    std::vector<std::vector<Ref<Object>>> deleted_;
    std::vector<std::size_t> deletedWritten_;               ///< how many of them are
    std::deque<Row> piece_;                                 ///< the values go to write()
    std::unordered_map<const Object*, std::size_t> places_; ///< in piece_
    std::deque<Captured> captured_;
    std::unique_ptr<Removal> removal_; ///< null if only what is pending is saved
    std::size_t survivorsCaptured_ = 0;
    std::shared_ptr<std::promise<void>> promise_; ///< of the piece that is written next
    std::future<void> written_;
    std::exception_ptr failure_;
    SaveOutcome outcome_;      ///< for its caller and for whoever waits for its end
    bool isTakenOver_ = false; ///< by a plain save, while the last piece was written
    bool isAbandoned_ = false;
    bool isBegun_ = false;    ///< the transaction; belongs to write() while it runs
    bool isLaunched_ = false; ///< the last piece
};

} // namespace velto::model
