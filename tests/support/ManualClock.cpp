#include "support/ManualClock.hpp"

#include <algorithm>

namespace velto::test {

ManualClock::ManualClock(Executor main, Date start)
    : main_(std::move(main))
    , now_(start) {}

Date ManualClock::now() const {
    const std::lock_guard lock(mutex_);
    return now_;
}

Task<void> ManualClock::sleep(Seconds duration) {
    slept_.push_back(duration.count());
    if (duration <= Seconds::zero()) co_return;
    auto event = std::make_shared<Event>(main_);
    sleepers_.push_back({now() + std::chrono::round<std::chrono::microseconds>(duration), event});
    co_await event->wait();
}

void ManualClock::advance(Seconds duration) {
    {
        const std::lock_guard lock(mutex_);
        now_ += std::chrono::round<std::chrono::microseconds>(duration);
    }
    wakeDue();
}

bool ManualClock::advanceToNextSleeper() {
    const auto next = std::min_element(sleepers_.begin(), sleepers_.end(),
                                       [](const Sleeper& a, const Sleeper& b) { return a.due < b.due; });
    if (next == sleepers_.end()) return false;
    {
        const std::lock_guard lock(mutex_);
        now_ = std::max(now_, next->due);
    }
    wakeDue();
    return true;
}

void ManualClock::wakeDue() {
    const Date current = now();
    for (const Sleeper& sleeper : sleepers_)
        if (sleeper.due <= current) sleeper.event->set();
    std::erase_if(sleepers_, [&](const Sleeper& sleeper) { return sleeper.due <= current; });
}

std::vector<double> ManualClock::slept() const {
    return slept_;
}

} // namespace velto::test
