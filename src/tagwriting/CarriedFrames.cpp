#include "tagwriting/CarriedFrames.hpp"

#include "id3/FrameIdentifiers.hpp"

#include <algorithm>

namespace velto {

namespace {

using namespace id3;

FrameName carriedName(FrameName::Kind kind) {
    return kind == FrameName::picture ? FrameName::attachedPicture(ID3PictureType::frontCover)
                                      : FrameName(kind);
}

} // namespace

std::map<FrameName, ID3Frame> carriedFrames(const ID3Tag& old) {
    std::map<FrameName, ID3Frame> frames;
    for (const FrameName::Kind kind : carriedKinds)
        if (const auto found = old.frames.find(carriedName(kind)); found != old.frames.end())
            frames.insert(*found);
    return frames;
}

bool hidesCarriedFrames(const ID3Tag& old) {
    return std::any_of(carriedKinds.begin(), carriedKinds.end(),
                       [&](FrameName::Kind kind) { return old.unreadable.contains(kind); });
}

} // namespace velto
