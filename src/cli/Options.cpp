#include "cli/Options.hpp"

#include "app/Home.hpp"
#include "cli/CommandTree.hpp"
#include "cli/Completion.hpp"
#include "cli/LibraryNames.hpp"
#include "cli/Manual.hpp"
#include "platform/text/Printable.hpp"
#include "store/Library.hpp"

#include <CLI/CLI.hpp>

#include <functional>
#include <iostream>

namespace velto::cli {

namespace {

constexpr int usageError = 2;

/// A text that says what is wrong with the value, or nothing.
std::string isNotEmpty(const std::string& value) {
    return value.empty() ? "must not be empty" : "";
}

/// The parser itself lets "-1" wrap around.
std::string isWholeNumber(const std::string& value) {
    const bool digits = value.find_first_not_of("0123456789") == std::string::npos;
    return digits ? "" : "\"" + value + "\" is not a whole number";
}

class Parser {
  public:
    Parser() {
        app_.require_subcommand(1);
        app_.set_version_flag("--version", std::string("veltoctl ") + VELTO_VERSION);
        app_.add_option("--home", options_.home, "Keep store, defaults and logs below this folder")
            ->envname("VELTO_HOME")
            ->type_name("DIR")
            ->check(isNotEmpty);
        app_.add_option("--backend", options_.backend, "Base address of the backend (default: the local one)")
            ->envname("VELTO_BACKEND_URL")
            ->type_name("URL");
        app_.add_option("--token-file", options_.tokenFile,
                        "Keep the token in this file (mode 0600) instead of the keyring")
            ->type_name("FILE")
            ->check(isNotEmpty);
        app_.add_flag("--json", options_.json, "Print one JSON value and nothing else on standard output");
        auto* quiet = app_.add_flag_callback(
            "--quiet", [this] { options_.verbosity = Verbosity::quiet; },
            "Nothing but failures on standard error: no progress");
        app_.add_flag_callback(
                "--verbose", [this] { options_.verbosity = Verbosity::verbose; },
                "Show the log's lines on standard error too")
            ->excludes(quiet);
        app_.fallthrough();
        app_.failure_message([](const CLI::App* app, const CLI::Error& error) {
            const auto unknown = app->remaining(true);
            const bool isNoCommand = error.get_name() == "RequiredError" && !unknown.empty();
            const std::string text =
                isNoCommand ? "there is no command '" + unknown.front() + "'" : error.what();
            return "velto: " + text::printable(text) + " (veltoctl --help)\n";
        });
        addLibraryCommands();
        addTrackCommands();
        addAccountCommands();
        addHiddenCommands();
    }

    std::variant<Options, int> parse(int argc, const char* const* argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app_.exit(error) == 0 ? 0 : usageError;
        }
        if (printed_) {
            std::cout << printed_();
            return std::cout.flush() ? 0 : 1;
        }
        return options_;
    }

  private:
    CLI::App* command(CLI::App& parent, const std::string& name, const std::string& text, Command what) {
        CLI::App* sub = parent.add_subcommand(name, text);
        sub->callback([this, what] { options_.command = what; });
        return sub;
    }

    CLI::App* libraryCommand(const std::string& name, const std::string& text, Command what) {
        CLI::App* sub = command(app_, name, text, what);
        sub->add_option("NAME", options_.library, "The library (default: the first by name)")->type_name("");
        return sub;
    }

    void addLimit(CLI::App* sub) {
        sub->add_option("--limit", options_.limit, "At most this many tracks")
            ->type_name("N")
            ->check(isWholeNumber);
    }

    void addLibraryCommands() {
        CLI::App* library = app_.add_subcommand("library", "Add, list and remove libraries");
        library->require_subcommand(1);
        library->fallthrough();
        CLI::App* add =
            command(*library, "add", "Make a folder of music a library and scan it", Command::libraryAdd);
        add->add_option("PATH", options_.folder, "The folder")->type_name("")->required()->check(isNotEmpty);
        add->add_option("--name", options_.library, "Its name (default: the folder's)")
            ->type_name("N")
            ->check(isNotEmpty);
        add->add_option("--include", options_.includeGlob,
                        "Files to take (default: " + std::string(defaultIncludeGlob) + ")")
            ->type_name("G");
        add->add_option("--exclude", options_.excludeGlob, "Files to leave out")->type_name("G");
        add->add_flag_callback(
            "--no-scan", [this] { options_.scanAfterAdding = false; }, "Do not scan it now");
        command(*library, "list", "List the libraries", Command::libraryList);
        CLI::App* remove =
            command(*library, "remove", "Forget a library; its music files stay where they are",
                    Command::libraryRemove);
        remove->add_option("NAME", options_.library, "The library")->type_name("")->required();
        CLI::App* relocate = command(*library, "relocate",
                                     "Say where a library's folder is now, if its drive is mounted elsewhere",
                                     Command::libraryRelocate);
        relocate->add_option("NAME", options_.library, "The library")->type_name("")->required();
        relocate->add_option("FOLDER", options_.folder, "Where its music is now")
            ->type_name("")
            ->required()
            ->check(isNotEmpty);
    }

