#pragma once

#include "platform/concurrency/Task.hpp"
#include "platform/core/Date.hpp"

namespace velto {

/// The only source of time: everything that waits or stamps a date takes one, so that tests can advance it.
class Clock {
  public:
    virtual ~Clock() = default;

    /// The present moment, to the microsecond. Any thread.
    [[nodiscard]] virtual Date now() const = 0;

    /// Returns after `duration` on the caller's executor. A duration of zero or less returns at once.
    virtual Task<void> sleep(Seconds duration) = 0;

    /// Seconds since `start`, for log lines and estimates.
    [[nodiscard]] double secondsSince(Date start) const { return Seconds(now() - start).count(); }
};

class SystemClock final : public Clock {
  public:
    [[nodiscard]] Date now() const override;
    Task<void> sleep(Seconds duration) override;
};

} // namespace velto
