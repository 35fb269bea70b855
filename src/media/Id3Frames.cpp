#include "media/Id3Frames.hpp"

#include "media/TagItems.hpp"

#include <zlib.h>

#include <algorithm>

namespace velto::media {

namespace {

constexpr std::size_t headerSize = 10;
constexpr unsigned unsynchronised = 0x80;
constexpr unsigned extendedHeader = 0x40;
constexpr unsigned footerPresent = 0x10;

/// A whole-tag unsynchronised tag must be decoded in memory; one with more than this of pictures loses its
/// end.
constexpr std::size_t maximumUnsynchronised = 16 * 1024 * 1024;

constexpr std::size_t maximumTotal(Id3Content content) {
    return content == Id3Content::texts ? 1024 * 1024 : 64 * 1024 * 1024;
}

bool isSynchSafe(std::string_view four) {
    return std::all_of(four.begin(), four.end(), [](char c) { return (c & 0x80) == 0; });
}

std::uint32_t synchSafe(std::string_view four) {
    std::uint32_t value = 0;
    for (const char c : four)
        value = value << 7 | (static_cast<unsigned char>(c) & 0x7FU);
    return value;
}

void appendSize(std::string& bytes, std::size_t size, int count, int bitsEach) {
    for (int i = count - 1; i >= 0; --i)
        bytes += static_cast<char>(size >> (i * bitsEach) & ((1U << bitsEach) - 1));
}

/// Takes the 0 out again that was put behind every 0xFF.
void undoUnsynchronisation(std::string& bytes) {
    // The scheme leaves no such pair: the flag is there, but nothing was done.
    const auto isSync = [](char first, char second) {
        return first == '\xFF' && static_cast<unsigned char>(second) >= 0xE0;
    };
    if (std::adjacent_find(bytes.begin(), bytes.end(), isSync) != bytes.end()) return;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[kept++] = bytes[i];
        if (bytes[i] == '\xFF' && i + 1 < bytes.size() && bytes[i + 1] == '\0') ++i;
    }
    bytes.resize(kept);
}

/// The tag's body, in the file or, decoded, in memory.
class Body {
  public:
    Body(FileReader& reader, std::uint64_t offset, std::uint64_t size)
        : reader_(reader)
        , offset_(offset)
        , size_(size) {}

    [[nodiscard]] std::uint64_t size() const { return size_; }

    [[nodiscard]] std::string_view at(std::uint64_t position, std::size_t length) {
        if (position >= size_) return {};
        length = static_cast<std::size_t>(std::min<std::uint64_t>(length, size_ - position));
        if (decoded_.empty()) return reader_.at(offset_ + position, length);
        return std::string_view(decoded_).substr(static_cast<std::size_t>(position), length);
    }

    [[nodiscard]] std::string copy(std::uint64_t position, std::size_t length) {
        return decoded_.empty() ? reader_.copy(offset_ + position, length)
                                : decoded_.substr(static_cast<std::size_t>(position), length);
    }

    void decode(std::size_t limit) {
        decoded_ = reader_.copy(offset_, static_cast<std::size_t>(std::min<std::uint64_t>(size_, limit)));
        undoUnsynchronisation(decoded_);
        size_ = decoded_.size();
    }

  private:
    FileReader& reader_;
    std::uint64_t offset_;
    std::uint64_t size_;
    std::string decoded_;
};

bool isNameCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/// The frame name at the front; empty where none stands there. Some writers put the three-character names of
/// version 2.2 into a later tag, filled up with a zero or a blank.
std::string_view frameName(std::string_view bytes, std::size_t size) {
    if (bytes.size() < size || !std::all_of(bytes.begin(), bytes.begin() + 3, isNameCharacter)) return {};
    const bool isShort = size == 4 && (bytes[3] == '\0' || bytes[3] == ' ');
    if (size == 4 && !isShort && !isNameCharacter(bytes[3])) return {};
    return bytes.substr(0, isShort ? 3 : size);
}

class FrameWalk {
  public:
    FrameWalk(Body& body, unsigned version, Id3Content content)
        : body_(body)
        , version_(version)
        , nameSize_(version == 2 ? 3 : 4)
        , frameHeader_(version == 2 ? 6 : 10)
        , content_(content) {}

