#include "platform/media/Id3View.hpp"

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

/// Texts of a frame and of a tag: more is no name, title or genre.
constexpr std::size_t maximumText = 64 * 1024;

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

void appendSynchSafe(std::string& bytes, std::size_t value) {
    for (int shift = 21; shift >= 0; shift -= 7)
        bytes += static_cast<char>(value >> shift & 0x7F);
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

    void append(std::string& target, std::uint64_t position, std::size_t length) {
        for (std::size_t done = 0; done < length;) {
            const auto piece = at(position + done, std::min(length - done, FileReader::maximumView));
            if (piece.empty()) return;
            target += piece;
            done += piece.size();
        }
    }

    /// Takes the 0 out again that was put behind every 0xFF.
    void decode(std::size_t limit) {
        decoded_ = reader_.copy(offset_, static_cast<std::size_t>(std::min<std::uint64_t>(size_, limit)));
        std::size_t kept = 0;
        for (std::size_t i = 0; i < decoded_.size(); ++i) {
            decoded_[kept++] = decoded_[i];
            if (decoded_[i] == '\xFF' && i + 1 < decoded_.size() && decoded_[i + 1] == '\0') ++i;
        }
        decoded_.resize(kept);
        size_ = kept;
    }

  private:
    FileReader& reader_;
    std::uint64_t offset_;
    std::uint64_t size_;
    std::string decoded_;
};

bool isFrameName(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    });
}

class FrameWalk {
  public:
    FrameWalk(Body& body, unsigned version, Id3Content content)
        : body_(body)
        , version_(version)
        , nameSize_(version == 2 ? 3 : 4)
        , frameHeader_(version == 2 ? 6 : 10)
        , content_(content) {}

    std::string keptFrames(std::uint64_t position) {
        std::string frames;
        while (position + frameHeader_ <= body_.size()) {
            const std::string header(body_.at(position, frameHeader_));
            if (header.size() < frameHeader_ || !isFrameName(std::string_view(header).substr(0, nameSize_)))
                break;
            const std::uint64_t size = frameSize(header, position);
            const std::uint64_t end = position + frameHeader_ + size;
            if (end > body_.size()) break;
            if (isWanted(header, size) && frames.size() + frameHeader_ + size <= maximumTotal(content_))
                appendFrame(frames, header, position, static_cast<std::size_t>(size));
            position = end;
        }
        return frames;
    }

  private:
    [[nodiscard]] bool isWanted(std::string_view header, std::uint64_t size) const {
        return content_ == Id3Content::everything || (header.front() == 'T' && size <= maximumText);
    }

    /// A frame's size without its header. Version 2.4 sizes are synch-safe, but a well-known player wrote
    /// plain ones: of the two readings the one that leads to another frame, to padding or to the end is
    /// right.
    std::uint64_t frameSize(std::string_view header, std::uint64_t position) {
        if (version_ == 2) return bigEndian(header, 3, 3);
        const std::uint32_t plain = bigEndian32(header, 4);
        if (version_ == 3) return plain;
        const std::string_view four = header.substr(4, 4);
        if (!isSynchSafe(four)) return plain;
        const std::uint32_t safe = synchSafe(four);
        if (safe == plain || leadsOn(position + frameHeader_ + safe)) return safe;
        return leadsOn(position + frameHeader_ + plain) ? plain : safe;
    }

    bool leadsOn(std::uint64_t position) {
        if (position >= body_.size()) return position == body_.size();
        const auto name = body_.at(position, 4);
        return isFrameName(name) || name == std::string_view("\0\0\0\0", name.size());
    }

    void appendFrame(std::string& frames, std::string_view header, std::uint64_t position, std::size_t size) {
        if (version_ == 4) {
            frames += header.substr(0, 4);
            appendSynchSafe(frames, size);
            frames += header.substr(8, 2);
        } else {
            frames += header;
        }
        body_.append(frames, position + frameHeader_, size);
    }

    Body& body_;
    unsigned version_;
    std::size_t nameSize_;
    std::size_t frameHeader_;
    Id3Content content_;
};

/// Where the frames begin behind an extended header. Its size does not count itself in version 2.3 and does
/// in version 2.4; a size beyond the tag is no extended header.
std::uint64_t framesBegin(Body& body, unsigned version) {
    const std::string_view four = body.at(0, 4);
    if (four.size() < 4) return 0;
    const std::uint64_t length = version == 3 ? 4 + std::uint64_t{bigEndian32(four)} : synchSafe(four);
    return length >= body.size() ? 0 : length;
}

} // namespace

std::optional<Id3View> id3ViewAt(FileReader& reader, std::uint64_t offset, std::uint64_t end,
                                 Id3Content content) {
    end = std::min(end, reader.size());
    if (offset + headerSize > end) return std::nullopt;
    const std::string header(reader.at(offset, headerSize));
    if (header.size() < headerSize || !header.starts_with("ID3") || header[4] == '\xFF' ||
        !isSynchSafe(std::string_view(header).substr(6)))
        return std::nullopt;
    const auto version = static_cast<unsigned char>(header[3]);
    const auto flags = static_cast<unsigned char>(header[5]);
    const std::uint64_t room = end - offset - headerSize;
    const std::uint64_t bodySize =
        std::min<std::uint64_t>(synchSafe(std::string_view(header).substr(6)), room);

    if (content == Id3Content::everything && bodySize > maximumTotal(content))
        reader.fail(MediaError::Case::damaged, "its tag is too large to be rewritten");

    Id3View view;
    view.sizeInFile = headerSize + bodySize;
    if (version == 4 && (flags & footerPresent) != 0)
        view.sizeInFile = std::min(view.sizeInFile + headerSize, headerSize + room);
    // Version 2.2 calls a compressed tag by the same bit, and no compression was ever defined.
    if (version < 2 || version > 4 || (version == 2 && (flags & extendedHeader) != 0)) return view;

    Body body(reader, offset + headerSize, bodySize);
    if (version < 4 && (flags & unsynchronised) != 0)
        body.decode(content == Id3Content::texts ? maximumUnsynchronised : maximumTotal(content));
    const std::uint64_t begin = (flags & extendedHeader) != 0 ? framesBegin(body, version) : 0;
    const std::string frames = FrameWalk(body, version, content).keptFrames(begin);
    if (frames.empty()) return view;

    view.bytes = header.substr(0, 5);
    view.bytes += version == 4 ? static_cast<char>(flags & unsynchronised) : '\0';
    appendSynchSafe(view.bytes, frames.size());
    view.bytes += frames;
    return view;
}

} // namespace velto::media
