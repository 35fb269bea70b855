#include "app/LocalBackend.hpp"

#include "platform/log/Log.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace velto {

namespace {

using std::chrono::steady_clock;

constexpr Seconds startDeadline{10};
/// One that dies more often than this will not live: its state or the machine is broken.
constexpr std::size_t mostRestarts = 3;
constexpr std::chrono::minutes restartPeriod{1};
/// A dying process closes its standard error before its connections.
constexpr std::chrono::milliseconds newsOfADeath{200};
constexpr std::size_t longestLine = 2000; ///< bytes

std::filesystem::path programBesideThis() {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    auto program = self.parent_path() / "velto-backend";
    if (error || !std::filesystem::exists(program, error))
        throw LocalBackendError("The local backend is not there: " + program.string() +
                                ". Reinstall the program, or name a backend with --backend URL.");
    return program;
}

std::string portOf(const std::string& address) {
    return address.substr(address.rfind(':') + 1);
}

} // namespace

LocalBackend::LocalBackend(std::filesystem::path stateFile)
    : stateFile_(std::move(stateFile))
    , running_(launch("0"))
    , address_(running_.address)
    , watcher_([this] { watch(); }) {}

LocalBackend::~LocalBackend() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
        running_.process.terminate();
    }
    watcher_.join();
}

LocalBackend::Running LocalBackend::launch(const std::string& port) {
    const auto program = programBesideThis();
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw SystemError(errno, "Cannot make a pipe to", program.string());
    files::Descriptor errors(ends[0]);
    files::Descriptor writeEnd(ends[1]);
    lastLine_.clear();
    auto process = files::ChildProcess::start(
        {program.string(), "--port", port, "--exit-with-stdin", "--quiet", "--state", stateFile_.string()},
        writeEnd.get());
    writeEnd.reset();
    const auto address = process.readFirstLine(startDeadline);
    if (!address || !address->starts_with("http://")) {
        process.terminate();
        relayErrors(errors.get());
        throw LocalBackendError("The local backend did not start: " + lastWords());
    }
    return {std::move(process), std::move(errors), *address};
}

/// Until the process has ended.
void LocalBackend::relayErrors(int errors) {
    std::string text;
    std::array<char, 4096> block{};
    const auto relay = [this, &text](std::size_t end) {
        lastLine_ = text.substr(0, std::min(end, longestLine));
        if (!lastLine_.empty()) log::line("⚠️ [LOCAL BACKEND] {}", lastLine_);
    };
    while (true) {
        const ssize_t count = ::read(errors, block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        text.append(block.data(), static_cast<std::size_t>(count));
        for (std::size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1))
            relay(end);
        if (text.size() > longestLine) {
            relay(text.size());
            text.clear();
        }
    }
    if (!text.empty()) relay(text.size());
}

std::string LocalBackend::lastWords() const {
    constexpr std::string_view prefix = "velto-backend: ";
    if (lastLine_.starts_with(prefix)) return lastLine_.substr(prefix.size());
    return lastLine_.empty() ? "it said nothing. Its state is in " + stateFile_.string() + "." : lastLine_;
}

void LocalBackend::watch() {
    while (true) {
        relayErrors(running_.errors.get());
        {
            const std::lock_guard lock(mutex_);
            if (isEnding_) return;
            running_.process.terminate(); // reaped, and its port is free
            isRunning_ = false;
            changed_.notify_all();
            death_ = "The local backend, which this program had started, ended unexpectedly: " + lastWords();
            log::line("❌ [LOCAL BACKEND] {}", death_);
            if (!mayStartAgain()) return giveUp("it ended again and again, the last time so: " + lastWords());
        }
        try {
            Running next = launch(portOf(address_));
            const std::lock_guard lock(mutex_);
            if (isEnding_) return;
            running_ = std::move(next);
            isRunning_ = true;
            ++starts_;
            changed_.notify_all();
            log::line("✅ [LOCAL BACKEND] Started again at {}", address_);
        } catch (const std::exception& error) {
            const std::lock_guard lock(mutex_);
            if (!isEnding_) giveUp(describe(error));
            return;
        }
    }
}

/// With the lock held.
void LocalBackend::giveUp(const std::string& reason) {
    failure_ = "The local backend, which this program had started, is not started any more: " + reason;
    log::line("❌ [LOCAL BACKEND] {}", failure_);
    changed_.notify_all();
}

bool LocalBackend::mayStartAgain() {
    const auto now = steady_clock::now();
    while (!restarts_.empty() && now - restarts_.front() > restartPeriod)
        restarts_.pop_front();
    if (restarts_.size() == mostRestarts) return false;
    restarts_.push_back(now);
    return true;
}

int LocalBackend::waitUntilRunning() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isRunning_ || !failure_.empty(); });
    if (!failure_.empty()) throw LocalBackendError(failure_);
    return starts_;
}

std::exception_ptr LocalBackend::failureAfter(int start) {
    std::unique_lock lock(mutex_);
    const bool hasDied =
        changed_.wait_for(lock, newsOfADeath, [&] { return !isRunning_ || starts_ != start; });
    if (!hasDied) return nullptr;
    changed_.wait(lock, [this] { return isRunning_ || !failure_.empty(); });
    return std::make_exception_ptr(
        LocalBackendError(failure_.empty() ? death_ + " It was started again." : failure_));
}

} // namespace velto
