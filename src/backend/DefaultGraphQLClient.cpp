#include "backend/DefaultGraphQLClient.hpp"

#include "backend/BackendAddress.hpp"
#include "backend/GraphQLError.hpp"
#include "backend/Json.hpp"
#include "platform/http/Url.hpp"
#include "platform/log/Log.hpp"

#include <utility>

namespace velto {

namespace {

using Case = GraphQLClientError::Case;

/// No operation has a reply near this; what is larger is not a reply of the backend's.
constexpr std::size_t maximumReply = std::size_t{8} << 20;

std::string requestBody(std::string document, const GraphQLVariables& variables) {
    nlohmann::json body{{"query", std::move(document)}};
    if (variables) body["variables"] = *variables;
    try {
        return body.dump();
    } catch (const nlohmann::json::exception&) {
        throw json::CodingError("The request holds text that is not UTF-8");
    }
}

std::string messages(const std::vector<GraphQLError>& errors) {
    constexpr std::size_t enough = 2000;
    std::string text;
    for (const GraphQLError& error : errors) {
        if (!text.empty()) text += ", ";
        text += '"' + error.message.substr(0, enough) + '"';
        if (text.size() > enough) break;
    }
    return "[" + text + "]";
}

/// The reply's envelope: its errors, and its data through the caller's decoder. False if there is no data.
bool decodeEnvelope(const std::string& body, const GraphQLClient::ResponseType& type,
                    std::vector<GraphQLError>& errors) {
    const nlohmann::json reply = json::parse(body);
    const json::Decoder envelope(reply);
    const auto data = envelope.find("data");
    if (data) type.decode(*data);
    if (const auto list = envelope.find("errors")) errors = list->array<GraphQLError>();
    return data.has_value();
}

Task<std::optional<std::string>> tokenOf(KeyringService& keyring, Executors executors) {
    try {
        co_return co_await offload(executors, [&keyring] { return keyring.retrieveToken(); });
    } catch (const std::exception&) {
        co_return std::nullopt;
    }
}

} // namespace

TokenSource keyringTokenSource(KeyringService& keyring, Executors executors) {
    return [&keyring, executors] { return tokenOf(keyring, executors); };
}

DefaultGraphQLClient::DefaultGraphQLClient(std::string endpoint, TokenSource getToken,
                                           http::Transport& transport, CrashReporter& crashReporter)
    : endpoint_(std::move(endpoint))
    , getToken_(std::move(getToken))
    , transport_(transport)
    , crashReporter_(crashReporter) {}

Task<void> DefaultGraphQLClient::perform(std::string document, GraphQLVariables variables,
                                         ResponseType type) {
    const std::string body = co_await reply(std::move(document), std::move(variables));
    decodeReply(body, type);
}

Task<std::string> DefaultGraphQLClient::reply(std::string document, GraphQLVariables variables) {
    if (!http::Url::parse(endpoint_)) throw GraphQLClientError(Case::invalidURL);
    if (isOpenToOthers(endpoint_)) throw GraphQLClientError(Case::openToOthers);
    const std::optional<std::string> token = co_await getToken_();
    if (!token) throw GraphQLClientError(Case::noToken);
    log::line("📡 [GraphQL] Executing request to: {}", endpoint_);

    http::Request request;
    request.url = endpoint_;
    request.method = "POST";
    request.headers.push_back({"Content-Type", "application/json"});
    request.headers.push_back({"Authorization", "Bearer " + *token});
    request.body = requestBody(std::move(document), variables);
    request.maximumBodySize = maximumReply;
    http::Response response = co_await transport_.send(std::move(request));

    log::line("📡 [GraphQL] Response received, data size: {} bytes", response.body.size());
    if (!response.status) {
        log::line("❌ [GraphQL] Response is not HTTPURLResponse");
        throw GraphQLClientError(Case::invalidResponse);
    }
    log::line("📡 [GraphQL] HTTP Status Code: {}", *response.status);
    if (*response.status == 401) {
        log::line("❌ [GraphQL] Unauthorized (401)");
        throw GraphQLClientError(Case::unauthorized);
    }
    if (*response.status != 200) {
        log::line("❌ [GraphQL] Non-200 status code: {}", *response.status);
        throw GraphQLClientError(Case::invalidResponse);
    }
    co_return std::move(response.body);
}

void DefaultGraphQLClient::decodeReply(const std::string& body, const ResponseType& type) const {
    std::vector<GraphQLError> errors;
    bool hasData = false;
    try {
        hasData = decodeEnvelope(body, type, errors);
    } catch (const json::CodingError& error) {
        log::line("❌ [GraphQL] Decoding error: {}", error.what());
        log::line("❌ [GraphQL] Failed to decode type: {}", type.name);
        crashReporter_.recordError(error);
        throw GraphQLClientError(Case::decodingError, std::current_exception());
    }
    const auto failWith = [this](const GraphQLClientError& error) {
        log::line("❌ [GraphQL] GraphQL error: {}", error.what());
        crashReporter_.recordError(error);
        throw error;
    };
    if (!errors.empty()) {
        log::line("❌ [GraphQL] GraphQL errors: {}", messages(errors));
        failWith(GraphQLClientError(std::move(errors)));
    }
    if (!hasData) {
        log::line("❌ [GraphQL] Response data is nil");
        failWith(GraphQLClientError(Case::invalidResponse));
    }
    log::line("✅ [GraphQL] Successfully decoded response");
}

} // namespace velto
