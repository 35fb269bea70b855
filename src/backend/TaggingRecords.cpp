#include "backend/TaggingRecords.hpp"

#include "backend/Json.hpp"

#include <array>

namespace velto {

namespace {

struct TypeNames {
    TaggingErrorType type;
    const char* wire;
    const char* label;
};

constexpr std::array<TypeNames, 4> typeNames{{
    {TaggingErrorType::rateLimit, "rate_limit", "Rate Limit"},
    {TaggingErrorType::parsing, "parsing", "Parsing"},
    {TaggingErrorType::network, "network", "Network"},
    {TaggingErrorType::unknown, "unknown", "Unknown"},
}};

TaggingErrorType decodeType(const json::Decoder& from) {
    const std::string name = from.text();
    for (const TypeNames& names : typeNames)
        if (name == names.wire) return names.type;
    from.fail("no known type of tagging error");
}

} // namespace

std::string_view label(TaggingErrorType type) {
    for (const TypeNames& names : typeNames)
        if (type == names.type) return names.label;
    return "";
}

nlohmann::json TrackTaggingInput::encode() const {
    nlohmann::json object{{"id", id}, {"artist", artist}, {"title", title}};
    if (album) object["album"] = *album;
    return object;
}

TaggingError TaggingError::decode(const json::Decoder& from) {
    return {decodeType(from.at("type")), json::shortened(from.at("message").text()),
            from.optionalInteger("batchNumber")};
}

TrackTagsData TrackTagsData::decode(const json::Decoder& from) {
    return {from.at("id").text(),      from.at("artist").text(),   from.at("title").text(),
            from.at("genres").texts(), from.at("regions").texts(), from.optionalText("era")};
}

TagTracksData TagTracksData::decode(const json::Decoder& from) {
    TagTracksData data;
    data.success = from.at("success").boolean();
    data.message = from.optionalText("message");
    if (data.message) data.message = json::shortened(*std::move(data.message));
    data.tracksTagged = from.at("tracksTagged").integer();
    data.creditsConsumed = from.at("creditsConsumed").integer();
    data.results = from.at("results").array<TrackTagsData>();
    data.errors = from.at("errors").array<TaggingError>();
    data.shouldRetry = from.optionalBoolean("shouldRetry");
    data.retryAfter = from.optionalInteger("retryAfter");
    return data;
}

TagTracksResponse TagTracksResponse::decode(const json::Decoder& from) {
    return {TagTracksData::decode(from.at("tagTracks"))};
}

} // namespace velto
