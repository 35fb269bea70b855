#pragma once

#include "id3/ID3Tag.hpp"

#include <string>

/// The content of a frame, by what it holds: what stands behind the frame's header.
namespace velto::id3 {

/// A text content: encoding byte, text, terminator.
struct ID3FrameFromStringContentCreator {
    ID3StringEncoding encoding;

    /// The creator for a text: ISO-8859-1 where the text is ASCII (no player can misread that) or came in it,
    /// else UTF-16, in version 2.4 UTF-8.
    [[nodiscard]] static ID3FrameFromStringContentCreator forText(const ID3FrameWithStringContent& text,
                                                                  ID3Version version);

    /// `text` fits the encoding.
    [[nodiscard]] Bytes create(const std::string& text) const;
};

struct ID3FrameFromStringContentCreatorWithISO88591EncodingFactory {
    [[nodiscard]] static ID3FrameFromStringContentCreator make() { return {ID3StringEncoding::ISO88591}; }
};

struct ID3FrameFromStringContentCreatorWithUTF16EncodingFactory {
    [[nodiscard]] static ID3FrameFromStringContentCreator make() { return {ID3StringEncoding::UTF16}; }
};

/// Comments and lyrics. Throws invalidTagData where the language is not three letters.
struct ID3LocalizedFrameCreator {
    [[nodiscard]] static Bytes create(const ID3FrameWithLocalizedContent& frame, ID3Version version);
};

struct ID3AttachedPicturesFramesCreator {
    [[nodiscard]] static Bytes create(const ID3FrameAttachedPicture& frame, ID3Version version);
};

struct ID3GenreFrameCreator {
    [[nodiscard]] static Bytes create(const ID3FrameGenre& frame, ID3Version version);
};

struct ID3TrackPositionFrameCreator {
    [[nodiscard]] static Bytes create(const ID3FramePartOfTotal& frame, ID3Version version);
};

struct ID3DiscPositionFrameCreator : ID3TrackPositionFrameCreator {};

/// "1999-12-31T07:05", shorter where a part is absent.
struct ID3TimestampCreator {
    [[nodiscard]] static std::string create(const ID3FrameRecordingDateTime& time);
};

struct ID3RecordingDateTimeFrameCreator {
    [[nodiscard]] static Bytes create(const ID3FrameRecordingDateTime& frame, ID3Version version);
};

struct ID3RecordingDayMonthFrameCreator {
    [[nodiscard]] static Bytes create(const ID3FrameRecordingDayMonth& frame, ID3Version version);
};

struct ID3RecordingHourMinuteFrameCreator {
    [[nodiscard]] static Bytes create(const ID3FrameRecordingHourMinute& frame, ID3Version version);
};

} // namespace velto::id3
