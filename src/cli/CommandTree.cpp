#include "cli/CommandTree.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace velto::cli {

namespace {

/// The placeholder says what is meant: that is what the help shows, too.
ValueKind kindOf(const std::string& placeholder) {
    if (placeholder.empty()) return ValueKind::none;
    if (placeholder == "DIR" || placeholder == "PATH") return ValueKind::folder;
    if (placeholder == "FILE") return ValueKind::file;
    if (placeholder == "NAME") return ValueKind::library;
    return ValueKind::text;
}

OptionEntry entryOf(const CLI::Option& option) {
    OptionEntry entry;
    for (const auto& name : option.get_snames())
        entry.names.push_back("-" + name);
    for (const auto& name : option.get_lnames())
        entry.names.push_back("--" + name);
    if (entry.names.empty())
        entry.placeholder = option.get_name(true);
    else if (option.get_expected_max() > 0) // a flag takes no value
        entry.placeholder = option.get_type_name();
    entry.value = kindOf(entry.placeholder);
    entry.isRequired = option.get_required();
    entry.environment = option.get_envname();
    entry.text = option.get_description();
    return entry;
}

} // namespace

CommandEntry commandTree(const CLI::App& app) {
    CommandEntry entry;
    entry.name = app.get_name();
    entry.text = app.get_description();
    for (const CLI::Option* option : app.get_options()) {
        // Every command has its own help option; the program's stands for all of them.
        const bool isRepeated = app.get_parent() != nullptr && option == app.get_help_ptr();
        if (isRepeated || option->get_group().empty()) continue;
        if (option->nonpositional())
            entry.options.push_back(entryOf(*option));
        else
            entry.positional = entryOf(*option);
    }
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        if (!command->get_group().empty()) entry.commands.push_back(commandTree(*command));
    return entry;
}

} // namespace velto::cli
