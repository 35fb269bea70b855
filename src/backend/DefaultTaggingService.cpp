#include "backend/DefaultTaggingService.hpp"

#include "backend/GraphQLError.hpp"
#include "backend/Json.hpp"
#include "platform/http/URLError.hpp"
#include "platform/log/Log.hpp"

#include <algorithm>
#include <utility>

namespace velto {

namespace {

constexpr const char* tagTracksDocument =
    "mutation TagTracks($input: TagTracksInput!) {\n    tagTracks(input: $input) {\n        success\n        "
    "message\n        tracksTagged\n        creditsConsumed\n        results {\n            id\n            "
    "artist\n            title\n            genres\n            regions\n            era\n        }\n        "
    "errors {\n            type\n            message\n            batchNumber\n        }\n        "
    "shouldRetry\n"
    "        retryAfter\n    }\n}";

TaggingResult resultOf(const TagTracksData& data) {
    TaggingResult result;
    result.success = data.success;
    result.message = data.message.value_or("No message provided");
    result.tracksTagged = data.tracksTagged;
    result.creditsConsumed = data.creditsConsumed;
    result.tags.reserve(data.results.size());
    for (const TrackTagsData& tags : data.results)
        result.tags.push_back({tags.id, tags.artist, tags.title, tags.genres, tags.regions, tags.era});
    result.errors = data.errors;
    result.shouldRetry = data.shouldRetry;
    result.retryAfter = data.retryAfter;
    return result;
}

/// Throws what a reply without success means; returns if it means no failure of its own.
void throwFailureOf(const TagTracksData& data, std::int64_t inputs) {
    const bool limited = std::any_of(data.errors.begin(), data.errors.end(), [](const TaggingError& error) {
        return error.type == TaggingErrorType::rateLimit;
    });
    if (limited) throw TaggingServiceError::rateLimitExceeded(data.retryAfter);
    // The reply does not say what the balance is.
    if (data.message && data.message->find("Insufficient credits") != std::string::npos)
        throw TaggingServiceError::insufficientCredits(inputs, 0);
    if (data.tracksTagged > 0 && data.tracksTagged < inputs)
        throw TaggingServiceError::partialFailure(data.tracksTagged, inputs - data.tracksTagged, data.errors);
}

} // namespace

DefaultTaggingService::DefaultTaggingService(GraphQLClient& graphQLClient, CrashReporter& crashReporter)
    : graphQLClient_(graphQLClient)
    , crashReporter_(crashReporter) {}

Task<TaggingResult> DefaultTaggingService::tagTracks(std::vector<TrackTaggingInput> tracks) {
    const auto inputs = static_cast<std::int64_t>(tracks.size());
    log::line("🏷️ [TAGGING] Starting to tag {} tracks", inputs);
    const TagTracksData data = co_await request(std::move(tracks));
    log::line("🏷️ [TAGGING] Success: {}, Tagged: {}, Credits: {}", data.success, data.tracksTagged,
              data.creditsConsumed);
    TaggingResult result = resultOf(data);
    if (!data.success) throwFailureOf(data, inputs);
    co_return result;
}

Task<TagTracksData> DefaultTaggingService::request(std::vector<TrackTaggingInput> tracks) {
    try {
        nlohmann::json list = nlohmann::json::array();
        for (const TrackTaggingInput& track : tracks)
            list.push_back(track.encode());
        auto variables = std::make_shared<nlohmann::json>();
        (*variables)["input"]["tracks"] = std::move(list);
        TagTracksResponse response =
            co_await graphQLClient_.execute<TagTracksResponse>(tagTracksDocument, std::move(variables));
        co_return std::move(response.tagTracks);
    } catch (const TaggingServiceError&) {
        throw;
    } catch (const std::exception& error) {
        const auto* clientError = dynamic_cast<const GraphQLClientError*>(&error);
        if (clientError != nullptr && clientError->kind() == GraphQLClientError::Case::unauthorized)
            throw TaggingServiceError::authenticationRequired();
        if (!http::isOffline(error)) crashReporter_.recordError(error);
        throw TaggingServiceError::networkError(std::current_exception());
    }
}

} // namespace velto
