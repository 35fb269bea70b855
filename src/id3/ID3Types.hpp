#pragma once

#include "platform/core/Error.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

/// ID3v2 tags: reads versions 2.2, 2.3 and 2.4 as they are met in the wild, writes all three. Bytes in memory
/// come in and go out; files are somebody else's. Nothing here keeps state between calls: any thread may
/// call.
namespace velto::id3 {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

enum class ID3Version : std::uint8_t { version2 = 2, version3 = 3, version4 = 4 };

enum class ID3StringEncoding : std::uint8_t { ISO88591 = 0, UTF16 = 1, UTF8 = 3 };

/// What is wrong with a tag or with the file that has it. A failed system call is a SystemError
/// instead.
class ID3TagEditorError : public Error {
  public:
    enum class Case {
        invalidFileFormat, ///< the path's extension is not mp3
        tagTooBig,         ///< frames of 2^28 bytes and more have no size in the format
        invalidTagData,    ///< a tag that cannot be written: a value of the wrong kind for its frame
        corruptedFile,     ///< the tag declares more bytes than the file has
    };

    explicit ID3TagEditorError(Case kind);

    [[nodiscard]] Case kind() const { return kind_; }

  private:
    Case kind_;
};

/// "ID3", major version, revision, flags, synchsafe size.
inline constexpr std::size_t tagHeaderSize = 10;

/// Sizes that hold 7 bits a byte, most significant first, so that no byte of them looks like audio.
[[nodiscard]] constexpr std::uint32_t synchsafe(std::span<const std::uint8_t, 4> bytes) {
    return (bytes[0] & 0x7FU) << 21 | (bytes[1] & 0x7FU) << 14 | (bytes[2] & 0x7FU) << 7 | (bytes[3] & 0x7FU);
}

/// `value` is below 2^28.
[[nodiscard]] constexpr std::array<std::uint8_t, 4> synchsafeBytes(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value >> 21 & 0x7F), static_cast<std::uint8_t>(value >> 14 & 0x7F),
            static_cast<std::uint8_t>(value >> 7 & 0x7F), static_cast<std::uint8_t>(value & 0x7F)};
}

/// Big-endian number of all the bytes (at most four).
[[nodiscard]] constexpr std::uint32_t bigEndian(ByteView bytes) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

[[nodiscard]] constexpr std::array<std::uint8_t, 4> bigEndianBytes(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
            static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

/// The same bytes, seen as the other kind.
[[nodiscard]] inline std::string_view asText(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

[[nodiscard]] inline ByteView asBytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline void append(Bytes& out, ByteView bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

} // namespace velto::id3
