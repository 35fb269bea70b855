#include "platform/model/ContextState.hpp"

#include "platform/log/Log.hpp"
#include "platform/model/BackgroundSave.hpp"
#include "platform/model/ObjectAccess.hpp"

#include <algorithm>

namespace velto::model {

namespace {

using ObjectState = ObjectAccess::State;

bool isPending(const Ref<Object>& object) {
    return !object->isDeleted();
}

/// Entities whose rows others refer to come before those others. A cycle keeps the schema's order: references
/// are checked at the end of a transaction only.
std::vector<std::size_t> orderByReferences(const std::vector<RowCodec>& codecs) {
    std::vector<std::size_t> order;
    const auto isPlaced = [&](std::size_t index) {
        return std::find(order.begin(), order.end(), index) != order.end();
    };
    const auto isReady = [&](std::size_t index) {
        const auto& relationships = codecs[index].entity().toOnes();
        return std::all_of(relationships.begin(), relationships.end(), [&](const auto& relationship) {
            const std::size_t target = indexOf(codecs, relationship.target());
            return target == index || isPlaced(target);
        });
    };
    while (order.size() < codecs.size()) {
        std::size_t next = codecs.size();
        for (std::size_t i = codecs.size(); i-- > 0;)
            if (!isPlaced(i) && (next == codecs.size() || isReady(i) || !isReady(next))) next = i;
        order.push_back(next);
    }
    return order;
}

std::vector<RowCodec> codecsOf(const Schema& schema) {
    std::vector<RowCodec> codecs;
    for (const auto* entity : schema.entities)
        codecs.emplace_back(*entity);
    return codecs;
}

} // namespace

void SaveOutcome::add(const SaveOutcome& other) {
    refusals.insert(refusals.end(), other.refusals.begin(), other.refusals.end());
}

bool SaveOutcome::refuses(const Ref<Object>& object) const {
    return std::any_of(refusals.begin(), refusals.end(),
                       [&](const Refusal& refusal) { return refusal.object == object; });
}

void SaveOutcome::throwIfRefused(const Ref<Object>& object) const {
    for (const Refusal& refusal : refusals)
        if (refusal.object == object) throw StoreError(refusal.reason);
}

bool PendingChanges::empty() const {
    const auto hasNone = [](const auto& list) { return std::none_of(list.begin(), list.end(), isPending); };
    return std::all_of(changed.begin(), changed.end(), hasNone) &&
           std::all_of(deleted.begin(), deleted.end(), [](const auto& list) { return list.empty(); });
}

std::size_t PendingChanges::size() const {
    std::size_t count = 0;
    for (const auto& list : changed)
        count += list.size();
    return count;
}

ModelContext::State::State(std::shared_ptr<Database> store, const Schema& schema)
    : database(std::move(store))
    , codecs(codecsOf(schema))
    , writeOrder(orderByReferences(codecs))
    , tables(codecs.size())
    , pending(codecs.size())
    , writer(*database, codecs) {
    for (std::size_t i = 0; i < codecs.size(); ++i)
        uniques.emplace_back(codecs[i].entity(), tables[i]);
}

ModelContext::State::~State() {
    if (const auto running = backgroundSave) running->abandon();
}

void ModelContext::State::load(ModelContext& context) {
    if (isLoaded) return;
    ObjectGraph graph = readGraph(*database, codecs);
    adopt(graph, context);
}

void ModelContext::State::adopt(ObjectGraph& graph, ModelContext& context) {
    for (std::size_t i = 0; i < codecs.size(); ++i) {
        graph[i].forEach([&](Object& object) { ObjectAccess::setContext(object, &context); });
        tables[i].swap(graph[i]);
    }
    isLoaded = true;
}

void ModelContext::State::insert(Object& object, ModelContext& context) {
    std::vector<Object*> queue{&object};
    while (!queue.empty()) {
        Object& next = *queue.back();
        queue.pop_back();
        if (ObjectAccess::state(next) != ObjectState::detached) continue;
        const std::size_t place = index(next);
        tables[place].insert(next);
        ObjectAccess::setContext(next, &context);
        ObjectAccess::setState(next, ObjectState::inserted);
        ObjectAccess::mark(next, ObjectAccess::dirty);
        pending.changed[place].emplace_back(next);
        uniques[place].insert(next);
        feed.noteInserted(next);
        for (const auto& relationship : next.entity().toOnes())
            if (Object* target = ObjectAccess::target(relationship.toOne(next))) queue.push_back(target);
        for (const auto& relationship : next.entity().toManys())
            for (Object* member : ObjectAccess::slots(relationship.toMany(next)))
                if (member != nullptr) queue.push_back(member);
    }
}

void ModelContext::State::remove(Object& object) {
    std::vector<Object*> queue{&object};
    while (!queue.empty()) {
        Object& next = *queue.back();
        queue.pop_back();
        if (!next.isDeleted()) dismantle(next, queue);
    }
}

/// Takes one object out of everything; `more` gets those that its delete rules take along.
void ModelContext::State::dismantle(Object& object, std::vector<Object*>& more) {
    const std::size_t place = index(object);
    for (const auto& relationship : object.entity().toManys()) {
        const std::vector<Object*> members = ObjectAccess::slots(relationship.toMany(object));
        for (Object* member : members) {
            if (member == nullptr) continue;
            auto& end = relationship.toOne(*member);
            if (relationship.deleteRule == DeleteRule::cascade) {
                more.push_back(member);
            } else {
                noteWrite(*member);
                ObjectAccess::mark(*member, ObjectAccess::relinked);
            }
            ObjectAccess::unlink(end);
        }
    }
    for (const auto& relationship : object.entity().toOnes()) {
        auto& end = relationship.toOne(object);
        if (const Object* target = ObjectAccess::target(end)) feed.noteUpdated(*target);
        ObjectAccess::unlink(end);
    }
    uniques[place].remove(object);
    feed.noteDeleted(object);
    tables[place].remove(object);
    if (ObjectAccess::state(object) == ObjectState::saved) pending.deleted[place].emplace_back(object);
    ObjectAccess::setState(object, ObjectState::deleted);
    ObjectAccess::setContext(object, nullptr);
    ObjectAccess::release(object); // the table's reference; the caller or the lists of changes hold it
}

void ModelContext::State::noteWrite(const Object& object) {
    const std::size_t place = index(object);
    if (!ObjectAccess::isMarked(object, ObjectAccess::dirty)) {
        ObjectAccess::mark(object, ObjectAccess::dirty);
        pending.changed[place].emplace_back(object);
    }
    uniques[place].touch(object);
    feed.noteUpdated(object);
}

std::vector<RowChange> ModelContext::State::collect() const {
    std::vector<RowChange> changes;
    for (auto place = writeOrder.rbegin(); place != writeOrder.rend(); ++place)
        for (const auto& object : pending.deleted[*place])
            changes.push_back({RowChange::Kind::remove, *place, ObjectAccess::row(*object), nullptr, {}});
    // Updates first: one may free a unique value that an insertion takes.
    for (const bool isInsertion : {false, true})
        for (const std::size_t place : writeOrder)
            for (const auto& object : pending.changed[place]) {
                if (!isPending(object)) continue;
                if ((ObjectAccess::state(*object) == ObjectState::inserted) != isInsertion) continue;
                const auto update = ObjectAccess::isMarked(*object, ObjectAccess::relinked)
                                        ? RowChange::Kind::relink
                                        : RowChange::Kind::update;
                changes.push_back({isInsertion ? RowChange::Kind::insert : update,
                                   place,
                                   ObjectAccess::row(*object),
                                   const_cast<Object*>(object.get()),
                                   {}});
            }
    return changes;
}

SaveOutcome ModelContext::State::takeBack(const RefusedRow& refused, const SaveOutcome& before) {
    Object* const object = tables[refused.entity].find(refused.row);
    if (object == nullptr) return {}; // removed meanwhile
    const Ref<Object> held(*object);
    const StoreError reason = refused;
    if (before.refuses(held)) throw StoreError(reason);
    log::line("⚠️ [STORE] A {} is taken back: {}", object->entity().name(), velto::describe(reason));
    if (ObjectAccess::state(*object) == ObjectState::inserted) {
        returnStoredMembers(*object);
        remove(*object);
    } else {
        restore(*object);
    }
    SaveOutcome taken;
    taken.refusals.push_back({held, reason});
    return taken;
}

/// Gives the object's attributes the values of its row.
void ModelContext::State::restore(Object& object) {
    const RowCodec& codec = codecs[index(object)];
    noteWrite(object);
    const auto lock = database->lock();
    Statement row(*database, codec.selectRow());
    row.bind(1, ObjectAccess::row(object));
    if (row.step()) codec.restore(row, *database, object);
}

/// Gives one relationship of the object the target that its row names.
void ModelContext::State::restoreLink(Object& object, const ToOneBase& end) {
    const RowCodec& codec = codecs[index(object)];
    const auto lock = database->lock();
    Statement row(*database, codec.selectRow());
    row.bind(1, ObjectAccess::row(object));
    if (!row.step()) return;
    int column = static_cast<int>(1 + codec.entity().attributes().size());
    for (const auto& relationship : codec.entity().toOnes()) {
        if (&relationship.toOne(object) == &end)
            ObjectAccess::assign(relationship.toOne(object),
                                 tables[indexOf(codecs, relationship.target())].find(row.integer(column)));
        ++column;
    }
}

/// The owner is about to leave, and so is what is new in it. What has a row goes back to where its row says:
/// the delete rules are not for it.
void ModelContext::State::returnStoredMembers(Object& newOwner) {
    std::vector<Object*> leaving{&newOwner};
    while (!leaving.empty()) {
        Object& owner = *leaving.back();
        leaving.pop_back();
        for (const auto& relationship : owner.entity().toManys())
            for (Object* member : std::vector<Object*>(ObjectAccess::slots(relationship.toMany(owner)))) {
                if (member == nullptr) continue;
                if (ObjectAccess::state(*member) == ObjectState::saved)
                    restoreLink(*member, relationship.toOne(*member));
                else if (relationship.deleteRule == DeleteRule::cascade)
                    leaving.push_back(member);
            }
    }
}

void ModelContext::State::markSaved() {
    for (auto& list : pending.changed) {
        for (const auto& object : list) {
            auto& saved = const_cast<Object&>(*object);
            ObjectAccess::unmark(saved, ObjectAccess::dirty | ObjectAccess::relinked);
            if (isPending(object)) ObjectAccess::setState(saved, ObjectState::saved);
        }
        list.clear();
    }
    for (auto& list : pending.deleted)
        list.clear();
    for (auto& table : tables)
        table.tidy();
}

} // namespace velto::model
