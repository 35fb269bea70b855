#include "cli/Commands.hpp"

#include "platform/model/InBackground.hpp"
#include "platform/text/Text.hpp"

#include <fmt/ranges.h>

#include <algorithm>

namespace velto::cli {

Task<Output> runCommand(Context& context) {
    switch (context.options.command) {
    case Command::libraryAdd:
        return addLibrary(context);
    case Command::libraryList:
        return listLibraries(context);
    case Command::libraryRemove:
        return removeLibrary(context);
    case Command::libraryRelocate:
        return relocateLibrary(context);
    case Command::scan:
        return scan(context);
    case Command::check:
        return check(context);
    case Command::forgetMissing:
        return forgetMissing(context);
    case Command::tracks:
        return listTracks(context);
    case Command::tag:
        return tag(context);
    case Command::clearTags:
        return clearTags(context);
    case Command::markTagged:
        return markTagged(context);
    case Command::signIn:
        return signIn(context);
    case Command::signOut:
        return signOut(context);
    case Command::whoAmI:
        return whoAmI(context);
    case Command::billing:
        return billing(context);
    }
    throw CommandFailed("Unknown command");
}

Interruption interrupt(Context& context) {
    const auto viewModel = context.app.viewModel();
    if (viewModel->scanProgress.get()) {
        context.interruptions.start(viewModel->cancelScan());
        return Interruption::handled;
    }
    if (viewModel->taggingProgress.get() || viewModel->clearingProgress.get()) {
        viewModel->stopTagging();
        return Interruption::mustWait;
    }
    switch (context.options.command) { // these save more than once
    case Command::libraryRemove:
    case Command::libraryRelocate:
    case Command::forgetMissing:
    case Command::signOut:
        return Interruption::mustWait;
    default:
        return Interruption::quitNow;
    }
}

Task<std::string> storeUnfinished(Context& context) {
    const auto viewModel = context.app.viewModel();
    // A scan, a removal or a signing-out is stored as a whole or taken up by the next start.
    if (!viewModel->taggingProgress.get() && !viewModel->clearingProgress.get())
        co_return std::string("stopped");
    const std::int64_t lost = co_await viewModel->storeTagsNow();
    if (lost == 0) co_return std::string("stopped; what was done is stored");
    co_return "stopped; the tags of " + plural(static_cast<std::size_t>(lost), "track") +
        " that may have been paid for are lost; which ones is in " + context.home.log.string();
}

namespace {

Task<void> loadStore(Context& context) {
    try {
        co_await model::loadInBackground(context.app.sharedModelContainer().mainContext(), context.executors);
    } catch (const std::exception& error) {
        throw CommandFailed("Failed to load libraries: " + describe(error));
    }
}

std::string unknownLibrary(const std::string& name, const std::vector<LibraryRef>& libraries) {
    if (libraries.empty()) return "there is no library yet, add one: veltoctl library add FOLDER";
    constexpr std::size_t mostNamed = 10;
    std::vector<std::string> names;
    for (std::size_t i = 0; i < std::min(libraries.size(), mostNamed); ++i)
        names.push_back("'" + libraries[i]->name + "'");
    if (libraries.size() > mostNamed)
        names.push_back(fmt::format("{} more (veltoctl library list)", libraries.size() - mostNamed));
    return fmt::format("there is no library '{}', there is {}", name, fmt::join(names, ", "));
}

} // namespace

Task<void> loadLists(Context& context) {
    co_await loadStore(context);
    const auto viewModel = context.app.viewModel();
    co_await viewModel->loadData();
}

Task<LibraryRef> selectNamedLibrary(Context& context) {
    const auto viewModel = context.app.viewModel();
    const auto& name = context.options.library;
    if (name) {
        co_await loadStore(context);
        // Selected before the load, so that only this library's folder is reached for.
        const auto named =
            context.app.sharedModelContainer().mainContext().findUnique<Library>("name", *name);
        if (!named) {
            co_await loadLists(context);
            throw CommandFailed(unknownLibrary(*name, viewModel->libraries));
        }
        viewModel->selectedLibrary = named;
    }
    co_await loadLists(context);
    if (!viewModel->selectedLibrary.get()) {
        failOnError(*viewModel);
        throw CommandFailed("there is no library yet, add one: veltoctl library add FOLDER");
    }
    co_return viewModel->selectedLibrary;
}

void failOnError(const MainScreenViewModel& viewModel) {
    if (viewModel.errorMessage.get()) throw CommandFailed(*viewModel.errorMessage.get());
}

std::string plural(std::size_t count, const std::string& noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

void complainOfUnwritten(Context& context, const std::string& what, std::int64_t files) {
    if (files > 0)
        context.terminal.complain(what + plural(static_cast<std::size_t>(files), "file") + "; why is in " +
                                  context.home.log.string());
}

std::vector<Subscription> showProgress(const Context& context, MainScreenViewModel& viewModel) {
    std::vector<Subscription> subscriptions;
    subscriptions.push_back(viewModel.scanProgress.subscribe(
        [&terminal = context.terminal](const std::optional<ScanProgress>& progress) {
            progress ? terminal.progress(*progress) : terminal.endProgress();
        }));
    const auto shows = [&terminal = context.terminal, &clock = context.clock](const char* what) {
        return [&terminal, &clock, what](const std::optional<TaggingProgress>& progress) {
            if (!progress) return terminal.endProgress();
            const double elapsed = clock.secondsSince(progress->startTime);
            std::optional<double> left;
            if (progress->completedTracks > 0)
                left = estimatedTimeRemaining(elapsed, progress->completedTracks, progress->totalTracks);
            terminal.progress(what, progress->completedTracks, progress->totalTracks, left);
        };
    };
    subscriptions.push_back(viewModel.taggingProgress.subscribe(shows("Writing tags...")));
    subscriptions.push_back(viewModel.clearingProgress.subscribe(shows("Clearing tags...")));
    return subscriptions;
}

Task<void> confirm(Context& context, std::string question) {
    if (context.options.yes) co_return;
    const auto asking = [&terminal = context.terminal, question] {
        return ask(terminal, question + " [y/N]");
    };
    const auto answer = co_await offload(context.executors, asking);
    const std::string said = text::lowercased(text::trimmed(answer.value_or("")));
    if (said != "y" && said != "yes") throw CommandCancelled();
}

} // namespace velto::cli
