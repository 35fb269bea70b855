#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "platform/model/ModelContext.hpp"
#include "platform/model/Removal.hpp"
#include "platform/model/StoreWriter.hpp"

#include <deque>
#include <exception>
#include <future>
#include <memory>
#include <unordered_map>
#include <vector>

namespace velto::model {

/// One saveInBackground() or removeInBackground(), from the first captured row to its outcome. Main actor,
/// but for write().
class BackgroundSave {
  public:
    BackgroundSave(ModelContext& context, Executor main);

    /// The whole of saveInBackground(), and of removeInBackground() where `objects` holds some.
    static Task<void> run(ModelContext& context, Executors executors, std::vector<Ref<Object>> objects);

    /// A plain save is to run now: a capture goes back to the pending changes, a writing is waited for.
    void giveWay();

    /// The context goes: waits for a writing.
    void abandon();

  private:
    struct Captured {
        Ref<Object> object;
        RowChange change;
        bool isDropped = false; ///< deleted before it was written
    };
    struct Abort;
    struct Spent;

    /// Captures some pending rows; true when the capture agrees with the context as it stands now.
    bool capture(bool isLastTurn);
    bool capturePending(std::size_t& room);
    bool captureSurvivors(std::size_t& room);
    void captureRow(const Ref<Object>& object, std::size_t place);

    /// From here on the capture counts as the store's content, until settle() says otherwise.
    void launch();

    /// Any thread: touches none of the main actor's objects but the row ids of deleted ones.
    void write(std::promise<void>& outcome);

    /// All that is to be written, in the order of writing: deletions first. As write(), on any thread.
    [[nodiscard]] std::vector<RowChange> sortedChanges();

    /// Behind a write() that went well: takes some of the removed objects out; true while there are more.
    bool isRemoving(std::size_t most);

    /// Takes the outcome of write() over; waits for it where it is still to come.
    void settle();

    /// Waits for write(); false where it failed.
    bool hasWritten();

    void putBack();
    void end();

    /// All that is of no more use.
    [[nodiscard]] std::shared_ptr<Spent> spent();

    ModelContext* context_; ///< null once it has ended
    StoreWriter& writer_;
    Event ended_;
    std::deque<Captured> captured_;                         ///< the values go to write()
    std::unordered_map<const Object*, std::size_t> places_; ///< in captured_
    std::vector<std::vector<Ref<Object>>> deleted_;
    std::unique_ptr<Removal> removal_; ///< null where only what is pending is saved
    std::size_t survivorsCaptured_ = 0;
    std::vector<std::size_t> writeOrder_; ///< of the entities, filled by launch()
    std::shared_ptr<std::promise<void>> promise_;
    std::future<void> written_;
    std::exception_ptr failure_;
    bool isLaunched_ = false;
};

} // namespace velto::model