    void addTrackCommands() {
        CLI::App* scan = libraryCommand("scan", "Read every file of a library and bring the store up to date",
                                        Command::scan);
        CLI::App* check = libraryCommand(
            "check", "Look for files that the store does not know; scan if there are any", Command::check);
        for (CLI::App* sub : {scan, check})
            sub->add_flag("--accept-missing", options_.acceptMissing,
                          "Do not ask before most files are marked as missing");
        CLI::App* tracks = libraryCommand("tracks", "List a library's tracks", Command::tracks);
        addLimit(tracks);
        tracks->add_flag("--errors", options_.errorsOnly,
                         "The files that could not be taken in, and why, instead of the tracks");
        CLI::App* tag = libraryCommand(
            "tag", "Tag the tracks that have no tags yet with AI genres, one credit each", Command::tag);
        addLimit(tag);
        CLI::Option* again =
            tag->add_flag("--again", options_.again, "Also the tracks that are tagged already");
        tag->add_flag("--failed", options_.failedOnly, "Only the tracks that the last run could not tag")
            ->excludes(again);
        CLI::App* clear = libraryCommand("clear-tags", "Take the tags out of the store and the files again",
                                         Command::clearTags);
        CLI::App* forget = libraryCommand(
            "forget-missing", "Forget a library's missing files, and the songs that have no other file",
            Command::forgetMissing);
        for (CLI::App* sub : {tag, clear, forget})
            sub->add_flag("-y,--yes", options_.yes, "Do not ask");
        libraryCommand("mark-tagged", "Mark a library's tracks as tagged, as they are", Command::markTagged);
    }

    void addAccountCommands() {
        command(app_, "sign-in", "Sign in: opens the web page, or takes the callback URL it ends with",
                Command::signIn)
            ->add_option("CALLBACK-URL", options_.callbackUrl,
                         "velto://auth?token=...; - reads it from standard input")
            ->type_name("");
        command(app_, "sign-out", "Sign out and clear the libraries and playlists from this computer's store",
                Command::signOut);
        command(app_, "whoami", "Show who is signed in and the credits left", Command::whoAmI);
        command(app_, "billing", "Open the page that sells credits", Command::billing);
    }

    /// For the package and for shells, not for people.
    void addHiddenCommands() {
        CLI::App* completion = app_.add_subcommand("completion", "What makes a shell complete veltoctl");
        completion->group("");
        completion->add_option("SHELL", completed_, "bash, zsh, fish; or libraries: their names")
            ->required()
            ->check(CLI::IsMember({"bash", "zsh", "fish", "libraries"}));
        completion->callback([this] { printed_ = [this] { return completionFor(completed_); }; });
        CLI::App* manual = app_.add_subcommand("manual", "The manual page");
        manual->group("");
        manual->callback(
            [this] { printed_ = [this] { return manualPage(commandTree(app_), VELTO_VERSION); }; });
    }

    [[nodiscard]] std::string completionFor(const std::string& what) const {
        if (what == "bash") return bashCompletion(commandTree(app_));
        if (what == "zsh") return zshCompletion(commandTree(app_));
        if (what == "fish") return fishCompletion(commandTree(app_));
        std::string lines;
        for (const auto& name : libraryNames(homeAt(options_.home).store))
            lines += name + "\n";
        return lines;
    }

    CLI::App app_{"A DJ's music library, scanned, tagged and kept", "veltoctl"};
    Options options_;
    std::string completed_;
    std::function<std::string()> printed_; ///< what is printed in place of running a command
};

} // namespace

std::variant<Options, int> parseOptions(int argc, const char* const* argv) {
    return Parser().parse(argc, argv);
}

} // namespace velto::cli
