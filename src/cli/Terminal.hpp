#pragma once

#include "platform/concurrency/Clock.hpp"
#include "platform/log/Log.hpp"
#include "scanning/ScanProgress.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velto::cli {

/// Standard error: log lines and, on a terminal, one progress line below them. Piped, progress is a plain
/// line now and then. Log lines come from the log's thread, progress from the main actor.
class Terminal {
  public:
    /// `quiet` leaves only `say`.
    Terminal(bool quiet, const Clock& clock);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Shows how far something is; at most ten times a second. `total` 0 shows the text alone.
    void progress(std::string_view text, std::int64_t done, std::int64_t total,
                  std::optional<double> secondsLeft);
    void progress(const ScanProgress& progress);
    void endProgress();

    /// A line for the user, whatever `quiet` says.
    void say(std::string_view text);

  private:
    struct State;
    std::shared_ptr<State> state_;
    const Clock& clock_;
    log::SinkHandle sink_;
};

/// Asks on standard error and reads a line from standard input; absent at its end. Blocks.
std::optional<std::string> ask(Terminal& terminal, const std::string& question);

} // namespace velto::cli
