#pragma once

#include "platform/concurrency/Task.hpp"

#include <asio/bind_executor.hpp>
#include <asio/co_spawn.hpp>
#include <asio/post.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <chrono>
#include <type_traits>
#include <utility>

namespace velto {

/// The places where code runs. `main` is the main actor: it alone touches the store context, the view models
/// and every observable field. `pool` runs what blocks. `store` is a thread for the store's blocking work
/// alone: a drive that does not answer may hold up all of `pool`, but no save. Copy it freely.
struct Executors {
    Executor main;
    Executor pool;
    Executor store;
};

/// Runs `task` on `executor` and comes back to the caller's executor with its value or exception.
template <typename T>
Task<T> runOn(Executor executor, Task<T> task) {
    co_return co_await asio::co_spawn(executor, std::move(task), asio::use_awaitable);
}

namespace detail {
template <typename F>
Task<std::invoke_result_t<F>> invokeAsTask(F function) {
    co_return function();
}
} // namespace detail

/// Runs the blocking `function` on `executor` and comes back to the caller's: the only way off the main
/// actor. It is copied or moved there; what it refers to must outlive the call.
template <typename F>
Task<std::invoke_result_t<F>> offload(Executor executor, F function) {
    co_return co_await asio::co_spawn(executor, detail::invokeAsTask(std::move(function)),
                                      asio::use_awaitable);
}

/// The same on the pool.
template <typename F>
Task<std::invoke_result_t<F>> offload(Executors executors, F function) {
    return offload(executors.pool, std::move(function));
}

/// Starts `task` on `executor` and does not wait for it. A task started this way handles its own failures:
/// one that lets an exception out is a bug and ends the program with a log line.
void spawn(Executor executor, Task<void> task);

/// Frees on `executor` what takes long to free; its destructor must allow that.
template <typename T>
void freeOn(const Executor& executor, T spent) {
    asio::post(executor, [dropped = std::move(spent)] {});
}

/// Gives way: the rest of the executor's queue runs before this coroutine goes on.
Task<void> yieldNow();

/// A turn of the main actor, begun when this is made: for loops whose steps may take long.
class Turn {
  public:
    /// True once it is time to give way, so that the window does not stutter.
    [[nodiscard]] bool isOver() const { return std::chrono::steady_clock::now() - start_ > length; }

  private:
    static constexpr std::chrono::milliseconds length{4};

    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Names the calling thread as the main actor's. Called once by the composition root and by tests.
void bindMainActor();

/// Ends the program when a main actor is bound and the caller is on another thread.
void assertMainActor();

} // namespace velto
