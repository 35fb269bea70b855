#pragma once

#include "platform/model/Entity.hpp"

namespace velto::model {

/// The layer's own way to the private state of objects and relationships. Not for use outside this folder.
struct ObjectAccess {
    using State = Object::State;

    static State state(const Object& object) { return object.state_; }

    static void setState(Object& object, State state) { object.state_ = state; }

    static std::int64_t row(const Object& object) { return object.row_; }

    static void setRow(Object& object, std::int64_t row) { object.row_ = row; }

    static void setContext(Object& object, ModelContext* context) { object.context_ = context; }

    static void retain(const Object& object) { object.retain(); }

    static void release(const Object& object) { object.release(); }

    static constexpr auto dirty = Object::dirtyMark;
    static constexpr auto noted = Object::notedMark;
    static constexpr auto touched = Object::touchedMark;
    static constexpr auto relinked = Object::relinkedMark;

    static bool isMarked(const Object& object, std::uint8_t mark) { return (object.marks_ & mark) != 0; }

    static void mark(const Object& object, std::uint8_t mark) {
        object.marks_ = static_cast<std::uint8_t>(object.marks_ | mark);
    }

    static void unmark(const Object& object, std::uint8_t mark) {
        object.marks_ = static_cast<std::uint8_t>(object.marks_ & ~mark);
    }

    static Object* target(const ToOneBase& end) { return end.target_; }

    static void assign(ToOneBase& end, const Object* target) { end.assign(target); }

    static const std::vector<Object*>& slots(const ToManyBase& list) { return list.items_; }

    static DeleteRule deleteRule(const ToManyBase& list) { return list.description_->deleteRule; }

    static void bind(ToOneBase& end, Object& owner, const RelationshipDescription& description) {
        end.owner_ = &owner;
        end.description_ = &description;
    }

    static void bind(ToManyBase& list, Object& owner, const RelationshipDescription& description) {
        list.owner_ = &owner;
        list.description_ = &description;
    }

    /// Links both ends without marking anything: for objects that are being read.
    static void link(ToOneBase& end, Object& target) {
        end.target_ = &target;
        end.description_->toMany(target).add(end);
    }

    /// Unlinks both ends without marking the owner: for objects that are on their way out.
    static void unlink(ToOneBase& end) {
        if (end.target_ == nullptr) return;
        end.description_->toMany(*end.target_).drop(end);
        end.target_ = nullptr;
    }

    /// Forgets both kinds of ends, leaving the other sides as they are: when everything goes at once.
    static void forget(Object& object) {
        for (const auto& relationship : object.entity().toOnes())
            relationship.toOne(object).target_ = nullptr;
        for (const auto& relationship : object.entity().toManys()) {
            ToManyBase& list = relationship.toMany(object);
            list.items_ = {};
            list.holes_ = list.first_ = 0;
        }
    }
};

} // namespace velto::model
