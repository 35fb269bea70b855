#include "cli/Commands.hpp"

#include "platform/text/Printable.hpp"

#include <algorithm>

namespace velto::cli {

namespace {

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

} // namespace

/// The files of the selected library that the last scan refused.
Output listErrors(Context& context) {
    Output output{{}, Json::array(), {}};
    const LibraryRef library = context.app.viewModel()->selectedLibrary;
    for (const FileItemRef& file : library->files) {
        if (file->status != FileStatus::error) continue;
        if (output.json.size() == context.options.limit.value_or(output.json.max_size())) break;
        const std::string reason = text::printable(file->errorMsg.value_or("The file could not be taken in"));
        output.json.push_back({{"path", text::printable(file->absPath)}, {"error", reason}});
        output.text += text::printable(file->relPath) + ": " + reason + "\n";
    }
    if (output.json.empty()) output.text = "No files with errors\n";
    return output;
}

Task<Output> listTracks(Context& context) {
    co_await selectNamedLibrary(context);
    if (context.options.errorsOnly) co_return listErrors(context);
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

Task<Output> clearTags(Context& context) {
    const auto viewModel = context.app.viewModel();
    co_await selectNamedLibrary(context);
    const auto tracks = distinctTracksOf(viewModel->selectedLibrary);
    const std::string question =
        "This will clear the tags of " + plural(tracks.size(), "track") + ". Continue?";
    co_await confirm(context, question);
    viewModel->errorMessage = std::nullopt;
    const auto progress = showProgress(context, *viewModel);
    const ClearingSummary summary = co_await viewModel->clearTags(tracks);
    complainOfUnwritten(context, "the genre could not be cleared from ", summary.unwrittenFiles);
    failOnError(*viewModel);
    const auto cleared = static_cast<std::size_t>(summary.cleared);
    Output output{"Cleared the tags of " + plural(cleared, "track") + ".\n", {{"cleared", cleared}}, {}};
    if (summary.wasStopped) {
        output.wasStopped = true;
        output.failure = "stopped; the tags of " + plural(tracks.size() - cleared, "track") + " stay";
    }
    co_return output;
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
