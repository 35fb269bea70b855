#pragma once

#include "platform/core/Date.hpp"
#include "platform/files/Descriptor.hpp"

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace velto::files {

/// What a program printed, and how it ended.
struct ProcessOutput {
    int status = 0; ///< exit status, or 128 + the signal that ended it
    std::string standardOutput;
    std::string standardError;
};

/// Runs a program to its end; blocks, so call it on the pool. `arguments` begins with the program's absolute
/// path; they reach it unchanged, without a shell. Both outputs are collected while it runs, so that it
/// never waits for a reader; a program that prints more than `outputLimitBytes` on one of them is killed.
/// Standard input is empty, and no descriptor but the three standard streams is inherited. Throws SystemError
/// if the program cannot be started or prints too much (EFBIG).
[[nodiscard]] ProcessOutput runProcess(const std::vector<std::string>& arguments,
                                       std::size_t outputLimitBytes = std::size_t{512} << 20);

/// Starts a program that goes on by itself, also when this process ends: it has a session of its own and
/// /dev/null for its standard streams. Blocks until it is started; whether it then does its work is unknown.
/// Throws SystemError if nothing can be started.
void startDetached(std::vector<std::string> arguments);

/// A helper program that lives as long as this object. Its standard input is a pipe that stays open, so that
/// a child that watches it ends also when this process is killed. It has a process group of its own: an
/// interrupt typed at the terminal does not reach it. Move-only.
class ChildProcess {
  public:
    /// Standard error goes to the descriptor, which the child gets a copy of; -1 is /dev/null. Throws
    /// SystemError if the program cannot be started.
    static ChildProcess start(const std::vector<std::string>& arguments, int standardError = -1);

    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;
    ~ChildProcess();

    /// The first line of standard output, without its line feed; absent if the child ends, prints
    /// 64 KiB without a line feed, or is silent until `deadline` has passed. Blocks. What the child prints
    /// later is not read: a child that prints more than a pipe holds (64 KiB) waits forever.
    [[nodiscard]] std::optional<std::string> readFirstLine(Seconds deadline);

    [[nodiscard]] bool isRunning();

    /// The process's number; -1 once it has been seen to end.
    [[nodiscard]] pid_t identifier() const { return child_; }

    /// Closes the child's standard input, asks it to end (SIGTERM), kills it after two seconds, and reaps it.
    /// Done by the destructor as well.
    void terminate();

  private:
    ChildProcess(pid_t child, Descriptor input, Descriptor output);

    pid_t child_ = -1;
    Descriptor input_;
    Descriptor output_;
};

} // namespace velto::files
