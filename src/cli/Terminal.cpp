#include "cli/Terminal.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <iostream>
#include <mutex>

namespace velto::cli {

namespace {

constexpr Seconds redrawPause{0.1};
constexpr Seconds plainLinePause{2};

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

} // namespace

struct Terminal::State {
    std::mutex mutex;
    bool quiet = false;
    bool isTerminal = false;
    std::string shown; ///< the progress line that stands there; empty for none
    std::string lastText;
    Date lastShown;

    void erase() {
        if (!shown.empty()) writeAll("\r\x1b[K");
    }

    void block(std::string_view lines) {
        const std::lock_guard lock(mutex);
        erase();
        writeAll(lines);
        if (!shown.empty()) writeAll(shown);
    }
};

Terminal::Terminal(bool quiet, const Clock& clock)
    : state_(std::make_shared<State>())
    , clock_(clock) {
    state_->quiet = quiet;
    state_->isTerminal = ::isatty(STDERR_FILENO) == 1;
    if (!quiet) sink_ = log::addSink([state = state_](std::string_view lines) { state->block(lines); });
}

Terminal::~Terminal() {
    endProgress();
}

void Terminal::progress(std::string_view text, std::int64_t done, std::int64_t total,
                        std::optional<double> secondsLeft) {
    if (state_->quiet) return;
    const Date now = clock_.now();
    const std::lock_guard lock(state_->mutex);
    const bool sameText = state_->lastText == text;
    const Seconds pause = state_->isTerminal ? redrawPause : plainLinePause;
    if (sameText && done < total && now - state_->lastShown < pause) return;
    std::string line(text);
    if (total > 0) line += fmt::format(" {} of {} ({}%)", done, total, done * 100 / total);
    if (secondsLeft && done < total) line += fmt::format(", {} left", duration(*secondsLeft));
    state_->lastText = text;
    state_->lastShown = now;
    if (state_->isTerminal) {
        state_->erase();
        state_->shown = fitted(line);
        writeAll(state_->shown);
    } else {
        writeAll(line + "\n");
    }
}

void Terminal::progress(const ScanProgress& progress) {
    this->progress(rawValue(progress.phase), progress.processedFiles, progress.totalFiles,
                   progress.estimatedTimeRemaining);
}

void Terminal::endProgress() {
    const std::lock_guard lock(state_->mutex);
    state_->erase();
    state_->shown.clear();
    state_->lastText.clear();
}

void Terminal::say(std::string_view text) {
    log::flush();
    state_->block(std::string(text) + "\n");
}

std::optional<std::string> ask(Terminal& terminal, const std::string& question) {
    log::flush();
    terminal.endProgress();
    if (!question.empty()) writeAll(question + " ");
    std::string answer;
    if (!std::getline(std::cin, answer)) return std::nullopt;
    return answer;
}

} // namespace velto::cli
