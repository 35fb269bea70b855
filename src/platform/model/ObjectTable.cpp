#include "platform/model/ObjectTable.hpp"

#include "platform/model/ObjectAccess.hpp"

#include <algorithm>

namespace velto::model {

ObjectTable::~ObjectTable() {
    for (const Entry& entry : entries_) {
        if (entry.object == nullptr) continue;
        ObjectAccess::forget(*entry.object);
        ObjectAccess::setContext(*entry.object, nullptr);
        ObjectAccess::setState(*entry.object, ObjectAccess::State::detached);
        ObjectAccess::release(*entry.object);
    }
}

void ObjectTable::insert(Object& object) {
    ObjectAccess::retain(object);
    ObjectAccess::setRow(object, nextRow_);
    adopt(object);
}

void ObjectTable::adopt(Object& object) {
    entries_.push_back({ObjectAccess::row(object), &object});
    nextRow_ = ObjectAccess::row(object) + 1;
}

const ObjectTable::Entry* ObjectTable::entry(std::int64_t row) const {
    // Mostly nothing was ever deleted, and a row stands at its own number.
    if (row >= 1 && static_cast<std::size_t>(row) <= entries_.size() &&
        entries_[static_cast<std::size_t>(row) - 1].row == row)
        return &entries_[static_cast<std::size_t>(row) - 1];
    const auto found =
        std::lower_bound(entries_.begin(), entries_.end(), row,
                         [](const Entry& entry, std::int64_t value) { return entry.row < value; });
    return found != entries_.end() && found->row == row ? &*found : nullptr;
}

std::size_t ObjectTable::placeAfter(std::int64_t row) const {
    const auto found =
        std::upper_bound(entries_.begin(), entries_.end(), row,
                         [](std::int64_t value, const Entry& entry) { return value < entry.row; });
    return static_cast<std::size_t>(found - entries_.begin());
}

Object* ObjectTable::find(std::int64_t row) const {
    const Entry* found = entry(row);
    return found != nullptr ? found->object : nullptr;
}

void ObjectTable::remove(const Object& object) {
    const Entry* found = entry(ObjectAccess::row(object));
    if (found == nullptr || found->object == nullptr) return;
    entries_[static_cast<std::size_t>(found - entries_.data())].object = nullptr;
    ++holes_;
}

void ObjectTable::swap(ObjectTable& other) noexcept {
    std::swap(entries_, other.entries_);
    std::swap(holes_, other.holes_);
    std::swap(nextRow_, other.nextRow_);
}

void ObjectTable::tidy() {
    if (holes_ <= entries_.size() / 2) return;
    std::erase_if(entries_, [](const Entry& entry) { return entry.object == nullptr; });
    holes_ = 0;
}

} // namespace velto::model