    std::vector<Id3Frame> frames(std::uint64_t position) {
        std::vector<Id3Frame> frames;
        std::size_t total = 0;
        while (position + frameHeader_ <= body_.size()) {
            const std::string header(body_.at(position, frameHeader_));
            const std::string_view name =
                header.size() < frameHeader_ ? std::string_view() : frameName(header, nameSize_);
            if (name.empty()) break;
            const std::uint64_t size = frameSize(header, position);
            const std::uint64_t end = position + frameHeader_ + size;
            if (end > body_.size()) break;
            if (isWanted(name, size) && total + frameHeader_ + size <= maximumTotal(content_)) {
                total += frameHeader_ + static_cast<std::size_t>(size);
                Id3Frame& frame = frames.emplace_back();
                frame.name = header.substr(0, nameSize_);
                if (version_ != 2) {
                    frame.status = static_cast<std::uint8_t>(header[8]);
                    frame.format = static_cast<std::uint8_t>(header[9]);
                }
                frame.content = body_.copy(position + frameHeader_, static_cast<std::size_t>(size));
            }
            position = end;
        }
        isWhole_ = content_ != Id3Content::everything || isPaddingToTheEnd(position);
        return frames;
    }

    /// Whether the walk came to the tag's end or its padding; told where everything is asked for.
    [[nodiscard]] bool isWhole() const { return isWhole_; }

  private:
    /// A single 0 may as well be the middle of a frame.
    static bool isPadding(std::string_view bytes) {
        return bytes.find_first_not_of('\0') == std::string_view::npos;
    }

    /// Whether all from there on is padding.
    bool isPaddingToTheEnd(std::uint64_t position) {
        while (position < body_.size()) {
            const std::string_view piece = body_.at(position, FileReader::maximumView);
            if (piece.empty() || !isPadding(piece)) return false;
            position += piece.size();
        }
        return true;
    }

    [[nodiscard]] bool isWanted(std::string_view name, std::uint64_t size) const {
        return content_ == Id3Content::everything || (name.front() == 'T' && size <= maximumTextSize);
    }

    /// A frame's size without its header. The standards say synch-safe for version 2.4 and plain before;
    /// writers of either kind exist that do the other, so a size that leads nowhere is tried the other way.
    std::uint64_t frameSize(std::string_view header, std::uint64_t position) {
        if (version_ == 2) return bigEndian(header, 3, 3);
        const std::uint32_t plain = bigEndian32(header, 4);
        const std::string_view four = header.substr(4, 4);
        if (!isSynchSafe(four)) return plain;
        const std::uint32_t safe = synchSafe(four);
        const std::uint32_t standard = version_ == 4 ? safe : plain;
        const std::uint32_t other = version_ == 4 ? plain : safe;
        if (safe == plain || leadsOn(position + frameHeader_ + standard)) return standard;
        return leadsOn(position + frameHeader_ + other) ? other : standard;
    }

    /// Whether a frame, padding or the tag's end stands there.
    bool leadsOn(std::uint64_t position) {
        if (position >= body_.size()) return position == body_.size();
        const auto next = body_.at(position, nameSize_);
        return !frameName(next, nameSize_).empty() || isPadding(body_.at(position, frameHeader_));
    }

