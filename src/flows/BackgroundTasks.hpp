#pragma once

#include "platform/concurrency/TaskHandle.hpp"

#include <cstddef>
#include <memory>

namespace velto {

/// What is not to be cut off by the end of the program: tasks that nobody waits for, and operations that
/// leave nothing half done. Counted, so that a face that ends can wait for them. Main actor. The tasks handle
/// their own failures; all of it may outlive this object.
class BackgroundTasks {
    struct State;

  public:
    /// Counts as under way until it goes.
    class [[nodiscard]] Pass {
      public:
        explicit Pass(std::shared_ptr<State> state)
            : state_(std::move(state)) {
            ++state_->running;
        }

        Pass(Pass&& other) noexcept = default;
        Pass& operator=(Pass&& other) = delete;

        ~Pass() {
            if (state_ && --state_->running == 0) state_->done.set();
        }

      private:
        std::shared_ptr<State> state_;
    };

    explicit BackgroundTasks(Executor main)
        : main_(std::move(main))
        , state_(std::make_shared<State>(main_)) {}

    Pass enter() {
        if (state_->running == 0) state_ = std::make_shared<State>(main_);
        return Pass(state_);
    }

    void start(Task<void> task) { spawn(main_, counted(enter(), std::move(task))); }

    Task<void> finished() const {
        const auto state = state_;
        if (state->running > 0) co_await state->done.wait();
    }

  private:
    struct State {
        explicit State(const Executor& main)
            : done(main) {}

        std::size_t running = 0;
        Event done;
    };

    static Task<void> counted(Pass awaited, Task<void> task) {
        const Pass held = std::move(awaited);
        co_await std::move(task);
    }

    Executor main_;
    std::shared_ptr<State> state_;
};

} // namespace velto
