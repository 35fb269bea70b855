#pragma once

#include "platform/concurrency/Executors.hpp"

#include <asio/io_context.hpp>
#include <asio/thread_pool.hpp>

#include <exception>
#include <functional>
#include <optional>

namespace velto::test {

/// A main actor on the test's own thread, a small pool and the store's thread.
class TestRuntime {
  public:
    TestRuntime();
    ~TestRuntime();

    [[nodiscard]] Executors executors() {
        return {context_.get_executor(), pool_.get_executor(), store_.get_executor()};
    }

    [[nodiscard]] Executor main() { return context_.get_executor(); }

    /// Runs the main actor until `task` has ended; its value or exception.
    template <typename T>
    T run(Task<T> task) {
        std::optional<std::exception_ptr> outcome;
        std::optional<T> value;
        asio::co_spawn(context_, std::move(task), [&](std::exception_ptr failure, T result) {
            if (!failure) value.emplace(std::move(result));
            outcome = failure;
        });
        runUntil([&] { return outcome.has_value(); });
        if (*outcome) std::rethrow_exception(*outcome);
        return std::move(*value);
    }

    void run(Task<void> task);

    /// Runs the main actor until `condition` holds; fails the test (throws) after 60 s.
    void runUntil(const std::function<bool()>& condition);

    /// Runs what is ready on the main actor now, without waiting for the pool.
    void poll();

  private:
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    asio::thread_pool pool_;
    asio::thread_pool store_;
};

} // namespace velto::test
