#include "platform/model/Removal.hpp"

#include "platform/model/ContextState.hpp"
#include "platform/model/ObjectAccess.hpp"

#include <algorithm>

namespace velto::model {

namespace {

Object& changing(const Ref<Object>& object) {
    return const_cast<Object&>(*object);
}

} // namespace

Removal::Removal(ModelContext& context, std::vector<Ref<Object>> objects)
    : context_(context)
    , state_(*context.state_)
    , objects_(std::move(objects))
    , rows_(state_.codecs.size()) {}

void Removal::take(Object& object) {
    if (!taken_.insert(&object).second) return;
    found_.emplace_back(object);
    rows_[state_.index(object)].push_back(ObjectAccess::row(object));
}

bool Removal::find(std::size_t& room) {
    for (; given_ < objects_.size(); ++given_, --room) {
        if (room == 0) return false;
        if (objects_[given_]->context() == &context_) take(changing(objects_[given_]));
    }
    for (; next_ < found_.size(); ++next_, list_ = 0) {
        Object& owner = changing(found_[next_]);
        const auto& relationships = owner.entity().toManys();
        for (; list_ < relationships.size(); ++list_, slots_ = allSlots) {
            const auto& members = ObjectAccess::slots(relationships[list_].toMany(owner));
            for (slots_ = std::min(slots_, members.size()); slots_ > 0; --room) {
                if (room == 0) return false;
                Object* const member = members[--slots_];
                if (member == nullptr || takes(*member)) continue;
                if (relationships[list_].deleteRule == DeleteRule::cascade)
                    take(*member);
                else
                    survivors_.emplace_back(*member);
            }
        }
        if (room == 0) return false;
        --room;
    }
    return true;
}

void Removal::follow(Object& object) {
    for (const auto& relationship : object.entity().toOnes()) {
        Object* const owner = ObjectAccess::target(relationship.toOne(object));
        if (owner == nullptr || !takes(*owner)) continue;
        if (ObjectAccess::deleteRule(relationship.toMany(*owner)) == DeleteRule::cascade) take(object);
    }
}

void Removal::cutLinks(Object& object, CapturedRow& row) const {
    std::size_t column = 1 + object.entity().attributes().size();
    for (const auto& relationship : object.entity().toOnes()) {
        const Object* const target = ObjectAccess::target(relationship.toOne(object));
        if (target != nullptr && takes(*target)) row.cells[column] = std::monostate();
        ++column;
    }
}

bool Removal::apply(std::size_t most) {
    // All count as unstored before the first goes: none that another one takes along is to be deleted again.
    for (; unstored_ < found_.size(); ++unstored_, --most) {
        if (most == 0) return true;
        Object& object = changing(found_[unstored_]);
        if (!object.isDeleted()) ObjectAccess::setState(object, ObjectAccess::State::inserted);
    }
    for (; expelled_ < found_.size(); --most) {
        if (most == 0) return true;
        Object& object = changing(found_[found_.size() - ++expelled_]);
        if (!object.isDeleted()) state_.remove(object);
    }
    return false;
}

} // namespace velto::model
