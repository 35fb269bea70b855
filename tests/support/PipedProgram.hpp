#pragma once

#include "platform/files/Descriptor.hpp"

#include <string>
#include <sys/types.h>
#include <vector>

namespace velto::test {

/// A program that runs alongside its test, which ends it and waits for it.
struct PipedProgram {
    pid_t process = -1;
    files::Descriptor input;  ///< Feeds its standard input.
    files::Descriptor output; ///< What it writes to the stream.
};

/// Starts the program with the other ends of two pipes at its standard input and at `stream` (standard output
/// or error); throws if it cannot be started.
[[nodiscard]] PipedProgram startPiped(const std::vector<std::string>& arguments, int stream);

/// The numbers of a process's own children.
[[nodiscard]] std::vector<pid_t> childrenOf(pid_t process);

} // namespace velto::test
