#include "id3/ID3TagParser.hpp"

#include "id3/FrameIdentifiers.hpp"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace velto::id3 {

namespace {

constexpr std::size_t headerSize = ID3TagConfiguration::tagHeaderSizeInBytes;
constexpr std::size_t flagsOffset = 5;

namespace tag_flag {
constexpr std::uint8_t unsynchronised = 0x80;
constexpr std::uint8_t extendedHeader = 0x40; // versions 2.3 and 2.4
constexpr std::uint8_t compressed = 0x40;     // version 2.2: no scheme was ever published
} // namespace tag_flag

bool isIdentifierByte(std::uint8_t byte) {
    return (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
}

/// The frame identifier at the front of `bytes`; empty where none stands there. Some writers put the
/// three-character names of version 2.2 into a 2.3 tag, filled up with a zero or a blank.
std::string_view identifierAt(ByteView bytes, std::size_t length) {
    if (bytes.size() < length || !std::all_of(bytes.begin(), bytes.begin() + 3, isIdentifierByte)) return {};
    const bool isShort = length == 4 && (bytes[3] == 0 || bytes[3] == ' ');
    if (length == 4 && !isShort && !isIdentifierByte(bytes[3])) return {};
    return {reinterpret_cast<const char*>(bytes.data()), isShort ? 3 : length};
}

/// What stands behind the extended header. A flag without such a header (a known frame stands there, or the
/// letters of another frame's name, which are no size) is ignored.
ByteView behindExtendedHeader(ByteView body, ID3Version version) {
    if (body.size() < 4 || frameDescription(identifierAt(body, 4)) != nullptr) return body;
    // Version 2.3 does not count the size field itself, 2.4 does.
    const std::size_t size = version == ID3Version::version4
                                 ? SynchsafeIntegerDecoder::decode(body.first<4>())
                                 : std::size_t{bigEndian(body.first(4))} + 4;
    return size > body.size() ? body : body.subspan(std::max<std::size_t>(size, 4));
}

/// Whether padding stands there. A single 0 may as well be the middle of a frame.
bool isPadding(ByteView bytes) {
    const ByteView front = bytes.first(std::min<std::size_t>(bytes.size(), 10));
    return std::all_of(front.begin(), front.end(), [](std::uint8_t byte) { return byte == 0; });
}

/// A walk that ends before its tag does leaves frames behind. What of them would have been read counts as
/// unreadable, so that nobody takes the tag for whole.
void noteUnreached(ByteView rest, ID3Tag& tag) {
    static constexpr std::array<std::string_view, 14> names{"TIT2", "TPE1", "TALB", "TPE2", "TRCK",
                                                            "TPOS", "APIC", "TT2",  "TP1",  "TAL",
                                                            "TP2",  "TRK",  "TPA",  "PIC"};
    const std::size_t length = ID3TagConfiguration::identifierSize(tag.properties.version);
    const std::string_view text(reinterpret_cast<const char*>(rest.data()), rest.size());
    for (const std::string_view name : names)
        if (name.size() == length && text.find(name) != std::string_view::npos)
            tag.unreadable.insert(frameDescription(name)->kind);
}

/// Whether a frame that ends at `end` leaves the walk at a frame, at padding or at the end of the body.
bool endsPlausibly(ByteView body, std::size_t end, std::size_t identifierSize) {
    if (end > body.size()) return false;
    const ByteView rest = body.subspan(end);
    return isPadding(rest) || !identifierAt(rest, identifierSize).empty();
}

/// The frame size at the front of the walk. The standards say synchsafe for 2.4 and plain for 2.3; writers of
/// either kind exist that do the other, so a size that leads nowhere is tried the other way.
struct ID3FrameSizeParser {
    static std::size_t parse(ByteView body, ID3Version version) {
        if (version == ID3Version::version2) return bigEndian(body.subspan(3, 3));
        const auto field = body.subspan<4, 4>();
        const std::size_t plain = bigEndian(field);
        const std::size_t synchsafe = SynchsafeIntegerDecoder::decode(field);
        const bool mayBeSynchsafe =
            std::none_of(field.begin(), field.end(), [](auto byte) { return byte > 0x7F; });
        const std::size_t standard = version == ID3Version::version4 && mayBeSynchsafe ? synchsafe : plain;
        const std::size_t other = standard == plain && mayBeSynchsafe ? synchsafe : plain;
        if (other == standard || endsPlausibly(body, 10 + standard, 4)) return standard;
        return endsPlausibly(body, 10 + other, 4) ? other : standard;
    }
};

/// Undoes what the format flags say was done to frames of one tag. The views that it gives last until its
/// next call.
class ID3FrameContentSizeParser {
  public:
    ID3FrameContentSizeParser(ID3Version version, bool everyFrameUnsynchronised)
        : is4_(version == ID3Version::version4)
        , everyFrameUnsynchronised_(everyFrameUnsynchronised) {}

    /// A frame's bytes reduced to its content. Nothing where the content cannot be had.
    std::optional<ByteView> content(ByteView frame, std::uint8_t flags) {
        const bool grouped = (flags & (is4_ ? 0x40 : 0x20)) != 0;
        const bool compressed = (flags & (is4_ ? 0x08 : 0x80)) != 0;
        const bool encrypted = (flags & (is4_ ? 0x04 : 0x40)) != 0;
        const bool hasLength = is4_ ? (flags & 0x01) != 0 : compressed;
        const std::size_t extra = (grouped ? 1U : 0U) + (hasLength ? 4U : 0U);
        if (encrypted || extra > frame.size() || (compressed && !hasLength)) return std::nullopt;
        // The group stands in front of the length in 2.4, behind it in 2.3.
        const ByteView length = frame.subspan(is4_ && grouped ? 1 : 0, hasLength ? 4 : 0);
        frame = frame.subspan(extra);
        if (is4_ && (everyFrameUnsynchronised_ || (flags & 0x02) != 0))
            frame = undone_ = undoUnsynchronisation(frame);
        if (!compressed) return frame;
        return inflated(frame, is4_ ? SynchsafeIntegerDecoder::decode(length.first<4>()) : bigEndian(length));
    }

  private:
    static constexpr std::size_t mostInflated = std::size_t{64} << 20;

    std::optional<ByteView> inflated(ByteView packed, std::size_t length) {
        if (length > inflatable_) return std::nullopt;
        inflatable_ -= length;
        inflated_.resize(length);
        uLongf got = length;
        const int status = ::uncompress(inflated_.data(), &got, packed.data(), packed.size());
        if (status != Z_OK || got != length) return std::nullopt;
        return inflated_;
    }

    bool is4_;
    bool everyFrameUnsynchronised_;
    std::size_t inflatable_ = mostInflated; ///< what is left of the memory that one tag may ask for
    Bytes undone_;
    Bytes inflated_;
};

} // namespace

std::optional<ID3Version> ID3TagVersionParser::parse(ByteView data) {
    if (data.size() < 4 || data[3] < 2 || data[3] > 4) return std::nullopt;
    return static_cast<ID3Version>(data[3]);
}

bool ID3TagPresence::isPresent(ByteView data, std::optional<ID3Version> version) {
    if (data.size() < 5 || !version) return false;
    const auto header = ID3TagConfiguration::header(*version);
    return std::equal(header.begin(), header.end(), data.begin());
}

std::uint32_t ID3TagSizeParser::parse(ByteView data) {
    return SynchsafeIntegerDecoder::decode(data.subspan<ID3TagConfiguration::tagBytesOffset, 4>());
}

std::optional<ID3Tag> ID3TagParser::parse(ByteView data) {
    const auto version = ID3TagVersionParser::parse(data);
    if (!ID3TagPresence::isPresent(data, version)) return std::nullopt;
    if (data.size() < headerSize) throw ID3TagEditorError(ID3TagEditorError::Case::corruptedFile);
    ID3Tag tag{{*version, ID3TagSizeParser::parse(data)}, {}};
    if (data.size() - headerSize < tag.properties.size)
        throw ID3TagEditorError(ID3TagEditorError::Case::corruptedFile);

    const std::uint8_t flags = data[flagsOffset];
    const bool unsynchronised = (flags & tag_flag::unsynchronised) != 0;
    if (*version == ID3Version::version2 && (flags & tag_flag::compressed) != 0) {
        for (int kind = FrameName::picture; kind <= FrameName::iTunesPodcastKeywords; ++kind)
            tag.unreadable.insert(static_cast<FrameName::Kind>(kind));
        return tag;
    }
    ByteView body = data.subspan(headerSize, tag.properties.size);
    Bytes undone;
    // Up to 2.3 the scheme covers the whole tag, sizes not included; in 2.4 each frame by itself.
    if (unsynchronised && *version != ID3Version::version4) body = undone = undoUnsynchronisation(body);
    if (*version != ID3Version::version2 && (flags & tag_flag::extendedHeader) != 0)
        body = behindExtendedHeader(body, *version);
    ID3FramesParser::parse(body, unsynchronised, tag);
    return tag;
}

void ID3FramesParser::parse(ByteView body, bool everyFrameUnsynchronised, ID3Tag& tag) {
    const ID3Version version = tag.properties.version;
    const std::size_t frameHeaderSize = ID3TagConfiguration::frameHeaderSize(version);
    ID3FrameContentSizeParser contentParser(version, everyFrameUnsynchronised);
    while (body.size() > frameHeaderSize) {
        const std::string_view identifier = identifierAt(body, ID3TagConfiguration::identifierSize(version));
        if (identifier.empty()) return noteUnreached(body, tag);
        const std::size_t size = ID3FrameSizeParser::parse(body, version);
        if (size > body.size() - frameHeaderSize) return noteUnreached(body, tag);
        const std::uint8_t flags = version == ID3Version::version2 ? 0 : body[9];
        const FrameDescription* known = frameDescription(identifier);
        if (known != nullptr && size > 0) {
            const auto content = contentParser.content(body.subspan(frameHeaderSize, size), flags);
            if (!content) tag.unreadable.insert(known->kind);
            if (content && !content->empty()) ID3FrameParser::parse(identifier, *content, tag);
        }
        body = body.subspan(frameHeaderSize + size);
    }
}

Bytes undoUnsynchronisation(ByteView bytes) {
    // The scheme leaves no such pair: the flag is there, but nothing was done.
    const auto isSync = [](std::uint8_t first, std::uint8_t second) {
        return first == 0xFF && second >= 0xE0;
    };
    if (std::adjacent_find(bytes.begin(), bytes.end(), isSync) != bytes.end())
        return {bytes.begin(), bytes.end()};
    Bytes out;
    out.reserve(bytes.size());
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        out.push_back(bytes[index]);
        if (bytes[index] == 0xFF && index + 1 < bytes.size() && bytes[index + 1] == 0) ++index;
    }
    return out;
}

} // namespace velto::id3
