#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace velto::cli {

/// What an option's value is, and so what a shell can offer for it.
enum class ValueKind { none, text, folder, file, library };

struct OptionEntry {
    std::vector<std::string> names; ///< "-y", "--yes"; empty for a positional
    std::string placeholder;        ///< "DIR"; empty for a flag
    ValueKind value = ValueKind::none;
    bool isRequired = false;
    std::string environment; ///< the variable that stands in for it; empty for none
    std::string text;
};

/// A command with what it takes. The root is the program itself; a group ("library") has commands below it.
struct CommandEntry {
    std::string name;
    std::string text;
    std::vector<OptionEntry> options;
    std::optional<OptionEntry> positional; ///< no command takes more than one
    std::vector<CommandEntry> commands;
};

/// The parser's own table of commands and options, without those that are hidden from its help: the help, the
/// completions and the manual all say the same.
[[nodiscard]] CommandEntry commandTree(const CLI::App& app);

} // namespace velto::cli
