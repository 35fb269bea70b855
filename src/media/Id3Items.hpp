#pragma once

#include "media/Asset.hpp"
#include "media/Id3Frames.hpp"
#include "media/TagItems.hpp"

#include <vector>

namespace velto::media {

/// The texts of a tag. As the writers of tags read them: the values of one frame are joined by "/", and of
/// several frames of one name the first with a text counts. Only genres are collected from all frames, each
/// once, joined by " - ".
void appendItems(std::vector<MetadataItem>& items, const Id3Frames& tag, Genre genre = Genre::included);

/// Any frame; a frame without text has a value of bytes.
[[nodiscard]] MetadataItem itemOfFrame(const Id3Frames& tag, const Id3Frame& frame);

} // namespace velto::media
