#include "media/Id3Frames.hpp"

#include "media/TagItems.hpp"

#include <algorithm>

namespace velto::media {

namespace {

/// A tag that is unsynchronised as a whole must be undone in memory; one with more than this of pictures
/// loses its end.
constexpr std::uint64_t maximumUnsynchronised = 16 * 1024 * 1024;

constexpr std::uint64_t maximumTotal(Id3Content content) {
    return content == Id3Content::texts ? 1024 * 1024 : 64 * 1024 * 1024;
}

/// A tag's body where it lies in the file.
class BodyInFile final : public id3::TagBody {
  public:
    BodyInFile(FileReader& reader, std::uint64_t offset, std::uint64_t size)
        : reader_(reader)
        , offset_(offset)
        , size_(size) {}

    [[nodiscard]] std::uint64_t size() const override { return size_; }

    [[nodiscard]] id3::ByteView at(std::uint64_t position, std::size_t length) override {
        if (position >= size_) return {};
        return id3::asBytes(reader_.at(
            offset_ + position, static_cast<std::size_t>(std::min<std::uint64_t>(length, size_ - position))));
    }

  private:
    FileReader& reader_;
    std::uint64_t offset_;
    std::uint64_t size_;
};

id3::Bytes copied(id3::TagBody& body, std::uint64_t begin, std::uint64_t size) {
    id3::Bytes bytes;
    bytes.reserve(static_cast<std::size_t>(std::min(size, body.size() - std::min(begin, body.size()))));
    while (bytes.size() < size) {
        const auto rest =
            static_cast<std::size_t>(std::min<std::uint64_t>(size - bytes.size(), FileReader::maximumView));
        const id3::ByteView piece = body.at(begin + bytes.size(), rest);
        if (piece.empty()) break;
        id3::append(bytes, piece);
    }
    return bytes;
}

/// Whether all from there on is padding.
bool isPaddingToTheEnd(id3::TagBody& body, std::uint64_t position) {
    while (position < body.size()) {
        const id3::ByteView piece = body.at(position, FileReader::maximumView);
        if (piece.empty() || std::any_of(piece.begin(), piece.end(), [](auto byte) { return byte != 0; }))
            return false;
        position += piece.size();
    }
    return true;
}

bool isWanted(const id3::FrameHeader& frame, Id3Content content) {
    return content == Id3Content::everything || (frame.name.front() == 'T' && frame.size <= maximumTextSize);
}

/// The wanted frames; whether the walk came to the tag's end or its padding.
bool takeFrames(Id3Frames& tag, id3::TagBody& body, Id3Content content) {
    id3::FrameWalk walk(body, tag.header);
    const std::uint64_t headerSize = tag.version() == id3::ID3Version::version2 ? 6 : 10;
    std::uint64_t room = maximumTotal(content);
    while (auto frame = walk.next()) {
        const std::uint64_t cost = headerSize + frame->size;
        if (!isWanted(*frame, content) || cost > room) continue;
        room -= cost;
        id3::Bytes bytes = copied(body, frame->begin, frame->size);
        tag.frames.push_back({*std::move(frame), std::move(bytes)});
    }
    return content == Id3Content::texts || isPaddingToTheEnd(body, walk.position());
}

} // namespace

std::optional<Id3Frames> id3FramesAt(FileReader& reader, std::uint64_t offset, std::uint64_t end,
                                     Id3Content content) {
    end = std::min(end, reader.size());
    if (offset + id3::tagHeaderSize > end) return std::nullopt;
    const auto header = id3::tagHeader(id3::asBytes(reader.at(offset, id3::tagHeaderSize)));
    if (!header || header->revision == 0xFF || header->hasDoubtfulSize) return std::nullopt;
    const std::uint64_t room = end - offset - id3::tagHeaderSize;
    const std::uint64_t bodySize = std::min<std::uint64_t>(header->size, room);
    const bool isForWriting = content == Id3Content::everything;
    if (isForWriting && bodySize > maximumTotal(content))
        reader.fail(MediaError::Case::damaged, "its tag is too large to be rewritten");

    Id3Frames tag;
    tag.header = *header;
    tag.sizeInFile = id3::tagHeaderSize + bodySize;
    if (header->hasFooter())
        tag.sizeInFile = id3::tagHeaderSize + std::min(bodySize + id3::tagHeaderSize, room);
    if (!header->knownVersion() || header->isCompressed()) {
        if (isForWriting) reader.fail(MediaError::Case::damaged, "its tag is of a kind that cannot be read");
        return tag;
    }

    BodyInFile inFile(reader, offset + id3::tagHeaderSize, bodySize);
    bool isWhole = false;
    if (header->isUnsynchronisedAsAWhole()) {
        id3::Bytes undone =
            copied(inFile, 0, isForWriting ? bodySize : std::min(bodySize, maximumUnsynchronised));
        id3::undoUnsynchronisation(undone);
        id3::TagBodyInMemory body(undone);
        isWhole = takeFrames(tag, body, content);
    } else {
        isWhole = takeFrames(tag, inFile, content);
    }
    if (!isWhole) reader.fail(MediaError::Case::damaged, "its tag holds frames that cannot be read");
    return tag;
}

id3::Bytes renderedTag(const Id3Frames& tag) {
    if (tag.frames.empty()) return {};
    id3::Bytes frames;
    for (const Id3Frame& frame : tag.frames) {
        id3::appendFrameHeader(frames, frame.header.name, frame.content.size(), tag.version(),
                               frame.header.status, frame.header.format);
        id3::append(frames, frame.content);
    }
    // Frames of version 2.4 stay unsynchronised one by one, and only this flag may say so.
    constexpr std::uint8_t unsynchronised = 0x80;
    id3::Bytes bytes =
        id3::tagHeaderBytes(tag.version(), frames.size(),
                            tag.header.everyFrameIsUnsynchronised() ? unsynchronised : std::uint8_t{0});
    id3::append(bytes, frames);
    return bytes;
}

} // namespace velto::media
