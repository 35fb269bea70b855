#pragma once

#include "cli/CommandTree.hpp"

#include <string>

namespace velto::cli {

// What makes a shell complete veltoctl's command line: commands, options, folders and the names of libraries
// (which the script asks the program for, with `veltoctl completion libraries`).
[[nodiscard]] std::string bashCompletion(const CommandEntry& program);
[[nodiscard]] std::string zshCompletion(const CommandEntry& program);
[[nodiscard]] std::string fishCompletion(const CommandEntry& program);

} // namespace velto::cli
