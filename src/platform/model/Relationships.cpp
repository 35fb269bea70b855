#include "platform/model/Relationships.hpp"

#include "platform/model/ModelContext.hpp"

#include <algorithm>

namespace velto::model {

void ToOneBase::assign(const Object* target) {
    Object* next =
        const_cast<Object*>(target); // relationships change their objects' lists, never through const
    if (next != nullptr && next->state_ == Object::State::deleted) next = nullptr;
    if (next == target_ || owner_->state_ == Object::State::deleted) return;
    owner_->willChange();
    owner_->marks_ = static_cast<std::uint8_t>(owner_->marks_ | Object::relinkedMark);
    if (target_ != nullptr) {
        description_->toMany(*target_).drop(*this);
        if (target_->context_ != nullptr) target_->context_->noteView(*target_);
    }
    target_ = next;
    if (next == nullptr) return;
    description_->toMany(*next).add(*this);
    if (next->context_ != nullptr) {
        next->context_->noteView(*next);
        if (owner_->context_ == nullptr) next->context_->adopt(*owner_);
    } else if (owner_->context_ != nullptr) {
        owner_->context_->adopt(*next);
    }
}

void ToManyBase::append(const Object& member) {
    description_->toOne(const_cast<Object&>(member)).assign(owner_);
}

void ToManyBase::remove(const Object& member) {
    if (contains(member)) description_->toOne(const_cast<Object&>(member)).assign(nullptr);
}

bool ToManyBase::contains(const Object& member) const {
    return description_->toOne(const_cast<Object&>(member)).target_ == owner_;
}

const Object* ToManyBase::at(std::size_t index) const {
    if (index != 0 && holes_ > 0) close();
    if (index == 0 || holes_ == 0) return items_[index + first_];
    std::size_t position = settle(0); // an iteration is under way
    while (index-- > 0)
        position = settle(position + 1);
    return items_[position];
}

std::size_t ToManyBase::settle(std::size_t position) const {
    position = std::max(position, first_);
    while (position < items_.size() && items_[position] == nullptr)
        ++position;
    return position < items_.size() ? position : endPosition;
}

void ToManyBase::add(ToOneBase& member) {
    if (items_.size() == items_.capacity() && holes_ > items_.size() / 2) close();
    member.slot_ = items_.size();
    items_.push_back(member.owner_);
}

void ToManyBase::drop(ToOneBase& member) {
    items_[member.slot_] = nullptr;
    ++holes_;
    while (held_ == 0 && !items_.empty() && items_.back() == nullptr) {
        items_.pop_back();
        --holes_;
    }
    while (first_ < items_.size() && items_[first_] == nullptr)
        ++first_;
    first_ = std::min(first_, items_.size());
}

/// Moves the members together, in their order, unless an iteration is under way.
void ToManyBase::close() const {
    if (held_ > 0) return;
    std::size_t free = 0;
    for (Object* member : items_) {
        if (member == nullptr) continue;
        description_->toOne(*member).slot_ = free;
        items_[free++] = member;
    }
    items_.resize(free);
    holes_ = first_ = 0;
}

} // namespace velto::model
