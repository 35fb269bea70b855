#include "tagwriting/CarriedFrames.hpp"

#include <algorithm>

namespace velto {

namespace {

using namespace id3;

const std::array<FrameName, 7>& carriedNames() {
    static const std::array<FrameName, 7> names{
        FrameName::title,
        FrameName::artist,
        FrameName::album,
        FrameName::albumArtist,
        FrameName::trackPosition,
        FrameName::discPosition,
        FrameName::attachedPicture(ID3PictureType::frontCover),
    };
    return names;
}

} // namespace

std::map<FrameName, ID3Frame> carriedFrames(const ID3Tag& old) {
    std::map<FrameName, ID3Frame> frames;
    for (const FrameName& name : carriedNames())
        if (const auto found = old.frames.find(name); found != old.frames.end()) frames.insert(*found);
    return frames;
}

bool hidesCarriedFrames(const ID3Tag& old) {
    return std::any_of(carriedNames().begin(), carriedNames().end(),
                       [&](const FrameName& name) { return old.unreadable.contains(name.kind); });
}

} // namespace velto
