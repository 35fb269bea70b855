#include "cli/Manual.hpp"

#include <fmt/format.h>

#include <string_view>

namespace velto::cli {

namespace {

/// Text for the formatter: a backslash, a hyphen that must stay one, and a dot or quote that starts a line
/// all mean something to it.
std::string roff(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    return out.starts_with('.') || out.starts_with('\'') ? "\\&" + out : out;
}

std::string bold(std::string_view text) {
    return "\\fB" + roff(text) + "\\fR";
}

std::string italic(std::string_view text) {
    return "\\fI" + roff(text) + "\\fR";
}

std::string heading(const OptionEntry& option) {
    std::string line;
    for (const auto& name : option.names)
        line += (line.empty() ? "" : ", ") + bold(name);
    if (!option.placeholder.empty()) line += (line.empty() ? "" : " ") + italic(option.placeholder);
    return line;
}

std::string section(const OptionEntry& option) {
    std::string text = roff(option.text) + ".";
    if (!option.environment.empty()) text += " Without it, " + bold(option.environment) + " stands in.";
    return ".TP\n" + heading(option) + "\n" + text + "\n";
}

void addCommands(std::string& page, const std::string& path, const CommandEntry& command) {
    if (!command.commands.empty()) {
        for (const auto& below : command.commands)
            addCommands(page, path + below.name + " ", below);
        return;
    }
    page += ".SS \"" + roff(path.substr(0, path.size() - 1)) + " [options]";
    if (command.positional)
        page += command.positional->isRequired ? " " + roff(command.positional->placeholder)
                                               : " [" + roff(command.positional->placeholder) + "]";
    page += "\"\n" + roff(command.text) + ".\n";
    if (command.positional) page += section(*command.positional);
    for (const auto& option : command.options)
        page += section(option);
}

constexpr std::string_view afterwards = R"(.SH EXIT STATUS
.TP
.B 0
Done.
.TP
.B 1
Failed, or left something undone; standard error says in one line what and
what helps.
.TP
.B 2
Wrong usage.
.TP
.B 130
Cancelled.
.SH FILES
.TP
.I $XDG_DATA_HOME/velto
The store (velto.store), the journals of files that are being rewritten and of
tags that are asked for, and the state of the local backend.
Usually ~/.local/share/velto.
.TP
.I $XDG_CONFIG_HOME/velto
User defaults: which folders may be read. Usually ~/.config/velto.
.TP
.I $XDG_STATE_HOME/velto/velto.log
What the program did, a line each. Usually in ~/.local/state/velto.
.PP
The token that sign\-in leaves lies in the desktop's keyring, or in the file
that \fB\-\-token\-file\fR names.
.SH EXAMPLES
.nf
veltoctl sign\-in
veltoctl library add ~/Music/House
veltoctl tracks House \-\-limit 20
veltoctl tag House
.fi
)";

} // namespace

std::string manualPage(const CommandEntry& program, const std::string& version) {
    std::string page =
        fmt::format(".TH VELTOCTL 1 \"\" \"Velto {}\" \"User Commands\"\n"
                    ".SH NAME\n{} \\- {}\n"
                    ".SH SYNOPSIS\n.B {}\n[options] command [argument]\n"
                    ".SH DESCRIPTION\n"
                    "Makes folders of music libraries, scans them, asks a backend for genre, region and era "
                    "tags, keeps all of it in a store and writes the genres into the files. Without a "
                    "backend address it starts one of its own on this machine.\n"
                    ".SH OPTIONS\nThese go with every command.\n",
                    roff(version), program.name, roff(program.text), program.name);
    for (const auto& option : program.options)
        page += section(option);
    page += ".SH COMMANDS\n";
    addCommands(page, "", program);
    return page.append(afterwards);
}

} // namespace velto::cli
