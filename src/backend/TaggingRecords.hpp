#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

namespace json {
class Decoder;
}

/// One track of a request.
struct TrackTaggingInput {
    /// Echoed by the server; means nothing beyond one request.
    std::string id;
    std::string artist;
    std::string title;
    std::optional<std::string> album;

    [[nodiscard]] nlohmann::json encode() const;
};

struct TrackTags {
    std::string id;
    std::string artist;
    std::string title;
    std::vector<std::string> genres;
    std::vector<std::string> regions;
    std::optional<std::string> era;
};

enum class TaggingErrorType { rateLimit, parsing, network, unknown };

/// "Rate Limit", "Parsing", "Network", "Unknown": as the user sees it.
[[nodiscard]] std::string_view label(TaggingErrorType type);

struct TaggingError {
    TaggingErrorType type = TaggingErrorType::unknown;
    std::string message;
    std::optional<std::int64_t> batchNumber;

    static TaggingError decode(const json::Decoder& from);
};

/// One track of a reply. A name of a genre, region or era is at most 200 characters long, has no control
/// characters and no white space at its ends, and is not empty; a list has at most 50 of them. What goes
/// beyond is cut off rather than refused: the track has been paid for, and a refusal would leave it without
/// its tags.
struct TrackTagsData {
    std::string id;
    std::string artist;
    std::string title;
    std::vector<std::string> genres;
    std::vector<std::string> regions;
    std::optional<std::string> era;

    static TrackTagsData decode(const json::Decoder& from);
};

struct TagTracksData {
    bool success = false;
    std::optional<std::string> message;
    std::int64_t tracksTagged = 0;
    std::int64_t creditsConsumed = 0;
    std::vector<TrackTagsData> results;
    std::vector<TaggingError> errors;
    std::optional<bool> shouldRetry;
    /// Milliseconds.
    std::optional<std::int64_t> retryAfter;

    static TagTracksData decode(const json::Decoder& from);
};

/// The reply to TagTracks.
struct TagTracksResponse {
    static constexpr std::string_view typeName = "TagTracksResponse";

    TagTracksData tagTracks;

    static TagTracksResponse decode(const json::Decoder& from);
};

} // namespace velto
