#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/core/Error.hpp"

#include <asio/redirect_error.hpp>
#include <asio/steady_timer.hpp>

#include <atomic>
#include <exception>
#include <memory>
#include <optional>

namespace velto {

/// Says whether a task was asked to stop. Copies share one flag; any thread may read or set it.
class CancellationToken {
  public:
    CancellationToken()
        : flag_(std::make_shared<std::atomic<bool>>(false)) {}

    void cancel() const { flag_->store(true, std::memory_order_relaxed); }

    [[nodiscard]] bool isCancelled() const { return flag_->load(std::memory_order_relaxed); }

    /// A checkpoint: raises CancellationError once the task was asked to stop.
    void check() const {
        if (isCancelled()) throw CancellationError();
    }

  private:
    std::shared_ptr<std::atomic<bool>> flag_;
};

/// Set once, awaited by any number of coroutines. Confined to one executor's thread.
class Event {
  public:
    explicit Event(Executor executor)
        : timer_(executor, asio::steady_timer::time_point::max()) {}

    void set() {
        isSet_ = true;
        timer_.cancel();
    }

    [[nodiscard]] bool isSet() const { return isSet_; }

    Task<void> wait() {
        if (isSet_) co_return;
        asio::error_code ignored;
        co_await timer_.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    }

  private:
    asio::steady_timer timer_;
    bool isSet_ = false;
};

/// A task under way and its outcome. Made, cancelled and awaited on the main actor; the task itself may run
/// on the pool. Dropping the handle does not stop the task.
template <typename T>
class TaskHandle {
  public:
    /// Starts `task` on `runner`; its outcome is delivered on `executors.main`.
    static TaskHandle start(const Executors& executors, const Executor& runner, Task<T> task,
                            CancellationToken token) {
        TaskHandle handle(executors.main, std::move(token));
        asio::co_spawn(runner, std::move(task),
                       asio::bind_executor(executors.main, [state = handle.state_](
                                                               const std::exception_ptr& failure, T value) {
                           state->failure = failure;
                           if (!failure) state->value.emplace(std::move(value));
                           state->done.set();
                       }));
        return handle;
    }

    void cancel() const { token_.cancel(); }

    [[nodiscard]] bool isDone() const { return state_->done.isSet(); }

    /// Waits for the end; ignores the outcome.
    Task<void> finished() const {
        const auto state = state_;
        co_await state->done.wait();
    }

    /// Waits for the end; the value, or the exception that ended the task.
    Task<T> value() const {
        const auto state = state_;
        co_await state->done.wait();
        if (state->failure) std::rethrow_exception(state->failure);
        co_return *state->value;
    }

  private:
    struct State {
        explicit State(Executor executor)
            : done(std::move(executor)) {}

        Event done;
        std::exception_ptr failure;
        std::optional<T> value;
    };

    TaskHandle(Executor main, CancellationToken token)
        : state_(std::make_shared<State>(std::move(main)))
        , token_(std::move(token)) {}

    std::shared_ptr<State> state_;
    CancellationToken token_;
};

} // namespace velto
