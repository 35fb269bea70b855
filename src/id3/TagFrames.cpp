#include "id3/TagFrames.hpp"

#include "id3/FrameIdentifiers.hpp"

#include <zlib.h>

#include <algorithm>

namespace velto::id3 {

namespace {

constexpr std::size_t sizeLimit = std::size_t{1} << 28; ///< of a tag, and of a frame from version 2.3 on
constexpr std::size_t sizeLimit2 = std::size_t{1} << 24;

bool isNameByte(std::uint8_t byte) {
    return (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
}

bool isFilledUp(ByteView name) {
    return name.size() == 4 && (name[3] == 0 || name[3] == ' ');
}

/// The frame name of `size` bytes at the front, what fills it up included; empty if there is none.
std::string_view nameAt(ByteView bytes, std::size_t size) {
    if (bytes.size() < size) return {};
    const ByteView name = bytes.first(size);
    const ByteView letters = isFilledUp(name) ? name.first(3) : name;
    return std::all_of(letters.begin(), letters.end(), isNameByte) ? asText(name) : std::string_view();
}

std::string_view trimmedName(std::string_view name) {
    return isFilledUp(asBytes(name)) ? name.substr(0, 3) : name;
}

/// A single 0 may as well be the middle of a frame.
bool isPadding(ByteView bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

bool hasHighBit(ByteView bytes) {
    return std::any_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte > 0x7F; });
}

} // namespace

std::optional<ID3Version> TagHeader::knownVersion() const {
    if (version < 2 || version > 4 || revision != 0) return std::nullopt;
    return static_cast<ID3Version>(version);
}

std::optional<TagHeader> tagHeader(ByteView data) {
    if (data.size() < tagHeaderSize || !asText(data).starts_with("ID3")) return std::nullopt;
    const auto size = data.subspan<6, 4>();
    return TagHeader{data[3], data[4], data[5], synchsafe(size), hasHighBit(size)};
}

Bytes tagHeaderBytes(ID3Version version, std::size_t bodySize, std::uint8_t flags) {
    if (bodySize >= sizeLimit) throw ID3TagEditorError(ID3TagEditorError::Case::tagTooBig);
    Bytes header{'I', 'D', '3', static_cast<std::uint8_t>(version), 0, flags};
    append(header, synchsafeBytes(static_cast<std::uint32_t>(bodySize)));
    return header;
}

ByteView TagBodyInMemory::at(std::uint64_t position, std::size_t length) {
    if (position >= bytes_.size()) return {};
    const auto rest = bytes_.subspan(static_cast<std::size_t>(position));
    return rest.first(std::min(length, rest.size()));
}

std::string_view FrameHeader::identifier() const {
    return trimmedName(name);
}

void appendFrameHeader(Bytes& out, std::string_view name, std::size_t contentSize, ID3Version version,
                       std::uint8_t status, std::uint8_t format) {
    const bool is2 = version == ID3Version::version2;
    if (contentSize >= (is2 ? sizeLimit2 : sizeLimit))
        throw ID3TagEditorError(ID3TagEditorError::Case::tagTooBig);
    const auto size = static_cast<std::uint32_t>(contentSize);
    append(out, asBytes(name));
    append(out, ByteView(version == ID3Version::version4 ? synchsafeBytes(size) : bigEndianBytes(size))
                    .subspan(is2 ? 1 : 0));
    if (!is2) out.insert(out.end(), {status, format});
}

FrameWalk::FrameWalk(TagBody& body, const TagHeader& header)
    : body_(body)
    , version_(static_cast<ID3Version>(header.version))
    , nameSize_(version_ == ID3Version::version2 ? 3 : 4)
    , headerSize_(version_ == ID3Version::version2 ? 6 : 10) {
    if (header.hasExtendedHeader()) skipExtendedHeader();
}

/// A flag without such a header (a known frame is there, or the letters of another frame's name, which
/// are not a size) is ignored. The size counts its own field in version 2.4 only.
void FrameWalk::skipExtendedHeader() {
    const ByteView front = body_.at(0, 4);
    if (front.size() < 4 || frameDescription(trimmedName(nameAt(front, 4))) != nullptr) return;
    const std::uint64_t size =
        version_ == ID3Version::version4 ? synchsafe(front.first<4>()) : std::uint64_t{bigEndian(front)} + 4;
    if (size <= body_.size()) position_ = std::max<std::uint64_t>(size, 4);
}

std::optional<FrameHeader> FrameWalk::next() {
    const ByteView view = body_.at(position_, headerSize_);
    const std::string_view name = view.size() < headerSize_ ? std::string_view() : nameAt(view, nameSize_);
    if (name.empty()) return std::nullopt;
    FrameHeader frame{std::string(name)};
    if (version_ != ID3Version::version2) {
        frame.status = view[8];
        frame.format = view[9];
    }
    frame.begin = position_ + headerSize_;
    frame.size = contentSize(view);
    if (frame.size > body_.size() - frame.begin) return std::nullopt;
    position_ = frame.begin + frame.size;
    return frame;
}

/// The standards say synchsafe for version 2.4 and plain before; writers of either kind exist that do the
/// other, so a size that leads nowhere is tried the other way.
std::uint64_t FrameWalk::contentSize(ByteView header) {
    if (version_ == ID3Version::version2) return bigEndian(header.subspan(3, 3));
    const auto field = header.subspan(4, 4).first<4>();
    const std::uint64_t plain = bigEndian(field);
    const std::uint64_t safe = synchsafe(field);
    if (hasHighBit(field) || safe == plain) return plain;
    const bool is4 = version_ == ID3Version::version4;
    const std::uint64_t standard = is4 ? safe : plain;
    const std::uint64_t other = is4 ? plain : safe;
    const std::uint64_t begin = position_ + headerSize_;
    return leadsOn(begin + standard) || !leadsOn(begin + other) ? standard : other;
}

/// Whether a frame, padding or the tag's end is there.
bool FrameWalk::leadsOn(std::uint64_t position) {
    if (position >= body_.size()) return position == body_.size();
    const ByteView there = body_.at(position, headerSize_);
    return isPadding(there) || !nameAt(there, nameSize_).empty();
}

std::optional<ByteView> FrameContents::content(ByteView frame, std::uint8_t format) {
    const bool grouped = (format & (is4_ ? 0x40 : 0x20)) != 0;
    const bool encrypted = (format & (is4_ ? 0x04 : 0x40)) != 0;
    const bool compressed = isCompressed(format);
    const bool hasLength = is4_ ? (format & 0x01) != 0 : compressed;
    const std::size_t extra = (grouped ? 1U : 0U) + (hasLength ? 4U : 0U);
    if (encrypted || extra > frame.size() || (compressed && !hasLength)) return std::nullopt;
    // The group comes before the length in version 2.4, after it in 2.3.
    const ByteView length = frame.subspan(is4_ && grouped ? 1 : 0, hasLength ? 4 : 0);
    frame = frame.subspan(extra);
    if (is4_ && (everyFrameIsUnsynchronised_ || (format & 0x02) != 0)) {
        undone_.assign(frame.begin(), frame.end());
        undoUnsynchronisation(undone_);
        frame = undone_;
    }
    if (!compressed) return frame;
    return inflated(frame, is4_ ? synchsafe(length.first<4>()) : bigEndian(length));
}

std::optional<ByteView> FrameContents::inflated(ByteView packed, std::size_t length) {
    if (length > inflatable_) return std::nullopt;
    inflatable_ -= length;
    inflated_.resize(length);
    uLongf got = length;
    const int status = ::uncompress(inflated_.data(), &got, packed.data(), packed.size());
    if (status != Z_OK || got != length) return std::nullopt;
    return inflated_;
}

void undoUnsynchronisation(Bytes& bytes) {
    const auto isSync = [](std::uint8_t first, std::uint8_t second) {
        return first == 0xFF && second >= 0xE0;
    };
    if (std::adjacent_find(bytes.begin(), bytes.end(), isSync) != bytes.end()) return;
    std::size_t kept = 0;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[kept++] = bytes[index];
        if (bytes[index] == 0xFF && index + 1 < bytes.size() && bytes[index + 1] == 0) ++index;
    }
    bytes.resize(kept);
}

} // namespace velto::id3
