#pragma once

#include "id3/ID3Types.hpp"
#include "platform/text/EncodedText.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velto::id3 {

/// How the bytes of one text are to be read: what a frame's encoding byte selects.
using TextForm = text::Encoding;

/// Reads the encoding byte. A byte that the standards do not know selects by version: UTF-8 for version 2.4,
/// ISO-8859-1 before.
struct ID3FrameStringEncodingDetector {
    [[nodiscard]] static TextForm detect(std::uint8_t encodingByte, ID3Version version);
};

/// Readers over platform/text/EncodedText.hpp, which a scan reads tags with: a song's texts must come out the
/// same before a rewrite and after it. They give valid UTF-8; its header tells how odd bytes are read.
struct ID3StringEncodingConverter {
    /// One text up to its terminator or the end.
    [[nodiscard]] static std::string toUTF8(ByteView bytes, TextForm form);

    /// Cuts the first text and its terminator off; what is behind them. All of it where no terminator stands.
    [[nodiscard]] static std::pair<ByteView, ByteView> splitAtTerminator(ByteView bytes, TextForm form);
};

/// The bytes of `text` in ISO-8859-1; nothing where a character has no place in it. No terminator.
struct ID3ISO88591StringToByteAdapter {
    [[nodiscard]] static std::optional<Bytes> adapt(std::string_view text);
};

/// The bytes of `text` in little-endian UTF-16 with a byte-order mark. No terminator.
struct ID3UTF16StringToByteAdapter {
    [[nodiscard]] static Bytes adapt(std::string_view text);
};

/// Takes a text content apart at its terminators: the values of a frame. Empty values, terminators and
/// padding at the end are no values.
struct PaddingRemoverUsingTrimming {
    [[nodiscard]] static std::vector<std::string> texts(ByteView bytes, TextForm form);
};

/// Terminates a content: one 0 byte, two behind UTF-16.
struct PaddingAdderToEndOfContentUsingNullChar {
    static void add(Bytes& content, ID3StringEncoding encoding);
};

} // namespace velto::id3
