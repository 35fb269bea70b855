#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "platform/model/ModelContext.hpp"
#include "platform/model/StoreWriter.hpp"

#include <exception>
#include <future>
#include <memory>
#include <unordered_map>
#include <vector>

namespace velto::model {

/// One saveInBackground(), from the first captured row to its outcome. Main actor, but for write().
class BackgroundSave {
  public:
    BackgroundSave(ModelContext& context, Executor main);

    /// The whole of saveInBackground().
    static Task<void> run(ModelContext& context, Executors executors);

    /// A plain save is to run now: a capture goes back to the pending changes, a writing is waited for.
    void giveWay();

    /// The context goes: waits for a writing.
    void abandon();

  private:
    struct Captured {
        Ref<Object> object;
        RowChange change;
    };
    struct Abort;

    /// Captures some pending rows; true when the capture agrees with the context as it stands now.
    bool capture(bool isLastTurn);
    void captureRow(const Ref<Object>& object, std::size_t place);

    /// From here on the capture counts as the store's content, until settle() says otherwise.
    void launch();

    /// Any thread: touches none of the main actor's objects.
    void write(std::promise<void>& outcome);

    /// Puts changes_ in the order of writing. As write(), on any thread.
    void sortChanges();

    /// Takes the outcome of write() over; waits for it where it is still to come.
    void settle();

    void putBack();
    void end();

    ModelContext* context_; ///< null once it has ended
    StoreWriter& writer_;
    Event ended_;
    std::vector<Captured> captured_;
    std::unordered_map<const Object*, std::size_t> places_; ///< in captured_
    std::vector<std::vector<Ref<Object>>> deleted_;
    std::vector<RowChange> changes_; ///< write() sorts them; the writer's from launch() on
    std::vector<std::size_t> rank_;  ///< of the entities in the order of writing
    std::size_t firstWritten_ = 0;   ///< in changes_; the deletions stand in front
    std::shared_ptr<std::promise<void>> promise_;
    std::future<void> written_;
    std::exception_ptr failure_;
    bool isLaunched_ = false;
};

} // namespace velto::model
