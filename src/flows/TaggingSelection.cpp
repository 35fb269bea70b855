#include "flows/TaggingSelection.hpp"

#include "platform/concurrency/Executors.hpp"

namespace velto {

namespace {

bool isPresent(const std::optional<std::string>& text) {
    return text && !text->empty();
}

} // namespace

bool isTaggable(const Track& track) {
    return isPresent(track.artist) && isPresent(track.title);
}

Task<TaggingSelection> selectForTagging(std::vector<TrackRef> tracks, TaggingWish wish, LastRun lastRun) {
    TaggingSelection selection;
    std::unordered_set<TrackRef> seen;
    Turn turn;
    for (const TrackRef& track : tracks) {
        if (turn.isOver()) {
            co_await yieldNow();
            turn = {};
        }
        if (track->isDeleted()) continue;
        const auto& lastTagged = track->lastTagged;
        const bool isTagged = lastTagged && (!wish.failedOnly || *lastTagged >= lastRun.start);
        if (!seen.insert(track).second)
            ++selection.repeats;
        else if (!isTaggable(*track))
            ++selection.withoutArtistOrTitle;
        else if (wish.failedOnly && !lastRun.untagged.contains(track->canonicalSig))
            ++selection.notFailed;
        else if (isTagged && !wish.again)
            ++selection.taggedAlready;
        else if (wish.limit && selection.tracks.size() >= *wish.limit)
            ++selection.overLimit;
        else
            selection.tracks.push_back(track);
    }
    co_return selection;
}

} // namespace velto