    Body& body_;
    unsigned version_;
    std::size_t nameSize_;
    std::size_t frameHeader_;
    Id3Content content_;
    bool isWhole_ = true;
};

/// Where the frames begin behind an extended header. Its size does not count itself in version 2.3 and does
/// in version 2.4; a size beyond the tag is no extended header.
std::uint64_t framesBegin(Body& body, unsigned version) {
    const std::string_view four = body.at(0, 4);
    if (four.size() < 4) return 0;
    const std::uint64_t length = version == 3 ? 4 + std::uint64_t{bigEndian32(four)} : synchSafe(four);
    return length >= body.size() ? 0 : length;
}

std::optional<std::string> inflated(std::string_view bytes, std::size_t length) {
    if (length > maximumTextSize) return std::nullopt;
    std::string content(length, '\0');
    uLongf got = length;
    const int status = ::uncompress(reinterpret_cast<Bytef*>(content.data()), &got,
                                    reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
    return status == Z_OK && got == length ? std::optional(std::move(content)) : std::nullopt;
}

} // namespace

std::optional<Id3Frames> id3FramesAt(FileReader& reader, std::uint64_t offset, std::uint64_t end,
                                     Id3Content content) {
    end = std::min(end, reader.size());
    if (offset + headerSize > end) return std::nullopt;
    const std::string header(reader.at(offset, headerSize));
    if (header.size() < headerSize || !header.starts_with("ID3") || header[4] == '\xFF' ||
        !isSynchSafe(std::string_view(header).substr(6)))
        return std::nullopt;
    const auto flags = static_cast<unsigned char>(header[5]);
    const std::uint64_t room = end - offset - headerSize;
    const std::uint64_t bodySize =
        std::min<std::uint64_t>(synchSafe(std::string_view(header).substr(6)), room);

    if (content == Id3Content::everything && bodySize > maximumTotal(content))
        reader.fail(MediaError::Case::damaged, "its tag is too large to be rewritten");

    Id3Frames tag;
    tag.version = static_cast<unsigned char>(header[3]);
    tag.sizeInFile = headerSize + bodySize;
    if (tag.version == 4 && (flags & footerPresent) != 0)
        tag.sizeInFile = std::min(tag.sizeInFile + headerSize, headerSize + room);
    // Version 2.2 calls a compressed tag by the same bit, and no compression was ever defined.
    if (header[4] != 0 || tag.version < 2 || tag.version > 4 ||
        (tag.version == 2 && (flags & extendedHeader) != 0)) {
        if (content == Id3Content::everything)
            reader.fail(MediaError::Case::damaged, "its tag is of a kind that cannot be read");
        return tag;
    }

    Body body(reader, offset + headerSize, bodySize);
    tag.unsynchronised = tag.version == 4 && (flags & unsynchronised) != 0;
    if (tag.version < 4 && (flags & unsynchronised) != 0)
        body.decode(content == Id3Content::texts ? maximumUnsynchronised : maximumTotal(content));
    const std::uint64_t begin = (flags & extendedHeader) != 0 ? framesBegin(body, tag.version) : 0;
    FrameWalk walk(body, tag.version, content);
    tag.frames = walk.frames(begin);
    if (!walk.isWhole()) reader.fail(MediaError::Case::damaged, "its tag holds frames that cannot be read");
    return tag;
}

std::string renderedTag(const Id3Frames& tag) {
    if (tag.frames.empty()) return {};
    std::string frames;
    for (const Id3Frame& frame : tag.frames) {
        frames += frame.name;
        appendSize(frames, frame.content.size(), tag.version == 2 ? 3 : 4, tag.version == 4 ? 7 : 8);
        if (tag.version != 2) frames += {static_cast<char>(frame.status), static_cast<char>(frame.format)};
        frames += frame.content;
    }
    std::string bytes = "ID3";
    bytes +=
        {static_cast<char>(tag.version), '\0', static_cast<char>(tag.unsynchronised ? unsynchronised : 0)};
    appendSize(bytes, frames.size(), 4, 7);
    return bytes + frames;
}

bool isCompressed(const Id3Frames& tag, const Id3Frame& frame) {
    return (frame.format & (tag.version == 4 ? 0x08 : 0x80)) != 0;
}

std::optional<std::string> readableContent(const Id3Frames& tag, const Id3Frame& frame) {
    const bool is4 = tag.version == 4;
    const bool grouped = (frame.format & (is4 ? 0x40 : 0x20)) != 0;
    const bool encrypted = (frame.format & (is4 ? 0x04 : 0x40)) != 0;
    const bool compressed = isCompressed(tag, frame);
    const bool hasLength = is4 ? (frame.format & 0x01) != 0 : compressed;
    const std::size_t extra = (grouped ? 1U : 0U) + (hasLength ? 4U : 0U);
    if (encrypted || extra > frame.content.size() || (compressed && !hasLength)) return std::nullopt;
    std::string content = frame.content.substr(extra);
    if (is4 && (tag.unsynchronised || (frame.format & 0x02) != 0)) undoUnsynchronisation(content);
    if (!compressed) return content;
    // The group stands in front of the length in version 2.4, behind it in 2.3.
    const std::string_view length = std::string_view(frame.content).substr(is4 && grouped ? 1 : 0, 4);
    return inflated(content, is4 ? synchSafe(length) : bigEndian32(length));
}

} // namespace velto::media
