#pragma once

#include "cli/Options.hpp"
#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "platform/log/Log.hpp"
#include "scanning/ScanProgress.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace velto::cli {

/// Standard error: what is said, the log's lines if they are wanted and, on a terminal, one progress line
/// below them. Piped, progress is a plain line now and then. Log lines come from the log's thread, all else
/// from the main actor. Nothing here waits for whoever reads standard error, except flush.
class Terminal {
  public:
    Terminal(Verbosity verbosity, const Clock& clock);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Shows how far something has come: at most ten times a second on a terminal, every two seconds
    /// otherwise. A `total` of 0 shows the text alone.
    void progress(std::string_view text, std::int64_t done, std::int64_t total,
                  std::optional<double> secondsLeft);
    void progress(const ScanProgress& progress);
    void endProgress();

    /// Lines for the user, also when it is quiet. Control characters in them are written out.
    void say(std::string_view text);

    /// Why something is not done and what helps, as one line: "velto: ...".
    void complain(std::string_view text);

    /// Waits until everything is written; a second at most if nobody reads.
    void flush();

  private:
    struct State;
    std::shared_ptr<State> state_;
    const Clock& clock_;
    const bool isQuiet_;
    std::string lastText_;
    Date lastShown_;
    std::thread writer_;
    log::SinkHandle sink_;
};

/// Asks on standard error and reads a line from standard input; nothing at its end, or soon after the answer
/// is no longer needed. No progress may be on show. Blocks.
std::optional<std::string> ask(Terminal& terminal, const std::string& question,
                               const CancellationToken& notNeeded = {});

} // namespace velto::cli
