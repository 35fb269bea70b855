#pragma once

#include "platform/core/Error.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Our ID3v2 engine: reads versions 2.2, 2.3 and 2.4 as they are met in the wild, writes all three. Nothing
/// in it keeps state between calls; any thread may use it on files of its own.
namespace velto::id3 {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

enum class ID3Version : std::uint8_t { version2 = 2, version3 = 3, version4 = 4 };

enum class ID3StringEncoding : std::uint8_t { ISO88591 = 0, UTF16 = 1, UTF8 = 3 };

/// What the engine finds wrong. A failed system call is a SystemError instead.
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

/// The fixed head of a tag: "ID3", major version, revision 0, flags, synchsafe size.
struct ID3TagConfiguration {
    static constexpr std::size_t tagHeaderSizeInBytes = 10;
    static constexpr std::size_t tagBytesOffset = 6; ///< of the four size bytes

    [[nodiscard]] static constexpr std::array<std::uint8_t, 5> header(ID3Version version) {
        return {'I', 'D', '3', static_cast<std::uint8_t>(version), 0};
    }

    [[nodiscard]] static constexpr std::size_t frameHeaderSize(ID3Version version) {
        return version == ID3Version::version2 ? 6 : 10;
    }

    [[nodiscard]] static constexpr std::size_t identifierSize(ID3Version version) {
        return version == ID3Version::version2 ? 3 : 4;
    }
};

/// Sizes that hold 7 bits a byte, most significant first, so that no byte of them looks like audio.
struct SynchsafeIntegerDecoder {
    [[nodiscard]] static constexpr std::uint32_t decode(std::span<const std::uint8_t, 4> bytes) {
        return (bytes[0] & 0x7FU) << 21 | (bytes[1] & 0x7FU) << 14 | (bytes[2] & 0x7FU) << 7 |
               (bytes[3] & 0x7FU);
    }
};

struct SynchsafeIntegerEncoder {
    /// `value` is below 2^28.
    [[nodiscard]] static constexpr std::array<std::uint8_t, 4> encode(std::uint32_t value) {
        return {static_cast<std::uint8_t>(value >> 21 & 0x7F), static_cast<std::uint8_t>(value >> 14 & 0x7F),
                static_cast<std::uint8_t>(value >> 7 & 0x7F), static_cast<std::uint8_t>(value & 0x7F)};
    }
};

/// Big-endian number of all the bytes (at most four).
[[nodiscard]] constexpr std::uint32_t bigEndian(ByteView bytes) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

struct UInt32ToByteArrayAdapterUsingUnsafePointer {
    [[nodiscard]] static constexpr std::array<std::uint8_t, 4> bytes(std::uint32_t value) {
        return {static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
                static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
    }
};

} // namespace velto::id3
