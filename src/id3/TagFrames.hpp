#pragma once

#include "id3/ID3Types.hpp"

#include <optional>
#include <string>
#include <string_view>

/// The one reader of a tag's layout: where its frames lie, and what their flags did to them. A scan and a
/// rewrite both use it, so that a file cannot read one way in the one and another way in the other.
namespace velto::id3 {

/// The ten bytes in front of a tag.
struct TagHeader {
    std::uint8_t version = 3; ///< as the header has it, any number
    std::uint8_t revision = 0;
    std::uint8_t flags = 0;
    std::uint32_t size = 0; ///< declared bytes between header and footer, below 2^28
    /// A byte of the size has its high bit set. Programs read such a size in more than one way.
    bool hasDoubtfulSize = false;

    /// Absent for a version or revision that is not in the published standards.
    [[nodiscard]] std::optional<ID3Version> knownVersion() const;

    [[nodiscard]] bool isUnsynchronised() const { return (flags & 0x80) != 0; }

    [[nodiscard]] bool hasExtendedHeader() const { return version != 2 && (flags & 0x40) != 0; }

    /// As a whole, which only version 2.2 has a flag for; no scheme was ever published.
    [[nodiscard]] bool isCompressed() const { return version == 2 && (flags & 0x40) != 0; }

    [[nodiscard]] bool hasFooter() const { return version == 4 && (flags & 0x10) != 0; }

    /// Up to version 2.3 the scheme covers the whole body, frame sizes not counting it; in 2.4 each frame
    /// alone.
    [[nodiscard]] bool isUnsynchronisedAsAWhole() const { return version != 4 && isUnsynchronised(); }

    [[nodiscard]] bool everyFrameIsUnsynchronised() const { return version == 4 && isUnsynchronised(); }
};

/// The header that `data` begins with; absent without "ID3" or if fewer than ten bytes are there.
[[nodiscard]] std::optional<TagHeader> tagHeader(ByteView data);

/// The header in front of `bodySize` bytes (frames and padding). Throws tagTooBig from 2^28 on.
[[nodiscard]] Bytes tagHeaderBytes(ID3Version version, std::size_t bodySize, std::uint8_t flags = 0);

/// The bytes between a tag's header and its end, wherever they are held. Tag-wide unsynchronisation is
/// undone.
class TagBody {
  public:
    TagBody() = default;
    virtual ~TagBody() = default;
    TagBody(const TagBody&) = delete;
    TagBody& operator=(const TagBody&) = delete;

    [[nodiscard]] virtual std::uint64_t size() const = 0;
    /// Up to `length` bytes (at most 64 KiB) from `position`, fewer only at the end. Valid until the next
    /// call.
    [[nodiscard]] virtual ByteView at(std::uint64_t position, std::size_t length) = 0;
};

/// A body in memory, which outlives this.
class TagBodyInMemory final : public TagBody {
  public:
    explicit TagBodyInMemory(ByteView bytes)
        : bytes_(bytes) {}

    [[nodiscard]] std::uint64_t size() const override { return bytes_.size(); }

    [[nodiscard]] ByteView at(std::uint64_t position, std::size_t length) override;

  private:
    ByteView bytes_;
};

/// Where a frame lies and what its header says.
struct FrameHeader {
    std::string name;        ///< as the tag has it: three characters in version 2.2, four later
    std::uint8_t status = 0; ///< flags of the frame; none in version 2.2
    std::uint8_t format = 0; ///< flags of its content: see FrameContents
    std::uint64_t begin = 0; ///< of the content, in the body
    std::uint64_t size = 0;  ///< of the content, as it is in the body

    /// The name without what fills it up: some writers put three-character names of version 2.2 into a later
    /// tag, with a zero or a blank as the fourth.
    [[nodiscard]] std::string_view identifier() const;
};

/// A frame's name, size and flags as bytes. Throws tagTooBig if the version has no room for the size.
void appendFrameHeader(Bytes& out, std::string_view name, std::size_t contentSize, ID3Version version,
                       std::uint8_t status = 0, std::uint8_t format = 0);

/// Goes from frame to frame and looks at their headers alone: what a caller does not ask for is never read.
class FrameWalk {
  public:
    /// `body` outlives the walk. The header's version is a known one.
    FrameWalk(TagBody& body, const TagHeader& header);

    /// The next frame; absent at the end, at padding, and if there is no frame or one would leave the tag.
    [[nodiscard]] std::optional<FrameHeader> next();

    /// Where the next frame would begin: after the last one that was given.
    [[nodiscard]] std::uint64_t position() const { return position_; }

  private:
    void skipExtendedHeader();
    [[nodiscard]] std::uint64_t contentSize(ByteView header);
    [[nodiscard]] bool leadsOn(std::uint64_t position);

    TagBody& body_;
    ID3Version version_;
    std::size_t nameSize_;
    std::size_t headerSize_;
    std::uint64_t position_ = 0;
};

/// Gives the frames of one tag as they were before their format flags: inflated, their unsynchronisation
/// undone.
class FrameContents {
  public:
    /// `mostInflated` bytes are given out of compressed frames in all.
    FrameContents(const TagHeader& header, std::size_t mostInflated)
        : is4_(header.version == 4)
        , everyFrameIsUnsynchronised_(header.everyFrameIsUnsynchronised())
        , inflatable_(mostInflated) {}

    /// The content of a frame whose bytes and format flags these are; valid as long as `frame` and until the
    /// next call. Absent if it is encrypted, broken, or inflates to more than is left or than it says.
    [[nodiscard]] std::optional<ByteView> content(ByteView frame, std::uint8_t format);

    [[nodiscard]] bool isCompressed(std::uint8_t format) const {
        return (format & (is4_ ? 0x08 : 0x80)) != 0;
    }

  private:
    [[nodiscard]] std::optional<ByteView> inflated(ByteView packed, std::size_t length);

    bool is4_;
    bool everyFrameIsUnsynchronised_;
    std::size_t inflatable_;
    Bytes undone_;
    Bytes inflated_;
};

/// Takes out the zero byte that follows every 0xFF. Bytes that the scheme cannot have made (only its flag was
/// set) stay as they are.
void undoUnsynchronisation(Bytes& bytes);

} // namespace velto::id3
