#include "cli/Completion.hpp"

#include "cli/CompletionParts.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>

namespace velto::cli {

namespace {

constexpr std::string_view zshStart = R"sh(#compdef veltoctl
# Completes veltoctl's command line in zsh. Made by "veltoctl completion zsh".

_veltoctl_libraries() {
  local -a names home
  [[ -n $veltoctl_home ]] && home=(--home ${(Q)veltoctl_home})
  names=(${(f)"$(_call_program libraries veltoctl ${(q)home} completion libraries 2>/dev/null)"})
  _wanted libraries expl library compadd -a names
}

)sh";

/// What may be inside the brackets of an argument of _arguments that is in single quotes.
std::string zshText(std::string text) {
    for (const std::string_view special : {"\\", "[", "]", ":"})
        text = replaced(text, special, "\\" + std::string(special));
    return replaced(text, "'", "'\\''");
}

std::string zshAction(const OptionEntry& entry) {
    switch (entry.value) {
    case ValueKind::none:
        return "";
    case ValueKind::folder:
        return ":" + entry.placeholder + ":_files -/";
    case ValueKind::file:
        return ":" + entry.placeholder + ":_files";
    case ValueKind::library:
        return ":" + entry.placeholder + ":_veltoctl_libraries";
    case ValueKind::text:
        return ":" + entry.placeholder + ": ";
    }
    return "";
}

/// The arguments of _arguments that stand for the command's options, one a line.
std::string zshOptions(const CommandEntry& command) {
    std::string lines;
    for (const auto& option : command.options) {
        const bool hasValue = option.value != ValueKind::none;
        std::vector<std::string> specified;
        for (const auto& name : option.names)
            specified.push_back(name + (hasValue && name.starts_with("--") ? "=" : ""));
        const std::string names =
            specified.size() == 1
                ? "'" + specified.front()
                : fmt::format("'({})'{{{}}}'", fmt::join(option.names, " "), fmt::join(specified, ","));
        lines += fmt::format("    {}[{}]{}'\n", names, zshText(option.text), zshAction(option));
    }
    return lines;
}

std::string zshFunctionName(const std::string& path) {
    return "_veltoctl" + replaced(replaced(path, " ", "_"), "-", "_");
}

} // namespace

std::string zshCompletion(const CommandEntry& program) {
    std::string script(zshStart);
    script += "_veltoctl_common=(\n" + zshOptions(program) + ")\n\n";
    for (const auto& [path, command] : placesOf(program)) {
        script += zshFunctionName(path) + "() {\n";
        if (command->commands.empty()) {
            script += "  local -a own=(\n" + zshOptions(*command) + "  )\n";
            script += "  _arguments $own $_veltoctl_common";
            if (command->positional)
                script += fmt::format(
                    " '{}{}'", command->positional->isRequired ? "1" : "1:", zshAction(*command->positional));
            script += "\n}\n\n";
            continue;
        }
        script += "  local curcontext=$curcontext state state_descr line\n  local -A opt_args\n";
        if (path.empty()) script += "  local veltoctl_home\n";
        script += "  local -a subcommands=(\n";
        for (const auto& below : command->commands)
            script += fmt::format("    '{}:{}'\n", below.name,
                                  replaced(replaced(below.text, ":", "\\:"), "'", "'\\''"));
        script += "  )\n  local -a own=(\n" + (path.empty() ? "" : zshOptions(*command)) + "  )\n";
        script += "  _arguments -C $own $_veltoctl_common '1:command:->command' '*::argument:->argument'\n";
        if (path.empty())
            script += "  veltoctl_home=${opt_args[--home]}\n";
        else
            script += "  veltoctl_home=${veltoctl_home:-${opt_args[--home]}}\n";
        script += "  case $state in\n    command) _describe command subcommands ;;\n    argument)\n"
                  "      case $line[1] in\n";
        for (const auto& below : command->commands)
            script +=
                fmt::format("        {}) {} ;;\n", below.name, zshFunctionName(path + " " + below.name));
        script += "      esac\n      ;;\n  esac\n}\n\n";
    }
    return script + "_veltoctl \"$@\"\n";
}

} // namespace velto::cli
