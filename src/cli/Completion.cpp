#include "cli/Completion.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <set>
#include <string_view>

namespace velto::cli {

namespace {

/// A command with the words that lead to it, each with a space in front: " library add". Empty for the
/// program.
struct Place {
    std::string path;
    const CommandEntry* command;
};

void addPlaces(std::vector<Place>& places, const std::string& path, const CommandEntry& command) {
    places.push_back({path, &command});
    for (const auto& below : command.commands)
        addPlaces(places, path + " " + below.name, below);
}

std::vector<Place> placesOf(const CommandEntry& program) {
    std::vector<Place> places;
    addPlaces(places, "", program);
    return places;
}

/// The names of all options whose value is the next word, by the kind of the value.
std::set<std::string> optionsWith(const std::vector<Place>& places, std::set<ValueKind> kinds) {
    std::set<std::string> names;
    for (const auto& place : places)
        for (const auto& option : place.command->options)
            if (kinds.contains(option.value)) names.insert(option.names.begin(), option.names.end());
    return names;
}

std::set<std::string> optionsWithValue(const std::vector<Place>& places) {
    return optionsWith(places, {ValueKind::text, ValueKind::folder, ValueKind::file, ValueKind::library});
}

std::vector<std::string> quotedPaths(const std::vector<Place>& places, char quote) {
    std::vector<std::string> quoted;
    for (const auto& place : places)
        if (!place.path.empty()) quoted.push_back(quote + place.path + quote);
    return quoted;
}

std::string replaced(std::string text, std::string_view what, std::string_view by) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

} // namespace

// bash

namespace {

constexpr std::string_view bashStart =
    R"sh(# Completes veltoctl's command line in bash. Made by "veltoctl completion bash".

_veltoctl_libraries() {
    local name typed=$1
    local -a names
    shift
    mapfile -t names < <("$@" completion libraries 2>/dev/null)
    case $typed in
        [\"\']*)
            for name in "${names[@]}"; do
                [[ $name == "${typed:1}"* ]] && COMPREPLY+=("$name")
            done
            ;;
        *)
            for name in "${names[@]}"; do
                [[ $name == "${typed//\\/}"* ]] && COMPREPLY+=("$(printf %q "$name")")
            done
            ;;
    esac
}

_veltoctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command="" kind="" offered="" word i
    local -a program=("${COMP_WORDS[0]}")
    [[ $previous == = ]] && previous=${COMP_WORDS[COMP_CWORD - 2]}
    [[ $current == = ]] && current=""
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        case $word in
)sh";

constexpr std::string_view bashEnd = R"sh(    case $kind in
        none) ;;
        folder | file)
            compopt -o filenames 2>/dev/null
            [[ $kind == folder ]] && mapfile -t COMPREPLY < <(compgen -d -- "$current")
            [[ $kind == file ]] && mapfile -t COMPREPLY < <(compgen -f -- "$current")
            ;;
        library) _veltoctl_libraries "$current" "${program[@]}" ;;
        *) mapfile -t COMPREPLY < <(compgen -W "$offered" -- "$current") ;;
    esac
}

complete -F _veltoctl veltoctl
)sh";

const char* bashKind(ValueKind kind) {
    switch (kind) {
    case ValueKind::folder:
        return "folder";
    case ValueKind::file:
        return "file";
    case ValueKind::library:
        return "library";
    default:
        return "none";
    }
}

std::string namesOfOptions(const CommandEntry& command) {
    std::vector<std::string> names;
    for (const auto& option : command.options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return fmt::format("{}", fmt::join(names, " "));
}

std::string namesOfCommands(const CommandEntry& command) {
    std::vector<std::string> names;
    for (const auto& below : command.commands)
        names.push_back(below.name);
    return fmt::format("{}", fmt::join(names, " "));
}

} // namespace

