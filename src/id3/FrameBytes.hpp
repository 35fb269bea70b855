#pragma once

#include "id3/ID3Tag.hpp"

/// The content of a frame, what follows the frame's header, by what it holds. ASCII is written as
/// ISO-8859-1, which no player can misread, and so is a text that came in it; any other as UTF-16, in
/// version 2.4 as UTF-8.
namespace velto::id3 {

[[nodiscard]] Bytes contentBytes(const ID3FrameWithStringContent& frame, ID3Version version);
[[nodiscard]] Bytes contentBytes(const ID3FrameWithIntegerContent& frame, ID3Version version);
/// Comments and lyrics. Throws invalidTagData if the language is not three letters.
[[nodiscard]] Bytes contentBytes(const ID3FrameWithLocalizedContent& frame, ID3Version version);
[[nodiscard]] Bytes contentBytes(const ID3FrameGenre& frame, ID3Version version);
[[nodiscard]] Bytes contentBytes(const ID3FramePartOfTotal& frame, ID3Version version);
[[nodiscard]] Bytes contentBytes(const ID3FrameAttachedPicture& frame, ID3Version version);
/// "1999-12-31T07:05", shorter if a part is absent.
[[nodiscard]] Bytes contentBytes(const ID3FrameRecordingDateTime& frame, ID3Version version);
[[nodiscard]] Bytes contentBytes(const ID3FrameRecordingDayMonth& frame, ID3Version version);
[[nodiscard]] Bytes contentBytes(const ID3FrameRecordingHourMinute& frame, ID3Version version);

} // namespace velto::id3
