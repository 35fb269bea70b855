#include "platform/concurrency/Clock.hpp"

#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

namespace velto {

Date SystemClock::now() const {
    return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}

Task<void> SystemClock::sleep(Seconds duration) {
    if (duration <= Seconds::zero()) co_return;
    asio::steady_timer timer(co_await asio::this_coro::executor);
    timer.expires_after(std::chrono::duration_cast<std::chrono::steady_clock::duration>(duration));
    co_await timer.async_wait(asio::use_awaitable);
}

} // namespace velto
