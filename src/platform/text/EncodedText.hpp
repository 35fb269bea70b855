#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Texts in the encodings that audio tags use. The results are always valid UTF-8: what an encoding does not
/// allow becomes U+FFFD. Any thread may call.
namespace velto::text {

enum class Encoding : std::uint8_t { latin1, utf16, utf16BigEndian, utf8 };

/// A number that is not a character becomes U+FFFD.
void appendUtf8(std::string& text, char32_t character);

/// Takes one character off the front of `bytes`, which are not empty; a broken sequence gives U+FFFD and
/// takes one byte.
[[nodiscard]] char32_t takeUtf8(std::string_view& bytes);

/// All of `bytes`, byte-order mark left out. UTF-16 without its mark (taggers forget it) is read in the order
/// that gives the likelier text, little-endian if both do.
[[nodiscard]] std::string toUtf8(std::string_view bytes, Encoding encoding);

/// Bytes of an unknown encoding: as UTF-8 if they are valid, else as Latin-1, in which every byte is a
/// character.
[[nodiscard]] std::string toUtf8OrLatin1(std::string_view bytes);

/// The first text without its terminator (a zero character), and what follows it; all of it and nothing if
/// there is no terminator. The views are of `bytes`.
[[nodiscard]] std::pair<std::string_view, std::string_view> splitAtTerminator(std::string_view bytes,
                                                                              Encoding encoding);

/// The texts between terminators, empty ones left out. A UTF-16 text without a mark has the order of the one
/// before it.
[[nodiscard]] std::vector<std::string> terminatedTexts(std::string_view bytes, Encoding encoding);

} // namespace velto::text
