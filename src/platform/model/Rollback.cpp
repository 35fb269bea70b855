#include "platform/model/Rollback.hpp"

#include "platform/model/ContextState.hpp"
#include "platform/model/ObjectAccess.hpp"

#include <utility>

namespace velto::model {

namespace {

using ObjectState = ObjectAccess::State;

Object& changing(const Ref<Object>& object) {
    return const_cast<Object&>(*object);
}

} // namespace

Rollback::Rollback(ModelContext& context)
    : context_(context)
    , state_(*context.state_) {}

void Rollback::read() {
    const auto lock = state_.database->lock();
    for (std::size_t place = 0; place < state_.codecs.size(); ++place) {
        Statement select(*state_.database, state_.codecs[place].selectRow());
        for (const auto& object : state_.pending.changed[place])
            if (!object->isDeleted()) readRow(select, place, object);
        for (const auto& object : state_.pending.deleted[place])
            readRow(select, place, object);
    }
}

void Rollback::readRow(Statement& select, std::size_t place, const Ref<Object>& object) {
    select.bind(1, ObjectAccess::row(*object));
    if (ObjectAccess::state(*object) != ObjectState::inserted && select.step()) {
        Object* values = state_.codecs[place].entity().makeEmpty();
        stored_.push_back({object, place, Ref<Object>(values), {}});
        ObjectAccess::release(*values); // the handle has it now
        state_.codecs[place].decode(select, *state_.database, *values, stored_.back().targets);
    } else if (!object->isDeleted()) {
        unstored_.push_back(object);
    }
    select.reset();
}

void Rollback::apply() {
    const PendingChanges discarded = std::exchange(state_.pending, PendingChanges(state_.codecs.size()));
    expelUnstored();
    restoreValues();
    for (const StoredRow& row : stored_)
        restoreRelationships(row);
    for (ToManyBase* list : grown_)
        ObjectAccess::sortByRow(*list);
}

void Rollback::expelUnstored() {
    for (const auto& unstored : unstored_) {
        Object& object = changing(unstored);
        for (const auto& relationship : object.entity().toManys())
            for (Object* member : std::vector<Object*>(ObjectAccess::slots(relationship.toMany(object))))
                if (member != nullptr) ObjectAccess::unlink(relationship.toOne(*member));
        state_.expel(object);
        ObjectAccess::unmark(object, ObjectAccess::dirty | ObjectAccess::relinked);
    }
}

void Rollback::restoreValues() {
    std::vector<std::vector<Object*>> revived(state_.codecs.size());
    for (const StoredRow& row : stored_) {
        Object& object = changing(row.object);
        if (object.isDeleted())
            revived[row.entity].push_back(&object);
        else
            state_.uniques[row.entity].touch(object);
        for (const auto& attribute : object.entity().attributes())
            attribute.moveValue(changing(row.values), object);
        ObjectAccess::unmark(object, ObjectAccess::dirty | ObjectAccess::relinked);
        if (!object.isDeleted()) state_.feed.noteUpdated(object);
    }
    for (std::size_t place = 0; place < revived.size(); ++place) {
        state_.tables[place].restore(revived[place]);
        for (Object* object : revived[place]) {
            ObjectAccess::unmark(*object, ObjectAccess::touched); // a mark of before its removal
            ObjectAccess::setState(*object, ObjectState::saved);
            ObjectAccess::setContext(*object, &context_);
            state_.uniques[place].insert(*object);
            state_.feed.noteRestored(*object);
        }
    }
}

void Rollback::restoreRelationships(const StoredRow& row) {
    std::size_t next = 0;
    for (const auto& relationship : row.object->entity().toOnes()) {
        auto& end = relationship.toOne(changing(row.object));
        Object* target =
            state_.tables[indexOf(state_.codecs, relationship.target())].find(row.targets[next++]);
        Object* present = ObjectAccess::target(end);
        if (target == present) continue;
        if (present != nullptr) state_.feed.noteUpdated(*present);
        ObjectAccess::unlink(end);
        if (target == nullptr) continue;
        ObjectAccess::link(end, *target);
        state_.feed.noteUpdated(*target);
        grown_.insert(&relationship.toMany(*target));
    }
}

} // namespace velto::model
