#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>

namespace velto::cli {

enum class Command {
    libraryAdd,
    libraryList,
    libraryRemove,
    libraryRelocate,
    scan,
    check,
    forgetMissing,
    tracks,
    tag,
    clearTags,
    markTagged,
    signIn,
    signOut,
    whoAmI,
    billing,
};

/// What standard error shows beside failures and questions.
enum class Verbosity {
    quiet,   ///< nothing
    usual,   ///< progress
    verbose, ///< progress and the log's lines
};

/// What the command line said, checked for form only.
struct Options {
    std::optional<std::filesystem::path> home;
    std::optional<std::string> backend;
    std::optional<std::filesystem::path> tokenFile;
    bool json = false;
    Verbosity verbosity = Verbosity::usual;

    Command command = Command::libraryList;
    std::filesystem::path folder;           ///< library add, library relocate
    std::optional<std::string> library;     ///< the library's name; none means the first one
    std::optional<std::string> includeGlob; ///< library add
    std::optional<std::string> excludeGlob; ///< library add
    bool scanAfterAdding = true;            ///< library add
    bool acceptMissing = false;             ///< scan, check: most files may become missing
    bool errorsOnly = false;                ///< tracks: the files that could not be taken in
    std::optional<std::size_t> limit;       ///< tracks, tag
    bool again = false;                     ///< tag: also what is tagged already
    bool failedOnly = false;                ///< tag: only what the last run could not
    bool yes = false;                       ///< tag, clear-tags, forget-missing: do not ask
    std::optional<std::string> callbackUrl; ///< sign-in
};

/// The options, or the exit code of a run that ends here: 0 after help, version, a completion script or the
/// manual, 2 after wrong usage. What is to be read has been printed by then. VELTO_HOME and VELTO_BACKEND_URL
/// stand in for missing options.
std::variant<Options, int> parseOptions(int argc, const char* const* argv);

} // namespace velto::cli
