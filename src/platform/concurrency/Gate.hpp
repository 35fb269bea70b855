#pragma once

#include "platform/concurrency/TaskHandle.hpp"

#include <memory>
#include <utility>

namespace velto {

/// Lets one coroutine through at a time, which keeps the others out across its own suspensions. Confined to
/// one executor's thread; a Pass may outlive its gate.
class Gate {
    struct State {
        std::shared_ptr<Event> left; ///< null while nobody is in
    };

  public:
    /// In, until it goes.
    class [[nodiscard]] Pass {
      public:
        Pass() = default;
        Pass(Pass&& other) noexcept = default;
        Pass& operator=(Pass&& other) = delete;

        ~Pass() {
            if (state_) std::exchange(state_->left, nullptr)->set();
        }

      private:
        friend class Gate;

        explicit Pass(std::shared_ptr<State> state)
            : state_(std::move(state)) {}

        std::shared_ptr<State> state_;
    };

    explicit Gate(Executor executor)
        : executor_(std::move(executor))
        , state_(std::make_shared<State>()) {}

    Task<Pass> enter() {
        const auto state = state_;
        const Executor executor = executor_;
        while (state->left) {
            const auto left = state->left;
            co_await left->wait();
        }
        state->left = std::make_shared<Event>(executor);
        co_return Pass(state);
    }

  private:
    Executor executor_;
    std::shared_ptr<State> state_;
};

} // namespace velto
