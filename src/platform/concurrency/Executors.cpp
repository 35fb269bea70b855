#include "platform/concurrency/Executors.hpp"

#include "platform/core/Error.hpp"
#include "platform/log/Log.hpp"

#include <atomic>
#include <cstdlib>
#include <thread>

namespace velto {

namespace {
std::atomic<std::thread::id> mainActorThread{};
}

void spawn(Executor executor, Task<void> task) {
    asio::co_spawn(executor, std::move(task), [](const std::exception_ptr& failure) {
        if (!failure) return;
        log::line("💥 [TASK] A background task let an error out: {}", describe(failure));
        log::flush();
        std::abort();
    });
}

Task<void> yieldNow() {
    const Executor executor = co_await asio::this_coro::executor;
    co_await asio::post(executor, asio::use_awaitable);
}

void bindMainActor() {
    mainActorThread = std::this_thread::get_id();
}

void assertMainActor() {
    const std::thread::id bound = mainActorThread;
    if (bound == std::thread::id() || bound == std::this_thread::get_id()) return;
    log::line("💥 [TASK] Main actor state was touched from another thread");
    log::flush();
    std::abort();
}

} // namespace velto
