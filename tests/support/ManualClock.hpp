#pragma once

#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/TaskHandle.hpp"

#include <memory>
#include <mutex>
#include <vector>

namespace velto::test {

/// A clock that stands still until a test advances it. `slept` lists every wait that was asked for, in order.
/// Sleepers must be on the test's main actor.
class ManualClock final : public Clock {
  public:
    explicit ManualClock(Executor main, Date start = dateFromMicroseconds(1'700'000'000'000'000));

    [[nodiscard]] Date now() const override;
    Task<void> sleep(Seconds duration) override;

    /// Moves the time on and wakes whoever is due. Call on the main actor.
    void advance(Seconds duration);
    /// Sets the time to the earliest wake-up and wakes it; false if nobody sleeps.
    bool advanceToNextSleeper();

    /// Every duration asked for so far, in seconds.
    [[nodiscard]] std::vector<double> slept() const;

    [[nodiscard]] std::size_t sleepers() const { return sleepers_.size(); }

  private:
    struct Sleeper {
        Date due;
        std::shared_ptr<Event> event;
    };

    void wakeDue();

    Executor main_;
    mutable std::mutex mutex_;
    Date now_;
    std::vector<double> slept_;
    std::vector<Sleeper> sleepers_;
};

} // namespace velto::test