std::string bashCompletion(const CommandEntry& program) {
    const auto places = placesOf(program);
    std::string script(bashStart);
    script +=
        fmt::format("            {})\n"
                    "                ((++i))\n"
                    "                [[ ${{COMP_WORDS[i]}} == = ]] && ((++i))\n"
                    "                [[ $word == --home ]] && program+=(--home \"${{COMP_WORDS[i]}}\")\n"
                    "                ;;\n"
                    "            -*) ;;\n"
                    "            *)\n"
                    "                case \"$command $word\" in\n"
                    "                    {}) command+=\" $word\" ;;\n"
                    "                esac\n"
                    "                ;;\n"
                    "        esac\n"
                    "    done\n",
                    fmt::join(optionsWithValue(places), " | "), fmt::join(quotedPaths(places, '"'), " | "));
    script += "    case $previous in\n";
    for (const auto kind : {ValueKind::folder, ValueKind::file, ValueKind::library, ValueKind::text}) {
        const auto names = optionsWith(places, {kind});
        if (!names.empty())
            script += fmt::format("        {}) kind={} ;;\n", fmt::join(names, " | "), bashKind(kind));
    }
    script += "    esac\n    if [[ -z $kind && $current == -* ]]; then\n        case $command in\n";
    const std::string common = namesOfOptions(program);
    for (const auto& [path, command] : places)
        script += fmt::format("            \"{}\") offered=\"{}{}\" ;;\n", path, namesOfOptions(*command),
                              path.empty() ? "" : " " + common);
    script += "        esac\n    elif [[ -z $kind ]]; then\n        case $command in\n";
    for (const auto& [path, command] : places) {
        if (!command->commands.empty())
            script += fmt::format("            \"{}\") offered=\"{}\" ;;\n", path, namesOfCommands(*command));
        else if (command->positional)
            script +=
                fmt::format("            \"{}\") kind={} ;;\n", path, bashKind(command->positional->value));
    }
    script += "        esac\n    fi\n";
    return script.append(bashEnd);
}

// zsh

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

/// What may stand inside the brackets of an _arguments specification that is in single quotes.
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

// fish

namespace {

std::string fishText(const std::string& text) {
    return "'" + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

std::string fishValue(ValueKind kind) {
    switch (kind) {
    case ValueKind::none:
        return "";
    case ValueKind::folder:
        return " -x -a '(__fish_complete_directories)'";
    case ValueKind::file:
        return " -r -F";
    case ValueKind::library:
        return " -x -a '(__veltoctl_libraries)'";
    case ValueKind::text:
        return " -x";
    }
    return "";
}

constexpr std::string_view fishStart =
    R"sh(# Completes veltoctl's command line in fish. Made by "veltoctl completion fish".

function __veltoctl_libraries
    set -l words (commandline -opc)
    set -l home (string match -- '--home=*' $words)
    if set -l at (contains -i -- --home $words)
        set home --home $words[(math $at + 1)]
    end
    $words[1] $home completion libraries 2>/dev/null
end

# Whether these are the commands that the line names so far.
function __veltoctl_at
    set -l words (commandline -opc)
    set -l command ''
    set -l isValue no
    for word in $words[2..]
        if test $isValue = yes
            set isValue no
            continue
        end
        switch $word
)sh";

} // namespace

std::string fishCompletion(const CommandEntry& program) {
    const auto places = placesOf(program);
    std::string script(fishStart);
    script +=
        fmt::format("            case {}\n                set isValue yes\n            case '-*'\n"
                    "            case '*'\n                switch \"$command $word\"\n"
                    "                    case {}\n                        set command \"$command $word\"\n"
                    "                end\n        end\n    end\n    test \"$command\" = \"$argv[1]\"\nend\n\n"
                    "complete -c veltoctl -f\n",
                    fmt::join(optionsWithValue(places), " "), fmt::join(quotedPaths(places, '\''), " "));
    for (const auto& [path, command] : places) {
        const std::string at = path.empty() ? "complete -c veltoctl"
                                            : "complete -c veltoctl -n '__veltoctl_at \"" + path + "\"'";
        for (const auto& option : command->options) {
            script += at;
            for (const auto& name : option.names)
                script += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            script += fishValue(option.value) + " -d " + fishText(option.text) + "\n";
        }
        for (const auto& below : command->commands)
            script += fmt::format("complete -c veltoctl -n '__veltoctl_at \"{}\"' -a {} -d {}\n", path,
                                  below.name, fishText(below.text));
        if (command->positional && command->positional->value != ValueKind::text)
            script += at + (command->positional->value == ValueKind::file ? " -F" : "") +
                      replaced(fishValue(command->positional->value), " -x", "") + " -d " +
                      fishText(command->positional->text) + "\n";
    }
    return script;
}

} // namespace velto::cli
