#include "platform/media/Containers.hpp"
#include "platform/media/Mp4Atoms.hpp"
#include "platform/media/TagItems.hpp"
#include "platform/media/TagLibStreams.hpp"

#include <mp4file.h>

#include <limits>

namespace velto::media {

Asset openMp4(FileReader& reader) {
    const AtomTree tree = atomsOf(reader);
    if (tree.find({"moov"}) < 0) reader.fail(MediaError::Case::damaged, "its description is missing");
    FileViewStream stream(reader);
    TagLib::MP4::File file(&stream, true);
    const auto* properties = file.audioProperties();
    if (!file.isValid() || properties == nullptr ||
        (properties->sampleRate() == 0 && properties->lengthInMilliseconds() == 0))
        reader.fail(MediaError::Case::notAudio, "it has no sound track");
    Asset asset{{}, std::numeric_limits<double>::quiet_NaN()};
    if (properties->lengthInMilliseconds() > 0)
        asset.durationSeconds = properties->lengthInMilliseconds() / 1000.0;
    if (file.tag() != nullptr) appendItems(asset.items, *file.tag());
    return asset;
}

} // namespace velto::media
