#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace velto {

/// Keeps an observer of a Published value subscribed while it lives. It may outlive the value.
class [[nodiscard]] Subscription {
  public:
    Subscription() = default;

    explicit Subscription(std::shared_ptr<void> token)
        : token_(std::move(token)) {}

  private:
    std::shared_ptr<void> token_;
};

/// An observable field: reads as its value, and calls its observers after each assignment. Confined to the
/// main actor. Observers may subscribe, unsubscribe and assign from inside a notification.
template <typename T>
class Published {
  public:
    using Observer = std::function<void(const T&)>;

    Published() = default;

    explicit Published(T value)
        : value_(std::move(value)) {}

    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    Published& operator=(T value) {
        value_ = std::move(value);
        notify();
        return *this;
    }

    [[nodiscard]] const T& get() const { return value_; }

    // NOLINTNEXTLINE(google-explicit-constructor): a field is read as what it holds
    operator const T&() const { return value_; }

    const T& operator*() const { return value_; }

    const T* operator->() const { return &value_; }

    /// Changes the value in place through `change`, then calls the observers.
    template <typename F>
    void mutate(F change) {
        change(value_);
        notify();
    }

    Subscription subscribe(Observer observer) {
        auto token = std::make_shared<Observer>(std::move(observer));
        observers_.push_back(token);
        return Subscription(std::move(token));
    }

  private:
    void notify() {
        std::erase_if(observers_, [](const auto& observer) { return observer.expired(); });
        const auto current = observers_;
        for (const auto& weak : current)
            if (const auto observer = weak.lock()) (*observer)(value_);
    }

    T value_{};
    std::vector<std::weak_ptr<Observer>> observers_;
};

} // namespace velto
