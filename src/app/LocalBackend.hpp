#pragma once

#include "platform/core/Error.hpp"
#include "platform/files/ChildProcess.hpp"
#include "platform/files/Descriptor.hpp"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>

namespace velto {

/// The local backend cannot be had, or ended while it was needed; the text says that it was the program's own
/// backend, and what that said last.
class LocalBackendError : public Error {
  public:
    using Error::Error;
};

/// The backend that comes with the program, as a child process on a loopback port. It ends with this object,
/// and with this process when that is killed: it watches its standard input. If it dies it is started again
/// on the same port, up to three times a minute. What it prints on standard error goes to the log. Any thread
/// may call.
class LocalBackend {
  public:
    /// Starts `velto-backend`, which lies beside this program, with its state in `stateFile`, and waits for
    /// the address that it prints. Blocks up to 10 s. Throws LocalBackendError.
    explicit LocalBackend(std::filesystem::path stateFile);
    ~LocalBackend();
    LocalBackend(const LocalBackend&) = delete;
    LocalBackend& operator=(const LocalBackend&) = delete;

    /// "http://127.0.0.1:PORT", without a slash at its end; the same as long as this object lives.
    [[nodiscard]] const std::string& address() const { return address_; }

    /// Waits while it is being started again. Returns the number of its starts, which `failureAfter` takes.
    /// Blocks up to 10 s. Throws LocalBackendError once it is not started any more.
    int waitUntilRunning();

    /// For a request that failed after it had been running in that start: null if it still is, else the
    /// LocalBackendError that says so. Blocks a moment for the news of a death, then up to 10 s until it is
    /// clear how it goes on.
    [[nodiscard]] std::exception_ptr failureAfter(int start);

  private:
    struct Running {
        files::ChildProcess process;
        files::Descriptor errors;
        std::string address;
    };

    [[nodiscard]] Running launch(const std::string& port);
    void relayErrors(int errors);
    void watch();
    void giveUp(const std::string& reason);
    [[nodiscard]] bool mayStartAgain();
    [[nodiscard]] std::string lastWords() const;

    const std::filesystem::path stateFile_;
    std::string lastLine_; ///< of its standard error; of the thread that launches and watches
    Running running_;
    const std::string address_;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isRunning_ = true;
    bool isEnding_ = false;
    int starts_ = 1;
    std::string failure_; ///< why it is not started any more; empty for none
    std::string death_;   ///< what a request under way at its latest death fails with
    std::deque<std::chrono::steady_clock::time_point> restarts_;
    std::thread watcher_;
};

} // namespace velto
