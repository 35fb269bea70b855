#include "cli/Commands.hpp"
#include "flows/TaggingSelection.hpp"
#include "flows/TaggingState.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace velto::cli {

namespace {

constexpr std::size_t mostReasons = 3;

/// "12 tagged already (--again), 1 without artist or title"; empty if nothing is left out.
std::string leftOut(const TaggingSelection& selection) {
    std::vector<std::string> parts;
    const auto add = [&](std::size_t count, const char* why) {
        if (count > 0) parts.push_back(fmt::format("{} {}", count, why));
    };
    add(selection.taggedAlready, "tagged already (--again)");
    add(selection.notFailed, "not left over from the last run");
    add(selection.withoutArtistOrTitle, "without artist or title");
    add(selection.overLimit, "over the limit");
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string question(const TaggingSelection& selection, const std::optional<CreditBalance>& balance) {
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

/// Each reason once, with all the tracks that it stands for.
std::vector<RefusedTracks> byReason(const std::vector<RefusedTracks>& refused) {
    std::vector<RefusedTracks> sums;
    for (const auto& [tracks, reason] : refused) {
        const auto known = std::find_if(sums.begin(), sums.end(),
                                        [&, &text = reason](const auto& sum) { return sum.reason == text; });
        if (known == sums.end())
            sums.push_back({tracks, reason});
        else
            known->tracks += tracks;
    }
    return sums;
}

std::string joined(const std::vector<RefusedTracks>& refused) {
    std::vector<RefusedTracks> advised = refused;
    for (auto& each : advised)
        each.reason = withHelp(each.reason);
    advised = byReason(advised);
    if (advised.size() == 1) return advised.front().reason;
    std::vector<std::string> parts;
    for (const auto& [tracks, reason] : advised) {
        if (parts.size() == mostReasons) {
            parts.push_back(fmt::format("{} more reasons, see the log", advised.size() - mostReasons));
            break;
        }
        parts.push_back(fmt::format("{} ({})", reason, tracks));
    }
    return fmt::format("{}", fmt::join(parts, "; "));
}

Json toJson(const TaggingSummary& summary) {
    Json refused = Json::array();
    for (const auto& [tracks, reason] : byReason(summary.refused))
        refused.push_back({{"tracks", tracks}, {"reason", reason}});
    return {{"requested", summary.requested},
            {"tagged", summary.tagged},
            {"credits", summary.credits},
            {"refused", std::move(refused)}};
}

Output nothingToTag(const TaggingSelection& selection) {
    Output output;
    output.json = toJson(TaggingSummary{});
    const std::string rest = leftOut(selection);
    const bool isDone = selection.taggedAlready + selection.notFailed + selection.overLimit > 0;
    if (isDone)
        output.text = "Nothing to tag: " + rest + ".\n";
    else
        output.failure = "nothing to tag: " + rest;
    return output;
}

} // namespace

Task<Output> tag(Context& context) {
    const auto viewModel = context.app.viewModel();
    co_await selectNamedLibrary(context);
    const auto all = distinctTracksOf(viewModel->selectedLibrary);
    if (all.empty()) throw CommandFailed("there are no tracks in this library yet: veltoctl scan");
    const TaggingWish wish{context.options.again, context.options.failedOnly, context.options.limit};
    const TaggingSelection selection = co_await viewModel->tracksToTag(all, wish);
    if (selection.tracks.empty()) co_return nothingToTag(selection);
    requireSession(context);
    const std::string asked = question(selection, viewModel->userSession->creditBalance);
    co_await confirm(context, asked);

    viewModel->errorMessage = std::nullopt;
    const auto progress = showProgress(context, *viewModel);
    const TaggingSummary summary = co_await viewModel->tagTracks(selection.tracks);
    viewModel->errorMessage = std::nullopt; // the summary says it
    co_await viewModel->backgroundWorkFinished();
    if (viewModel->errorMessage.get()) context.terminal.complain(*viewModel->errorMessage.get());
    complainOfUnwritten(context, "the genre could not be written to ", summary.unwrittenFiles);

    Output output;
    output.json = toJson(summary);
    output.wasStopped = summary.wasStopped;
    if (summary.tagged > 0)
        output.text =
            fmt::format("Tagged {} using {}.\n", plural(static_cast<std::size_t>(summary.tagged), "track"),
                        plural(static_cast<std::size_t>(summary.credits), "credit"));
    if (summary.saveFailure)
        output.failure =
            fmt::format("{}; the tags of {} that may have been paid for are lost; which ones is in {}",
                        *summary.saveFailure, plural(static_cast<std::size_t>(summary.unsaved), "track"),
                        context.home.log.string());
    else if (summary.untagged() > 0)
        output.failure = fmt::format("{} of {} not tagged: {}", summary.untagged(),
                                     plural(static_cast<std::size_t>(summary.requested), "track"),
                                     joined(summary.refused));
    co_return output;
}

} // namespace velto::cli
