#pragma once

#include "id3/ID3Types.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>

namespace velto::id3 {

/// The published list's numbers; only the one that is carried over by name has a name here.
enum class ID3PictureType : std::uint8_t {
    other = 0,
    fileIcon = 1,
    frontCover = 3,
    backCover = 4,
    leaflet = 5
};

enum class ID3PictureFormat : std::uint8_t { jpeg, png, other };

/// A place in the published genre list: its number.
enum class ID3Genre : std::uint8_t {};

/// A text frame. Several values of a version 2.4 frame are one text here, joined by "/".
struct ID3FrameWithStringContent {
    std::string content; ///< UTF-8
    /// Where the text came from: an ISO-8859-1 text goes back with its very bytes, whatever code page its
    /// author had meant by them.
    std::optional<ID3StringEncoding> encoding{};

    bool operator==(const ID3FrameWithStringContent& other) const { return content == other.content; }
};

struct ID3FrameWithIntegerContent {
    std::optional<std::int64_t> value;
    bool operator==(const ID3FrameWithIntegerContent&) const = default;
};

struct ID3FrameWithLocalizedContent {
    std::string language; ///< three letters of ISO 639-2
    std::string contentDescription;
    std::string content;
    bool operator==(const ID3FrameWithLocalizedContent&) const = default;
};

struct ID3FrameGenre {
    std::optional<ID3Genre> identifier;
    std::optional<std::string> description; ///< the text; the published name if the frame holds a number only
    bool operator==(const ID3FrameGenre&) const = default;
};

struct ID3FramePartOfTotal {
    int position = 0;
    std::optional<int> total;
    /// As it stood in the file, written back as it is: leading zeros and record sides ("A1") survive.
    std::string text{};
    bool operator==(const ID3FramePartOfTotal&) const = default;
};

struct ID3FrameAttachedPicture {
    Bytes picture;
    ID3PictureFormat format = ID3PictureFormat::jpeg;
    ID3PictureType type = ID3PictureType::frontCover;
    std::string mimeType{}; ///< of a picture whose format is `other`
    bool operator==(const ID3FrameAttachedPicture&) const = default;
};

struct ID3FrameRecordingDateTime {
    std::optional<int> year;
    std::optional<int> month;
    std::optional<int> day;
    std::optional<int> hour;
    std::optional<int> minute;
    bool operator==(const ID3FrameRecordingDateTime&) const = default;
};

struct ID3FrameRecordingDayMonth {
    int day = 0;
    int month = 0;
    bool operator==(const ID3FrameRecordingDayMonth&) const = default;
};

struct ID3FrameRecordingHourMinute {
    int hour = 0;
    int minute = 0;
    bool operator==(const ID3FrameRecordingHourMinute&) const = default;
};

using ID3Frame =
    std::variant<ID3FrameWithStringContent, ID3FrameWithIntegerContent, ID3FrameWithLocalizedContent,
                 ID3FrameGenre, ID3FramePartOfTotal, ID3FrameAttachedPicture, ID3FrameRecordingDateTime,
                 ID3FrameRecordingDayMonth, ID3FrameRecordingHourMinute>;

/// The key of a frame in a tag. Pictures differ by type, lyrics and comments by language.
struct FrameName {
    enum Kind : std::uint8_t {
        picture,
        lyrics,
        localizedComment,
        title,
        album,
        albumArtist,
        artist,
        composer,
        conductor,
        contentGrouping,
        copyright,
        encodedBy,
        encoderSettings,
        fileOwner,
        lyricist,
        mixArtist,
        publisher,
        subtitle,
        beatsPerMinute,
        originalFilename,
        lengthInMilliseconds,
        sizeInBytes,
        genre,
        discPosition,
        trackPosition,
        initialKey,
        recordingDayMonth,
        recordingYear,
        recordingHourMinute,
        recordingDateTime,
        iTunesGrouping,
        iTunesMovementName,
        iTunesMovementIndex,
        iTunesMovementCount,
        iTunesPodcastCategory,
        iTunesPodcastDescription,
        iTunesPodcastID,
        iTunesPodcastKeywords,
    };

    // NOLINTNEXTLINE(google-explicit-constructor): a plain kind is a name
    FrameName(Kind frameKind)
        : kind(frameKind) {}

    static FrameName attachedPicture(ID3PictureType type) { return {picture, type, {}}; }

    static FrameName unsynchronizedLyrics(std::string language) { return {lyrics, {}, std::move(language)}; }

    static FrameName comment(std::string language) { return {localizedComment, {}, std::move(language)}; }

    Kind kind;
    ID3PictureType pictureType{};
    std::string language{};

    auto operator<=>(const FrameName&) const = default;

  private:
    FrameName(Kind frameKind, ID3PictureType type, std::string frameLanguage)
        : kind(frameKind)
        , pictureType(type)
        , language(std::move(frameLanguage)) {}
};

struct ID3TagProperties {
    ID3Version version = ID3Version::version3;
    std::uint32_t size = 0; ///< bytes after the tag header, as the header declares; 0 in a tag that was built
};

struct ID3Tag {
    ID3TagProperties properties;
    std::map<FrameName, ID3Frame> frames;
    /// Kinds of which the file holds a frame whose content could not be had: encrypted, or compressed in a
    /// way that does not come out. Only reading fills it.
    std::set<FrameName::Kind> unreadable{};

    /// The frame of that name if there is one of that type.
    template <typename Frame>
    [[nodiscard]] const Frame* frame(const FrameName& name) const {
        const auto found = frames.find(name);
        return found == frames.end() ? nullptr : std::get_if<Frame>(&found->second);
    }
};

/// Read-side accessors over a tag, which outlives the reader.
class ID3TagContentReader {
  public:
    explicit ID3TagContentReader(const ID3Tag& tag)
        : tag_(tag) {}

    /// A text frame's content.
    [[nodiscard]] const std::string* text(FrameName::Kind name) const {
        const auto* frame = tag_.frame<ID3FrameWithStringContent>(name);
        return frame ? &frame->content : nullptr;
    }

    [[nodiscard]] const std::string* title() const { return text(FrameName::title); }

    [[nodiscard]] const std::string* artist() const { return text(FrameName::artist); }

    [[nodiscard]] const std::string* album() const { return text(FrameName::album); }

    [[nodiscard]] const std::string* albumArtist() const { return text(FrameName::albumArtist); }

    [[nodiscard]] const ID3FrameGenre* genre() const { return tag_.frame<ID3FrameGenre>(FrameName::genre); }

    [[nodiscard]] const ID3FramePartOfTotal* trackPosition() const {
        return tag_.frame<ID3FramePartOfTotal>(FrameName::trackPosition);
    }

    [[nodiscard]] const ID3FramePartOfTotal* discPosition() const {
        return tag_.frame<ID3FramePartOfTotal>(FrameName::discPosition);
    }

    [[nodiscard]] const ID3FrameAttachedPicture* attachedPicture(ID3PictureType type) const {
        return tag_.frame<ID3FrameAttachedPicture>(FrameName::attachedPicture(type));
    }

  private:
    const ID3Tag& tag_;
};

} // namespace velto::id3
