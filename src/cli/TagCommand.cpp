#include "cli/Commands.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace velto::cli {

namespace {

constexpr std::size_t mostReasons = 3;

/// What a run asks for, and how many tracks it leaves out.
struct Selection {
    std::vector<TrackRef> tracks;
    std::size_t tagged = 0;     ///< have tags already
    std::size_t incomplete = 0; ///< have no artist or no title
    std::size_t beyondLimit = 0;
};

Selection selected(const std::vector<TrackRef>& all, const Options& options) {
    Selection selection;
    for (const TrackRef& track : all) {
        if (track->artist.value_or("").empty() || track->title.value_or("").empty())
            ++selection.incomplete;
        else if (track->lastTagged && !options.again)
            ++selection.tagged;
        else if (options.limit && selection.tracks.size() >= *options.limit)
            ++selection.beyondLimit;
        else
            selection.tracks.push_back(track);
    }
    return selection;
}

/// "12 tagged already (--again), 1 without artist or title"; empty if nothing is left out.
std::string leftOut(const Selection& selection) {
    std::vector<std::string> parts;
    if (selection.tagged > 0) parts.push_back(fmt::format("{} tagged already (--again)", selection.tagged));
    if (selection.incomplete > 0)
        parts.push_back(fmt::format("{} without artist or title", selection.incomplete));
    if (selection.beyondLimit > 0) parts.push_back(fmt::format("{} beyond the limit", selection.beyondLimit));
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string question(const Selection& selection, const std::optional<CreditBalance>& balance) {
    const std::size_t count = selection.tracks.size();
    std::string text = "This will tag " + plural(count, "track") + " for " + plural(count, "credit");
    if (balance) {
        const auto needed = static_cast<std::int64_t>(count);
        text += fmt::format(" of your {}", balance->total);
        text += needed <= balance->total ? fmt::format(", {} remain", balance->total - needed)
                                         : "; that is not enough for all of them (veltoctl billing)";
    }
    const std::string rest = leftOut(selection);
    return text + (rest.empty() ? ". Continue?" : ". Left out: " + rest + ". Continue?");
}

/// The two that the user can do something about say what.
std::string withHelp(const std::string& reason) {
    if (reason.starts_with("Insufficient credits.")) return "not enough credits, buy some: veltoctl billing";
    if (reason.starts_with("Authentication required."))
        return "the session has ended, sign in again: veltoctl sign-in";
    return reason;
}

/// Each reason once; those beyond the first few are in the log.
std::string joined(const std::vector<std::string>& reasons) {
    std::vector<std::string> different;
    for (const auto& reason : reasons) {
        std::string text = withHelp(reason);
        if (std::find(different.begin(), different.end(), text) == different.end())
            different.push_back(std::move(text));
    }
    if (different.size() > mostReasons) {
        const std::string rest = fmt::format("{} more, see the log", different.size() - mostReasons);
        different.resize(mostReasons);
        different.push_back(rest);
    }
    return fmt::format("{}", fmt::join(different, "; "));
}

Output nothingToTag(const Selection& selection) {
    Output output;
    output.json = {{"requested", 0}, {"tagged", 0}, {"credits", 0}, {"refused", Json::array()}};
    const std::string text = "nothing to tag: " + leftOut(selection);
    if (selection.tagged > 0 || selection.beyondLimit > 0)
        output.text = "N" + text.substr(1) + ".\n";
    else
        output.failure = text;
    return output;
}

} // namespace

Task<Output> tag(Context& context) {
    const auto viewModel = context.app.viewModel();
    co_await selectNamedLibrary(context);
    const auto all = distinctTracksOf(viewModel->selectedLibrary);
    if (all.empty()) throw CommandFailed("there are no tracks in this library yet: veltoctl scan");
    const Selection selection = selected(all, context.options);
    if (selection.tracks.empty()) co_return nothingToTag(selection);
    requireSession(context);
    const std::string asked = question(selection, viewModel->userSession->creditBalance);
    co_await confirm(context, asked);

    std::vector<std::string> reasons;
    viewModel->errorMessage = std::nullopt;
    // A batch that is refused for want of credits says so there and nowhere else.
    const Subscription refusals =
        viewModel->errorMessage.subscribe([&](const std::optional<std::string>& text) {
            if (text && viewModel->taggingProgress.get()) reasons.push_back(*text);
        });
    const auto progress = showProgress(context, *viewModel);
    const TaggingSummary summary = co_await viewModel->tagTracks(selection.tracks);
    const std::optional<std::string> message = viewModel->errorMessage;
    reasons.insert(reasons.end(), summary.errors.begin(), summary.errors.end());
    co_await viewModel->backgroundWorkFinished();
    if (!message && viewModel->errorMessage.get()) context.terminal.complain(*viewModel->errorMessage.get());
    complainOfUnwritten(context, "the genre could not be written to ", summary.unwrittenFiles);

    const std::size_t requested = selection.tracks.size();
    const auto tagged = static_cast<std::size_t>(summary.tagged);
    Output output;
    output.json = {{"requested", requested},
                   {"tagged", summary.tagged},
                   {"credits", summary.credits},
                   {"refused", reasons}};
    if (tagged > 0)
        output.text = fmt::format("Tagged {} using {}.\n", plural(tagged, "track"),
                                  plural(static_cast<std::size_t>(summary.credits), "credit"));
    if (tagged < requested)
        output.failure =
            fmt::format("{} of {} not tagged: {}", requested - tagged, plural(requested, "track"),
                        reasons.empty() ? "the backend gave no tags for them" : joined(reasons));
    else if (message) // what was tagged could not be stored
        output.failure = message;
    co_return output;
}

} // namespace velto::cli
