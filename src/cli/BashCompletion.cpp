#include "cli/Completion.hpp"

#include "cli/CompletionParts.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>

namespace velto::cli {

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

} // namespace velto::cli
