#pragma once

#include "id3/ID3Tag.hpp"

#include <array>
#include <optional>
#include <string_view>

namespace velto::id3 {

/// How a frame's content is laid out, in the order of ID3Frame's alternatives.
enum class FrameContent : std::uint8_t {
    text,
    integer,
    localized,
    genre,
    partOfTotal,
    picture,
    dateTime,
    dayMonth,
    hourMinute,
};

struct FrameDescription {
    FrameName::Kind kind;
    FrameContent content;
    std::string_view identifier2; ///< empty if the version has no such frame
    std::string_view identifier3;
    std::string_view identifier4;

    [[nodiscard]] std::string_view identifier(ID3Version version) const {
        return version == ID3Version::version2   ? identifier2
               : version == ID3Version::version3 ? identifier3
                                                 : identifier4;
    }
};

/// How the head of a picture frame is laid out: the MIME type as a terminated text, in version 2.2 three
/// characters in its place; the byte of the picture's type comes right after it.
struct ID3AttachedPictureFrameConfiguration {
    bool hasShortFormat;

    [[nodiscard]] static ID3AttachedPictureFrameConfiguration forVersion(ID3Version version) {
        return {version == ID3Version::version2};
    }

    /// The MIME text of a format that has a name; empty for any other.
    [[nodiscard]] std::string_view mimeType(ID3PictureFormat format) const {
        if (format == ID3PictureFormat::jpeg) return hasShortFormat ? "JPG" : "image/jpeg";
        if (format == ID3PictureFormat::png) return hasShortFormat ? "PNG" : "image/png";
        return {};
    }
};

/// The frames that a rewrite carries over, in the order in which they are written; of pictures only the front
/// cover. A tag that cannot be read to its end is looked through for their names.
inline constexpr std::array<FrameName::Kind, 7> carriedKinds{
    FrameName::title,         FrameName::artist,       FrameName::album,   FrameName::albumArtist,
    FrameName::trackPosition, FrameName::discPosition, FrameName::picture,
};

/// The one list that reading and writing share.
[[nodiscard]] const FrameDescription& frameDescription(FrameName::Kind kind);

/// What a frame read from a tag is; nothing for a frame that we do not know. Identifiers that the standards
/// gave to another version are understood as well: taggers mix them.
[[nodiscard]] const FrameDescription* frameDescription(std::string_view identifier);

} // namespace velto::id3
