#include "media/Containers.hpp"
#include "media/Id3Items.hpp"
#include "media/MpegDuration.hpp"
#include "media/TagItems.hpp"
#include "media/TagLibStreams.hpp"

#include <apetag.h>
#include <id3v1tag.h>
#include <id3v2framefactory.h>
#include <mpegfile.h>

#include <algorithm>

namespace velto::media {

namespace {

constexpr std::uint64_t id3v1Size = 128;
constexpr std::uint64_t apeFooterSize = 32;
constexpr std::uint64_t maximumApe = 1024 * 1024;

/// The tags after the sound.
struct Trailer {
    std::uint64_t begin; ///< where the sound ends
    std::string bytes;   ///< an APE tag that is small enough to be read, and an ID3v1 tag
};

Trailer trailerOf(FileReader& reader, std::uint64_t soundBegin) {
    Trailer trailer{reader.size(), {}};
    if (reader.size() < soundBegin + apeFooterSize) return trailer;
    const std::uint64_t looked = std::min(reader.size() - soundBegin, id3v1Size + apeFooterSize);
    const std::string tail = reader.copy(reader.size() - looked, static_cast<std::size_t>(looked));
    std::size_t footerEnd = tail.size();
    if (tail.size() >= id3v1Size && tail.compare(tail.size() - id3v1Size, 3, "TAG") == 0)
        footerEnd -= id3v1Size;
    trailer.begin -= tail.size() - footerEnd;
    trailer.bytes = tail.substr(footerEnd);
    if (footerEnd < apeFooterSize || tail.compare(footerEnd - apeFooterSize, 8, "APETAGEX") != 0)
        return trailer;

    const auto littleEndian = [&](std::size_t position) {
        const std::string_view bytes = std::string_view(tail).substr(footerEnd - apeFooterSize + position, 4);
        return std::uint64_t{__builtin_bswap32(bigEndian32(bytes))};
    };
    constexpr std::uint64_t hasHeader = 0x80000000;
    const std::uint64_t size = littleEndian(12) + ((littleEndian(20) & hasHeader) != 0 ? apeFooterSize : 0);
    if (size < apeFooterSize || size > trailer.begin - soundBegin) return trailer;
    const std::uint64_t apeEnd = trailer.begin;
    trailer.begin -= size;
    if (size <= maximumApe)
        trailer.bytes.insert(0, reader.copy(trailer.begin, static_cast<std::size_t>(apeEnd - trailer.begin)));
    return trailer;
}

void appendTrailer(std::vector<MetadataItem>& items, const std::string& trailer, bool hasId3) {
    // TagLib looks for an ID3v2 tag in all of the sound unless there is one in front; this one is empty.
    constexpr std::string_view emptyTag("ID3\x03\0\0\0\0\0\0", 10);
    ViewStream view;
    view.append(emptyTag);
    view.appendHole(1024);
    view.append(trailer);
    TagLib::MPEG::File file(&view, TagLib::ID3v2::FrameFactory::instance(), false);
    const bool hasApe = file.hasAPETag();
    if (file.hasID3v1Tag())
        appendItems(items, *file.ID3v1Tag(), hasApe || hasId3 ? Genre::leftOut : Genre::included);
    if (hasApe) appendItems(items, *file.APETag(), hasId3 ? Genre::leftOut : Genre::included);
}

} // namespace

bool LeadingId3::hasFrames() const {
    return std::any_of(tags.begin(), tags.end(), [](const Id3Frames& tag) { return !tag.frames.empty(); });
}

void LeadingId3::appendItemsTo(std::vector<MetadataItem>& items) const {
    for (std::size_t i = tags.size(); i-- > 0;)
        appendItems(items, tags[i], i == 0 ? Genre::included : Genre::leftOut);
}

LeadingId3 leadingId3(FileReader& reader) {
    constexpr int maximumTags = 8;
    LeadingId3 leading;
    for (int i = 0; i < maximumTags; ++i) {
        auto tag = id3FramesAt(reader, leading.end, reader.size());
        if (!tag) break;
        leading.end += tag->sizeInFile;
        leading.tags.push_back(*std::move(tag));
    }
    return leading;
}

Asset openMpeg(FileReader& reader, MpegKind kind) {
    const LeadingId3 id3 = leadingId3(reader);
    const Trailer trailer = trailerOf(reader, id3.end);
    const auto duration = kind == MpegKind::layers ? mpegDuration(reader, id3.end, trailer.begin)
                                                   : adtsDuration(reader, id3.end, trailer.begin);
    if (!duration) reader.fail(MediaError::Case::notAudio, "no sound was found in it");
    Asset asset{{}, *duration};
    if (!trailer.bytes.empty()) appendTrailer(asset.items, trailer.bytes, id3.hasFrames());
    id3.appendItemsTo(asset.items);
    return asset;
}

} // namespace velto::media
