#pragma once

#include "platform/model/ModelContext.hpp"

#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

namespace velto::model {

/// Collects what changed, and passes it to whoever observes once a turn.
class ChangeFeed {
  public:
    void noteInserted(const Object& object);
    void noteUpdated(const Object& object);
    void noteDeleted(const Object& object);

    Subscription observe(std::function<void(const ChangeSet&)> observer);
    Subscription observe(const Object& object, std::function<void()> observer);

    void deliverThrough(std::function<void(std::function<void()>)> post) { post_ = std::move(post); }

    void deliver();

  private:
    using Observer = std::function<void(const ChangeSet&)>;
    using ObjectObserver = std::function<void()>;

    [[nodiscard]] bool isObserved() const { return !observers_.empty() || !objectObservers_.empty(); }

    bool take(const Object& object);
    void notify(const ChangeSet& changes);
    void notify(const std::vector<Ref<Object>>& objects);

    ChangeSet changes_;
    bool isPosted_ = false;
    std::function<void(std::function<void()>)> post_;
    std::vector<std::weak_ptr<Observer>> observers_;
    std::unordered_multimap<const Object*, std::weak_ptr<ObjectObserver>> objectObservers_;
    std::shared_ptr<int> life_ = std::make_shared<int>(0); ///< a posted delivery may come after the end
};

} // namespace velto::model
