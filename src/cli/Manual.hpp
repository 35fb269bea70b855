#pragma once

#include "cli/CommandTree.hpp"

#include <string>

namespace velto::cli {

/// veltoctl(1), as man and mandoc read it.
[[nodiscard]] std::string manualPage(const CommandEntry& program, const std::string& version);

} // namespace velto::cli
