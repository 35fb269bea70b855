#include "media/Containers.hpp"
#include "media/TagItems.hpp"
#include "media/TagLibStreams.hpp"

#include <flacfile.h>
#include <id3v2framefactory.h>
#include <xiphcomment.h>

#include <limits>

namespace velto::media {

namespace {

constexpr unsigned streamInfo = 0;
constexpr unsigned vorbisComment = 4;
constexpr char lastBlock = '\x80';
constexpr std::size_t maximumComment = 1024 * 1024;
constexpr int maximumBlocks = 1024;

/// The stream's description and its comments, as a FLAC file of these two blocks alone.
std::string textBlocks(FileReader& reader, std::uint64_t position) {
    std::string blocks = "fLaC";
    std::size_t lastHeader = 0;
    bool hasComment = false;
    position += blocks.size();
    for (int i = 0; i < maximumBlocks; ++i) {
        const std::string header(reader.at(position, 4));
        if (header.size() < 4) break;
        const unsigned kind = static_cast<unsigned char>(header[0]) & 0x7F;
        const auto size = static_cast<std::size_t>(bigEndian(header, 1, 3));
        const bool wanted = (i == 0 && kind == streamInfo) ||
                            (kind == vorbisComment && size <= maximumComment && !hasComment);
        if (wanted && size > 0 && position + 4 + size <= reader.size()) {
            hasComment = hasComment || kind == vorbisComment;
            lastHeader = blocks.size();
            blocks += static_cast<char>(kind);
            blocks += header.substr(1);
            blocks += reader.copy(position + 4, size);
        }
        if ((header[0] & lastBlock) != 0) break;
        position += 4 + size;
    }
    if (lastHeader == 0) reader.fail(MediaError::Case::damaged, "no stream information");
    blocks[lastHeader] = static_cast<char>(blocks[lastHeader] | lastBlock);
    return blocks;
}

} // namespace

Asset openFlac(FileReader& reader) {
    const LeadingId3 id3 = leadingId3(reader);
    ViewStream view;
    view.append(textBlocks(reader, id3.end));
    // Room for sound, so that TagLib does not take the stream for one without any.
    view.appendHole(reader.size());
    TagLib::FLAC::File file(&view, TagLib::ID3v2::FrameFactory::instance(), true);
    const auto* properties = file.audioProperties();
    if (!file.isValid() || properties == nullptr || properties->sampleRate() <= 0)
        reader.fail(MediaError::Case::damaged, "no stream information");

    Asset asset{{}, std::numeric_limits<double>::quiet_NaN()};
    if (file.hasXiphComment())
        appendItems(asset.items, *file.xiphComment());
    else
        id3.appendItemsTo(asset.items);
    if (properties->sampleFrames() > 0)
        asset.durationSeconds = static_cast<double>(properties->sampleFrames()) / properties->sampleRate();
    return asset;
}

} // namespace velto::media
