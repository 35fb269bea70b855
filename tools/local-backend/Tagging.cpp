#include "Tagging.hpp"

#include "Tagger.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace velto::local {

using nlohmann::json;

namespace {

constexpr std::size_t largestBatch = 50;

json emptyResult() {
    return {{"success", true},        {"message", nullptr},       {"tracksTagged", 0},
            {"creditsConsumed", 0},   {"results", json::array()}, {"errors", json::array()},
            {"shouldRetry", nullptr}, {"retryAfter", nullptr}};
}

json error(const char* type, const std::string& message) {
    return {{"type", type}, {"message", message}, {"batchNumber", nullptr}};
}

json refusal(const std::string& message) {
    auto result = emptyResult();
    result["success"] = false;
    result["message"] = message;
    return result;
}

json rateLimited(std::int64_t retryAfter) {
    auto result = refusal("Rate limit exceeded");
    result["errors"].push_back(error("rate_limit", "Too many requests"));
    result["shouldRetry"] = true;
    result["retryAfter"] = retryAfter;
    return result;
}

json insufficientCredits(std::size_t needed, std::int64_t available) {
    return refusal(fmt::format("Insufficient credits: {} needed, {} available", needed, available));
}

std::string text(const json& track, const char* key) {
    const auto found = track.find(key);
    return found == track.end() || found->is_null() ? std::string() : found->get<std::string>();
}

std::string identifier(const json& track) {
    const auto& id = track.at("id");
    return id.is_string() ? id.get<std::string>() : id.dump();
}

json tagOne(const json& track) {
    const auto artist = text(track, "artist"), title = text(track, "title");
    const auto tags = tagByRules(artist, title, text(track, "album"));
    return {{"id", identifier(track)}, {"artist", artist},
            {"title", title},          {"genres", tags.genres},
            {"regions", tags.regions}, {"era", tags.era ? json(*tags.era) : json()}};
}

} // namespace

json tagBatch(State& state, std::int64_t account, const json& tracks, const std::optional<Fault>& fault) {
    const auto hits = [&](FaultKind kind) { return fault && fault->kind == kind; };
    if (hits(FaultKind::rateLimit)) return rateLimited(fault->number);
    if (hits(FaultKind::insufficientCredits)) return insufficientCredits(tracks.size(), 0);
    if (tracks.size() > largestBatch) {
        auto result = refusal(fmt::format("A batch holds at most {} tracks", largestBatch));
        result["errors"].push_back(error("unknown", result["message"]));
        return result;
    }

    auto result = emptyResult();
    auto& results = result["results"];
    for (const auto& track : tracks) {
        if (text(track, "artist").empty() || text(track, "title").empty())
            result["errors"].push_back(
                error("parsing", fmt::format("Track {} has no artist or no title", identifier(track))));
        else if (hits(FaultKind::partial) && results.size() >= tracks.size() / 2)
            result["errors"].push_back(
                error("unknown", fmt::format("Track {} was left out", identifier(track))));
        else
            results.push_back(tagOne(track));
    }
    const auto charge = state.charge(account, static_cast<std::int64_t>(results.size()));
    if (!charge.done) return insufficientCredits(results.size(), charge.available);
    result["tracksTagged"] = result["creditsConsumed"] = results.size();
    result["success"] = !hits(FaultKind::partial);
    result["message"] = fmt::format("{} of {} tracks tagged by fixed rules of the local backend, not by AI",
                                    results.size(), tracks.size());
    return result;
}

} // namespace velto::local
