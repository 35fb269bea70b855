#include "flows/TaggingSelection.hpp"

#include <unordered_set>

namespace velto {

namespace {

bool isPresent(const std::optional<std::string>& text) {
    return text && !text->empty();
}

} // namespace

bool isTaggable(const Track& track) {
    return isPresent(track.artist) && isPresent(track.title);
}

TaggingSelection selectForTagging(const std::vector<TrackRef>& tracks, const TaggingWish& wish,
                                  const std::set<std::string>& failed) {
    TaggingSelection selection;
    std::unordered_set<TrackRef> seen;
    for (const TrackRef& track : tracks) {
        if (track->isDeleted()) continue;
        if (!seen.insert(track).second)
            ++selection.repeats;
        else if (!isTaggable(*track))
            ++selection.withoutArtistOrTitle;
        else if (wish.failedOnly && !failed.contains(track->canonicalSig))
            ++selection.notFailed;
        else if (!wish.again && !wish.failedOnly && track->lastTagged)
            ++selection.taggedAlready;
        else if (wish.limit && selection.tracks.size() >= *wish.limit)
            ++selection.overLimit;
        else
            selection.tracks.push_back(track);
    }
    return selection;
}

} // namespace velto
