#pragma once

#include "app/VeltoApp.hpp"
#include "cli/Json.hpp"
#include "cli/Options.hpp"
#include "cli/Terminal.hpp"
#include "flows/BackgroundTasks.hpp"

#include <functional>
#include <string>

namespace velto::cli {

/// A command that could not do what it was asked: `what()` says in one line what is wrong and what helps.
/// Exit code 1.
class CommandFailed : public Error {
  public:
    using Error::Error;
};

/// The user stopped it. Exit code 130.
class CommandCancelled : public Error {
  public:
    explicit CommandCancelled(const std::string& text = "cancelled")
        : Error(text) {}
};

/// What a command works with; it outlives the command. Main actor.
struct Context {
    const Options& options;
    const Home& home;
    VeltoApp& app;
    Terminal& terminal;
    Executors executors;
    Clock& clock;
    BackgroundTasks interruptions;           ///< what interrupts started; awaited before the application goes
    std::optional<std::string> sessionError; ///< why a stored token led to no session
};

/// What a command leaves: standard output gets `json` with --json, or `jsonText` if that is given, else
/// `text`. A `failure` goes to standard error beside it and makes the exit code 1.
struct Output {
    std::string text;
    Json json;
    std::optional<std::string> failure;
    bool wasStopped = false; ///< by the user: exit code 130
    std::optional<std::string> jsonText =
        std::nullopt; ///< for what would be many times as large as one value
};

/// Runs the command to its end. Throws CommandFailed, CommandCancelled, or another Error whose text is the
/// user's.
Task<Output> runCommand(Context& context);

/// What an interrupt (Ctrl-C) does while the command runs.
enum class Interruption {
    handled,  ///< the command ends by itself, soon
    quitNow,  ///< nothing is under way that would be left half done
    mustWait, ///< files or the store are being written; a second interrupt ends the program all the same
};
Interruption interrupt(Context& context);

/// Stores what a tagging or clearing run has done so far, for a program that ends before its command does.
/// Returns what is lost, as a line for the user.
Task<std::string> storeUnfinished(Context& context);

/// Tries the stored token, and keeps why it did not lead to a session.
Task<void> restoreSession(Context& context);

// The commands, one function each.
Task<Output> addLibrary(Context& context);
Task<Output> listLibraries(Context& context);
Task<Output> removeLibrary(Context& context);
Task<Output> relocateLibrary(Context& context);
Task<Output> scan(Context& context);
Task<Output> check(Context& context);
Task<Output> forgetMissing(Context& context);
Task<Output> listTracks(Context& context);
Task<Output> tag(Context& context);
Task<Output> clearTags(Context& context);
Task<Output> markTagged(Context& context);
Task<Output> signIn(Context& context);
Task<Output> signOut(Context& context);
Task<Output> whoAmI(Context& context);
Task<Output> billing(Context& context);

/// Loads the store's lists. Throws CommandFailed if the store cannot be read.
Task<void> loadLists(Context& context);

/// Loads the store's lists and selects the library that was named, else the first. Throws CommandFailed if
/// there is none.
Task<LibraryRef> selectNamedLibrary(Context& context);

/// Throws CommandFailed, which says how to sign in or why the stored token is of no use, unless somebody is
/// signed in.
void requireSession(const Context& context);

/// Throws CommandFailed with the state object's error text if there is one.
void failOnError(const MainScreenViewModel& viewModel);

/// "1 track", "2 tracks".
[[nodiscard]] std::string plural(std::size_t count, const std::string& noun);

/// Says how many files were not written, if any, and where the log says why.
void complainOfUnwritten(Context& context, const std::string& what, std::int64_t files);

/// Shows the state object's progress while it lives.
[[nodiscard]] std::vector<Subscription> showProgress(const Context& context, MainScreenViewModel& viewModel);

/// Asks the question unless --yes was given. Throws CommandCancelled unless the answer is yes.
Task<void> confirm(Context& context, std::string question);

} // namespace velto::cli
