#include "platform/model/Object.hpp"

#include "platform/model/ModelContext.hpp"
#include "platform/model/ObjectAccess.hpp"

namespace velto::model {

namespace {

std::atomic<std::int64_t> provisionalRow{-1};

/// FNV-1a: reaches the backend through PersistentIdentifier::hash, do not change.
std::uint32_t tagOf(std::string_view name) {
    std::uint32_t tag = 2'166'136'261U;
    for (const char c : name)
        tag = (tag ^ static_cast<unsigned char>(c)) * 16'777'619U;
    return tag;
}

} // namespace

EntityDescription::EntityDescription(std::string name, Object* (*maker)())
    : name_(std::move(name))
    , tag_(tagOf(name_))
    , makeEmpty_(maker) {}

Object::~Object() = default;

PersistentIdentifier Object::persistentId() const {
    if (row_ == 0) row_ = provisionalRow.fetch_sub(1, std::memory_order_relaxed);
    return {entity_->tag(), row_};
}

Subscription Object::observe(std::function<void()> observer) const {
    if (context_ == nullptr) return {};
    return context_->observe(*this, std::move(observer));
}

void Object::noteChange() const {
    context_->noteWrite(*this);
}

void Object::release() const {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (state_ == State::detached) {
        // Nobody owns it, yet others may be related to it.
        auto& self = const_cast<Object&>(*this);
        for (const auto& relationship : entity_->toOnes())
            ObjectAccess::unlink(relationship.toOne(self));
        for (const auto& relationship : entity_->toManys())
            for (Object* member : std::vector<Object*>(ObjectAccess::slots(relationship.toMany(self))))
                if (member != nullptr) ObjectAccess::unlink(relationship.toOne(*member));
    }
    delete this;
}

namespace detail {

void bindRelationships(Object& object, const EntityDescription& entity) {
    for (const auto& relationship : entity.toOnes())
        ObjectAccess::bind(relationship.toOne(object), object, relationship);
    for (const auto& relationship : entity.toManys())
        ObjectAccess::bind(relationship.toMany(object), object, relationship);
}

} // namespace detail

} // namespace velto::model
