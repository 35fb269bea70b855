#pragma once

#include "platform/core/Error.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Reading what audio files say about themselves, and rewriting their tags without touching their audio. The
/// media library under it does not show in these headers. No function keeps state: any thread may call.
namespace velto::media {

/// A file that cannot be opened, is not audio of a known kind, is damaged, or cannot be written.
class MediaError : public Error {
  public:
    enum class Case {
        cannotOpen,
        notAudio,
        damaged,
        unsupportedContainer,
        cannotWrite,
    };

    /// `detail` ends the text: why, in words (a system call's reason, what is wrong with the file).
    MediaError(Case kind, const std::filesystem::path& path, std::string_view detail = {});

    [[nodiscard]] Case kind() const { return kind_; }

  private:
    Case kind_;
};

/// Meanings that every container has; see MetadataItem::commonKey.
namespace common_key {
inline constexpr std::string_view artist = "artist";
inline constexpr std::string_view title = "title";
inline constexpr std::string_view albumName = "albumName";
inline constexpr std::string_view type = "type"; ///< the genre
inline constexpr std::string_view creationDate = "creationDate";
} // namespace common_key

namespace key_space {
inline constexpr std::string_view id3 = "org.id3";
inline constexpr std::string_view iTunes = "itsk";
inline constexpr std::string_view userData = "udta";
inline constexpr std::string_view quickTimeMetadata = "mdta";
inline constexpr std::string_view vorbis = "vorbis";
inline constexpr std::string_view riffInfo = "INFO";
inline constexpr std::string_view aiffText = "AIFF";
inline constexpr std::string_view ape = "APE";
inline constexpr std::string_view id3v1 = "ID3v1";
} // namespace key_space

/// Identifiers that writers name when they add a genre.
namespace identifier {
inline constexpr std::string_view id3ContentType = "TCON";
inline constexpr std::string_view iTunesUserGenre = "itsk/%A9gen";
inline constexpr std::string_view quickTimeGenre = "mdta/com.apple.quicktime.genre";
} // namespace identifier

/// Stands for a value of bytes (a cover, say), which is never read into memory.
struct Binary {
    bool operator==(const Binary&) const = default;
};

/// One entry of a file's tags. All texts are valid UTF-8.
struct MetadataItem {
    using Value = std::variant<std::monostate, std::string, std::int64_t, double, Binary>;

    std::optional<std::string> commonKey;  ///< one of common_key
    std::optional<std::string> identifier; ///< "TIT2", "itsk/%A9gen", "vorbis/GENRE"
    std::optional<std::string> keySpace;   ///< one of key_space
    std::optional<std::string> key;        ///< the container's own name: "TIT2", "©gen", "GENRE"
    std::string description;               ///< words for people: "genre"
    Value value;
    std::optional<std::int64_t> numberValue; ///< the value's reading as a number: 3 for "3/12"

    [[nodiscard]] const std::string* text() const { return std::get_if<std::string>(&value); }
};

/// What one open and one parse of a file give.
struct Asset {
    /// In container order; if a file has several tags, the one that players prefer comes last, so that the
    /// last item of a common key is the one to take.
    std::vector<MetadataItem> items;
    double durationSeconds; ///< NaN if the container does not say
};

/// Reads tags and duration of an mp3, m4a, mp4, aac, flac, wav, aiff or aif file. Nothing is decoded, and
/// time and memory are bounded whatever the file holds. The file's content decides between raw AAC and MP4,
/// its extension otherwise. Throws MediaError.
[[nodiscard]] Asset openAsset(const std::filesystem::path& path);

} // namespace velto::media
