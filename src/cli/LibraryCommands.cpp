#include "cli/Commands.hpp"

#include "flows/LibraryCreationError.hpp"
#include "platform/text/Printable.hpp"
#include "platform/text/Text.hpp"
#include "scanning/ConcurrentScanner.hpp"

#include <algorithm>
#include <unordered_set>

namespace velto::cli {

namespace {

std::string summary(const ScanRunRef& run) {
    return fmt::format("Scanned {}: {} files, {} new, {} changed, {} missing, {} with errors.\n",
                       run->library ? text::printable(run->library->name) : "", run->totalSeen, run->newCount,
                       run->changedCount, run->missingCount, run->errorCount);
}

/// Why a library could not be read: its folder is away more often than anything else.
Task<std::string> failureAt(Context& context, LibraryRef library, std::string text) {
    const std::string root = library->rootPath;
    const auto isThere = [root] {
        std::error_code error;
        return std::filesystem::is_directory(root, error);
    };
    if (co_await offload(context.executors, isThere)) co_return text;
    co_return fmt::format(
        "the folder {} is not there: connect its drive; or say where it is now: veltoctl library "
        "relocate '{}' FOLDER",
        root, library->name);
}

/// The kind of failure that ended the scan, if the scanner itself has said so.
std::optional<ScannerError::Case> scannerFailure(const ScanOutcome& outcome) {
    try {
        if (outcome.failure) std::rethrow_exception(outcome.failure);
    } catch (const ScannerError& error) {
        return error.kind();
    } catch (const std::exception&) { // the text says it
    }
    return std::nullopt;
}

/// Whether the user lets a scan mark most files as missing.
Task<bool> acceptsMissing(Context& context, std::string text) {
    const auto asking = [&terminal = context.terminal, text] {
        return ask(terminal, text + ". Mark them as missing? [y/N]");
    };
    const auto answer = co_await offload(context.executors, asking);
    const std::string said = text::lowercased(text::trimmed(answer.value_or("")));
    co_return said == "y" || said == "yes";
}

Task<ScanRunRef> scanSelected(Context& context) {
    const auto viewModel = context.app.viewModel();
    viewModel->errorMessage = std::nullopt;
    if (context.sessionError && !context.app.backendFailure())
        context.terminal.complain("scanning without the backend's list of genres: " + *context.sessionError);
    const auto progress = showProgress(context, *viewModel);
    const LibraryRef library = viewModel->selectedLibrary;
    using Case = ScannerError::Case;
    ScanOutcome outcome = co_await viewModel->refreshSelectedLibrary(
        context.options.acceptMissing ? MissingFiles::accept : MissingFiles::ask);
    if (scannerFailure(outcome) == Case::manyFilesMissing) {
        if (!co_await acceptsMissing(context, viewModel->missingQuestion->value().text))
            throw CommandFailed(
                "nothing was changed: see that the whole drive is there, and scan again; or, if "
                "the files are gone: veltoctl scan --accept-missing");
        outcome = co_await viewModel->refreshSelectedLibrary(MissingFiles::accept);
    }
    co_await viewModel->backgroundWorkFinished();
    if (outcome) co_return outcome.run;
    const std::string text = viewModel->errorMessage->value_or("The scan failed");
    if (scannerFailure(outcome) == Case::scanCancelled)
        throw CommandCancelled("the scan was cancelled, nothing of it is stored");
    const std::string reason = co_await failureAt(context, library, text);
    throw CommandFailed(reason);
}

std::filesystem::path absoluteFolder(const std::filesystem::path& folder) {
    auto path = std::filesystem::absolute(folder).lexically_normal();
    return path.has_filename() ? path : path.parent_path();
}

std::string refusal(const LibraryCreationError& error, const std::string& name,
                    const std::filesystem::path& folder) {
    switch (error.kind()) {
    case LibraryCreationError::Case::notADirectory:
        return fmt::format("{} is not a folder", folder.string());
    case LibraryCreationError::Case::accessDenied:
        return fmt::format("the folder {} may not be read: its owner can allow it with chmod",
                           folder.string());
    case LibraryCreationError::Case::duplicateName:
        return fmt::format(
            "there is a library '{}' already: scan it, or give this one another name with --name", name);
    case LibraryCreationError::Case::emptyName:
        return "a library needs a name: give one with --name";
    case LibraryCreationError::Case::holdsNoneOfItsFiles:
        return fmt::format("{} has none of the files of '{}'", folder.string(), name);
    }
    return describe(error);
}

} // namespace

Task<Output> addLibrary(Context& context) {
    const auto viewModel = context.app.viewModel();
    requireSession(context);
    co_await loadLists(context);
    const auto folder = absoluteFolder(context.options.folder);
    const std::string usualName = (folder.has_filename() ? folder.filename() : folder).string();
    const std::string name = context.options.library.value_or(usualName);
    const std::string include = context.options.includeGlob.value_or(std::string(defaultIncludeGlob));
    LibraryRef library;
    try {
        library = co_await viewModel->addLibrary(name, folder, include, context.options.excludeGlob);
    } catch (const LibraryCreationError& error) {
        throw CommandFailed(refusal(error, name, folder));
    }
    failOnError(*viewModel);
    if (!library) throw CommandFailed("the library could not be added");
    Output output{
        fmt::format("Added {} ({}).\n", text::printable(library->name), text::printable(library->rootPath)),
        toJson(library, context.clock.now()),
        {}};
    output.json["scanRun"] = nullptr;
    if (context.options.scanAfterAdding) {
        const ScanRunRef run = co_await scanSelected(context);
        output.text += summary(run);
        output.json = toJson(library, context.clock.now());
        output.json["scanRun"] = toJson(run);
    }
    co_return output;
}

Task<Output> listLibraries(Context& context) {
    const auto viewModel = context.app.viewModel();
    co_await loadLists(context);
    Output output{{}, Json::array(), {}};
    const Date now = context.clock.now();
    for (const LibraryRef& library : viewModel->libraries.get()) {
        output.json.push_back(toJson(library, now));
        output.text += fmt::format("{}  {}  {}, {}\n", text::printable(library->name),
                                   text::printable(library->rootPath), library->trackCountText(),
                                   library->lastImportText(now));
    }
    if (viewModel->libraries->empty()) output.text = "No libraries\n";
    co_return output;
}

Task<Output> removeLibrary(Context& context) {
    const auto viewModel = context.app.viewModel();
    const LibraryRef library = co_await selectNamedLibrary(context);
    const std::string name = library->name;
    viewModel->errorMessage = std::nullopt;
    co_await viewModel->deleteLibrary(library);
    failOnError(*viewModel);
    co_return Output{"Removed " + text::printable(name) + ". Its music files are where they were.\n",
                     {{"name", name}},
                     {}};
}

Task<Output> relocateLibrary(Context& context) {
    const auto viewModel = context.app.viewModel();
    const LibraryRef library = co_await selectNamedLibrary(context);
    const auto folder = absoluteFolder(context.options.folder);
    viewModel->errorMessage = std::nullopt;
    bool isDone = false;
    try {
        isDone = co_await viewModel->relocateLibrary(library, folder);
    } catch (const LibraryCreationError& error) {
        throw CommandFailed(refusal(error, library->name, folder));
    }
    failOnError(*viewModel);
    if (!isDone) throw CommandFailed("the library could not be relocated");
    co_return Output{
        fmt::format("{} is in {} now.\n", text::printable(library->name), text::printable(library->rootPath)),
        toJson(library, context.clock.now()),
        {}};
}

Task<Output> forgetMissing(Context& context) {
    const auto viewModel = context.app.viewModel();
    const LibraryRef library = co_await selectNamedLibrary(context);
    std::unordered_set<TrackRef> songs;
    const auto missing = missingFilesOf(library);
    for (const FileItemRef& file : missing) {
        const TrackRef track = file->track;
        const auto isMissing = [](const FileItemRef& each) { return each->status == FileStatus::missing; };
        if (track && std::all_of(track->files.begin(), track->files.end(), isMissing)) songs.insert(track);
    }
    if (missing.empty()) co_return Output{"No missing files.\n", {{"forgotten", 0}}, {}};
    const std::string question =
        fmt::format("This will forget {}, and {} that have no other file, with their tags and playlist "
                    "entries. Continue?",
                    plural(missing.size(), "missing file"), plural(songs.size(), "song"));
    co_await confirm(context, question);
    viewModel->errorMessage = std::nullopt;
    const auto forgotten = co_await viewModel->forgetMissing(library);
    co_await viewModel->backgroundWorkFinished();
    if (!forgotten) failOnError(*viewModel);
    co_return Output{"Forgot " + plural(forgotten.value_or(0), "missing file") + ".\n",
                     {{"forgotten", forgotten.value_or(0)}},
                     {}};
}

Task<Output> scan(Context& context) {
    co_await selectNamedLibrary(context);
    const ScanRunRef run = co_await scanSelected(context);
    co_return Output{summary(run), toJson(run), {}};
}

Task<Output> check(Context& context) {
    const LibraryRef library = co_await selectNamedLibrary(context);
    const auto viewModel = context.app.viewModel();
    const auto counted = co_await viewModel->countNewFiles(library);
    if (!counted) {
        const std::string text = viewModel->errorMessage->value_or("The check failed");
        const std::string reason = co_await failureAt(context, library, text);
        throw CommandFailed(reason);
    }
    const std::size_t found = *counted;
    Output output{fmt::format("{} new file{}.\n", found, found == 1 ? "" : "s"),
                  {{"newFiles", found}, {"scanRun", nullptr}},
                  {}};
    if (found == 0) co_return output;
    co_await restoreSession(context); // the scan asks for the vocabulary
    const ScanRunRef run = co_await scanSelected(context);
    output.text += summary(run);
    output.json["scanRun"] = toJson(run);
    co_return output;
}

} // namespace velto::cli
