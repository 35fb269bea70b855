#include "backend/TaggingRecords.hpp"

#include "backend/Json.hpp"
#include "platform/text/Text.hpp"

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

constexpr std::size_t longestName = 200; ///< in characters
constexpr std::size_t mostNames = 50;    ///< a list

/// The size in bytes of the control character that the text begins with; 0 if it begins with another.
std::size_t controlSize(std::string_view text) {
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    };
    if (byte(0) < 0x20 || byte(0) == 0x7F) return 1;
    const bool isUpperControl = byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) < 0xA0;
    const bool isLineSeparator = byte(0) == 0xE2 && byte(1) == 0x80 && (byte(2) == 0xA8 || byte(2) == 0xA9);
    return isUpperControl ? 2 : isLineSeparator ? 3 : 0;
}

/// Nothing if no name is left.
std::optional<std::string> bounded(std::string_view name) {
    std::string clean;
    std::size_t characters = 0;
    for (std::string_view rest = text::trimmedView(name); !rest.empty();) {
        const std::size_t control = controlSize(rest);
        const bool startsCharacter = (static_cast<unsigned char>(rest.front()) & 0xC0U) != 0x80U;
        if (control == 0 && startsCharacter && ++characters > longestName) break;
        if (control == 0) clean += rest.front();
        rest.remove_prefix(control == 0 ? 1 : control);
    }
    clean = text::trimmed(clean);
    return clean.empty() ? std::nullopt : std::optional(clean);
}

std::vector<std::string> bounded(const std::vector<std::string>& names) {
    std::vector<std::string> kept;
    for (const std::string& name : names) {
        if (kept.size() == mostNames) break;
        if (auto clean = bounded(name)) kept.push_back(*std::move(clean));
    }
    return kept;
}

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
    const auto era = from.optionalText("era");
    return {from.at("id").text(),
            from.at("artist").text(),
            from.at("title").text(),
            bounded(from.at("genres").texts()),
            bounded(from.at("regions").texts()),
            era ? bounded(*era) : std::nullopt};
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
