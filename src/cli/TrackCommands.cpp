#include "cli/Commands.hpp"

#include "platform/text/Printable.hpp"

#include <algorithm>

namespace velto::cli {

namespace {

std::string plural(std::size_t count, const std::string& noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string line(const TrackRef& track) {
    std::string text =
        track->artist.value_or("Unknown Artist") + " - " + track->title.value_or("Unknown Title");
    if (track->album) text += " [" + *track->album + "]";
    if (track->genre) text += "  " + *track->genre;
    text += track->lastTagged ? "  (tagged)" : "";
    if (const FileStatus status = track->status(); status != FileStatus::ready)
        text += fmt::format("  ({})", rawValue(status));
    return text::printable(text) + "\n";
}

void complainOfUnwritten(Context& context, const std::string& what, std::int64_t files) {
    if (files > 0)
        context.terminal.complain(what + plural(static_cast<std::size_t>(files), "file") + "; why is in " +
                                  context.home.log.string());
}

} // namespace

Task<Output> listTracks(Context& context) {
    co_await selectNamedLibrary(context);
    auto tracks = distinctTracksOf(context.app.viewModel()->selectedLibrary);
    tracks.resize(std::min(tracks.size(), context.options.limit.value_or(tracks.size())));
    Output output;
    if (context.options.json) {
        output.jsonText = printedArray(tracks);
        co_return output;
    }
    for (const TrackRef& track : tracks)
        output.text += line(track);
    co_return output;
}

Task<Output> tag(Context& context) {
    const auto viewModel = context.app.viewModel();
    co_await selectNamedLibrary(context);
    const auto tracks = distinctTracksOf(viewModel->selectedLibrary);
    if (tracks.empty()) throw CommandFailed("No tracks selected");
    // Whoever is signed out is asked for no credits; without a connection the tagging itself says what is
    // wrong.
    if (!viewModel->userSession->isSignedIn && !context.sessionError)
        throw CommandFailed("Authentication required. Please sign in to tag tracks.");
    const std::string question = "This will use " + plural(tracks.size(), "credit") + ". Continue?";
    co_await confirm(context, question);
    viewModel->errorMessage = std::nullopt;
    const auto progress = showProgress(context, *viewModel);
    const TaggingSummary summary = co_await viewModel->tagTracks(tracks);
    std::optional<std::string> message = viewModel->errorMessage;
    if (!message && summary.tagged == 0)
        message = summary.errors.empty() ? "No tracks were tagged"
                                         : fmt::format("{}", fmt::join(summary.errors, "\n"));
    co_await viewModel->backgroundWorkFinished();
    if (!message && viewModel->errorMessage.get()) context.terminal.say(*viewModel->errorMessage.get());
    complainOfUnwritten(context, "the genre could not be written to ", summary.unwrittenFiles);
    Output output;
    output.json = {{"tagged", summary.tagged},
                   {"credits", summary.credits},
                   {"errors", summary.errors},
                   {"message", message ? Json(*message) : Json(nullptr)}};
    if (summary.tagged > 0)
        output.text =
            fmt::format("Tagged {} using {}.\n", plural(static_cast<std::size_t>(summary.tagged), "track"),
                        plural(static_cast<std::size_t>(summary.credits), "credit"));
    output.failure = message;
    co_return output;
}

Task<Output> clearTags(Context& context) {
    const auto viewModel = context.app.viewModel();
    co_await selectNamedLibrary(context);
    const auto tracks = distinctTracksOf(viewModel->selectedLibrary);
    const std::string question =
        "This will clear the tags of " + plural(tracks.size(), "track") + ". Continue?";
    co_await confirm(context, question);
    viewModel->errorMessage = std::nullopt;
    const auto progress = showProgress(context, *viewModel);
    const std::int64_t unwritten = co_await viewModel->clearTags(tracks);
    complainOfUnwritten(context, "the genre could not be cleared from ", unwritten);
    failOnError(*viewModel);
    co_return Output{
        "Cleared the tags of " + plural(tracks.size(), "track") + ".\n", {{"cleared", tracks.size()}}, {}};
}

Task<Output> markTagged(Context& context) {
    const auto viewModel = context.app.viewModel();
    co_await selectNamedLibrary(context);
    const auto tracks = distinctTracksOf(viewModel->selectedLibrary);
    viewModel->errorMessage = std::nullopt;
    co_await viewModel->markTracksAsTagged(tracks);
    failOnError(*viewModel);
    co_return Output{
        "Marked " + plural(tracks.size(), "track") + " as tagged.\n", {{"marked", tracks.size()}}, {}};
}

} // namespace velto::cli
