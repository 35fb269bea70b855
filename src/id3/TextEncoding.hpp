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

/// What an encoding byte selects. A byte that the standards do not know selects by version: UTF-8 for
/// version 2.4, ISO-8859-1 before.
[[nodiscard]] TextForm textForm(std::uint8_t encodingByte, ID3Version version);

/// One text up to its terminator or the end, as valid UTF-8; platform/text/EncodedText.hpp says how odd bytes
/// are read.
[[nodiscard]] std::string textUpToTerminator(ByteView bytes, TextForm form);

/// Cuts the first text and its terminator off; what follows them. All of it if there is no terminator.
[[nodiscard]] std::pair<ByteView, ByteView> splitAtTerminator(ByteView bytes, TextForm form);

/// The bytes of `text` in ISO-8859-1, without a terminator; nothing if a character has no place in it.
[[nodiscard]] std::optional<Bytes> latin1Bytes(std::string_view text);

/// The bytes of `text` in little-endian UTF-16 with a byte-order mark, without a terminator.
[[nodiscard]] Bytes utf16Bytes(std::string_view text);

/// Terminates a content: one 0 byte, two after UTF-16.
void appendTerminator(Bytes& content, ID3StringEncoding encoding);

/// What a text frame holds.
struct TextValues {
    TextForm form;
    std::vector<std::string> values; ///< valid UTF-8; terminators and empty values are left out

    /// All values as one text, with "/" between them, the standard's own separator of version 2.3.
    [[nodiscard]] std::string joined() const;
};

/// The values of a text frame's content, whose first byte says how the others are encoded; not empty.
[[nodiscard]] TextValues textValues(ByteView content, ID3Version version);

} // namespace velto::id3
