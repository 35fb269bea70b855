#include "support/TestRuntime.hpp"

#include <stdexcept>

namespace velto::test {

TestRuntime::TestRuntime()
    : work_(asio::make_work_guard(context_))
    , pool_(4)
    , store_(1) {
    bindMainActor();
}

TestRuntime::~TestRuntime() {
    pool_.join();
    store_.join();
    context_.restart();
    context_.poll();
}

void TestRuntime::run(Task<void> task) {
    std::optional<std::exception_ptr> outcome;
    asio::co_spawn(context_, std::move(task), [&](std::exception_ptr failure) { outcome = failure; });
    runUntil([&] { return outcome.has_value(); });
    if (*outcome) std::rethrow_exception(*outcome);
}

void TestRuntime::runUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error("the condition never came true");
        context_.restart();
        context_.run_one_for(std::chrono::milliseconds(20));
    }
}

void TestRuntime::poll() {
    context_.restart();
    context_.poll();
}

} // namespace velto::test
