#include "cli/Completion.hpp"

#include "cli/CompletionParts.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>

namespace velto::cli {

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
