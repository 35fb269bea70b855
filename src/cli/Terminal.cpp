#include "cli/Terminal.hpp"

#include "platform/text/Printable.hpp"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <utility>

namespace velto::cli {

namespace {

constexpr Seconds redrawPause{0.1};
constexpr Seconds plainLinePause{2};
constexpr Seconds longestFarewell{1};
constexpr int inputPauseMilliseconds = 100; ///< between two looks whether an answer is still needed
/// At most this much waits for a slow reader; lines beyond it are left out.
constexpr std::size_t pendingLimit = std::size_t{4} << 20;

std::string duration(double seconds) {
    const auto whole = static_cast<std::int64_t>(std::ceil(seconds));
    if (whole < 60) return fmt::format("{}s", whole);
    if (whole < 3600) return fmt::format("{}m {:02}s", whole / 60, whole % 60);
    return fmt::format("{}h {:02}m", whole / 3600, whole / 60 % 60);
}

void writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

/// As much of the text as fits in the terminal's width, cut between characters.
std::string fitted(std::string text) {
    winsize size{};
    const std::size_t width = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1
                                  ? static_cast<std::size_t>(size.ws_col) - 1
                                  : 79;
    std::size_t columns = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0U) != 0x80U && ++columns > width) return text.substr(0, i);
    }
    return text;
}

/// Waits until there is input, or its end, to read. False if nobody needs it any more.
bool isInputReady(const CancellationToken& notNeeded) {
    while (!notNeeded.isCancelled()) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const int ready = std::cin.rdbuf()->in_avail() > 0 ? 1 : ::poll(&input, 1, inputPauseMilliseconds);
        if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    }
    return false;
}

} // namespace

/// What standard error is to show. A thread of its own writes it, so that a reader who stops (a pager, a
/// stopped terminal) stops that thread and nothing else.
struct Terminal::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::condition_variable written;
    bool isTerminal = false;
    bool isStopping = false;
    bool isWriting = false;
    std::string pending; ///< whole lines that are not written yet
    std::size_t droppedBytes = 0;
    std::string shown; ///< the progress line on the terminal now; empty for none. Only the writer changes it.
    std::string toShow; ///< the progress line that is wanted

    [[nodiscard]] bool isUpToDate() const { return pending.empty() && toShow == shown; }

    void append(std::string_view lines) {
        const std::lock_guard lock(mutex);
        if (pending.size() + lines.size() > pendingLimit)
            droppedBytes += lines.size();
        else
            pending += lines;
        changed.notify_one();
    }

    void show(std::string line) {
        const std::lock_guard lock(mutex);
        toShow = std::move(line);
        changed.notify_one();
    }

    void run() {
        std::unique_lock lock(mutex);
        while (true) {
            changed.wait(lock, [this] { return !isUpToDate() || isStopping; });
            if (isUpToDate()) return;
            std::string output = shown.empty() ? "" : "\r\x1b[K";
            output += std::exchange(pending, {});
            if (droppedBytes > 0)
                output += fmt::format("({} bytes of log lines were not shown; the log file has them)\n",
                                      std::exchange(droppedBytes, 0));
            shown = toShow;
            output += shown;
            isWriting = true;
            lock.unlock();
            writeAll(output);
            lock.lock();
            isWriting = false;
            written.notify_all();
        }
    }

    /// Waits until all of it is written, or for `longest` if nobody reads.
    void flush(Seconds longest) {
        std::unique_lock lock(mutex);
        written.wait_for(lock, longest, [this] { return isUpToDate() && !isWriting; });
    }
};

Terminal::Terminal(Verbosity verbosity, const Clock& clock)
    : state_(std::make_shared<State>())
    , clock_(clock)
    , isQuiet_(verbosity == Verbosity::quiet)
    , writer_([state = state_] { state->run(); }) {
    state_->isTerminal = ::isatty(STDERR_FILENO) == 1;
    if (verbosity == Verbosity::verbose)
        sink_ = log::addSink([state = state_](std::string_view lines) { state->append(lines); });
}

Terminal::~Terminal() {
    sink_ = {};
    endProgress();
    state_->flush(longestFarewell);
    bool isStuck = false;
    {
        const std::lock_guard lock(state_->mutex);
        state_->isStopping = true;
        state_->changed.notify_one();
        isStuck = state_->isWriting; // nobody reads
    }
    if (isStuck)
        writer_.detach(); // it holds the state
    else
        writer_.join();
}

void Terminal::progress(std::string_view text, std::int64_t done, std::int64_t total,
                        std::optional<double> secondsLeft) {
    if (isQuiet_) return;
    const Date now = clock_.now();
    const bool isTerminal = state_->isTerminal;
    const bool saysNothingNew = lastText_ == text && !isTerminal && total == 0;
    const bool isSoon = lastText_ == text && now - lastShown_ < (isTerminal ? redrawPause : plainLinePause);
    if (saysNothingNew || (isSoon && (done < total || total == 0))) return;
    std::string line(text);
    if (total == 0 && done > 0) line += fmt::format(" {} files", done);
    if (total > 0) line += fmt::format(" {} of {} ({}%)", done, total, done * 100 / total);
    if (secondsLeft && done < total) line += fmt::format(", {} left", duration(*secondsLeft));
    lastText_ = text;
    lastShown_ = now;
    if (isTerminal)
        state_->show(fitted(line));
    else
        state_->append(line + "\n");
}

void Terminal::progress(const ScanProgress& progress) {
    this->progress(rawValue(progress.phase), progress.processedFiles, progress.totalFiles,
                   progress.estimatedTimeRemaining);
}

void Terminal::endProgress() {
    lastText_.clear();
    state_->show("");
}

void Terminal::say(std::string_view text) {
    log::flush();
    state_->append(text::printableLines(text) + "\n");
}

void Terminal::complain(std::string_view text) {
    say("velto: " + text::printable(text));
}

void Terminal::flush() {
    log::flush();
    state_->flush(longestFarewell);
}

std::optional<std::string> ask(Terminal& terminal, const std::string& question,
                               const CancellationToken& notNeeded) {
    terminal.flush();
    if (!question.empty()) writeAll(question + " ");
    std::string answer;
    const bool hasAnswer = isInputReady(notNeeded) && std::getline(std::cin, answer);
    // A person who types ends the line.
    if (!question.empty() && (!hasAnswer || ::isatty(STDIN_FILENO) == 0)) writeAll("\n");
    return hasAnswer ? std::optional(answer) : std::nullopt;
}

} // namespace velto::cli
