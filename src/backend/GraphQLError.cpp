#include "backend/GraphQLError.hpp"

#include "backend/Json.hpp"

#include <utility>

namespace velto {

namespace {

using Case = GraphQLClientError::Case;

std::string fullText(Case kind, const std::exception_ptr& underlying) {
    switch (kind) {
    case Case::networkError:
        return "Network error: " + describe(underlying);
    case Case::graphQLErrors:
        return "GraphQL query failed";
    case Case::decodingError:
        return "Failed to decode response: " + describe(underlying);
    case Case::invalidURL:
        return "Invalid API endpoint URL";
    case Case::invalidResponse:
        return "Invalid response from server";
    case Case::unauthorized:
        return "Unauthorized - please sign in again";
    case Case::noToken:
        return "No authentication token found";
    case Case::openToOthers:
        return "The backend's address begins with http://, so others could read the sign-in on its way. Use "
               "its https:// address; http:// is for a backend on this computer.";
    }
    return "";
}

} // namespace

GraphQLError GraphQLError::decode(const json::Decoder& from) {
    GraphQLError error;
    error.message = json::shortened(from.at("message").text());
    error.path = from.optionalTexts("path");
    if (const auto extensions = from.find("extensions")) {
        if (!extensions->value().is_object()) extensions->fail("expected an object");
        auto& values = error.extensions.emplace();
        // Not through `find`: null is a value here.
        for (const auto& [key, value] : extensions->value().items())
            values.emplace(key, AnyCodable::decode(json::Decoder(value, "extensions." + key)));
    }
    return error;
}

GraphQLClientError::GraphQLClientError(Case kind)
    : GraphQLClientError(kind, nullptr) {}

GraphQLClientError::GraphQLClientError(Case kind, const std::exception_ptr& underlying)
    : Error(fullText(kind, underlying))
    , kind_(kind)
    , underlying_(underlying) {}

GraphQLClientError::GraphQLClientError(std::vector<GraphQLError> errors)
    : Error(errors.empty() ? fullText(Case::graphQLErrors, nullptr) : errors.front().message)
    , kind_(Case::graphQLErrors)
    , errors_(std::move(errors)) {}

} // namespace velto
