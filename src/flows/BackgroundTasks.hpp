#pragma once

#include "platform/concurrency/TaskHandle.hpp"

#include <cstddef>
#include <memory>

namespace velto {

/// Tasks that nobody waits for, counted, so that a face that ends can wait for them after all. Main actor.
/// The tasks handle their own failures and may outlive this object.
class BackgroundTasks {
  public:
    explicit BackgroundTasks(Executor main)
        : main_(std::move(main))
        , state_(std::make_shared<State>(main_)) {}

    void start(Task<void> task) {
        if (state_->running == 0) state_ = std::make_shared<State>(main_);
        ++state_->running;
        spawn(main_, counted(state_, std::move(task)));
    }

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

    static Task<void> counted(std::shared_ptr<State> state, Task<void> task) {
        co_await std::move(task);
        if (--state->running == 0) state->done.set();
    }

    Executor main_;
    std::shared_ptr<State> state_;
};

} // namespace velto
