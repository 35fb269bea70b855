#include "platform/model/ChangeFeed.hpp"

#include "platform/model/ObjectAccess.hpp"

#include <algorithm>
#include <iterator>

namespace velto::model {

bool ChangeSet::concerns(const EntityDescription& entity) const {
    const auto isOfIt = [&](const Ref<Object>& object) { return &object->entity() == &entity; };
    return std::any_of(inserted.begin(), inserted.end(), isOfIt) ||
           std::any_of(updated.begin(), updated.end(), isOfIt) ||
           std::any_of(deleted.begin(), deleted.end(), isOfIt);
}

/// False if the object is in the set already, or if nobody listens.
bool ChangeFeed::take(const Object& object) {
    if (!isObserved() || ObjectAccess::isMarked(object, ObjectAccess::noted)) return false;
    ObjectAccess::mark(object, ObjectAccess::noted);
    if (!isPosted_ && post_) {
        isPosted_ = true;
        post_([this, life = std::weak_ptr<int>(life_)] {
            if (!life.expired()) deliver();
        });
    }
    return true;
}

void ChangeFeed::noteInserted(const Object& object) {
    if (take(object)) changes_.inserted.emplace_back(object);
}

void ChangeFeed::noteUpdated(const Object& object) {
    if (take(object)) changes_.updated.emplace_back(object);
}

void ChangeFeed::noteDeleted(const Object& object) {
    take(object);
    if (isObserved()) changes_.deleted.emplace_back(object);
}

Subscription ChangeFeed::observe(std::function<void(const ChangeSet&)> observer) {
    auto token = std::make_shared<Observer>(std::move(observer));
    observers_.push_back(token);
    return Subscription(std::move(token));
}

Subscription ChangeFeed::observe(const Object& object, std::function<void()> observer) {
    auto token = std::make_shared<ObjectObserver>(std::move(observer));
    objectObservers_.emplace(&object, token);
    return Subscription(std::move(token));
}

void ChangeFeed::deliver() {
    isPosted_ = false;
    ChangeSet changes = std::exchange(changes_, {});
    const auto isDeleted = [](const Ref<Object>& object) { return object->isDeleted(); };
    std::erase_if(changes.inserted, isDeleted);
    std::erase_if(changes.updated, isDeleted);
    for (const auto* list : {&changes.inserted, &changes.updated, &changes.deleted})
        for (const auto& object : *list)
            ObjectAccess::unmark(*object, ObjectAccess::noted);
    if (changes.inserted.empty() && changes.updated.empty() && changes.deleted.empty()) return;
    notify(changes);
}

void ChangeFeed::notify(const ChangeSet& changes) {
    std::erase_if(observers_, [](const auto& observer) { return observer.expired(); });
    std::erase_if(objectObservers_, [](const auto& entry) { return entry.second.expired(); });
    const std::weak_ptr<int> life = life_; // an observer may end the context
    const auto observers = observers_;
    for (const auto& weak : observers)
        if (const auto observer = weak.lock()) (*observer)(changes);
    for (const auto* list : {&changes.inserted, &changes.updated, &changes.deleted}) {
        if (life.expired() || objectObservers_.empty()) return;
        notify(*list);
    }
}

void ChangeFeed::notify(const std::vector<Ref<Object>>& objects) {
    const std::weak_ptr<int> life = life_;
    for (const auto& object : objects) {
        if (life.expired()) return;
        std::vector<std::weak_ptr<ObjectObserver>> observers;
        const auto [first, last] = objectObservers_.equal_range(object.get());
        std::transform(first, last, std::back_inserter(observers),
                       [](const auto& entry) { return entry.second; });
        if (object->isDeleted()) objectObservers_.erase(object.get());
        for (const auto& weak : observers)
            if (const auto observer = weak.lock()) (*observer)();
    }
}

} // namespace velto::model
