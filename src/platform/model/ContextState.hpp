#pragma once

#include "platform/model/ChangeFeed.hpp"
#include "platform/model/ModelContext.hpp"
#include "platform/model/ObjectGraph.hpp"
#include "platform/model/StoreWriter.hpp"
#include "platform/model/UniqueIndex.hpp"

#include <memory>
#include <vector>

namespace velto::model {

class BackgroundSave;

/// What differs from the store, by entity. An object is in `changed` once for each time that it went from
/// clean to dirty; those that were deleted since are passed over.
struct PendingChanges {
    explicit PendingChanges(std::size_t entities)
        : changed(entities)
        , deleted(entities) {}

    [[nodiscard]] bool empty() const;

    /// Of the changed ones, those that were deleted since included.
    [[nodiscard]] std::size_t size() const;

    std::vector<std::vector<Ref<Object>>> changed;
    std::vector<std::vector<Ref<Object>>> deleted; ///< only those that have a row
};

/// The inside of a context.
class ModelContext::State {
  public:
    State(std::shared_ptr<Database> store, const Schema& schema);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    [[nodiscard]] std::size_t index(const Object& object) const { return indexOf(codecs, object.entity()); }

    void load(ModelContext& context);
    /// Takes over what readGraph() gave: after that the context is loaded.
    void adopt(ObjectGraph& graph, ModelContext& context);
    void insert(Object& object, ModelContext& context);
    void remove(Object& object);
    void noteWrite(const Object& object);

    /// All that is pending, in an order in which it can be written.
    [[nodiscard]] std::vector<RowChange> collect() const;
    /// What collect() gave is in the store now.
    void markSaved();

    /// The store does not take this row: takes its object back as save() says. Throws the reason if `before`
    /// has it already: then the store refuses what it holds itself.
    [[nodiscard]] SaveOutcome takeBack(const RefusedRow& refused, const SaveOutcome& before);

    std::shared_ptr<Database> database;
    std::vector<RowCodec> codecs;
    std::vector<std::size_t> writeOrder; ///< places of the entities, targets of relationships first
    ObjectGraph tables;
    std::vector<UniqueIndex> uniques;
    PendingChanges pending;
    ChangeFeed feed;
    StoreWriter writer;
    std::shared_ptr<BackgroundSave> backgroundSave; ///< while one is under way
    bool isLoaded = false;

  private:
    void dismantle(Object& object, std::vector<Object*>& more);
    void restore(Object& object);
    void restoreLink(Object& object, const ToOneBase& end);
    void returnStoredMembers(Object& newOwner);
};

} // namespace velto::model
